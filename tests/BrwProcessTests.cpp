// What only a whole process shows: the exit status and output of the program, which loop it stays in,
// and the leak check at exit.

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwLogger.h"
#include "BrwMain/BrwMain.h"
#include "BrwObject/BrwObject.h"
#include "BrwTestEnvironment.h"

namespace {

using BrwTests::runProcess;

const std::string kBinary = BRW_BINARY_PATH;

class ProcessTest : public testing::Test {
protected:
    static void SetUpTestSuite() { BrwTests::isolateHome(); }
};

TEST_F(ProcessTest, VersionSwitchPrintsVersionAndEndsAtOnce) {
    auto result = runProcess({kBinary, "-v"}, "", 5000);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "0.1.1b1\n");
}

TEST_F(ProcessTest, ZeroGraceTimeEndsTheShortLoopAtOnce) {
    auto result = runProcess({kBinary, "-w", "0"}, "", 5000);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_EQ(result.standardError, "");
}

TEST_F(ProcessTest, ShortLoopIdlesThroughTheGraceTime) {
    auto start = std::chrono::steady_clock::now();
    auto result = runProcess({kBinary, "-w", "300"}, "", 10000);
    auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_GE(elapsed, std::chrono::milliseconds(300));
}

TEST_F(ProcessTest, ServerSwitchStaysUp) {
    auto result = runProcess({kBinary, "-s", "-w", "0"}, "", 400);
    EXPECT_TRUE(result.timedOut);
}

TEST_F(ProcessTest, ReflectorNameSelectsTheServerLoop) {
    auto result = runProcess({kBinary, "-n", "net.braidwell.coordinator.reflector", "-w", "0"}, "", 400);
    EXPECT_TRUE(result.timedOut);
}

// Feeds `input` to the standard-input mode without a grace time.
BrwTests::ProcessResult runStdIn(const std::string& input, std::vector<std::string> extraArgs = {},
                                 int timeoutMilliseconds = 20000) {
    std::vector<std::string> args = {kBinary, "-I", "-w", "0"};
    args.insert(args.end(), extraArgs.begin(), extraArgs.end());
    return runProcess(args, input, timeoutMilliseconds);
}

// Writes a file into the test's own home folder; its full path.
std::string writeHomeFile(const std::string& name, const std::string& text) {
    const std::string path = BrwTests::isolatedHome() + "/" + name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

TEST_F(ProcessTest, StdInEchoesTheValueOfEachLine) {
    auto result = runStdIn("1 + 2 * 3\n");
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "7\n");
    // Of several statements on a line only the last one's value shows; a semicolon at the end hides it.
    EXPECT_EQ(runStdIn("x = 1; y = 2\n").standardOutput, "2\n");
    EXPECT_EQ(runStdIn("1 + 1;\n").standardOutput, "");
    EXPECT_EQ(runStdIn("x = 5\nx * 2;\nx + 1").standardOutput, "5\n6\n");
    // With -i the streams are unbuffered and nothing else changes: no prompt, no echo of the input.
    EXPECT_EQ(runStdIn("1 + 2 * 3\n", {"-i"}).standardOutput, "7\n");
}

TEST_F(ProcessTest, StdInJoinsTheLinesOfAStatementUntilItsBracketsClose) {
    auto result = runStdIn("function twice(a) {\n"
                           "    // a comment inside\n"
                           "    return a * 2\n"
                           "};\n"
                           "twice(\n"
                           "  21\n"
                           ") /* a block\n comment */\n");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "42\n") << result.standardError;
}

TEST_F(ProcessTest, YieldDirectivesSplitAtSemicolonsInAnyCase) {
    auto result = runStdIn("//@yieldon\n"
                           "x = 1; y = 2\n"
                           "#YIELDOFF\n"
                           "x = 3; y = 4 // four\n"
                           "// @YieldOn\n"
                           "for (i = 0; i < 3; i++) { z = i }; z\n");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "1\n2\n4\n2\n") << result.standardError;
}

TEST_F(ProcessTest, ShebangLineIsPassedOnAndTheSessionGoesOn) {
    auto result = runStdIn("#!/usr/bin/env braidwell\n1 + 1\n");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_TRUE(result.standardOutput.ends_with("2\n")) << result.standardOutput;
}

