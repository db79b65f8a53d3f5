#include "BrwCoordinator/BrwInternalCoordinator.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <thread>
#include <unistd.h>

#include "BrwAddress/BrwInternalAddress.h"
#include "BrwAddress/BrwLocalResolvedAddress.h"
#include "BrwAddress/BrwLocalUnresolvedAddress.h"
#include "BrwAddress/BrwRemoteResolvedAddress.h"
#include "BrwAddress/BrwRemoteUnresolvedAddress.h"
#include "BrwCoordinator/BrwMainTaskTimesliceTask.h"
#include "BrwCoordinator/BrwPipes/BrwPipes.h"
#include "BrwCoordinator/BrwPipes/BrwReadPipe.h"
#include "BrwCoordinator/BrwPipes/BrwWritePipe.h"
#include "BrwCoordinator/BrwSiblingCoordinator.h"
#include "BrwData/BrwDataNull.h"
#include "BrwData/BrwDataOM.h"
#include "BrwData/BrwDataString.h"
#include "BrwEvent/BrwEvent.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwMain/BrwTestRegistry.h"
#include "BrwMessage/BrwMessage.h"
#include "BrwParser/BrwInputStreamConsole.h"
#include "BrwParser/BrwInputStreamStdIn.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwParser/BrwOutputStreamStdOut.h"
#include "BrwSerializer/BrwSimpleSerializer.h"
#include "BrwService/BrwServiceLog.h"
#include "BrwService/BrwServiceNull.h"
#include "BrwService/BrwServiceOM.h"
#include "BrwService/BrwServicePing.h"
#include "BrwService/BrwServiceSampleForTests.h"
#include "BrwTask/BrwCallTask.h"
#include "BrwTask/BrwParseAndEvalStreamTask.h"
#include "BrwTask/BrwYielding.h"
#include "BrwUtils/BrwClock.h"
#include "BrwUtils/BrwDirs.h"

