#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "BrwCoordinator/BrwIdleBackoff.h"
#include "BrwService/BrwIInternalCoordinator.h"
#include "BrwService/BrwService_abstract.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

class Task;
class InputStream;
class OMScope;
class OutputStream;

// The process's root: one per process, reached through factory(). It is the root of the tree of services,
// owns the main task, runs the event loop and holds the process-wide settings as static members. It keeps
// what it learns of other coordinators and hosts, so that addresses by name and by GUID can be turned into
// each other.
class InternalCoordinator : public Service_abstract, public virtual IInternalCoordinator {
public:
    static constexpr const char* TYPENAME = "InternalCoordinator";
    static constexpr const char* VERSION = "0.1.1";
    static constexpr int BUILD = 1;
    static constexpr const char* MAIN_COORDINATOR_NAME = "net.braidwell.coordinator.main";
    static constexpr const char* REFLECTOR_COORDINATOR_NAME = "net.braidwell.coordinator.reflector";
    // The host name and IP text of this machine that every process knows.
    static constexpr const char* LOCAL_HOST_NAME = "localhost";
    static constexpr const char* LOCAL_IP_ADDRESS = "127.0.0.1";

    // Settings; the command line fills them. Times are microseconds.
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
    static inline bool fLogIPC = false;            // every routed message goes to the IPC log
    static inline std::string fIpcMessageLogFile;  // the IPC log; standard error when empty

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
    // True when a started task is in the middle of script code rather than waiting for input: the event
    // loop must not sleep then.
    static bool isAnyTaskRunningScript();
    // Sets what a checked switch stands for.
    [[nodiscard]] static bool applySwitch(char switchLetter, const std::string& argument);
    // Runs the startup script of -F to its end in the coordinator scope.
    [[nodiscard]] bool runStartupScript();
    // Walks the tree down the path of names and numbers; null when a step finds nothing.
    std::shared_ptr<const IObject> findServiceByIndices(const std::vector<std::string>& indexList);

    bool fIsTerminating = false;                 // set once by terminate(); never reset
    std::shared_ptr<Task> fMainTask;             // runs timeslice_yielding
    std::shared_ptr<OMScope> fCoordinatorScope;  // variables of the scripts run here
    IdleBackoff fIdleBackoff;                    // the sleep between turns of the event loop
    uint64_t fRoundCounter = 0;                  // rounds of timeslice_yielding
    std::shared_ptr<InputStream> fInputStream;   // made by inputStreamFactory
    std::shared_ptr<OutputStream> fOutputStream; // made by outputStreamFactory

    static inline bool fIsVersionRequested = false; // -v: stop right after start-up
};

} // namespace Brw
