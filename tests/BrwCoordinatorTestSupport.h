// What the tests of coordinators between processes share: the test program is the main coordinator of
// its own home, and these start, reach and end the coordinators around it.

#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "BrwAddress/BrwLocalUnresolvedAddress.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwCoordinator/BrwPidFile.h"
#include "BrwCoordinator/BrwPipes/BrwPipes.h"
#include "BrwCoordinator/BrwSiblingCoordinator.h"
#include "BrwMessage/BrwMessage.h"
#include "BrwService/BrwServicePing.h"
#include "BrwService/BrwServiceSampleForTests.h"
#include "BrwTestEnvironment.h"
#include "BrwUtils/BrwProcess.h"

namespace BrwCoordinatorTests {

using namespace Brw;
using BrwTests::Background;
namespace fs = std::filesystem;

inline const std::string kBinary = BRW_BINARY_PATH;
constexpr int DEADLINE_MILLISECONDS = 60000;

inline std::shared_ptr<InternalCoordinator> coordinator() {
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
    explicit Sibling(const std::string& name = BrwTests::uniqueName("net.braidwell.coordinator.sibling"))
        : fName(name), fProcess({kBinary, "-s", "-n", fName}) {}

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

inline bool queueTo(const std::shared_ptr<const IObject>& sender, const std::string& coordinatorName,
                    const std::string& indices, OpCode opCode, const std::string& payload) {
    const auto message = Message::factoryFromSenderDestinationAddressOpCodePayloadStr(
        sender, LocalUnresolvedAddress::factoryFromCoordinatorNameIndices(coordinatorName, indices), opCode,
        payload);
    return message && coordinator()->queueMessage(message);
}

inline std::string pidPathOf(const std::string& name) {
    return InternalCoordinator::getSessionDataFolderPath() + name + ".pid";
}

// Adds a configuration file of this text to the coordinator's stack.
inline void addConfig(const std::string& text) {
    const fs::path path = fs::path(BrwTests::isolatedHome()) / (BrwTests::uniqueName("config") + ".ini");
    std::ofstream(path, std::ios::binary) << text;
    ASSERT_TRUE(InternalCoordinator::getConfigStack().addFile(path.string()));
}

// The processes the coordinator launched for a name: each is killed at the end, whatever happened.
class LaunchedSiblings {
public:
    explicit LaunchedSiblings(const std::string& name) : fName(name) {}
    ~LaunchedSiblings() {
        note();
        for (uint32_t processId : fProcessIds) {
            ::kill(static_cast<pid_t>(processId), SIGKILL);
        }
    }
    // Remembers what runs under the name now and what its proxy launched last.
    void note() {
        remember(PidFile::readPublished(pidPathOf(fName)));
        if (auto sibling = SiblingCoordinator::getSiblingCoordinator(fName)) {
            remember(sibling->getLaunchedProcessId());
        }
    }
    const std::vector<uint32_t>& processIds() const { return fProcessIds; }

private:
    void remember(uint32_t processId) {
        if (processId != 0 &&
            std::find(fProcessIds.begin(), fProcessIds.end(), processId) == fProcessIds.end()) {
            fProcessIds.push_back(processId);
        }
    }
    std::string fName;
    std::vector<uint32_t> fProcessIds;
};

// Sets a static setting for one test and puts the old value back at its end.
class Setting {
public:
    Setting(int64_t& setting, int64_t value) : fSetting(setting), fOld(setting) { setting = value; }
    ~Setting() { fSetting = fOld; }

private:
    int64_t& fSetting;
    int64_t fOld;
};

inline std::shared_ptr<IMessage> lastReceived(const std::shared_ptr<ServiceSampleForTests>& service) {
    return std::dynamic_pointer_cast<IMessage>(service->getReceivedMessages().back());
}

inline bool terminateAndWait(const std::shared_ptr<ServiceSampleForTests>& sender, const std::string& name) {
    const uint32_t processId = PidFile::readPublished(pidPathOf(name));
    return queueTo(sender, name, "", OpCode::TERMINATE, "") &&
           runUntil([&] { return ! Process::isRunning(processId); });
}

// Queues a PING to `name` and turns the loop until its answer has come, noting what is launched meanwhile.
inline bool pingAndWait(const std::shared_ptr<ServiceSampleForTests>& pinger, const std::string& name,
                        const std::string& payload, LaunchedSiblings& launched) {
    const size_t count = pinger->getReceivedMessages().size() + 1;
    return queueTo(pinger, name, ServicePing::SERVICE_NAME, OpCode::PING, payload) && runUntil([&] {
               launched.note();
               return pinger->getReceivedMessages().size() == count;
           });
}

} // namespace BrwCoordinatorTests
