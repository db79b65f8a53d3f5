// The built-ins that reach the whole process: its identifier, its end, and its standard input.

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>

#include "BrwTestEnvironment.h"

namespace {

using BrwTests::runProcess;

const std::string kBinary = BRW_BINARY_PATH;

class SystemBuiltinsProcessTest : public testing::Test {
protected:
    static void SetUpTestSuite() { BrwTests::isolateHome(); }

    // Writes a script into the test's home folder; its full path.
    static std::string writeScript(const std::string& text) {
        const std::string path = BrwTests::isolatedHome() + "/" + BrwTests::uniqueName("script") + ".bwq";
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }
};

TEST_F(SystemBuiltinsProcessTest, SysInfoPidIsTheProcessId) {
    // The shell prints its own identifier and then becomes the program, which keeps it.
    const std::string command = "echo $$; exec '" + kBinary + "' -I -w 0";
    auto result = runProcess({"/bin/sh", "-c", command}, "sysInfo(\"pid\")\n");
    ASSERT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitCode, 0);
    const size_t lineEnd = result.standardOutput.find('\n');
    ASSERT_NE(lineEnd, std::string::npos) << result.standardOutput;
    const std::string shellPid = result.standardOutput.substr(0, lineEnd);
    EXPECT_FALSE(shellPid.empty());
    EXPECT_EQ(result.standardOutput, shellPid + "\n" + shellPid + "\n") << result.standardError;
}

// A grace time far longer than the bound below: the process must end because quit() asked it to.
TEST_F(SystemBuiltinsProcessTest, QuitLetsTheStatementFinishAndEndsTheProcessSoon) {
    const auto start = std::chrono::steady_clock::now();
    auto fromStdIn = runProcess({kBinary, "-I", "-w", "30000"}, "quit(); output(\"after\\n\");\n");
    EXPECT_FALSE(fromStdIn.timedOut);
    EXPECT_EQ(fromStdIn.exitCode, 0);
    EXPECT_EQ(fromStdIn.standardOutput, "after\n") << fromStdIn.standardError;
    const std::string script = writeScript("quit(); output(\"after\\n\")\n");
    auto fromFile = runProcess({kBinary, "-w", "30000", "-f", script});
    EXPECT_FALSE(fromFile.timedOut);
    EXPECT_EQ(fromFile.exitCode, 0);
    EXPECT_EQ(fromFile.standardOutput, "after\n") << fromFile.standardError;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
}

TEST_F(SystemBuiltinsProcessTest, StdInReadsTheLinesOfStandardInputInAScriptFile) {
    const std::string script = writeScript(
        "a = stdIn(); b = stdIn(); c = stdIn();\noutput(a, \"|\", b, \"|\", typeof c, \"\\n\")\n");
    // Without the echo of a keyboard, which a pipe doesn't need.
    auto result = runProcess({kBinary, "-w", "0", "-e", "0", "-f", script}, "first line\r\nsecond\n");
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "first line|second|undefined\n") << result.standardError;
}

TEST_F(SystemBuiltinsProcessTest, StdInTakesTheNextLineInTheStandardInputMode) {
    // The line behind the statement is data, not a statement; the rest of the statement's line runs.
    auto result = runProcess({kBinary, "-I", "-w", "0"},
                             "a = stdIn(); output(\"[\", a, \"]\\n\");\nhello there\nlength(a)\n");
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "[hello there]\n11\n") << result.standardError;
}

} // namespace
