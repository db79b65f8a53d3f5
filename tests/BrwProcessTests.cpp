// What only a whole process shows: the exit status and output of the program, which loop it stays in,
// and the leak check at exit.

#include <gtest/gtest.h>

#include <chrono>

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
