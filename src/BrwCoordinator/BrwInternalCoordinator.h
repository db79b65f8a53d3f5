#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "BrwCoordinator/BrwConfigStack.h"
#include "BrwCoordinator/BrwIdleBackoff.h"
#include "BrwCoordinator/BrwPidFile.h"
#include "BrwEvent/BrwEventListener.h"
#include "BrwMessage/BrwOpCode.h"
#include "BrwObject/BrwObject.h"
#include "BrwService/BrwIInternalCoordinator.h"
#include "BrwService/BrwService_abstract.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

class Task;
class GUIDClass;
class IMessage;
class IOMNode;
class InputStream;
class OMScope;
class OMStored;
class OutputStream;
class RemoteRequestTask_abstract;
class SendDataToRemoteTask;

// The process's root: one per process, reached through factory(). It is the root of the tree of services,
// owns the main task, runs the event loop and holds the process-wide settings as static members. It keeps
// what it learns of other coordinators and hosts, so that addresses by name and by GUID can be turned into
// each other.
class InternalCoordinator : public Service_abstract,
                            public virtual IInternalCoordinator,
                            public EventListener {
public:
    static constexpr const char* TYPENAME = "InternalCoordinator";
    static constexpr const char* VERSION = "0.1.1";
    static constexpr int BUILD = 1;
    static constexpr const char* MAIN_COORDINATOR_NAME = "net.braidwell.coordinator.main";
    static constexpr const char* REFLECTOR_COORDINATOR_NAME = "net.braidwell.coordinator.reflector";
    // The coordinator that carries messages to other machines.
    static constexpr const char* GATEWAY_COORDINATOR_NAME = "net.braidwell.coordinator.gateway";
    // What every full coordinator name begins with.
    static constexpr const char* COORDINATOR_NAME_PREFIX = "net.braidwell.coordinator.";
    // The section of the settings in the configuration files.
    static constexpr const char* CONFIG_SECTION = "config";
    // The host name and IP text of this machine that every process knows.
    static constexpr const char* LOCAL_HOST_NAME = "localhost";
    static constexpr const char* LOCAL_IP_ADDRESS = "127.0.0.1";

    // Settings; the configuration stack and the command line fill them. Times are microseconds.
    static inline std::string fCoordinatorName = MAIN_COORDINATOR_NAME; // this coordinator's full name
    static inline std::string fCoordinatorShortName;                    // short form of the name
    static inline bool fIsInteractive = false;                          // script from a person at a console
    static inline bool fReadStdIn = false;                              // script from standard input
    static inline bool fIsServer = false;                               // stay up until told to stop
    static inline bool fRunTests = false;                               // run the self-tests at start
    static inline std::string fScriptFilePath;               // script to run, "-" for standard input
    static inline std::string fStartupScriptFilePath;        // script run once at start, before all else
    static inline int64_t fEventLoopMicroseconds = 5000;     // one runEventLoop turn of the server loop
    static inline int64_t fEventLoopSleepMicroseconds = 500; // base of the idle back-off
    static inline int64_t fDelayQuitMicroseconds = 10000000; // grace time before a stop
    static inline int64_t fInternalCoordinatorTimesliceMicroseconds = 10000; // main task's budget per run
    static inline int64_t fDefaultTimeoutMicroseconds = 10000000;            // default task time-out
    static inline std::string fPrompt;             // prompt of a console at nesting level 0
    static inline std::string fPromptContinuation; // prompt inside an unfinished statement
    static inline int32_t fConsoleEcho = 1;        // echo mode of the console stream, 0 to 3
    static inline std::string fDefaultEngine;      // forwarded to the script side
    static inline int64_t fQuitReflectorEventLoopForTestsMicroseconds = 7000000; // sibling self-tests
    static inline int64_t fInterCoordinatorTestTimeMicroseconds = 7000000;     // self-tests between processes
    static inline int64_t fInterCoordinatorPipeWaitTimeMicroseconds = 7000000; // wait for a sibling's pipe
    static inline std::string fIpcMessageLogFile;                              // log of the messages
    static inline bool fUpdateSessionData = false; // write the session file each turn
    static inline bool fLogEntryExit = false;      // the Logger's; read from it before the configuration
    static inline std::string fLogFile;            // the Logger's file, empty for standard error
    static inline int32_t fLogLevel = 0;           // the Logger's level
    static inline bool fLogIPC = false;            // log the messages between coordinators
    static inline bool fLogScriptError = false;    // the Logger's script error flag
    static inline bool fLogTiming = false;         // the Logger's timing lines
    static inline int64_t fMaxWaitMessageDropMicroseconds = 300000000; // undeliverable sibling messages kept
    static inline int64_t fMaxWaitPipeReappearMicroseconds = 1000000;  // a sibling's pipe may be gone
    static inline std::string fRemoteCoordinatorURL;                   // run the script file there instead
    static inline int64_t fRemoteTimeoutMicroseconds = 10000000;       // time-out of remote scripts
    static inline int64_t fScanActiveSiblingsIntervalMicroseconds = 100000;    // sibling scans
    static inline int64_t fScanConfigSiblingsIntervalMicroseconds = 5000000;   // sibling scans
    static inline int64_t fScanNamedPipeSiblingsIntervalMicroseconds = 100000; // sibling scans
    static inline std::string fScriptErrorLogFile;               // script errors, empty for standard error
    static inline int64_t fSleepWaitForPipeMicroseconds = 10000; // retry interval of pipe writers
    static inline int64_t fTestTimeoutMicroseconds = 10000000;   // self-tests
    static inline std::string fTimingLogFile;                    // the Logger's timing file
    static inline std::string fDefaultCallBackID = "net.braidwell.callbackid.commandline.default"; // -D
    static inline std::string fQSwitchArgument; // -q: kept for command lines that pass it, read by nothing
    static inline std::string fConfigFilePath;  // the main configuration file; empty: SysConfig/config.ini

    ~InternalCoordinator() override;

    // The singleton, made at the first call; null once the process has torn it down.
    static std::shared_ptr<IObject> factory();
    // Reads the command line, registers the classes and tests, and makes the coordinator and its main
    // task.
    [[nodiscard]] static bool init(int argc, char** argv);
    // The fixed table of runtime classes, walked at start and at teardown.
    [[nodiscard]] static bool registerObjectClasses();
    [[nodiscard]] static bool deregisterObjectClasses();
    // Every self-test class of the program.
    [[nodiscard]] static bool registerTests();
    [[nodiscard]] static bool registerDeregisterClass(RegisterDeregister registerDeregister);
    // Drops the singleton reference: the first act of the process's teardown.
    static void releaseInstance();

    [[nodiscard]] static bool parseCommandLineArgs(int argc, char** argv);
    [[nodiscard]] static bool processCmdLineArg(char switchLetter,
                                                const std::vector<std::string>& switchArgs);
    // The switches, one line each, as -h prints them.
    static std::string getUsageText();

    // ---- configuration (BrwInternalCoordinatorConfig.cpp) ----
    // Reads the tables and every setting from the configuration stack, the current values as defaults,
    // and hands the log settings to the Logger.
    [[nodiscard]] static bool processConfigStack();
    // A value of the stack for this coordinator: see ConfigStack::getValue.
    static std::string getConfigValue(const std::string& section, const std::string& key,
                                      const std::string& defaultValue);
    static ConfigStack& getConfigStack() { return fConfigStack; }
    // The table of the section urlMap; coordinatorMap goes to fCoordinatorMap, hosts to registerHostName.
    static const std::map<std::string, std::string>& getUrlMap() { return fUrlMap; }
    // A name through the URL map, with the coordinator prefix added when it lacks it.
    static std::string urlMapCoordinatorName(const std::string& name);
    // "node." of BRAIDWELL_CONFIG_NODE_NAME, or empty: names the folders of siblings on other nodes.
    static const std::string& getNodePrefix() { return fNodePrefix; }

    // ---- the program's files (BrwInternalCoordinatorFiles.cpp) ----
    // The folders below the user's data folder, made on first request; "" when one can't be made.
    static const std::string& getPipeFolderPath();
    static const std::string& getSessionDataFolderPath();
    static const std::string& getSysConfigFolderPath();
    // The files of this coordinator in the session folder.
    static std::string getPidFilePath();
    static std::string getSessionDataPath();
    // The process identifier another process of this name published, 0 when none runs.
    static uint32_t readPublishedProcessId();
    // Publishes this process's identifier and holds the lock of the file; false when another process of
    // this name holds it.
    [[nodiscard]] bool publishProcessId();
    // Writes the coordinator's variables to the session file when they changed since the last write.
    [[nodiscard]] bool writeSessionData();
    // Removes the session file and the published identifier, when they are this process's.
    [[nodiscard]] bool destroySessionData();

    static const std::string& getCoordinatorName() { return fCoordinatorName; }
    static int64_t getEventLoopMicroseconds() { return fEventLoopMicroseconds; }
    static int64_t getDelayQuitMicroseconds() { return fDelayQuitMicroseconds; }

    std::string typeName() const override { return TYPENAME; }
    // The coordinator's full name.
    std::string getServiceName() const override { return fCoordinatorName; }

    // The coordinator singleton's GUID, made on first request; null without a coordinator.
    static GUIDClass* getOwnGUID();

    // Hosts. The names are compared lower-cased; "localhost", "127.0.0.1" and "::1" are always local.
    static bool isLocalHostName(const std::string& hostName);
    // Adds an IP to a host's set; an IP of 127.0.0.1, or the host "localhost", makes the host local too.
    [[nodiscard]] static bool registerHostName(const std::string& hostName, const std::string& ipAddress);
    [[nodiscard]] static bool registerLocalHostName(const std::string& localHostName);
    // The first IP of a host; the host name itself when none is known.
    static std::string getHostAddress(const std::string& hostName);
    // The name of another machine's coordinator as the coordinator map of the configuration gives it; the
    // name itself when the map has none.
    static std::string mapCoordinatorName(const std::string& coordinatorName);
    // The coordinator map: the lower-cased name of another machine's coordinator to the name to use.
    static inline std::unordered_map<std::string, std::string, FNV1aHash> fCoordinatorMap;
    // Forgets every host and coordinator learnt: part of the teardown.
    static void clearHostTables();

    std::shared_ptr<const IObject> getAddressFromGUID(GUIDClass* guid) const override;
    std::string getCoordinatorName(GUIDClass* upstreamCoordinatorGUID) const override;
    std::string getHostName(GUIDClass* upstreamCoordinatorGUID) const override;
    GUIDClass* getUpstreamCoordinatorGUID(const std::string& hostName,
                                          const std::string& coordinatorName) const override;
    bool isValidUpstreamCoordinatorGUID(GUIDClass* guid) const override;
    [[nodiscard]] bool
    registerSenderAddressObj(const std::shared_ptr<const IObject>& senderAddressObj) override;
    std::shared_ptr<const IObject> resolveAddress(const std::shared_ptr<const IObject>& addressObj) override;
    // Learns that the coordinator of this GUID is `coordinatorName` on `hostName` (none when local).
    [[nodiscard]] static bool registerUpstreamCoordinator(const std::string& hostName,
                                                          const std::string& coordinatorName,
                                                          GUIDClass* upstreamCoordinatorGUID);

    // ---- routing (BrwInternalCoordinatorRouting.cpp) ----
    // Hands the text of a message to another machine; set by the coordinator that carries the traffic
    // between machines, null elsewhere.
    using GatewaySendFunction = bool (*)(const std::string& hostName, const std::string& messageText);
    // The only way into the router: the message waits for the next processMessageQueues.
    [[nodiscard]] bool queueMessage(const std::shared_ptr<IObject>& messageObj);
    // Routes what was queued before the call; what the deliveries queue waits for the next call.
    [[nodiscard]] bool processMessageQueues();
    // The text of one message from this machine's pipe.
    [[nodiscard]] bool receiveMessageStr(const std::string& str);
    // The text of one message from `hostName`, through the gateway.
    [[nodiscard]] bool receiveGatewayMessageStr(const std::string& hostName, const std::string& str);
    // TERMINATE ends the coordinator; STD_OUT and STD_ERR write their text; the rest is for listeners.
    bool receiveMessage(const std::shared_ptr<IObject>& messageObj) override;
    // One pass over the pipes and the queue; always true, a failed step is reported.
    bool handleMessagingTimeslice();
    // True while this coordinator terminates and its input pipe is still there: siblings don't write
    // until then, so that no answer crosses a closing pipe.
    bool isHoldingSiblingResponsesForTermination() const;
    // The words that start the coordinator `coordinatorName`: this process's own for its own name;
    // otherwise the key appPath of the section "config.NAME" split as a shell would, with "-n NAME"
    // added unless the words name the coordinator. Empty when it can't be launched.
    const std::vector<std::string>& getLaunchArgs(const std::string& coordinatorName);
    // Closes this coordinator's input pipe and removes a proxy file that no running process owns.
    void destroyNamedPipe();
    // The proxy path of the input pipe of the coordinator of this machine named `coordinatorName`.
    static std::string getNamedPipePath(const std::string& coordinatorName);
    // Ends a line of text on a pipe: one message each.
    static constexpr char PIPE_LINE_SEPARATOR = '\n';
    void setGatewaySendFunction(GatewaySendFunction gatewaySendFunction) {
        fGatewaySendFunction = gatewaySendFunction;
    }

    // ---- remote scripts and data requests (BrwInternalCoordinatorRemote.cpp) ----
    // The handler, on this coordinator's "messageReceived", that takes the replies to its requests.
    static constexpr const char* SCRIPT_RESULTS_HANDLER_NAME = "scriptResults";
    // The next number from the process's counter: the sequence numbers of requests, on both sides.
    static uint64_t nextSequenceNumber();
    // Starts a task that sends or serves a request, and gives it its first slice. One without a parent goes
    // below the main task, so that it ends with the coordinator at the latest.
    [[nodiscard]] bool startRequestTask(const std::shared_ptr<Task>& task);
    // The body of a RunRemoteScriptTask: sends "clientSequenceNr" and "script" and waits for the result.
    void runRemoteScript_yielding(const std::shared_ptr<Task>& task, bool& completed);
    // Makes the task that sends `dataNode` to the handler `callBackID` at the target; null when it can't
    // be made. `callBackFunction`, when given, is called with the reply.
    std::shared_ptr<SendDataToRemoteTask>
    sendDataToRemote(const std::shared_ptr<const IObject>& targetAddressObj, const std::string& callBackID,
                     const std::shared_ptr<IOMNode>& dataNode, OpCode opCode, int64_t timeoutMicroseconds,
                     uint64_t sequenceNumber, const std::shared_ptr<OMScope>& scope,
                     const std::shared_ptr<OMStored>& callBackFunction);
    // The body of a SendDataToRemoteTask: sends "clientSequenceNr", "data" and "callBackID", and waits
    // for the reply when it does.
    void sendDataToRemote_yielding(const std::shared_ptr<Task>& task, bool& completed);
    // Registers the script function that answers data requests for `callBackID`, called in `scope`;
    // replaces an earlier one.
    [[nodiscard]] bool setDataRequestCallBack(const std::shared_ptr<OMScope>& scope,
                                              const std::string& callBackID,
                                              const std::shared_ptr<OMStored>& callBackFunction,
                                              const std::string& name);
    // Forgets the function of `callBackID`; true when there was one.
    bool clearDataRequestCallBack(const std::string& callBackID);
    // Starts the handler of `callBackID` on a data request; the task, or null when there is no handler.
    std::shared_ptr<Task> handleDataRequest(const std::shared_ptr<const IObject>& senderAddressObj,
                                            const std::string& callBackID,
                                            const std::shared_ptr<IOMNode>& dataNode,
                                            uint64_t clientSequenceNumber, GUIDClass* clientSessionGUID,
                                            GUIDClass* serviceSessionGUID);
    // "scriptResults": a received EVAL_RESULT or DATA_REPLY ends the wait of the request it answers.
    bool handleEvent(const std::string& handlerName, const std::shared_ptr<IObject>& eventObj) override;
    // Takes a request out of the table of pending ones, when `requestTask` is the one under the number.
    void removePendingRequest(uint64_t sequenceNumber, const RemoteRequestTask_abstract* requestTask);
    size_t getPendingRequestCount() const { return fPendingRequests.size(); }
    // Forgets every message in flight, pending request, data-request handler and sibling proxy: a harness
    // that runs one script after the other in one process puts the coordinator back between them.
    [[nodiscard]] bool discardMessaging();

    // Runs the main task and the started tasks for `microseconds`, or without limit when negative, until
    // the main task ends.
    [[nodiscard]] bool runEventLoop(int64_t microseconds);
    // Asks the process to stop; the loops end once everything is idle.
    bool terminate() override;
    bool isTerminating() const { return fIsTerminating; }
    bool isTerminatingAndIdle();
    // True when nothing is moving: no messages in flight and every service idle.
    bool isIdle() override;
    // Traffic moved: keeps the event loop from sleeping for the next turns.
    bool reportMessagingActivityInEventLoop();
    // The same for code without a coordinator at hand, the pipes: a process without one makes none.
    static void reportMessagingActivity();
    // The one sleep of the process, at most `microseconds`; the process lock is let go meanwhile.
    void waitForActivity(int64_t microseconds);
    // The main task's body: one round of the coordinator per slice, until it stops. A round walks the tree
    // of services.
    void timeslice_yielding(const std::shared_ptr<Task>& task, bool& success) override;

    // The process's one input stream, made at the first call: standard input with -I, else the console.
    std::shared_ptr<InputStream> inputStreamFactory();
    // The process's standard output stream, made at the first call.
    std::shared_ptr<OutputStream> outputStreamFactory();
    // Starts the evaluator of a person's console on the process's input stream; the task, or null.
    std::shared_ptr<Task> startConsole();

    const std::shared_ptr<Task>& getMainTask() const { return fMainTask; }
    // Where scripts of this coordinator run: below the root scope, sees it read-only.
    const std::shared_ptr<OMScope>& getCoordinatorScope() const { return fCoordinatorScope; }
    std::shared_ptr<class IOMNode> buildSysInfo() const; // sysInfo()'s map, taken anew at each call
    IdleBackoff& getIdleBackoff() { return fIdleBackoff; }
    uint64_t getRoundCounter() const { return fRoundCounter; }

    // The process lock: held by the main thread from init to the teardown, except while it sleeps in
    // waitForActivity. Another thread must hold it to touch the coordinator.
    static std::recursive_mutex& getProcessLock();

protected:
    InternalCoordinator() = default;
    friend class Object;

private:
    // Runs the started tasks with what is left of this turn; true when the loop must end: the main task
    // has ended or the deadline has passed.
    bool runActiveTasksUntil(int64_t deadline);
    // True when a task waits for standard input that may still come: the sleep then watches it.
    bool isWaitingForStandardInput() const;
    // True when a started task is in the middle of script code rather than waiting for input: the event
    // loop must not sleep then.
    static bool isAnyTaskRunningScript();
    // Sets what a checked switch stands for.
    [[nodiscard]] static bool applySwitch(char switchLetter, const std::string& argument);
    // Runs the startup script of -F to its end in the coordinator scope.
    [[nodiscard]] bool runStartupScript();
    // How soon a removed pipe proxy or .pid file is noticed: checked every round, a coordinator at rest
    // would spend most of its time asking the file system.
    static constexpr int64_t FILE_CHECK_INTERVAL_MICROSECONDS = 100000;
    // True when the check of `nextCheckTime` is due, which then moves on by the interval.
    static bool isFileCheckDue(int64_t& nextCheckTime);
    // Publishes the .pid file again when it has gone; main ends when another process has taken it over.
    [[nodiscard]] bool checkPublishedProcessId();
    // The checks and steps of init that make this process the one coordinator of its name.
    [[nodiscard]] bool claimCoordinatorName();
    // Takes BRAIDWELL_CONFIG_NODE_NAME.
    [[nodiscard]] static bool readNodeName();
    // Adds the main configuration file and the one of -c to the stack.
    [[nodiscard]] static bool addConfigFiles(std::map<char, std::vector<std::string>>& switches);
    // The path of the folder `name` below the program's data folder; "" without a user data folder.
    static std::string programFolderPath(const char* name);
    // Walks the tree down the path of names and numbers; null when a step finds nothing.
    std::shared_ptr<const IObject> findServiceByIndices(const std::vector<std::string>& indexList);
    // Keeps the input pipe open (or, while terminating, closes it once nothing is half read) and hands
    // each whole line read from it to receiveMessageStr.
    [[nodiscard]] bool monitorNamedPipe();
    void destroyInputPipe(const std::string& namedPipePath);
    // Delivers one message here, or hands it on towards the coordinator or machine it is for.
    [[nodiscard]] bool relayMessage(const std::shared_ptr<const IObject>& messageObj);
    // Sends a request's map from this coordinator to its target, waited for under its sequence number when
    // the task waits.
    [[nodiscard]] bool sendRequest(const std::shared_ptr<RemoteRequestTask_abstract>& requestTask,
                                   const std::shared_ptr<IOMNode>& messageNode);
    // The pending request that a reply's "clientSequenceNr" names; null (reported) when none waits.
    std::shared_ptr<RemoteRequestTask_abstract> findPendingRequest(const IOMNode& messageNode);
    [[nodiscard]] bool handleEventScriptResults(const IMessage& message);
    [[nodiscard]] bool handleEventDataResults(const IMessage& message);
    // Forgets every pending request and data-request handler: part of the teardown.
    void deregisterPendingTasks();
    // Hands a message to the proxy of the coordinator of this machine named `coordinatorName`, made
    // when there is none.
    [[nodiscard]] bool relayToSibling(const std::string& coordinatorName,
                                      const std::shared_ptr<const IObject>& messageObj);

    bool fIsTerminating = false;                               // set once by terminate(); never reset
    std::shared_ptr<Task> fMainTask;                           // runs timeslice_yielding
    std::shared_ptr<OMScope> fCoordinatorScope;                // variables of the scripts run here
    IdleBackoff fIdleBackoff;                                  // the sleep between turns of the event loop
    uint64_t fRoundCounter = 0;                                // rounds of timeslice_yielding
    std::shared_ptr<InputStream> fInputStream;                 // made by inputStreamFactory
    std::shared_ptr<OutputStream> fOutputStream;               // made by outputStreamFactory
    PidFile fPidFile;                                          // the published identifier and its lock
    std::string fLastSessionData;                              // the text last written to the session file
    std::vector<std::shared_ptr<const IObject>> fMessageQueue; // messages waiting to be routed
    int32_t fIsProcessingMessageQueue = 0;                     // non-zero while processMessageQueues runs
    GatewaySendFunction fGatewaySendFunction = nullptr;        // see setGatewaySendFunction
    bool fIsInitFinished = false;                              // init has run to its end
    int64_t fNextPipeFileCheckTime = 0;                        // see isFileCheckDue
    int64_t fNextPidFileCheckTime = 0;                         // see isFileCheckDue
    int fNamedPipeHandle = 0;                                  // the input pipe; 0 when not open
    std::string fInputString;                                  // a line of the input pipe under way
    std::unordered_map<std::string, std::vector<std::string>, FNV1aHash> fLaunchArgs; // by coordinator
    // Requests that wait for their reply, by sequence number.
    std::unordered_map<uint64_t, std::weak_ptr<RemoteRequestTask_abstract>> fPendingRequests;
    // A script function that answers data requests, and where it runs.
    struct DataRequestCallBack {
        std::shared_ptr<OMScope> fScope;
        std::shared_ptr<OMStored> fFunction;
        std::string fName; // for the log
    };
    std::unordered_map<std::string, DataRequestCallBack, FNV1aHash> fDataRequestCallBacks; // by identifier

    static inline bool fIsVersionRequested = false;           // -v: stop right after start-up
    static inline std::vector<std::string> fOwnLaunchArgs;    // the program and its own command line
    static inline ConfigStack fConfigStack;                   // the configuration files
    static inline std::map<std::string, std::string> fUrlMap; // section urlMap
    static inline std::string fNodePrefix;                    // see getNodePrefix
    static inline std::string fPipeFolderPath;                // see getPipeFolderPath
    static inline std::string fSessionDataFolderPath;         // see getSessionDataFolderPath
    static inline std::string fSysConfigFolderPath;           // see getSysConfigFolderPath
};

} // namespace Brw
