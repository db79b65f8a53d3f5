// The program's place on the system, seen from outside: the one coordinator of a name, its configuration
// files, its session files, the self-test mode and the switches that refuse to run.

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "BrwTestEnvironment.h"

namespace {

using BrwTests::Background;
using BrwTests::runProcess;
using BrwTests::waitFor;
namespace fs = std::filesystem;

const std::string kBinary = BRW_BINARY_PATH;
const std::string kRunningAlready = "is running already";

class PlaceTest : public testing::Test {
protected:
    static void SetUpTestSuite() { BrwTests::isolateHome(); }

    // Each test starts without a main configuration file and ends without one.
    void SetUp() override { fs::remove(mainConfigPath()); }
    void TearDown() override { fs::remove(mainConfigPath()); }

    static fs::path dataFolder() { return fs::path(BrwTests::isolatedHome()) / ".local/share/net.braidwell"; }
    static fs::path mainConfigPath() { return dataFolder() / "SysConfig/config.ini"; }
    static fs::path sessionFile(const std::string& name, const std::string& extension) {
        return dataFolder() / "SessionData" / (name + extension);
    }
};

std::string readText(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

void writeText(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

TEST_F(PlaceTest, TwoCoordinatorsOfOneNameStartedTogetherRunOneAtATime) {
    for (int round = 0; round < 3; ++round) {
        const std::string name = BrwTests::uniqueName("net.braidwell.coordinator.twin");
        BrwTests::ProcessResult results[2];
        std::thread starters[2];
        for (int i = 0; i < 2; ++i) {
            starters[i] = std::thread([&, i] {
                results[i] = runProcess({kBinary, "-n", name, "-w", "1000"}, "", 20000);
            });
        }
        for (std::thread& starter : starters) {
            starter.join();
        }
        const int refused = (results[0].standardError.find(kRunningAlready) != std::string::npos ? 1 : 0) +
                            (results[1].standardError.find(kRunningAlready) != std::string::npos ? 1 : 0);
        EXPECT_EQ(refused, 1) << "round " << round << ": " << results[0].standardError << " | "
                              << results[1].standardError;
        EXPECT_EQ(results[0].exitCode, 0);
        EXPECT_EQ(results[1].exitCode, 0);
        // The one that ran took its files with it.
        EXPECT_FALSE(fs::exists(sessionFile(name, ".pid")));
    }
}

TEST_F(PlaceTest, PidFileRemovedUnderARunningCoordinatorIsPublishedAgain) {
    const std::string name = BrwTests::uniqueName("net.braidwell.coordinator.republished");
    const fs::path pidFile = sessionFile(name, ".pid");
    Background server({kBinary, "-s", "-n", name});
    ASSERT_TRUE(waitFor([&] { return readText(pidFile) == std::to_string(server.pid()); }));
    fs::remove(pidFile);
    ASSERT_TRUE(waitFor([&] { return readText(pidFile) == std::to_string(server.pid()); }));
    // The new file is locked as the first was: the name is still taken.
    auto refused = runProcess({kBinary, "-n", name, "-w", "0"});
    EXPECT_NE(refused.standardError.find(kRunningAlready), std::string::npos) << refused.standardError;
}

TEST_F(PlaceTest, PidFileOfAKilledCoordinatorStopsNobody) {
    const std::string name = BrwTests::uniqueName("net.braidwell.coordinator.killed");
    const fs::path pidFile = sessionFile(name, ".pid");
    {
        Background server({kBinary, "-s", "-n", name});
        ASSERT_TRUE(waitFor([&] { return readText(pidFile) == std::to_string(server.pid()); }));
        // While it runs, nobody else takes the name.
        auto refused = runProcess({kBinary, "-n", name, "-w", "0"});
        EXPECT_NE(refused.standardError.find(kRunningAlready), std::string::npos) << refused.standardError;
        server.kill(SIGKILL);
    }
    ASSERT_TRUE(fs::exists(pidFile));
    auto next = runProcess({kBinary, "-n", name, "-w", "0"});
    EXPECT_EQ(next.exitCode, 0);
    EXPECT_EQ(next.standardError, "");
    EXPECT_FALSE(fs::exists(pidFile));
}

// The configuration picks the script a coordinator runs: which one ran shows which value won.
class ConfigTest : public PlaceTest {
protected:
    void SetUp() override {
        PlaceTest::SetUp();
        fFolder = fs::path(BrwTests::isolatedHome()) / BrwTests::uniqueName("config");
        for (const char* marker : {"plain", "wildcard", "own", "extra", "switch"}) {
            writeText(fFolder / (std::string(marker) + ".bwq"),
                      std::string("writeFile(\"ran\", \"") + marker + "\")\n");
        }
    }

    std::string ranScript() const { return readText(fFolder / "ran"); }

    fs::path fFolder; // the scripts, and the file "ran" that the one that ran writes
};

TEST_F(ConfigTest, CoordinatorSectionOverWildcardOverPlainAndLaterFileOverEarlier) {
    const std::string folder = fFolder.string() + "/";
    writeText(mainConfigPath(), "[config]\nscriptFile=" + folder + "plain.bwq\n");
    runProcess({kBinary, "-w", "0"});
    EXPECT_EQ(ranScript(), "plain");

    writeText(mainConfigPath(), "[config.net.braidwell.coordinator.main]\nscriptFile=" + folder +
                                    "own.bwq\n[config.*]\nscriptFile=" + folder +
                                    "wildcard.bwq\n[config]\nscriptFile=" + folder + "plain.bwq\n");
    runProcess({kBinary, "-w", "0"});
    EXPECT_EQ(ranScript(), "own");
    // Another coordinator gets the wildcard section.
    runProcess({kBinary, "-w", "0", "-N", BrwTests::uniqueName("other")});
    EXPECT_EQ(ranScript(), "wildcard");

    // The file of -c comes later and wins, even with its plain section; a relative script path is taken
    // against that file's folder.
    writeText(fFolder / "extra.ini", "[config]\nscriptFile=extra.bwq\n");
    runProcess({kBinary, "-w", "0", "-c", (fFolder / "extra.ini").string()});
    EXPECT_EQ(ranScript(), "extra");
    // A switch wins over the configuration.
    runProcess({kBinary, "-w", "0", "-c", (fFolder / "extra.ini").string(), "-f", folder + "switch.bwq"});
    EXPECT_EQ(ranScript(), "switch");
    // A stray word behind a switch voids its argument: -f is refused, and the configuration stands.
    runProcess({kBinary, "-w", "0", "-f", folder + "switch.bwq", "stray"});
    EXPECT_EQ(ranScript(), "own");
}

TEST_F(ConfigTest, NamesOfTheSwitchesAndOfTheStack) {
    auto pidAppears = [&](const std::vector<std::string>& args, const std::string& name) {
        Background coordinator(args);
        return waitFor([&] { return fs::exists(sessionFile(name, ".pid")); });
    };
    const std::string shortName = BrwTests::uniqueName("short");
    EXPECT_TRUE(pidAppears({kBinary, "-s", "-N", shortName}, "net.braidwell.coordinator." + shortName));
    const std::string fullName = BrwTests::uniqueName("net.braidwell.coordinator.full");
    EXPECT_TRUE(pidAppears({kBinary, "-s", "-n", fullName}, fullName));
    // The stack may still rename a coordinator that -n named, through the URL map too.
    const std::string configured = BrwTests::uniqueName("configured");
    writeText(mainConfigPath(), "[urlMap]\nalias=" + configured + "\n[config]\ncoordinatorShortName=alias\n");
    EXPECT_TRUE(pidAppears({kBinary, "-s", "-n", fullName}, "net.braidwell.coordinator." + configured));
}

TEST_F(PlaceTest, SessionDataFollowsTheVariablesAndGoesAtTheEnd) {
    const std::string name = BrwTests::uniqueName("net.braidwell.coordinator.session");
    const fs::path sessionData = sessionFile(name, ".json");
    int inPipe[2];
    ASSERT_EQ(pipe(inPipe), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(inPipe[0], 0);
        close(inPipe[0]);
        close(inPipe[1]);
        execl(kBinary.c_str(), kBinary.c_str(), "-d", "-I", "-w", "0", "-n", name.c_str(), nullptr);
        _exit(127);
    }
    close(inPipe[0]);
    const std::string statement = "answer = 42;\n";
    ASSERT_EQ(write(inPipe[1], statement.data(), statement.size()), static_cast<ssize_t>(statement.size()));
    EXPECT_TRUE(waitFor([&] { return readText(sessionData).find("\"answer\":42") != std::string::npos; }))
        << readText(sessionData);
    close(inPipe[1]);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_FALSE(fs::exists(sessionData));
}

TEST_F(PlaceTest, RemoteCoordinatorNeedsAScriptFile) {
    for (const char* script : {"", "-"}) {
        std::vector<std::string> args = {kBinary, "-r", "brw://localhost/net.braidwell.coordinator.main",
                                         "-w", "60000"};
        if (script[0] != 0) {
            args.insert(args.end(), {"-f", script});
        }
        auto result = runProcess(args, "1 + 1\n", 10000);
        EXPECT_FALSE(result.timedOut);
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_EQ(result.standardOutput, "");
        EXPECT_EQ(result.standardError, "remoteCoordinatorURL without valid scriptFilePath\n");
    }
    const fs::path script = fs::path(BrwTests::isolatedHome()) / "remote.bwq";
    writeText(script, "writeFile(\"remote-ran\", \"yes\")\n");
    // Nobody serves x: the run ends at its time-out, says so, and the script ran nowhere.
    auto result = runProcess({kBinary, "-r", "brw://localhost/x", "-f", script.string(), "-o", "300"});
    EXPECT_FALSE(result.timedOut);
    EXPECT_NE(result.standardError.find("no reply from brw:///x/ within 300 ms"), std::string::npos)
        << result.standardError;
    EXPECT_FALSE(fs::exists(script.parent_path() / "remote-ran"));
}

// The self-test mode says at the end whether all passed: for a copy of the program whose shipped scripts
// hold one that fails, it names the script and counts the test as failed. (That a fresh build passes
// them all, the self-test program and the install check show.)
TEST_F(PlaceTest, SelfTestModeReportsAFailingScript) {
    const auto lastLine = [](const std::string& text) {
        const size_t end = text.find_last_not_of('\n');
        const size_t start = text.rfind('\n', end);
        return text.substr(start == std::string::npos ? 0 : start + 1,
                           end - (start == std::string::npos ? 0 : start + 1) + 1);
    };
    const fs::path prefix = fs::path(BrwTests::isolatedHome()) / BrwTests::uniqueName("installed");
    fs::create_directories(prefix / "bin");
    fs::copy_file(kBinary, prefix / "bin/braidwell");
    writeText(prefix / "share/braidwell/ReleaseTestScripts/broken.bwq", "\"fail\" + \"ure\"\n");
    auto failing = runProcess({(prefix / "bin/braidwell").string(), "-t", "y", "-w", "0"}, "", 600000);
    ASSERT_FALSE(failing.timedOut);
    EXPECT_TRUE(lastLine(failing.standardOutput).ends_with(" passed, 1 failed")) << failing.standardOutput;
    EXPECT_NE(failing.standardError.find("script broken.bwq failed: failure\n"), std::string::npos);
    EXPECT_NE(failing.standardError.find("test failed OMTest\n"), std::string::npos);
}

} // namespace

namespace {

// Kills, at the end of a test whatever happened, the coordinator that the configuration let a run launch.
class LaunchedCoordinator {
public:
    explicit LaunchedCoordinator(fs::path pidFile) : fPidFile(std::move(pidFile)) {}
    ~LaunchedCoordinator() {
        const pid_t processId = static_cast<pid_t>(std::atoi(readText(fPidFile).c_str()));
        if (processId > 0) {
            ::kill(processId, SIGKILL);
        }
    }

private:
    fs::path fPidFile;
};

// From a shell with nothing running: a statement on standard input evaluated on a coordinator that the
// configuration says how to start, and a script file sent with -r whose output comes back here.
TEST_F(PlaceTest, ScriptsRunOnAConfiguredCoordinatorThatIsStartedForThem) {
    const std::string name = BrwTests::uniqueName("net.braidwell.coordinator.beta");
    writeText(mainConfigPath(), "[config." + name + "]\nappPath = '" + kBinary + "' -s\n");
    LaunchedCoordinator launched(sessionFile(name, ".pid"));
    const std::string target = "brw:///" + name + "/default";
    auto result = runProcess({kBinary, "-I", "-w", "0"}, "eval(\"6 * 7\", \"" + target + "\")\n");
    EXPECT_EQ(result.standardOutput, "42\n");
    EXPECT_EQ(result.standardError, "");
    const fs::path script = fs::path(BrwTests::isolatedHome()) / (name + ".bwq");
    writeText(script, "stdOut(\"hi \\\"there\\\"\\n\")\nstdErr(sysInfo(\"pid\") + \"\\n\")\n");
    result = runProcess({kBinary, "-r", target, "-f", script.string()});
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.standardOutput, "hi \"there\"\n");
    // The script ran there, not here.
    EXPECT_EQ(result.standardError, readText(sessionFile(name, ".pid")) + "\n");
}

} // namespace
