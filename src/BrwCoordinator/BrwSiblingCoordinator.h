#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "BrwCoordinator/BrwISiblingCoordinator.h"
#include "BrwMessage/BrwOpCode.h"
#include "BrwService/BrwService_abstract.h"

namespace Brw {

// What a sibling proxy knows of the other process and is doing about it.
//   IDLE: nothing under way; the other may or may not run.
//   SENDING: the head message was handed to the pipe; it leaves the queue next turn.
//   LAUNCHED: started, or waited for; the pipe time-out runs.
//   RUNNING: its pipe is there and its process lives.
//   INACTIVE: gone; what arrives is thrown away until it comes back.
//   INACTIVE_KEEP_MESSAGES: gone; messages are kept until the inactive limit.
enum class SiblingState : int32_t {
    IDLE = 0,
    SENDING = 1,
    LAUNCHED = 2,
    RUNNING = 3,
    INACTIVE = 4,
    INACTIVE_KEEP_MESSAGES = 5,
};

// A child of the internal coordinator per other coordinator of this machine, named after it. The router
// hands it the messages for the other; it holds them, decides whether the other runs, launches it when a
// message warrants that, and writes the messages to the other's pipe, one per two turns. Only main scans
// for siblings and launches them; any other coordinator knows main alone unless a script names another.
class SiblingCoordinator : public Service_abstract, public virtual ISiblingCoordinator {
public:
    static constexpr const char* TYPENAME = "SiblingCoordinator";
    static constexpr const char* SERVICE_NAME = "net.braidwell.service.sibling";
    // Failed sends of the head message before the pipe is made anew.
    static constexpr int32_t MAX_SEND_RETRIES = 3;
    // Launches after a pipe time-out before the proxy gives up.
    static constexpr int32_t MAX_LAUNCH_RETRIES = 3;
    // The key of a sibling's section that turns it off for the scan of the configuration.
    static constexpr const char* DISABLED_KEY = "disabled";
    // The key of a sibling's section that holds its command line.
    static constexpr const char* APP_PATH_KEY = "appPath";

    // A proxy for `name` below the internal coordinator, which must be `parentObj`, entered in the table.
    static std::shared_ptr<IObject> factoryFromParentName(std::shared_ptr<IObject> parentObj,
                                                          const std::string& name);
    [[nodiscard]] static bool registerDeregisterClass(RegisterDeregister registerDeregister);
    // The proxy of the name; when the table has none, one scan for siblings, and the table once more.
    static std::shared_ptr<SiblingCoordinator> getSiblingCoordinator(const std::string& name);
    // False for this process's own name; true for a name without a proxy.
    static bool hasQuit(const std::string& name);

    // The three scans, each at most once per its interval.
    [[nodiscard]] static bool scanForSiblings();
    // Drops the proxies whose process has gone and that have nothing left to do.
    [[nodiscard]] static bool scanForActiveSiblings();
    // Main only: a proxy for every pipe in the pipe folder.
    [[nodiscard]] static bool scanForNamedPipeSiblings();
    // Main only: a proxy for every section "config.NAME" without wildcards, unless it is disabled.
    [[nodiscard]] static bool scanForConfigSiblings();
    // A proxy for the name unless the table has a live one; false for a name no sibling can have.
    [[nodiscard]] static bool registerSibling(const std::string& name);
    // Non-empty, not this process's own name, and only "." and identifier characters.
    static bool isValidSiblingName(const std::string& siblingName);
    // The names of the live proxies, sorted.
    static std::vector<std::string> getSiblingNames();

    std::string typeName() const override { return TYPENAME; }
    std::string getServiceName() const override { return SERVICE_NAME; }
    bool isIdle() override;
    // The inherited slice, then one turn of the state machine.
    void timeslice_yielding(const std::shared_ptr<Task>& task, bool& completed) override;
    bool deregisterObject() override;

    const std::string& getNamedPipePath() override;
    bool hasQuit() override;
    bool isRunning() override;
    [[nodiscard]] bool launchIfNotRunning() override;
    bool relayOutgoingMessage(const std::shared_ptr<const IObject>& messageObj) override;
    // Passes on a message that came in for this process; checks it is for here.
    [[nodiscard]] bool relayIncomingMessage(const std::shared_ptr<IObject>& messageObj);
    // Queues a PING to the other's ping service, or a TERMINATE to the other.
    [[nodiscard]] bool ping();
    [[nodiscard]] bool terminate();

    const std::string& getCoordinatorName() const { return fCoordinatorName; }
    SiblingState getSiblingState() const { return fSiblingState; }
    size_t getQueuedMessageCount() const { return fMessageQueue.size(); }
    int32_t getLaunchRetries() const { return fLaunchRetries; }
    // The identifier of the process this proxy launched last, 0 when none.
    uint32_t getLaunchedProcessId() const { return fLaunchedProcessId; }

protected:
    explicit SiblingCoordinator(const std::string& coordinatorName);
    friend class Object;

    [[nodiscard]] virtual bool deleteNamedPipe();
    [[nodiscard]] virtual bool resetNamedPipeTimeout();
    virtual bool isPipeCreationTimedOut();
    virtual const std::vector<std::string>& getLaunchArgs();

private:
    // One turn of the state machine; see the table of states above.
    void runTurn();
    // The steps of a turn, each for the states it names; false ends the turn.
    void turnInactive();
    [[nodiscard]] bool turnRunningGone();
    void turnAppeared(bool hasMessage);
    void turnIdleLaunch();
    void turnLaunchedTimeout();
    void retryLaunch();
    void turnSendRetriesExhausted();
    void turnSend();
    // Moves to INACTIVE_KEEP_MESSAGES and starts the inactive limit.
    void keepMessagesWhileInactive();
    // The head message is written to the pipe, or the failure counted.
    void sendHeadMessage();
    // The path of the other's published process identifier.
    std::string getPidFilePath() const;
    // Queues a message from this proxy to `indices` of the other with `opCode`.
    [[nodiscard]] bool queueToSibling(const std::string& indices, OpCode opCode);

    std::string fCoordinatorName;                              // the other's name; this child's name too
    std::string fNamedPipePath;                                // made on first request
    SiblingState fSiblingState = SiblingState::IDLE;           // see SiblingState
    std::vector<std::shared_ptr<const IObject>> fMessageQueue; // outgoing, head first
    int fdNamedPipe = 0;                                       // the Pipes handle, 0 when none
    int32_t fLaunchRetries = 0;                                // launches since the pipe last appeared
    int32_t fSendRetries = 0;                                  // failed sends of the head message
    int64_t fPipeTimeout = 0;                                  // end of the wait for the pipe
    int64_t fInactiveLimit = 0;                                // when kept messages are given up
    uint32_t fProcessId = 0;                                   // the other's, 0 when unknown
    uint32_t fLaunchedProcessId = 0;                           // what the last launch started
    bool fIsLaunched = false;                                  // started by this process, not yet seen
    bool fHasQuit = false;                                     // seen to end; never reset
    bool fHasLaunchArgs = false;                               // fLaunchArgs was fetched
    std::vector<std::string> fLaunchArgs;                      // see getLaunchArgs
};

} // namespace Brw
