#include "BrwCoordinator/BrwInternalCoordinator.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

#include "BrwCoordinator/BrwMainTaskTimesliceTask.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwMain/BrwTestRegistry.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwInputStreamConsole.h"
#include "BrwParser/BrwInputStreamStdIn.h"
#include "BrwParser/BrwOutputStreamStdOut.h"
#include "BrwTask/BrwYielding.h"
#include "BrwUtils/BrwClock.h"

namespace Brw {

namespace {

std::shared_ptr<IObject> gInternalCoordinator; // the singleton
bool gIsInternalCoordinatorCreated = false;    // once released, the singleton never comes back

using RegisterDeregisterFunction = bool (*)(RegisterDeregister);

// The runtime classes, in their fixed order.
const RegisterDeregisterFunction kObjectClasses[] = {
    InternalCoordinator::registerDeregisterClass,
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

// Letters of switches that take the next word as their argument, whatever it looks like.
bool takesArgument(char switchLetter) {
    static const std::string lettersWithArgument = "DFNPcefnopqrtw";
    return lettersWithArgument.find(switchLetter) != std::string::npos;
}

enum class SwitchKind { UNKNOWN, FLAG, WORD, NUMBER };

// What a switch expects behind it.
SwitchKind switchKindOf(char switchLetter) {
    switch (switchLetter) {
    case 's':
    case 'v':
        return SwitchKind::FLAG;
    case 'n':
    case 'N':
    case 't':
        return SwitchKind::WORD;
    case 'w':
        return SwitchKind::NUMBER;
    default:
        return SwitchKind::UNKNOWN;
    }
}

} // namespace

InternalCoordinator::~InternalCoordinator() = default;

std::recursive_mutex& InternalCoordinator::getProcessLock() {
    static auto* lock = new std::recursive_mutex();
    return *lock;
}

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
        // The main task holds no reference back; dropping it here ends the cycle of the task tables.
        coordinator->fMainTask.reset();
        coordinator->fCoordinatorScope.reset();
    }
    internalCoordinator.reset();
    // The class table goes with the coordinator.
    VERIFY(deregisterObjectClasses());
}

bool InternalCoordinator::init(int argc, char** argv) {
    bool retVal = false;
    do {
        std::lock_guard<std::recursive_mutex> lock(getProcessLock());
        SANITY_CHECK(parseCommandLineArgs(argc, argv));
        if (! registerObjectClasses()) {
            LOG_ERROR("failed to register class");
            SANITY_CHECK(registerObjectClasses());
        }
        SANITY_CHECK(registerTests());
        ASSIGN_TYPED(InternalCoordinator, internalCoordinator, factory());
        SANITY_CHECK(internalCoordinator->createGUID());
        ASSIGN(internalCoordinator->fMainTask, MainTaskTimesliceTask::factory());
        ASSIGN(internalCoordinator->fCoordinatorScope, OMScope::factory(nullptr, OMScope::READS_PARENT));
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::registerObjectClasses() {
    return walkObjectClasses(REGISTER);
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
    bool retVal = false;
    do {
        // The check texts keep their established spacing.
        // clang-format off
        if (registerDeregister == REGISTER) {
            SANITY_CHECK(Object::registerFactory( TYPENAME, InternalCoordinator::factory));
        } else if (registerDeregister == DEREGISTER) {
            SANITY_CHECK(Object::deregisterFactory( TYPENAME));
            // clang-format on
        } else {
            LOG_ERROR("no registerDeregister");
            break;
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::parseCommandLineArgs(int argc, char** argv) {
    bool retVal = false;
    do {
        std::string cmdLine;
        std::map<char, std::vector<std::string>> switches;
        char pendingLetter = 0; // a switch waiting for its argument
        char lastLetter = 0;    // the switch a stray word voids
        std::vector<std::string> pendingArgs;
        for (int i = 1; i < argc; ++i) {
            const std::string word = argv[i] != nullptr ? argv[i] : "";
            cmdLine += (i > 1 ? " " : "") + word;
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
        LOG_TRACE_F("coordinator name: %s", fCoordinatorName.c_str());
        for (const auto& [letter, args] : switches) {
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
        const SwitchKind kind = switchKindOf(switchLetter);
        bool success = kind != SwitchKind::UNKNOWN;
        SANITY_CHECK(success);
        if (kind == SwitchKind::WORD) {
            SANITY_CHECK(switchArgs.size() == 1);
        } else if (kind == SwitchKind::NUMBER) {
            SANITY_CHECK(switchArgs.size() == 1 && Utils::isNumeric(switchArgs[0]));
        }
        const std::string argument = switchArgs.empty() ? std::string() : switchArgs[0];
        switch (switchLetter) {
        case 'n':
            fCoordinatorName = argument;
            break;
        case 'N':
            fCoordinatorShortName = argument;
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
            fDelayQuitMicroseconds = Utils::toInt64(argument) * 1000;
            break;
        default:
            break;
        }
        retVal = true;
    } while (false);
    return retVal;
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
    return true;
}

bool InternalCoordinator::reportMessagingActivityInEventLoop() {
    fIdleBackoff.reportActivity();
    return true;
}

void InternalCoordinator::waitForActivity(int64_t microseconds) {
    if (microseconds <= 0) {
        return;
    }
    std::recursive_mutex& lock = getProcessLock();
    lock.unlock();
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
    lock.lock();
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
            budget = std::clamp<int64_t>((deadline - Clock::now()) / 1000, 0, budget);
        }
        SANITY_CHECK(Task::runActiveTasks(budget));
        retVal = fMainTask->isTaskCompleted() || (deadline != 0 && Clock::now() >= deadline);
    } while (false);
    return retVal;
}

bool InternalCoordinator::runEventLoop(int64_t microseconds) {
    bool retVal = false;
    do {
        SANITY_CHECK(fMainTask);
        if (fMainTask->isTaskCompleted()) {
            retVal = true;
            break;
        }
        const int64_t deadline = microseconds < 0 ? 0 : Clock::now() + microseconds * 1000;
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
                    waitForActivity(deadline == 0 ? sleep : std::min(sleep, (deadline - now) / 1000));
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
    struct LocalVariableState : OMFunctionState {};
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    while (! isTerminatingAndIdle()) {
        ++fRoundCounter;
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

std::shared_ptr<OutputStream> InternalCoordinator::outputStreamFactory() {
    if (! fOutputStream) {
        fOutputStream = std::make_shared<OutputStreamStdOut>();
    }
    return fOutputStream;
}

} // namespace Brw