TEST_F(ProcessTest, UnbalancedParenthesisEndsTheInputWithoutHanging) {
    auto result = runStdIn("1\n)\n2\n", {"-w", "0"});
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitCode, 0);
    // What came before the stray parenthesis ran; nothing after it can end a statement.
    EXPECT_EQ(result.standardOutput, "1\n");
    EXPECT_NE(result.standardError.find("unbalanced parensCountGlobal"), std::string::npos)
        << result.standardError;
    auto open = runStdIn("f(\n");
    EXPECT_FALSE(open.timedOut);
    EXPECT_EQ(open.exitCode, 0);
    EXPECT_NE(open.standardError.find("unbalanced parensCountGlobal"), std::string::npos);
}

TEST_F(ProcessTest, StdInWaitsTheGraceTimeAfterTheInputEnds) {
    const auto start = std::chrono::steady_clock::now();
    auto result = runProcess({kBinary, "-I", "-w", "400"}, "2 + 2\n");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(400));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "4\n");
}

TEST_F(ProcessTest, StartupScriptThenScriptFileThenStandardInput) {
    const std::string startup = writeHomeFile("startup.bwq", "base = 40\n");
    const std::string script = writeHomeFile("script.bwq", "// the startup script ran first\nx = base + 2\n");
    auto result = runStdIn("x\n", {"-F", startup, "-f", script});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "42\n") << result.standardError;
    // "-" as the script is standard input.
    EXPECT_EQ(runProcess({kBinary, "-w", "0", "-f", "-"}, "3 * 3\n").standardOutput, "9\n");
}

TEST_F(ProcessTest, ScriptFileRunsAndTheShortLoopFollows) {
    const std::string script = writeHomeFile("broken.bwq", "x = 1\nx +* 2\n");
    auto result = runProcess({kBinary, "-w", "0", "-f", script});
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_NE(result.standardError, "");
    // A relative path is made full at once, against the folder the process started in.
    const std::string name = BrwTests::uniqueName("missing") + ".bwq";
    auto missing = runProcess({kBinary, "-w", "0", "-f", name});
    EXPECT_EQ(missing.exitCode, 0);
    const std::string fullPath = (std::filesystem::current_path() / name).string();
    EXPECT_NE(missing.standardError.find("cannot read script file " + fullPath), std::string::npos)
        << missing.standardError;
}

TEST_F(ProcessTest, HelpListsTheSwitchesAndEndsAtOnce) {
    const auto start = std::chrono::steady_clock::now();
    auto result = runProcess({kBinary, "-w", "60000", "-h"}, "", 10000);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardError, "");
    for (const char* line : {"-e N ", "-F FILE ", "-f FILE ", "-h ", "-I ", "-i ", "-N NAME ", "-n NAME ",
                             "-P TEXT ", "-p TEXT ", "-s ", "-t y|n ", "-v ", "-w MS ", "-z "}) {
        EXPECT_NE(result.standardOutput.find(std::string("\n  ") + line), std::string::npos) << line;
    }
}

TEST_F(ProcessTest, UnknownSwitchIsNamedOnStandardError) {
    auto result = runProcess({kBinary, "-x", "-w", "0"}, "", 10000);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_NE(result.standardError.find("unknown switch -x\n"), std::string::npos) << result.standardError;
}

// A child process with a descriptor to write its input and one to read its output: the two ends of
// pipes, or the master side of a pseudo-terminal that is the child's standard input, output and error.
class ChildProcess {
public:
    ~ChildProcess() {
        if (fPid > 0) {
            kill(fPid, SIGKILL);
            waitpid(fPid, nullptr, 0);
        }
        closeInput();
        if (fReadFd >= 0 && fReadFd != fWriteFd) {
            close(fReadFd);
        }
    }

    bool startPiped(const std::vector<std::string>& args) {
        int inPipe[2], outPipe[2];
        if (pipe(inPipe) != 0 || pipe(outPipe) != 0) {
            return false;
        }
        fPid = fork();
        if (fPid == 0) {
            dup2(inPipe[0], 0);
            dup2(outPipe[1], 1);
            for (int fd : {inPipe[0], inPipe[1], outPipe[0], outPipe[1]}) {
                close(fd);
            }
            exec(args);
        }
        close(inPipe[0]);
        close(outPipe[1]);
        fWriteFd = inPipe[1];
        fReadFd = outPipe[0];
        return fPid > 0;
    }

