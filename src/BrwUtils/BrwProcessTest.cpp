#include "BrwUtils/BrwProcessTest.h"

#include <chrono>
#include <csignal>
#include <thread>
#include <unistd.h>

#include "BrwUtils/BrwDirs.h"

namespace Brw {

namespace {

// The shell serves as a program that writes down the words it was given; it is no shell of the launch.
constexpr const char* SHELL = "/bin/sh";
// How long a launched process may take to do its part.
constexpr std::chrono::seconds LAUNCH_DEADLINE{20};

// True once `condition` holds, false when the deadline passes first.
template <class Condition>
bool waitFor(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + LAUNCH_DEADLINE;
    while (! condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

// Field `index` (from 0) of a /proc/<pid>/stat line, counted behind the program's name.
std::string statField(const std::string& stat, size_t index) {
    const size_t nameEnd = stat.rfind(')');
    const std::vector<std::string> fields =
        Utils::split(nameEnd == std::string::npos ? "" : stat.substr(nameEnd + 2), ' ');
    return index >= 2 && index - 2 < fields.size() ? fields[index - 2] : std::string();
}

} // namespace

bool ProcessTest::test() {
    REPORT_CLASS_TEST;
    const std::string folder = makeTemporaryFolder("process-test");
    bool allOK = ! folder.empty();
    allOK = allOK && testWordsArriveWhole(folder);
    allOK = testFindingAndEnding() && allOK;
    VERIFY(folder.empty() || Dirs::rmDir(folder, DirRecurse::RECURSE));
    return allOK;
}

bool ProcessTest::testWordsArriveWhole(const std::string& folder) {
    bool retVal = false;
    do {
        SANITY_CHECK(Process::isRunning(Process::getCurrentProcessId()));
        SANITY_CHECK(! Process::isRunning(0));
        const std::string output = folder + "words";
        // Each word on a line, then the working folder, then the launched process's own stat line.
        const std::string script =
            "for word; do printf '%s\\n' \"$word\"; done > \"$0.part\"; pwd >> \"$0.part\"; "
            "cat /proc/$$/stat >> \"$0.part\"; mv \"$0.part\" \"$0\"";
        const std::vector<std::string> words = {"a b", "it's", "say \"hi\"", "x;y", "$HOME", "*", ""};
        std::vector<std::string> launchArgs = {SHELL, "-c", script, output};
        launchArgs.insert(launchArgs.end(), words.begin(), words.end());
        const uint32_t processId = Process::launchProcess(launchArgs, folder);
        SANITY_CHECK(processId != 0);
        SANITY_CHECK(waitFor([&] { return Dirs::fileExists(output); }));
        std::string text;
        SANITY_CHECK(Dirs::readFile(output, text) == FileReadResult::READ);
        const std::vector<std::string> lines = Utils::split(text, '\n');
        SANITY_CHECK(lines.size() >= words.size() + 2);
        for (size_t i = 0; i < words.size(); ++i) {
            CHECK_EQUAL(lines[i], words[i]);
        }
        CHECK_EQUAL(Dirs::addTrailingSeparator(lines[words.size()]), folder);
        // In a session of its own, without a controlling terminal.
        const std::string stat = lines[words.size() + 1];
        SANITY_CHECK(statField(stat, 5) != std::to_string(getsid(0)));
        CHECK_EQUAL(statField(stat, 6), "0");
        // It ends, and then it isn't running: nobody waits for it, and an ended process doesn't count.
        SANITY_CHECK(waitFor([&] { return ! Process::isRunning(processId); }));
        retVal = true;
    } while (false);
    return retVal;
}

bool ProcessTest::testFindingAndEnding() {
    bool retVal = false;
    do {
        const std::string notAProgram = Test::makeTemporaryFile("not-a-program");
        uint32_t notLaunched = 0;
        {
            LogLevelScope quiet(0);
            notLaunched = Process::launchProcess({"/no/such/program"}) + Process::launchProcess({});
            // A file that can't be run fails at the exec, and says so.
            notLaunched += Process::launchProcess({notAProgram});
        }
        ::remove(notAProgram.c_str());
        CHECK_EQUAL(notLaunched, 0u);
        // Found by its words while it runs; the marker makes the words this test's own.
        const std::vector<std::string> launchArgs = {SHELL, "-c", "sleep 60",
                                                     Test::makeTemporaryFile("marker")};
        const uint32_t processId = Process::launchProcess(launchArgs);
        SANITY_CHECK(processId != 0);
        const bool isFound = waitFor([&] { return Process::getProcessId(launchArgs) == processId; });
        ::kill(static_cast<pid_t>(processId), SIGKILL);
        ::remove(launchArgs[3].c_str());
        SANITY_CHECK(isFound);
        SANITY_CHECK(waitFor([&] { return ! Process::isRunning(processId); }));
        // The scan of the process table may still meet it on its way out, but not for long.
        SANITY_CHECK(waitFor([&] { return Process::getProcessId(launchArgs) == 0; }));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
