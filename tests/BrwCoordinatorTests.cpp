// Coordinators talking between processes: this test program is the main coordinator of its own home and
// sends messages to real coordinators it starts, through their pipes, and hears their answers through its
// own.

#include <gtest/gtest.h>

#include <filesystem>

#include "BrwAddress/BrwLocalUnresolvedAddress.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwCoordinator/BrwPipes/BrwPipes.h"
#include "BrwData/BrwData_abstract.h"
#include "BrwMain/BrwMain.h"
#include "BrwMessage/BrwMessage.h"
#include "BrwService/BrwServicePing.h"
#include "BrwService/BrwServiceSampleForTests.h"
#include "BrwTestEnvironment.h"
#include "BrwUtils/BrwUtils.h"

namespace {

using namespace Brw;
using BrwTests::Background;
namespace fs = std::filesystem;

const std::string kBinary = BRW_BINARY_PATH;
constexpr int DEADLINE_MILLISECONDS = 60000;

std::shared_ptr<InternalCoordinator> coordinator() {
    return std::dynamic_pointer_cast<InternalCoordinator>(InternalCoordinator::factory());
}

// Turns this process's event loop until `condition` holds; false when the deadline passes first.
template <class Condition>
bool runUntil(Condition condition, int timeoutMilliseconds = DEADLINE_MILLISECONDS) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMilliseconds);
    while (! condition()) {
        if (std::chrono::steady_clock::now() >= deadline ||
            ! coordinator()->runEventLoop(InternalCoordinator::getEventLoopMicroseconds())) {
            return false;
        }
    }
    return true;
}

// A coordinator of its own name in a process of its own, serving until it is told to stop.
class Sibling {
public:
    Sibling()
        : fName(BrwTests::uniqueName("net.braidwell.coordinator.sibling")),
          fProcess({kBinary, "-s", "-n", fName}) {}

    const std::string& name() const { return fName; }
    std::string pipePath() const { return InternalCoordinator::getNamedPipePath(fName); }
    fs::path pidPath() const { return InternalCoordinator::getSessionDataFolderPath() + fName + ".pid"; }
    bool waitUntilListening() {
        return BrwTests::waitFor([&] { return Pipes::namedPipeIsActive(pipePath()); }, DEADLINE_MILLISECONDS);
    }
    Background& process() { return fProcess; }

private:
    std::string fName;
    Background fProcess;
};

bool queueTo(const std::shared_ptr<const IObject>& sender, const std::string& coordinatorName,
             const std::string& indices, OpCode opCode, const std::string& payload) {
    const auto message = Message::factoryFromSenderDestinationAddressOpCodePayloadStr(
        sender, LocalUnresolvedAddress::factoryFromCoordinatorNameIndices(coordinatorName, indices), opCode,
        payload);
    return message && coordinator()->queueMessage(message);
}

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

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    BrwTests::isolateHome();
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