    bool startOnTerminal(const std::vector<std::string>& args) {
        int master = -1, slave = -1;
        if (openpty(&master, &slave, nullptr, nullptr, nullptr) != 0) {
            return false;
        }
        fPid = fork();
        if (fPid == 0) {
            setsid();
            ioctl(slave, TIOCSCTTY, 0);
            for (int fd : {0, 1, 2}) {
                dup2(slave, fd);
            }
            close(master);
            close(slave);
            exec(args);
        }
        close(slave);
        fWriteFd = fReadFd = master;
        return fPid > 0;
    }

    // False when the child no longer reads: that is no signal to this process.
    bool send(const std::string& text) const {
        signal(SIGPIPE, SIG_IGN);
        return write(fWriteFd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    }

    void closeInput() {
        if (fWriteFd >= 0) {
            close(fWriteFd);
            if (fReadFd == fWriteFd) {
                fReadFd = -1;
            }
            fWriteFd = -1;
        }
    }

    // All output so far, once `text` is in it or the time is up.
    const std::string& readUntil(const std::string& text, int timeoutMilliseconds = 10000) {
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMilliseconds);
        while (fOutput.find(text) == std::string::npos && std::chrono::steady_clock::now() < deadline) {
            pollfd descriptor{fReadFd, POLLIN, 0};
            if (poll(&descriptor, 1, 50) != 1) {
                continue;
            }
            char buffer[4096];
            const ssize_t count = read(fReadFd, buffer, sizeof(buffer));
            if (count <= 0) {
                break;
            }
            fOutput.append(buffer, static_cast<size_t>(count));
        }
        return fOutput;
    }

    void sendSignal(int signalNumber) const { kill(fPid, signalNumber); }

