// Coordinators talking between processes: this test program is the main coordinator of its own home and
// sends messages to real coordinators it starts, through their pipes, and hears their answers through its
// own.

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "BrwAddress/BrwLocalUnresolvedAddress.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwCoordinator/BrwPidFile.h"
#include "BrwCoordinator/BrwPipes/BrwPipes.h"
#include "BrwCoordinator/BrwSiblingCoordinator.h"
#include "BrwCoordinatorTestSupport.h"
#include "BrwData/BrwData_abstract.h"
#include "BrwMain/BrwMain.h"
#include "BrwMessage/BrwMessage.h"
#include "BrwService/BrwServiceLog.h"
#include "BrwService/BrwServicePing.h"
#include "BrwService/BrwServiceSampleForTests.h"
#include "BrwTestEnvironment.h"
#include "BrwUtils/BrwProcess.h"
#include "BrwUtils/BrwUtils.h"

namespace {

using namespace Brw;
using namespace BrwCoordinatorTests;
using BrwTests::Background;
namespace fs = std::filesystem;

TEST(CoordinatorTest, TerminateMessageEndsACoordinatorInGoodOrder) {
    Sibling sibling;
    ASSERT_TRUE(sibling.waitUntilListening());
    const std::string socketPath = Pipes::readSocketPath(sibling.pipePath());
    ASSERT_FALSE(socketPath.empty());
    ASSERT_TRUE(fs::exists(sibling.pidPath()));
    // Text that isn't a message is reported and dropped; the message behind it on the same connection
    // arrives all the same.
    const int handle = Pipes::openWriteNamedPipe(sibling.pipePath());
    ASSERT_NE(handle, 0);
    ASSERT_TRUE(Pipes::writeToNamedPipe(handle, "not a message\n"));
    ASSERT_TRUE(Pipes::writeToNamedPipe(handle, Utils::escapeIPC("NoSuchType\n1\n") + "\n"));
    SampleTree tree;
    ASSERT_TRUE(queueTo(tree.add("terminator"), sibling.name(), "", OpCode::TERMINATE, ""));
    int exitCode = -1;
    ASSERT_TRUE(runUntil([&] { return sibling.process().hasExited(exitCode); }));
    EXPECT_EQ(exitCode, 0);
    EXPECT_FALSE(fs::exists(sibling.pipePath()));
    EXPECT_FALSE(fs::exists(socketPath));
    EXPECT_FALSE(fs::exists(sibling.pidPath()));
}

TEST(CoordinatorTest, PingCrossesToASiblingAndItsAnswerComesBackThroughMain) {
    Sibling sibling;
    ASSERT_TRUE(sibling.waitUntilListening());
    SampleTree tree;
    auto pinger = tree.add("pinger");
    for (int round = 1; round <= 3; ++round) {
        const std::string payload =
            "ping " + std::to_string(round) + "\n- with a line feed and a NUL " + std::string(1, '\0');
        ASSERT_TRUE(queueTo(pinger, sibling.name(), ServicePing::SERVICE_NAME, OpCode::PING, payload));
        ASSERT_TRUE(
            runUntil([&] { return pinger->getReceivedMessages().size() == static_cast<size_t>(round); }));
        auto reply = std::dynamic_pointer_cast<IMessage>(pinger->getReceivedMessages().back());
        ASSERT_TRUE(reply);
        EXPECT_EQ(reply->getOpCode(), OpCode::PING_REPLY);
        EXPECT_EQ(reply->getPayloadStr(), payload);
        auto from = std::dynamic_pointer_cast<const ICoordinatorNameAddress>(reply->getSenderAddressObj());
        ASSERT_TRUE(from);
        EXPECT_EQ(from->getCoordinatorName(), sibling.name());
    }
    ASSERT_TRUE(queueTo(pinger, sibling.name(), "", OpCode::TERMINATE, ""));
    int exitCode = -1;
    ASSERT_TRUE(runUntil([&] { return sibling.process().hasExited(exitCode); }));
    EXPECT_EQ(exitCode, 0);
}

TEST(SiblingTest, PingToAnUnknownCoordinatorWithAppPathStartsItAndIsAnswered) {
    const std::string name = BrwTests::uniqueName("net.braidwell.coordinator.launched");
    addConfig("[config." + name + "]\nappPath = " + kBinary + " -s\n");
    LaunchedSiblings launched(name);
    SampleTree tree;
    auto pinger = tree.add("pinger");
    ASSERT_TRUE(pingAndWait(pinger, name, "are you there", launched));
    EXPECT_EQ(lastReceived(pinger)->getOpCode(), OpCode::PING_REPLY);
    EXPECT_EQ(lastReceived(pinger)->getPayloadStr(), "are you there");
    auto sibling = SiblingCoordinator::getSiblingCoordinator(name);
    ASSERT_TRUE(sibling);
    EXPECT_FALSE(sibling->hasQuit());
    EXPECT_TRUE(terminateAndWait(pinger, name));
}

TEST(SiblingTest, MessagesForASiblingThatCannotBeLaunchedWaitForItWithinTheLimit) {
    const std::string name = BrwTests::uniqueName("net.braidwell.coordinator.late");
    SampleTree tree;
    auto pinger = tree.add("pinger");
    ASSERT_TRUE(queueTo(pinger, name, ServiceLog::SERVICE_NAME, OpCode::LOG_NOTE, "kept note"));
    ASSERT_TRUE(queueTo(pinger, name, ServicePing::SERVICE_NAME, OpCode::PING, "kept ping"));
    std::shared_ptr<SiblingCoordinator> proxy;
    ASSERT_TRUE(runUntil([&] {
        proxy = SiblingCoordinator::getSiblingCoordinator(name);
        return proxy && proxy->getSiblingState() == SiblingState::INACTIVE_KEEP_MESSAGES;
    }));
    EXPECT_EQ(proxy->getQueuedMessageCount(), 2u);
    EXPECT_EQ(proxy->getLaunchedProcessId(), 0u);
    Sibling sibling(name);
    ASSERT_TRUE(runUntil([&] { return pinger->getReceivedMessages().size() == 1; }));
    EXPECT_EQ(lastReceived(pinger)->getPayloadStr(), "kept ping");
    EXPECT_EQ(proxy->getQueuedMessageCount(), 0u);
    EXPECT_TRUE(terminateAndWait(pinger, name));
}

TEST(SiblingTest, MessagesKeptLongerThanTheLimitAreDropped) {
    Setting limit(InternalCoordinator::fMaxWaitMessageDropMicroseconds, 200000);
    const std::string name = BrwTests::uniqueName("net.braidwell.coordinator.never");
    SampleTree tree;
    auto pinger = tree.add("pinger");
    ASSERT_TRUE(queueTo(pinger, name, ServiceLog::SERVICE_NAME, OpCode::LOG_NOTE, "dropped note"));
    std::shared_ptr<SiblingCoordinator> proxy;
    ASSERT_TRUE(runUntil([&] {
        proxy = proxy ? proxy : SiblingCoordinator::getSiblingCoordinator(name);
        return proxy && proxy->getSiblingState() == SiblingState::INACTIVE;
    }));
    EXPECT_EQ(proxy->getQueuedMessageCount(), 0u);
    EXPECT_TRUE(proxy->isIdle());
}

TEST(SiblingTest, SiblingKilledWhileRunningIsLaunchedAgainAndGetsTheQueuedMessagesInOrder) {
    const std::string name = BrwTests::uniqueName("net.braidwell.coordinator.phoenix");
    addConfig("[config." + name + "]\nappPath = '" + kBinary + "' -s\n");
    LaunchedSiblings launched(name);
    SampleTree tree;
    auto pinger = tree.add("pinger");
    ASSERT_TRUE(pingAndWait(pinger, name, "first", launched));
    const uint32_t firstProcessId = PidFile::readPublished(pidPathOf(name));
    ASSERT_NE(firstProcessId, 0u);
    ASSERT_EQ(::kill(static_cast<pid_t>(firstProcessId), SIGKILL), 0);
    ASSERT_TRUE(BrwTests::waitFor([&] { return ! Process::isRunning(firstProcessId); }));
    // The killed process left its proxy file behind.
    ASSERT_TRUE(Pipes::namedPipeExists(InternalCoordinator::getNamedPipePath(name)));
    const std::vector<std::string> payloads = {"one\n-", "two --n -z", "three\n\n-"};
    for (const std::string& payload : payloads) {
        ASSERT_TRUE(queueTo(pinger, name, ServicePing::SERVICE_NAME, OpCode::PING, payload));
    }
    ASSERT_TRUE(runUntil([&] {
        launched.note();
        return pinger->getReceivedMessages().size() == 1 + payloads.size();
    }));
    for (size_t i = 0; i < payloads.size(); ++i) {
        auto reply = std::dynamic_pointer_cast<IMessage>(pinger->getReceivedMessages()[1 + i]);
        ASSERT_TRUE(reply);
        EXPECT_EQ(reply->getPayloadStr(), payloads[i]);
    }
    const uint32_t secondProcessId = PidFile::readPublished(pidPathOf(name));
    EXPECT_NE(secondProcessId, firstProcessId);
    EXPECT_TRUE(terminateAndWait(pinger, name));
}

TEST(SiblingTest, ALaunchThatNeverComesUpIsRetriedThenGivenUp) {
    Setting pipeWait(InternalCoordinator::fInterCoordinatorPipeWaitTimeMicroseconds, 100000);
    const std::string name = BrwTests::uniqueName("net.braidwell.coordinator.stillborn");
    addConfig("[config." + name + "]\nappPath = /bin/false\n");
    LaunchedSiblings launched(name);
    SampleTree tree;
    auto pinger = tree.add("pinger");
    ASSERT_TRUE(queueTo(pinger, name, ServicePing::SERVICE_NAME, OpCode::PING, ""));
    std::shared_ptr<SiblingCoordinator> proxy;
    ASSERT_TRUE(runUntil([&] {
        launched.note();
        proxy = proxy ? proxy : SiblingCoordinator::getSiblingCoordinator(name);
        return proxy && proxy->getSiblingState() == SiblingState::INACTIVE_KEEP_MESSAGES;
    }));
    EXPECT_EQ(proxy->getLaunchRetries(), SiblingCoordinator::MAX_LAUNCH_RETRIES + 1);
    EXPECT_EQ(launched.processIds().size(), static_cast<size_t>(SiblingCoordinator::MAX_LAUNCH_RETRIES + 1));
    for (uint32_t processId : launched.processIds()) {
        EXPECT_FALSE(Process::isRunning(processId));
    }
    // Given up, the message is kept for a sibling that may still come.
    EXPECT_EQ(proxy->getQueuedMessageCount(), 1u);
}

TEST(SiblingTest, AnAppPathThatIsNoProgramIsTriedThenGivenUpKeepingTheMessages) {
    Setting pipeWait(InternalCoordinator::fInterCoordinatorPipeWaitTimeMicroseconds, 100000);
    const std::string name = BrwTests::uniqueName("net.braidwell.coordinator.nowhere");
    addConfig("[config." + name + "]\nappPath = /nonexistent/braidwell\n");
    SampleTree tree;
    ASSERT_TRUE(queueTo(tree.add("pinger"), name, ServicePing::SERVICE_NAME, OpCode::PING, ""));
    std::shared_ptr<SiblingCoordinator> proxy;
    ASSERT_TRUE(runUntil([&] {
        proxy = proxy ? proxy : SiblingCoordinator::getSiblingCoordinator(name);
        return proxy && proxy->getSiblingState() == SiblingState::INACTIVE_KEEP_MESSAGES;
    }));
    EXPECT_EQ(proxy->getLaunchedProcessId(), 0u);
    EXPECT_EQ(proxy->getLaunchRetries(), SiblingCoordinator::MAX_LAUNCH_RETRIES + 1);
    EXPECT_EQ(proxy->getQueuedMessageCount(), 1u);
}

TEST(SiblingTest, ConfigSectionsNameSiblingsButNotWildcardsOrDisabledOnes) {
    const std::string stem = BrwTests::uniqueName("net.braidwell.coordinator.configured");
    addConfig("[config.*]\nunusedKey = 1\n[config." + stem + ".x?y]\nunusedKey = 1\n[config." + stem +
              ".off]\ndisabled = 1\n[config." + stem + ".offToo]\ndisabled = true\n[config." + stem +
              ".on]\ndisabled = 0\n");
    const auto isKnown = [](const std::string& name) {
        const std::vector<std::string> names = SiblingCoordinator::getSiblingNames();
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    ASSERT_TRUE(runUntil([&] { return isKnown(stem + ".on"); }));
    for (const std::string& name : SiblingCoordinator::getSiblingNames()) {
        EXPECT_EQ(name.find_first_of("*?"), std::string::npos) << name;
        EXPECT_NE(name, stem + ".off");
        EXPECT_NE(name, stem + ".offToo");
    }
}

TEST(SiblingTest, HasQuitStaysTrueWhenANewProcessOfTheNameAppears) {
    const std::string name = BrwTests::uniqueName("net.braidwell.coordinator.quitter");
    EXPECT_FALSE(SiblingCoordinator::hasQuit(InternalCoordinator::getCoordinatorName()));
    EXPECT_TRUE(SiblingCoordinator::hasQuit(name));
    SampleTree tree;
    auto pinger = tree.add("pinger");
    std::shared_ptr<SiblingCoordinator> proxy;
    {
        Sibling first(name);
        ASSERT_TRUE(first.waitUntilListening());
        ASSERT_TRUE(queueTo(pinger, name, ServicePing::SERVICE_NAME, OpCode::PING, ""));
        ASSERT_TRUE(runUntil([&] { return pinger->getReceivedMessages().size() == 1; }));
        proxy = SiblingCoordinator::getSiblingCoordinator(name);
        ASSERT_TRUE(proxy);
        EXPECT_FALSE(proxy->hasQuit());
    }
    ASSERT_TRUE(runUntil([&] { return proxy->hasQuit(); }));
    Sibling second(name);
    ASSERT_TRUE(second.waitUntilListening());
    EXPECT_TRUE(proxy->hasQuit());
    EXPECT_TRUE(terminateAndWait(pinger, name));
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    BrwTests::isolateHome();
    // The scan of the configuration runs often, so that a test sees the sections it adds.
    InternalCoordinator::fScanConfigSiblingsIntervalMicroseconds = 20000;
    // The main coordinator of the test's home: siblings send everything through it.
    std::string program = "brw_coordinatortests";
    std::string nameSwitch = "-n";
    std::string name = InternalCoordinator::MAIN_COORDINATOR_NAME;
    char* args[] = {program.data(), nameSwitch.data(), name.data(), nullptr};
    if (! InternalCoordinator::init(3, args)) {
        fprintf(stderr, "the coordinator did not start\n");
        return 1;
    }
    int result = RUN_ALL_TESTS();
    Brw::tearDown();
    if (! Brw::verifyNoObjectLeft()) {
        result = 1;
    }
    return result;
}