namespace Brw {

namespace {

std::shared_ptr<IObject> gInternalCoordinator; // the singleton
bool gIsInternalCoordinatorCreated = false;    // once released, the singleton never comes back

using RegisterDeregisterFunction = bool (*)(RegisterDeregister);

// The runtime classes, in their fixed order.
const RegisterDeregisterFunction kObjectClasses[] = {
    DataNull::registerDeregisterClass,
    DataString::registerDeregisterClass,
    DataOM::registerDeregisterClass,
    Event::registerDeregisterClass,
    InternalAddress::registerDeregisterClass,
    InternalCoordinator::registerDeregisterClass,
    Message::registerDeregisterClass,
    LocalResolvedAddress::registerDeregisterClass,
    LocalUnresolvedAddress::registerDeregisterClass,
    ServiceLog::registerDeregisterClass,
    ServiceNull::registerDeregisterClass,
    ServiceOM::registerDeregisterClass,
    ServicePing::registerDeregisterClass,
    ServiceSampleForTests::registerDeregisterClass,
    SiblingCoordinator::registerDeregisterClass,
    SimpleSerializer::registerDeregisterClass,
    RemoteResolvedAddress::registerDeregisterClass,
    RemoteUnresolvedAddress::registerDeregisterClass,
};

bool walkObjectClasses(RegisterDeregister registerDeregister) {
    bool retVal = true;
    for (RegisterDeregisterFunction registerDeregisterClass : kObjectClasses) {
        if (! registerDeregisterClass(registerDeregister)) {
            retVal = false;
            break;
        }
    }
    return retVal;
}

enum class SwitchKind {
    UNKNOWN,
    FLAG,   // takes no word and doesn't look at its list
    BARE,   // takes no word and refuses one
    WORD,   // takes one word
    NUMBER, // takes one integer
};

struct SwitchEntry {
    char letter;          // the letter behind "-"
    SwitchKind kind;      // what it expects behind it
    const char* argument; // its argument in the usage text
    const char* meaning;  // its line of the usage text
    int64_t largest = 0;  // of a NUMBER: the largest value it takes; a larger one counts as no number
};

// Every switch the program knows, in the order of the usage text.
const SwitchEntry kSwitches[] = {
    {'c', SwitchKind::WORD, "FILE", "read this configuration file after the main one; its values win"},
    {'D', SwitchKind::WORD, "ID", "default call-back identifier of data requests"},
    {'d', SwitchKind::FLAG, "", "write the session data of the coordinator to its session file"},
    {'e', SwitchKind::NUMBER, "N", "echo of typed keys at the console, 0 to 3: 1 (the default) and 3 echo",
     std::numeric_limits<int32_t>::max()},
    {'F', SwitchKind::WORD, "FILE", "run this script once at start, before anything else"},
    {'f', SwitchKind::WORD, "FILE", "run this script, then the mode chosen; - reads standard input"},
    {'h', SwitchKind::FLAG, "", "print this text and stop"},
    {'I', SwitchKind::FLAG, "", "read script from standard input and print the value of each statement"},
    {'i', SwitchKind::FLAG, "", "interactive console; with -I unbuffered standard streams"},
    {'N', SwitchKind::WORD, "NAME", "short name of this coordinator: NAME is net.braidwell.coordinator.NAME"},
    {'n', SwitchKind::WORD, "NAME", "full name of this coordinator (default net.braidwell.coordinator.main)"},
    {'o', SwitchKind::NUMBER, "MS", "time-out in milliseconds of a script run on another coordinator",
     Clock::LONGEST_MILLISECONDS},
    {'P', SwitchKind::WORD, "TEXT", "prompt of the console inside an unfinished statement"},
    {'p', SwitchKind::WORD, "TEXT", "prompt of the console"},
    {'q', SwitchKind::WORD, "TEXT", "accepted and ignored"},
    {'r', SwitchKind::WORD, "URL", "run the script of -f on the coordinator at this brw:// address"},
    {'s', SwitchKind::FLAG, "", "server: stay up until told to stop"},
    {'t', SwitchKind::WORD, "y|n", "run the built-in self-tests and test scripts at start, or not"},
    {'v', SwitchKind::FLAG, "", "print the version and stop"},
    {'w', SwitchKind::NUMBER, "MS", "grace time in milliseconds before a stop (default 10000)",
     Clock::LONGEST_MILLISECONDS},
    {'z', SwitchKind::BARE, "", "ignore Ctrl-C (the interrupt signal) from start-up on"},
};

const SwitchEntry* findSwitch(char switchLetter) {
    for (const SwitchEntry& entry : kSwitches) {
        if (entry.letter == switchLetter) {
            return &entry;
        }
    }
    return nullptr;
}

// Switches that take the next word as their argument, whatever it looks like.
bool takesArgument(char switchLetter) {
    const SwitchEntry* entry = findSwitch(switchLetter);
    return entry != nullptr && (entry->kind == SwitchKind::WORD || entry->kind == SwitchKind::NUMBER);
}

} // namespace

InternalCoordinator::~InternalCoordinator() = default;

std::recursive_mutex& InternalCoordinator::getProcessLock() {
    static auto* lock = new std::recursive_mutex();
    return *lock;
}

namespace {

// The main thread's hold on the process lock, taken in init and given up at the teardown.
std::unique_lock<std::recursive_mutex>& mainThreadLock() {
    static auto* hold =
        new std::unique_lock<std::recursive_mutex>(InternalCoordinator::getProcessLock(), std::defer_lock);
    return *hold;
}

} // namespace

std::shared_ptr<IObject> InternalCoordinator::factory() {
    if (! gIsInternalCoordinatorCreated) {
        gIsInternalCoordinatorCreated = true;
        auto internalCoordinator = Object::makeRegistered<InternalCoordinator>();
        if (internalCoordinator) {
            internalCoordinator->fIsTerminating = fIsVersionRequested;
        }
        gInternalCoordinator = internalCoordinator;
    }
    return gInternalCoordinator;
}

void InternalCoordinator::releaseInstance() {
    gIsInternalCoordinatorCreated = true;
    std::shared_ptr<IObject> internalCoordinator;
    internalCoordinator.swap(gInternalCoordinator);
    if (auto coordinator = std::dynamic_pointer_cast<InternalCoordinator>(internalCoordinator)) {
        coordinator->destroyNamedPipe();
        // The process is going: what the other pipes hold goes with it.
        Pipes::closeAll();
        VERIFY(coordinator->destroySessionData());
        // The main task holds no reference back; dropping it here ends the cycle of the task tables.
        coordinator->deregisterPendingTasks();
        coordinator->fMainTask.reset();
        coordinator->fCoordinatorScope.reset();
        // The tree of services goes with its root.
        VERIFY(coordinator->deregisterObject());
    }
    clearHostTables();
    internalCoordinator.reset();
    // The class table goes with the coordinator.
    VERIFY(deregisterObjectClasses());
    if (mainThreadLock().owns_lock()) {
        mainThreadLock().unlock();
    }
}

bool InternalCoordinator::init(int argc, char** argv) {
    bool retVal = false;
    do {
        if (! mainThreadLock().owns_lock()) {
            mainThreadLock().lock();
        }
        SANITY_CHECK(readNodeName());
        SANITY_CHECK(parseCommandLineArgs(argc, argv));
        SANITY_CHECK(registerObjectClasses());
        SANITY_CHECK(registerTests());
        ASSIGN_TYPED(InternalCoordinator, internalCoordinator, factory());
        SANITY_CHECK(internalCoordinator->createGUID());
        internalCoordinator->destroyNamedPipe();
        // The replies to this coordinator's requests come to it as messages.
        SANITY_CHECK(internalCoordinator->attachDetachEventHandler(
            AttachDetach::ATTACH, "messageReceived", SCRIPT_RESULTS_HANDLER_NAME,
            std::dynamic_pointer_cast<IEventListener>(internalCoordinator)));
        ASSIGN(internalCoordinator->fCoordinatorScope, OMScope::factory(nullptr, OMScope::READS_PARENT));
        SANITY_CHECK(internalCoordinator->claimCoordinatorName());
        // The services that every coordinator has.
        SANITY_CHECK(ServiceNull::factory());
        SANITY_CHECK(ServicePing::factory());
        SANITY_CHECK(ServiceLog::factory());
        SANITY_CHECK(ServiceOM::factory());
        SANITY_CHECK(ServiceOM::sampleFactory());
        ASSIGN(internalCoordinator->fMainTask, MainTaskTimesliceTask::factory());
        SANITY_CHECK(internalCoordinator->runStartupScript());
        internalCoordinator->fIsInitFinished = true;
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::runStartupScript() {
    bool retVal = false;
    do {
        if (fStartupScriptFilePath.empty()) {
            retVal = true;
            break;
        }
        LOG_TRACE_F("startup script task started: %s", fStartupScriptFilePath.c_str());
        std::shared_ptr<OMStored> node = OMStored::undefinedFactory();
        std::shared_ptr<IOMNode> result;
        if (! CallTask::call("evalScriptTask", [&](const std::shared_ptr<Task>& task) {
                node->evalScript_yielding(task, result, fCoordinatorScope, fStartupScriptFilePath,
                                          UNWRAP_RETURN_VALUE);
            })) {
            break;
        }
        LOG_TRACE_F("startup script task completed: %s", fStartupScriptFilePath.c_str());
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::registerObjectClasses() {
    bool retVal = walkObjectClasses(REGISTER);
    if (! retVal) {
        LOG_ERROR("failed to register class");
    }
    return retVal;
}

bool InternalCoordinator::deregisterObjectClasses() {
    bool retVal = walkObjectClasses(DEREGISTER);
    if (! retVal) {
        LOG_ERROR("failed to de-register class");
    }
    return retVal;
}

bool InternalCoordinator::registerTests() {
    return TestRegistry::registerAll();
}

bool InternalCoordinator::registerDeregisterClass(RegisterDeregister registerDeregister) {
    // The check texts keep their established spacing.
    // clang-format off
    return Object::registerDeregister(registerDeregister,
        [] { return SANITY_CHECKED(Object::registerFactory( TYPENAME, InternalCoordinator::factory)); },
        [] { return SANITY_CHECKED(Object::deregisterFactory( TYPENAME)); });
    // clang-format on
}

bool InternalCoordinator::parseCommandLineArgs(int argc, char** argv) {
    bool retVal = false;
    do {
        std::string cmdLine;
        std::map<char, std::vector<std::string>> switches;
        char pendingLetter = 0; // a switch waiting for its argument
        char lastLetter = 0;    // the switch a stray word voids
        std::vector<std::string> pendingArgs;
        fOwnLaunchArgs = {Dirs::getAppPath()};
        for (int i = 1; i < argc; ++i) {
            const std::string word = argv[i] != nullptr ? argv[i] : "";
            cmdLine += (i > 1 ? " " : "") + word;
            fOwnLaunchArgs.push_back(word);
            if (pendingLetter != 0) {
                switches[pendingLetter] = {word};
                lastLetter = pendingLetter;
                pendingLetter = 0;
            } else if (word.size() >= 2 && word[0] == '-') {
                lastLetter = word[1];
                if (takesArgument(lastLetter)) {
                    pendingLetter = lastLetter;
                } else {
                    switches[lastLetter] = {};
                }
            } else if (lastLetter != 0) {
                // NOTE: a stray word voids the last switch's argument, so that its check fails below.
                switches[lastLetter] = {};
            }
        }
        if (pendingLetter != 0) {
            switches[pendingLetter] = {};
        }
        for (char letter : {'n', 'N'}) {
            auto iter = switches.find(letter);
            if (iter != switches.end()) {
                VERIFY(processCmdLineArg(iter->first, iter->second));
                switches.erase(iter);
            }
        }
        SANITY_CHECK(addConfigFiles(switches));
        SANITY_CHECK(processConfigStack());
        LOG_TRACE_F("coordinator name: %s", fCoordinatorName.c_str());
        for (const std::shared_ptr<IniFile>& configFile : fConfigStack.getFiles()) {
            LOG_TRACE_F("config file: %s", configFile->getFilePath().c_str());
        }
        // Switches win over the configuration, but for the names, which it may still change.
        for (const auto& [letter, args] : switches) {
            if (findSwitch(letter) == nullptr) {
                // The failed check goes to the log, which is off by default: say it where a person looks.
                fprintf(stderr, "unknown switch -%c\n", letter);
            }
            VERIFY(processCmdLineArg(letter, args));
        }
        LOG_TRACE_F("fReadStdIn = %d", fReadStdIn ? 1 : 0);
        LOG_TRACE_F("fIsInteractive = %d", fIsInteractive ? 1 : 0);
        LOG_TRACE_F("cmdLine: %s", cmdLine.c_str());
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::processCmdLineArg(char switchLetter, const std::vector<std::string>& switchArgs) {
    bool retVal = false;
    do {
        const SwitchEntry* entry = findSwitch(switchLetter);
        bool success = entry != nullptr;
        SANITY_CHECK(success);
        if (entry->kind == SwitchKind::WORD) {
            SANITY_CHECK(switchArgs.size() == 1);
        } else if (entry->kind == SwitchKind::NUMBER) {
            SANITY_CHECK(switchArgs.size() == 1 && Utils::isNumeric(switchArgs[0]));
            SANITY_CHECK(Utils::isNumberUpTo(switchArgs[0], static_cast<uint64_t>(entry->largest)));
        } else if (entry->kind == SwitchKind::BARE) {
            SANITY_CHECK(switchArgs.size() == 0);
        }
        SANITY_CHECK(applySwitch(switchLetter, switchArgs.empty() ? std::string() : switchArgs[0]));
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::applySwitch(char switchLetter, const std::string& argument) {
    bool retVal = true;
    switch (switchLetter) {
    case 'c':
        // Taken by parseCommandLineArgs itself.
        break;
    case 'D':
        fDefaultCallBackID = argument;
        break;
    case 'd':
        fUpdateSessionData = true;
        break;
    case 'e':
        fConsoleEcho = static_cast<int32_t>(Utils::toInt64(argument));
        if (fConsoleEcho < 0 || fConsoleEcho > 3) {
            fConsoleEcho = 0;
        }
        break;
    case 'F':
        fStartupScriptFilePath = Dirs::fullPath(argument);
        break;
    case 'f':
        fScriptFilePath = argument == "-" ? argument : Dirs::fullPath(argument);
        break;
    case 'h':
        fputs(getUsageText().c_str(), stdout);
        fflush(stdout);
        std::exit(0);
    case 'I':
        fReadStdIn = true;
        break;
    case 'i':
        fIsInteractive = true;
        break;
    case 'n':
        fCoordinatorName = argument;
        break;
    case 'N':
        fCoordinatorShortName = argument;
        break;
    case 'o':
        fRemoteTimeoutMicroseconds = Utils::toInt64(argument) * Clock::MICROSECONDS_PER_MILLISECOND;
        break;
    case 'P':
        fPromptContinuation = argument;
        break;
    case 'p':
        fPrompt = argument;
        break;
    case 'q':
        fQSwitchArgument = argument;
        break;
    case 'r':
        fRemoteCoordinatorURL = argument;
        break;
    case 's':
        fIsServer = true;
        break;
    case 't':
        if (Utils::toLower(argument) == "y") {
            fRunTests = true;
            LOG_TRACE("startup tests: on");
        } else if (Utils::toLower(argument) == "n") {
            fRunTests = false;
            LOG_TRACE("startup tests: off");
        }
        break;
    case 'v':
        printf("%sb%d\n", VERSION, BUILD);
        fflush(stdout);
        fIsVersionRequested = true;
        break;
    case 'w':
        fDelayQuitMicroseconds = Utils::toInt64(argument) * Clock::MICROSECONDS_PER_MILLISECOND;
        break;
    case 'z':
        retVal = std::signal(SIGINT, SIG_IGN) != SIG_ERR;
        break;
    default:
        retVal = false;
        break;
    }
    return retVal;
}

std::string InternalCoordinator::getUsageText() {
    std::string text = "usage: braidwell [switches]\n";
    for (const SwitchEntry& entry : kSwitches) {
        std::string switchText = std::string("-") + entry.letter;
        if (entry.argument[0] != 0) {
            switchText += std::string(" ") + entry.argument;
        }
        text += Utils::format("  %-9s %s\n", switchText.c_str(), entry.meaning);
    }
    return text;
}

bool InternalCoordinator::terminate() {
    LOG_TRACE("terminate()");
    fIsTerminating = true;
    return true;
}

bool InternalCoordinator::isTerminatingAndIdle() {
    return ! gInternalCoordinator || (fIsTerminating && isIdle());
}

bool InternalCoordinator::isIdle() {
    const char* notIdleReason = nullptr;
    if (fIsProcessingMessageQueue != 0) {
        notIdleReason = "fIsTerminating but not idle because fIsProcessingMessageQueue";
    } else if (! fMessageQueue.empty()) {
        notIdleReason = "fIsTerminating but not idle because ! fMessageQueue.empty()";
    } else if (! Service_abstract::isIdle()) {
        notIdleReason = "fIsTerminating but not idle because inherited ! Service_abstract::isIdle()";
    } else if (isHoldingSiblingResponsesForTermination()) {
        notIdleReason = "fIsTerminating but not idle because isHoldingSiblingResponsesForTermination()";
    }
    if (fIsTerminating) {
        // The pipes are told of for information: the services and the queue cover what matters.
        if (! WritePipe::isAllIdle()) {
            LOG_TRACE("fIsTerminating but not idle because write pipes not idle");
        }
        if (! ReadPipe::isAllIdle()) {
            LOG_TRACE("fIsTerminating but not idle because read pipes not idle");
        }
        LOG_TRACE(notIdleReason != nullptr ? notIdleReason : "fIsTerminating and isIdle");
    }
    return notIdleReason == nullptr;
}

bool InternalCoordinator::reportMessagingActivityInEventLoop() {
    fIdleBackoff.reportActivity();
    return true;
}

void InternalCoordinator::reportMessagingActivity() {
    if (const auto internalCoordinator =
            std::dynamic_pointer_cast<InternalCoordinator>(gInternalCoordinator)) {
        internalCoordinator->reportMessagingActivityInEventLoop();
    }
}

void InternalCoordinator::waitForActivity(int64_t microseconds) {
    if (microseconds <= 0) {
        return;
    }
    // Input on a pipe, or on standard input while a task waits for it, ends the sleep at once.
    std::vector<int> extraReadDescriptors;
    if (isWaitingForStandardInput()) {
        extraReadDescriptors.push_back(STDIN_FILENO);
    }
    // Outside init and teardown nothing holds the lock to let go of.
    const bool isHeld = mainThreadLock().owns_lock();
    if (isHeld) {
        mainThreadLock().unlock();
    }
    Pipes::waitForActivity(microseconds, extraReadDescriptors);
    if (isHeld) {
        mainThreadLock().lock();
    }
}

bool InternalCoordinator::isWaitingForStandardInput() const {
    // A stream at its end would make every wait return at once.
    if (! fInputStream || fInputStream->atEOF()) {
        return false;
    }
    for (const std::shared_ptr<Task>& task : Task::getActiveTasks()) {
        if (task->isWaitingForInput()) {
            return true;
        }
    }
    return false;
}

bool InternalCoordinator::runActiveTasksUntil(int64_t deadline) {
    bool retVal = false;
    do {
        if (! fMainTask || fMainTask->isTaskCompleted()) {
            retVal = true;
            break;
        }
        int64_t budget = fEventLoopMicroseconds;
        if (deadline != 0) {
            budget = std::clamp<int64_t>(Clock::toMicroseconds(deadline - Clock::now()), 0, budget);
        }
        SANITY_CHECK(Task::runActiveTasks(budget));
        if (isAnyTaskRunningScript()) {
            fIdleBackoff.reportActivity();
        }
        retVal = fMainTask->isTaskCompleted() || (deadline != 0 && Clock::now() >= deadline);
    } while (false);
    return retVal;
}

bool InternalCoordinator::isAnyTaskRunningScript() {
    for (const std::shared_ptr<Task>& task : Task::getActiveTasks()) {
        if (task->isStarted() && ! task->isTaskCompleted() && ! task->isWaitingForInput() &&
            task->getFunctionStateCount() > 0) {
            return true;
        }
    }
    return false;
}

bool InternalCoordinator::runEventLoop(int64_t microseconds) {
    bool retVal = false;
    do {
        SANITY_CHECK(fMainTask);
        if (fMainTask->isTaskCompleted()) {
            retVal = true;
            break;
        }
        const int64_t deadline = microseconds < 0 ? 0 : Clock::now() + Clock::fromMicroseconds(microseconds);
        if (! runActiveTasksUntil(deadline)) {
            for (;;) {
                // Held by a local: the task may complete and leave the tables during its slice.
                std::shared_ptr<Task> mainTask = fMainTask;
                if (! mainTask->isTaskCompleted()) {
                    SANITY_CHECK(mainTask->runTimeslice(fInternalCoordinatorTimesliceMicroseconds));
                }
                fIdleBackoff.countTurn();
                if (mainTask->isTaskCompleted()) {
                    break;
                }
                const int64_t now = Clock::now();
                const int64_t sleep = fIdleBackoff.nextSleepMicroseconds(now, fEventLoopSleepMicroseconds);
                if (sleep != 0 && (deadline == 0 || now < deadline)) {
                    waitForActivity(deadline == 0 ? sleep
                                                  : std::min(sleep, Clock::toMicroseconds(deadline - now)));
                }
                if (runActiveTasksUntil(deadline)) {
                    break;
                }
            }
        }
        retVal = true;
    } while (false);
    return retVal;
}

void InternalCoordinator::timeslice_yielding(const std::shared_ptr<Task>& task, bool& success) {
    struct LocalVariableState : OMFunctionState {
        bool isTreeWalked = false; // the services had their slices this round
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    while (! isTerminatingAndIdle()) {
        ++fRoundCounter;
        EXPECTED(handleMessagingTimeslice());
        if (fUpdateSessionData) {
            VERIFY(writeSessionData());
        }
        VERIFY(SiblingCoordinator::scanForActiveSiblings());
        if (fCoordinatorName == MAIN_COORDINATOR_NAME) {
            VERIFY(SiblingCoordinator::scanForNamedPipeSiblings());
            VERIFY(SiblingCoordinator::scanForConfigSiblings());
        }
        // What the scans queued moves in this round.
        EXPECTED(handleMessagingTimeslice());
        YIELDING_CALL(Service_abstract::timeslice_yielding(task, frame->isTreeWalked));
        VERIFY(checkPublishedProcessId());
        YIELDING_WAIT(task->yield());
    }
    success = true;
    YIELDING_END;
}

std::shared_ptr<InputStream> InternalCoordinator::inputStreamFactory() {
    do {
        if (fInputStream) {
            break;
        }
        if (fReadStdIn) {
            fInputStream = std::make_shared<InputStreamStdIn>();
            break;
        }
        std::shared_ptr<InputStream> inputStream = std::make_shared<InputStreamConsole>(fConsoleEcho);
        auto inputStreamConsole = std::dynamic_pointer_cast<InputStreamConsole>(inputStream);
        SANITY_CHECK(inputStreamConsole);
        fInputStream = inputStream;
        if (fScriptFilePath.empty()) {
            printf("Interactive Braidwell version %sb%d (%s, built at %s %s) started\n", VERSION, BUILD,
                   BRW_ARCHITECTURE, __DATE__, __TIME__);
            fflush(stdout);
        }
    } while (false);
    return fInputStream;
}

std::shared_ptr<Task> InternalCoordinator::startConsole() {
    std::shared_ptr<Task> retVal;
    do {
        // A null stream makes the task take the process's input stream, prompted.
        std::shared_ptr<Task> consoleTask;
        ASSIGN(consoleTask,
               ParseAndEvalStreamTask::factory(OMStored::undefinedFactory(), fCoordinatorScope, nullptr));
        SANITY_CHECK(Task::startTask(consoleTask));
        retVal = consoleTask;
    } while (false);
    return retVal;
}

std::shared_ptr<OutputStream> InternalCoordinator::outputStreamFactory() {
    if (! fOutputStream) {
        fOutputStream = std::make_shared<OutputStreamStdOut>();
    }
    return fOutputStream;
}

} // namespace Brw