    // The exit status; -1 when the process did not end in time or was ended by a signal.
    int awaitExit(int timeoutMilliseconds = 10000) {
        for (int waited = 0; waited < timeoutMilliseconds; waited += 10) {
            int status = 0;
            if (waitpid(fPid, &status, WNOHANG) == fPid) {
                fPid = -1;
                return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return -1;
    }

private:
    [[noreturn]] static void exec(const std::vector<std::string>& args) {
        std::vector<char*> argv;
        for (const auto& arg : args) {
            argv.push_back(const_cast<char*>(arg.c_str()));
        }
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }

    pid_t fPid = -1;
    int fWriteFd = -1;
    int fReadFd = -1;
    std::string fOutput;
};

TEST_F(ProcessTest, SlowWriterGetsEachStatementEvaluatedAtItsLineEnd) {
    ChildProcess child;
    ASSERT_TRUE(child.startPiped({kBinary, "-I", "-w", "0"}));
    // A statement in pieces, with pauses in between: nothing runs before its line end.
    ASSERT_TRUE(child.send("1 +"));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    ASSERT_TRUE(child.send(" 2"));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(child.readUntil("\n", 100), "");
    ASSERT_TRUE(child.send("\n"));
    // The value comes while the input is still open.
    EXPECT_EQ(child.readUntil("3\n"), "3\n");
    ASSERT_TRUE(child.send("f = function (a) {\n"));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    ASSERT_TRUE(child.send("return a + 1\n}; f(9)\n"));
    EXPECT_EQ(child.readUntil("10\n"), "3\n10\n");
    child.closeInput();
    EXPECT_EQ(child.awaitExit(), 0);
}

TEST_F(ProcessTest, InterruptIsIgnoredWithZ) {
    for (const bool isIgnored : {true, false}) {
        ChildProcess child;
        std::vector<std::string> args = {kBinary, "-I", "-w", "0"};
        if (isIgnored) {
            args.push_back("-z");
        }
        ASSERT_TRUE(child.startPiped(args));
        // Once a value comes back the switches have been taken.
        ASSERT_TRUE(child.send("1\n"));
        ASSERT_EQ(child.readUntil("1\n"), "1\n");
        child.sendSignal(SIGINT);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        child.send("2\n");
        EXPECT_EQ(child.readUntil("2\n", isIgnored ? 10000 : 500), isIgnored ? "1\n2\n" : "1\n");
        child.closeInput();
        EXPECT_EQ(child.awaitExit(), isIgnored ? 0 : -1);
    }
}

TEST_F(ProcessTest, ConsoleOnATerminalEditsEchoesPromptsAndEndsWithCtrlD) {
    ChildProcess child;
    ASSERT_TRUE(child.startOnTerminal({kBinary, "-i", "-p", "bw> ", "-P", ".. "}));
    EXPECT_NE(child.readUntil("bw> ").find("Interactive Braidwell version"), std::string::npos);
    // A typo erased with the backspace key: the terminal sends DEL.
    ASSERT_TRUE(child.send("6 * 77\x7f\r"));
    const std::string& output = child.readUntil("42\r\nbw> ");
    EXPECT_NE(output.find("6 * 77\b\x1b[K"), std::string::npos) << output;
    EXPECT_NE(output.find("42\r\nbw> "), std::string::npos) << output;
    // An unfinished statement shows the continuation prompt.
    ASSERT_TRUE(child.send("g = function () {\r"));
    EXPECT_NE(child.readUntil("\r\n.. ").find("\r\n.. "), std::string::npos);
    ASSERT_TRUE(child.send("return 5\r};\rg()\r"));
    EXPECT_NE(child.readUntil("5\r\nbw> ").find("5\r\nbw> "), std::string::npos);
    // Ctrl-D at an empty prompt ends the session at once, without a grace time.
    ASSERT_TRUE(child.send("\x04"));
    EXPECT_EQ(child.awaitExit(5000), 0);
}

// Hostile nesting: each construct a hundred times past the nesting limit.
struct DeepStatement {
    const char* name;
    std::string text; // one statement, on one line
};

std::string repeated(const std::string& piece, size_t count) {
    std::string text;
    text.reserve(piece.size() * count);
    for (size_t i = 0; i < count; ++i) {
        text += piece;
    }
    return text;
}

std::vector<DeepStatement> deepStatements(size_t depth) {
    return {
        {"arrays", "x = " + repeated("[", depth) + repeated("]", depth)},
        {"parentheses", "x = " + repeated("(", depth) + "1" + repeated(")", depth)},
        {"maps", "x = " + repeated("{a:", depth) + "1" + repeated("}", depth)},
        {"calls", "x = " + repeated("f(", depth) + "1" + repeated(")", depth)},
        {"ifs", "x = " + repeated("if (1) ", depth) + "1"},
        {"prefixes", "x = " + repeated("!", depth) + "y"},
        {"operators", "x = " + repeated("y * ", depth) + "y"},
        {"unclosed", "x = " + repeated("[", depth)},
    };
}

size_t occurrences(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
        ++count;
    }
    return count;
}

const std::string kTooDeep = "expression nested too deeply";

// The statement is dropped with one clear error and nothing else, and the session goes on with the next
// statement: in the standard-input mode, and from a script file.
TEST_F(ProcessTest, NestingPastTheLimitEndsTheStatementWithOneError) {
    const std::string setup = "y = 2; function f(a) { return a };\n";
    // A hang guard, not a measure: a sanitizer build on a busy machine reads these slowly.
    const int timeoutMilliseconds = 120000;
    for (const DeepStatement& deep : deepStatements(100000)) {
        SCOPED_TRACE(deep.name);
        auto viaStdIn = runStdIn(setup + deep.text + "\nx = 7;\nx\n", {}, timeoutMilliseconds);
        ASSERT_FALSE(viaStdIn.timedOut);
        EXPECT_EQ(viaStdIn.exitCode, 0);
        EXPECT_EQ(occurrences(viaStdIn.standardError, kTooDeep), 1u) << viaStdIn.standardError.substr(0, 500);
        EXPECT_EQ(viaStdIn.standardError.size(), kTooDeep.size() + 1)
            << viaStdIn.standardError.substr(0, 500);
        // An unclosed bracket holds every line behind it in the statement.
        EXPECT_EQ(viaStdIn.standardOutput, std::string(deep.name) == "unclosed" ? "" : "7\n");

        const std::string script = writeHomeFile("deep.bwq", setup + deep.text + "\nx = 7\n");
        auto viaFile = runStdIn("x\n", {"-f", script}, timeoutMilliseconds);
        ASSERT_FALSE(viaFile.timedOut);
        EXPECT_EQ(occurrences(viaFile.standardError, kTooDeep), 1u) << viaFile.standardError.substr(0, 500);
        // With the rest of the file in the dropped statement, `x` is unknown (and prints as "error").
        EXPECT_EQ(viaFile.standardOutput, std::string(deep.name) == "unclosed" ? "error\n" : "7\n");
    }
}

// A megabyte of brackets is dropped as quickly as it is read, in the standard-input mode and from a file.
TEST_F(ProcessTest, AMegabyteOfBracketsIsOneError) {
    const std::string text = "x = " + repeated("[", 500000) + repeated("]", 500000) + "\nx = 7;\nx\n";
    auto viaStdIn = runStdIn(text, {}, 120000);
    ASSERT_FALSE(viaStdIn.timedOut);
    EXPECT_EQ(viaStdIn.standardOutput, "7\n");
    EXPECT_EQ(occurrences(viaStdIn.standardError, kTooDeep), 1u);
    auto viaFile = runProcess({kBinary, "-w", "0", "-f", writeHomeFile("mega.bwq", text)}, "", 120000);
    ASSERT_FALSE(viaFile.timedOut);
    EXPECT_EQ(viaFile.standardError, kTooDeep + "\n");
}

// Up to the limit nothing is refused, and such values print and drop without trouble.
TEST_F(ProcessTest, NestingUpToTheLimitIsAccepted) {
    const size_t depth = 900;
    auto result = runStdIn("x = " + repeated("[", depth) + "1" + repeated("]", depth) + "\nx\n" +
                           repeated("(", depth) + "2" + repeated(")", depth) + "\n");
    ASSERT_FALSE(result.timedOut);
    EXPECT_EQ(result.standardError, "");
    const std::string nested = repeated("[", depth) + "1" + repeated("]", depth) + "\n";
    EXPECT_EQ(result.standardOutput, nested + nested + "2\n");
}

// A person at the console gets the same, and the prompt comes back.
TEST_F(ProcessTest, NestingPastTheLimitAtTheConsole) {
    ChildProcess child;
    ASSERT_TRUE(child.startOnTerminal({kBinary, "-i", "-e", "0", "-p", "bw> "}));
    child.readUntil("bw> ");
    ASSERT_TRUE(child.send(deepStatements(5000)[0].text + "\r6 * 7\r"));
    const std::string& output = child.readUntil("42\r\nbw> ");
    EXPECT_EQ(occurrences(output, kTooDeep), 1u) << output.substr(0, 500);
    EXPECT_NE(output.find("42\r\nbw> "), std::string::npos) << output.substr(0, 500);
    ASSERT_TRUE(child.send("\x04"));
    EXPECT_EQ(child.awaitExit(5000), 0);
}

class LeakedSample : public Brw::Object {
public:
    std::string typeName() const override { return "LeakedSample"; }
};

int gExpectedLines = 0;

void countExpectedLines(const std::string& line) {
    if (line.find("EXPECTED failed: 'Object::getObjectCount() == 0' evaluates to false") !=
        std::string::npos) {
        ++gExpectedLines;
    }
}

// The child of the death test: a coordinator whose one leaked object must show at exit.
[[noreturn]] void leakOneObjectAndExit() {
    char programName[] = "braidwell";
    char* args[] = {programName, nullptr};
    if (! Brw::InternalCoordinator::init(1, args)) {
        std::_Exit(2);
    }
    static std::shared_ptr<LeakedSample> leaked = Brw::Object::makeRegistered<LeakedSample>();
    Brw::Logger::setLogLevel(2);
    Brw::Logger::addLineObserver(countExpectedLines);
    Brw::tearDown();
    const bool noneLeft = Brw::verifyNoObjectLeft();
    std::_Exit(! noneLeft && gExpectedLines == 1 ? 0 : 1);
}

TEST(ProcessDeathTest, LeakedObjectShowsAsOneExpectedLineAtExit) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(leakOneObjectAndExit(), testing::ExitedWithCode(0),
                "EXPECTED failed: 'Object::getObjectCount\\(\\) == 0' evaluates to false");
}

} // namespace
