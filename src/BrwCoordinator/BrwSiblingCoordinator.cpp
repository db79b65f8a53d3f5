#include "BrwCoordinator/BrwSiblingCoordinator.h"

#include <algorithm>
#include <unordered_map>

#include "BrwAddress/BrwICoordinatorNameAddress.h"
#include "BrwAddress/BrwIHostNameAddress.h"
#include "BrwAddress/BrwLocalUnresolvedAddress.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwCoordinator/BrwPidFile.h"
#include "BrwCoordinator/BrwPipes/BrwPipes.h"
#include "BrwData/BrwData_abstract.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwMessage/BrwMessage.h"
#include "BrwService/BrwServicePing.h"
#include "BrwTask/BrwYielding.h"
#include "BrwUtils/BrwClock.h"
#include "BrwUtils/BrwHash.h"
#include "BrwUtils/BrwProcess.h"
#include "BrwUtils/BrwUtils.h"

namespace Brw {

namespace {

// Every proxy of this process by the other's name; the coordinator's tree owns them.
std::unordered_map<std::string, std::weak_ptr<SiblingCoordinator>, FNV1aHash> gSiblings;

// The instants before which each scan does nothing.
int64_t gNextActiveScan = 0;
int64_t gNextNamedPipeScan = 0;
int64_t gNextConfigScan = 0;

// The section of a sibling's settings is this prefix and its name.
constexpr const char* SIBLING_SECTION_PREFIX = "config.";
constexpr const char* PID_FILE_EXTENSION = ".pid";

// True when the scan of `nextRun` is due, which then moves on by `intervalMicroseconds`.
bool isScanDue(int64_t& nextRun, int64_t intervalMicroseconds) {
    const int64_t now = Clock::now();
    if (now < nextRun) {
        return false;
    }
    nextRun = now + Clock::fromMicroseconds(intervalMicroseconds);
    return true;
}

bool isMainCoordinator() {
    return InternalCoordinator::getCoordinatorName() == InternalCoordinator::MAIN_COORDINATOR_NAME;
}

bool isOwnCoordinatorTerminating() {
    auto internalCoordinator = std::dynamic_pointer_cast<InternalCoordinator>(InternalCoordinator::factory());
    return internalCoordinator && internalCoordinator->isTerminating();
}

// A message that a launch of its receiver is worth: it asks for an answer.
bool isWorthALaunch(OpCode opCode) {
    return opCode == OpCode::PING || opCode == OpCode::EVAL || opCode == OpCode::EVAL_FILE ||
           opCode == OpCode::DATA_REQUEST;
}

} // namespace

SiblingCoordinator::SiblingCoordinator(const std::string& coordinatorName)
    : Service_abstract(coordinatorName), fCoordinatorName(coordinatorName) {}

std::shared_ptr<IObject> SiblingCoordinator::factoryFromParentName(std::shared_ptr<IObject> parentObj,
                                                                   const std::string& name) {
    std::shared_ptr<IObject> retVal;
    do {
        const std::shared_ptr<IObject> internalCoordinator = InternalCoordinator::factory();
        SANITY_CHECK(parentObj == internalCoordinator);
        std::shared_ptr<SiblingCoordinator> coordinator = Object::makeRegistered<SiblingCoordinator>(name);
        SANITY_CHECK(coordinator);
        gSiblings[name] = coordinator;
        LOG_NOTE_F("new sibling coordinator %s", name.c_str());
        SANITY_CHECK(coordinator->attachToParent(parentObj));
        retVal = coordinator;
    } while (false);
    return retVal;
}

bool SiblingCoordinator::registerDeregisterClass(RegisterDeregister registerDeregister) {
    // clang-format off
    return Object::registerDeregister(registerDeregister,
        [] { return SANITY_CHECKED(Object::registerByNameFactory( TYPENAME, SiblingCoordinator::factoryFromParentName)); },
        [] { return SANITY_CHECKED(Object::deregisterByNameFactory( TYPENAME)); });
    // clang-format on
}

std::shared_ptr<SiblingCoordinator> SiblingCoordinator::getSiblingCoordinator(const std::string& name) {
    auto find = [&name]() {
        auto iter = gSiblings.find(name);
        return iter != gSiblings.end() ? iter->second.lock() : nullptr;
    };
    std::shared_ptr<SiblingCoordinator> sibling = find();
    if (! sibling) {
        LOG_TRACE("scanning for siblings");
        VERIFY(scanForSiblings());
        sibling = find();
        if (! sibling) {
            LOG_TRACE_F("cannot find sibling %s", name.c_str());
        }
    }
    return sibling;
}

bool SiblingCoordinator::hasQuit(const std::string& name) {
    if (name == InternalCoordinator::getCoordinatorName()) {
        return false;
    }
    auto iter = gSiblings.find(name);
    const std::shared_ptr<SiblingCoordinator> sibling =
        iter != gSiblings.end() ? iter->second.lock() : nullptr;
    return ! sibling || sibling->hasQuit();
}

// ---- the scans ----

bool SiblingCoordinator::scanForSiblings() {
    bool retVal = false;
    do {
        SANITY_CHECK(scanForActiveSiblings());
        SANITY_CHECK(scanForNamedPipeSiblings());
        SANITY_CHECK(scanForConfigSiblings());
        retVal = true;
    } while (false);
    return retVal;
}

bool SiblingCoordinator::scanForActiveSiblings() {
    bool retVal = true;
    if (isScanDue(gNextActiveScan, InternalCoordinator::fScanActiveSiblingsIntervalMicroseconds)) {
        const auto siblings = gSiblings;
        for (const auto& [name, weakSibling] : siblings) {
            const std::shared_ptr<SiblingCoordinator> sibling = weakSibling.lock();
            if (! sibling) {
                gSiblings.erase(name);
                continue;
            }
            // Asked last: hasQuit() of a process not yet up would stay true for good.
            if (sibling->isIdle() && sibling->fMessageQueue.empty() && sibling->hasQuit()) {
                LOG_TRACE_F("discarding %s", name.c_str());
                if (! sibling->deregisterObject()) {
                    retVal = false;
                }
            }
        }
    }
    return retVal;
}

bool SiblingCoordinator::scanForNamedPipeSiblings() {
    if (isMainCoordinator() &&
        isScanDue(gNextNamedPipeScan, InternalCoordinator::fScanNamedPipeSiblingsIntervalMicroseconds)) {
        const std::string& pipeFolderPath = InternalCoordinator::getPipeFolderPath();
        for (const std::string& name :
             pipeFolderPath.empty() ? std::vector<std::string>() : Dirs::scanDir(pipeFolderPath)) {
            if (name != InternalCoordinator::getCoordinatorName() && ! registerSibling(name)) {
                LOG_TRACE_F("failed to register sibling %s", name.c_str());
            }
        }
    }
    return true;
}

bool SiblingCoordinator::scanForConfigSiblings() {
    if (isMainCoordinator() &&
        isScanDue(gNextConfigScan, InternalCoordinator::fScanConfigSiblingsIntervalMicroseconds)) {
        const std::string prefix = SIBLING_SECTION_PREFIX;
        for (const std::shared_ptr<IniFile>& configFile : InternalCoordinator::getConfigStack().getFiles()) {
            for (const std::string& section : configFile->getSections()) {
                if (section.size() <= prefix.size() || section.compare(0, prefix.size(), prefix) != 0 ||
                    section.find_first_of("*?") != std::string::npos) {
                    continue;
                }
                const std::string name = section.substr(prefix.size());
                const std::string disabled =
                    Utils::toLower(InternalCoordinator::getConfigValue(section, DISABLED_KEY, ""));
                // Written by hand, "disabled = 1" is as likely as "true".
                if (disabled != "1" && disabled != "true") {
                    VERIFY(registerSibling(name));
                }
            }
        }
    }
    return true;
}

bool SiblingCoordinator::registerSibling(const std::string& name) {
    bool retVal = false;
    do {
        if (! isValidSiblingName(name)) {
            break;
        }
        auto iter = gSiblings.find(name);
        if (iter != gSiblings.end() && ! iter->second.expired()) {
            retVal = true;
            break;
        }
        SANITY_CHECK(factoryFromParentName(InternalCoordinator::factory(), name));
        retVal = true;
    } while (false);
    return retVal;
}

bool SiblingCoordinator::isValidSiblingName(const std::string& siblingName) {
    bool retVal = false;
    do {
        VERIFY(! siblingName.empty());
        if (siblingName.empty() || siblingName == InternalCoordinator::getCoordinatorName()) {
            break;
        }
        // Dots aside, what an identifier may hold; a leading digit is fine within a name.
        retVal = Utils::isIdentifierName("_" + Utils::replaceSubStr(siblingName, ".", "_"));
    } while (false);
    return retVal;
}

std::vector<std::string> SiblingCoordinator::getSiblingNames() {
    std::vector<std::string> names;
    for (const auto& [name, weakSibling] : gSiblings) {
        if (! weakSibling.expired()) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

// ---- the proxy ----

bool SiblingCoordinator::isIdle() {
    return fMessageQueue.empty() && fSiblingState != SiblingState::SENDING && Service_abstract::isIdle();
}

bool SiblingCoordinator::deregisterObject() {
    if (fdNamedPipe != 0) {
        // What the pipe holds still goes out: closing flushes it. At the process's end the pipes are all
        // closed already, and this one is no more.
        (void)Pipes::closeNamedPipe(fdNamedPipe);
        fdNamedPipe = 0;
    }
    auto iter = gSiblings.find(fCoordinatorName);
    if (iter != gSiblings.end() && (iter->second.expired() || iter->second.lock().get() == this)) {
        gSiblings.erase(iter);
    }
    return Service_abstract::deregisterObject();
}

const std::string& SiblingCoordinator::getNamedPipePath() {
    if (fNamedPipePath.empty()) {
        fNamedPipePath = InternalCoordinator::getNamedPipePath(fCoordinatorName);
    }
    return fNamedPipePath;
}

std::string SiblingCoordinator::getPidFilePath() const {
    const std::string& folderPath = InternalCoordinator::getSessionDataFolderPath();
    return folderPath.empty() ? folderPath : folderPath + fCoordinatorName + PID_FILE_EXTENSION;
}

bool SiblingCoordinator::hasQuit() {
    if (! fHasQuit) {
        if (Pipes::namedPipeExists(getNamedPipePath())) {
            fProcessId = PidFile::readPublished(getPidFilePath());
        }
        fHasQuit = fProcessId == 0 || ! Process::isRunning(fProcessId);
    }
    return fHasQuit;
}

bool SiblingCoordinator::isRunning() {
    bool retVal = false;
    do {
        if (! Pipes::namedPipeExists(getNamedPipePath())) {
            break;
        }
        // Nothing is published yet while a launched process starts up: not running.
        fProcessId = PidFile::readPublished(getPidFilePath());
        retVal = Process::isRunning(fProcessId);
    } while (false);
    return retVal;
}

bool SiblingCoordinator::isPipeCreationTimedOut() {
    return Clock::now() > fPipeTimeout;
}

bool SiblingCoordinator::resetNamedPipeTimeout() {
    fPipeTimeout = Clock::now() +
                   Clock::fromMicroseconds(InternalCoordinator::fInterCoordinatorPipeWaitTimeMicroseconds);
    return true;
}

bool SiblingCoordinator::deleteNamedPipe() {
    // The handle goes with the pipe: a process started anew listens on a new one.
    fdNamedPipe = 0;
    return Pipes::deleteNamedPipe(getNamedPipePath());
}

const std::vector<std::string>& SiblingCoordinator::getLaunchArgs() {
    if (! fHasLaunchArgs) {
        if (auto internalCoordinator =
                std::dynamic_pointer_cast<InternalCoordinator>(InternalCoordinator::factory())) {
            fLaunchArgs = internalCoordinator->getLaunchArgs(fCoordinatorName);
            fHasLaunchArgs = true;
        }
    }
    return fLaunchArgs;
}

bool SiblingCoordinator::launchIfNotRunning() {
    bool retVal = false;
    do {
        if (fIsLaunched || isRunning()) {
            LOG_TRACE("already running or launching");
            retVal = true;
            break;
        }
        // A file left by a process that has gone would pass for the new one's.
        (void)PidFile::readPublished(getPidFilePath());
        const std::vector<std::string>& launchArgs = getLaunchArgs();
        if (! isMainCoordinator()) {
            if (fCoordinatorName != InternalCoordinator::MAIN_COORDINATOR_NAME) {
                LOG_TRACE_F("We're not main coordinator, so cannot launch: %s", fCoordinatorName.c_str());
                retVal = true;
                break;
            }
            if (launchArgs.empty()) {
                LOG_TRACE_F("Cannot launch main coordinator - no launchArgs: %s", fCoordinatorName.c_str());
                break;
            }
        } else if (launchArgs.empty()) {
            LOG_TRACE_F("Cannot launch - no launchArgs: %s", fCoordinatorName.c_str());
            break;
        }
        fLaunchedProcessId = Process::launchProcess(launchArgs);
        fIsLaunched = fLaunchedProcessId != 0;
        retVal = true;
    } while (false);
    return retVal;
}

bool SiblingCoordinator::relayOutgoingMessage(const std::shared_ptr<const IObject>& messageObj) {
    LOG_TRACE_F("Relaying outgoing message, named pipe path = %s", getNamedPipePath().c_str());
    fMessageQueue.push_back(messageObj);
    return true;
}

bool SiblingCoordinator::relayIncomingMessage(const std::shared_ptr<IObject>& messageObj) {
    bool retVal = false;
    do {
        ASSIGN_TYPED(IMessage, message, messageObj);
        ASSIGN_CONST_TYPED(IAddress, receiverAddress, message->getReceiverAddressObj());
        ASSIGN_CONST_TYPED(IAddress, canonicalReceiverAddress, receiverAddress->resolved());
        ASSIGN_CONST_TYPED(IHostNameAddress, hostNameAddress, canonicalReceiverAddress);
        SANITY_CHECK(InternalCoordinator::isLocalHostName(hostNameAddress->getHostName()));
        ASSIGN_CONST_TYPED(ICoordinatorNameAddress, coordinatorNameAddress, canonicalReceiverAddress);
        const std::string destinationCoordinator = coordinatorNameAddress->getCoordinatorName();
        SANITY_CHECK(destinationCoordinator == InternalCoordinator::getCoordinatorName());
        ASSIGN_TYPED(InternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        SANITY_CHECK(internalCoordinator->queueMessage(messageObj));
        retVal = true;
    } while (false);
    return retVal;
}

bool SiblingCoordinator::queueToSibling(const std::string& indices, OpCode opCode) {
    bool retVal = false;
    do {
        ASSIGN_TYPED(InternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        std::shared_ptr<IObject> message;
        ASSIGN(message,
               Message::factoryFromSenderDestinationAddressOpCodePayloadStr(
                   getSelfObj(),
                   LocalUnresolvedAddress::factoryFromCoordinatorNameIndices(fCoordinatorName, indices),
                   opCode, ""));
        SANITY_CHECK(internalCoordinator->queueMessage(message));
        retVal = true;
    } while (false);
    return retVal;
}

bool SiblingCoordinator::ping() {
    return queueToSibling(ServicePing::SERVICE_NAME, OpCode::PING);
}

bool SiblingCoordinator::terminate() {
    return queueToSibling("", OpCode::TERMINATE);
}

// ---- the time slice ----

void SiblingCoordinator::timeslice_yielding(const std::shared_ptr<Task>& task, bool& completed) {
    struct LocalVariableState : OMFunctionState {};
    YIELDING_BEGIN(LocalVariableState, frame, completed = false);
    YIELDING_CALL(Service_abstract::timeslice_yielding(task, completed));
    runTurn();
    YIELDING_END;
}

void SiblingCoordinator::runTurn() {
    auto internalCoordinator = std::dynamic_pointer_cast<InternalCoordinator>(InternalCoordinator::factory());
    if (internalCoordinator && internalCoordinator->isHoldingSiblingResponsesForTermination()) {
        // Until its own input is closed a terminating coordinator doesn't write: an answer mustn't cross
        // a closing pipe.
        LOG_TRACE_F("busy terminating. Holding back sibling responses until pipe disappears, named pipe "
                    "path = %s",
                    getNamedPipePath().c_str());
        return;
    }
    // Each step may change the state that the next one looks at, in the same turn.
    turnInactive();
    if (! turnRunningGone()) {
        return;
    }
    turnAppeared(! fMessageQueue.empty());
    turnIdleLaunch();
    turnLaunchedTimeout();
    // One message per two turns: the turn that hands it to the pipe doesn't also take it off the queue.
    if (fSiblingState == SiblingState::SENDING) {
        LOG_TRACE("siblingState::SENDING");
        fMessageQueue.erase(fMessageQueue.begin());
        if (internalCoordinator) {
            internalCoordinator->reportMessagingActivityInEventLoop();
        }
        fSiblingState = SiblingState::RUNNING;
    } else if (fSiblingState == SiblingState::RUNNING && ! fMessageQueue.empty()) {
        if (fSendRetries > MAX_SEND_RETRIES) {
            turnSendRetriesExhausted();
        } else {
            sendHeadMessage();
        }
    }
}

void SiblingCoordinator::turnInactive() {
    const char* path = getNamedPipePath().c_str();
    if (fSiblingState == SiblingState::INACTIVE_KEEP_MESSAGES) {
        if (isRunning()) {
            LOG_NOTE_F("pipe reappeared. Switch from SiblingState::INACTIVE_KEEP_MESSAGES to "
                       "SiblingState::RUNNING, named pipe path = %s",
                       path);
            fSiblingState = SiblingState::RUNNING;
        } else if (Clock::now() > fInactiveLimit) {
            LOG_NOTE_F("inactive for a long time. Switch from SiblingState::INACTIVE_KEEP_MESSAGES to "
                       "SiblingState::INACTIVE, named pipe path = %s",
                       path);
            fMessageQueue.clear();
            fSiblingState = SiblingState::INACTIVE;
        } else if (isOwnCoordinatorTerminating()) {
            // Nobody would be left to hand them over: waiting out the limit would only hold up the stop.
            LOG_WARNING_F("dropping %zu messages for %s: it isn't running and this coordinator stops",
                          fMessageQueue.size(), fCoordinatorName.c_str());
            fMessageQueue.clear();
            fSiblingState = SiblingState::INACTIVE;
        }
    } else if (fSiblingState == SiblingState::INACTIVE) {
        if (isRunning()) {
            LOG_NOTE_F("pipe reappeared. Switch from SiblingState::INACTIVE to SiblingState::RUNNING, named "
                       "pipe path = %s",
                       path);
            fSiblingState = SiblingState::RUNNING;
        } else {
            fMessageQueue.clear();
        }
    }
}

bool SiblingCoordinator::turnRunningGone() {
    bool retVal = false;
    do {
        if (fSiblingState == SiblingState::RUNNING && ! isRunning()) {
            fSiblingState = SiblingState::IDLE;
            LOG_NOTE_F("fSiblingState == SiblingState::RUNNING && ! isRunning(), named pipe path = %s",
                       getNamedPipePath().c_str());
            SANITY_CHECK(deleteNamedPipe());
        }
        retVal = true;
    } while (false);
    return retVal;
}

void SiblingCoordinator::turnAppeared(bool hasMessage) {
    if ((fSiblingState == SiblingState::IDLE || fSiblingState == SiblingState::LAUNCHED) && isRunning() &&
        Pipes::namedPipeExists(getNamedPipePath())) {
        fLaunchRetries = 0;
        fSendRetries = 0;
        // Seen: a later launch is a new one.
        fIsLaunched = false;
        if (hasMessage) {
            LOG_NOTE_F("has pending message. Switch from SiblingState::IDLE or SiblingState::LAUNCHED to "
                       "SiblingState::RUNNING, named pipe path = %s",
                       getNamedPipePath().c_str());
        } else {
            LOG_TRACE_F("switch from SiblingState::IDLE or SiblingState::LAUNCHED to SiblingState::RUNNING, "
                        "named pipe path = %s",
                        getNamedPipePath().c_str());
        }
        fSiblingState = SiblingState::RUNNING;
    }
}

void SiblingCoordinator::keepMessagesWhileInactive() {
    fSiblingState = SiblingState::INACTIVE_KEEP_MESSAGES;
    fInactiveLimit =
        Clock::now() + Clock::fromMicroseconds(InternalCoordinator::fMaxWaitMessageDropMicroseconds);
}

void SiblingCoordinator::turnIdleLaunch() {
    if (fSiblingState != SiblingState::IDLE || fMessageQueue.empty() || isRunning()) {
        return;
    }
    if (launchIfNotRunning()) {
        LOG_NOTE_F("After launchIfNotRunning(), switch to SiblingState::LAUNCHED, fLaunchRetries = %d, named "
                   "pipe path = %s",
                   fLaunchRetries, getNamedPipePath().c_str());
        fSiblingState = SiblingState::LAUNCHED;
        VERIFY(resetNamedPipeTimeout());
        ++fLaunchRetries;
    } else {
        LOG_NOTE_F("Failed launchIfNotRunning(). Switch to SiblingState::INACTIVE_KEEP_MESSAGES because "
                   "cannot launch, named pipe path = %s",
                   getNamedPipePath().c_str());
        keepMessagesWhileInactive();
    }
}

void SiblingCoordinator::turnLaunchedTimeout() {
    if (fSiblingState != SiblingState::LAUNCHED || ! isPipeCreationTimedOut()) {
        return;
    }
    LOG_NOTE_F("isPipeCreationTimedOut(), named pipe path = %s", getNamedPipePath().c_str());
    // The launch has had its time: the next one is a launch of its own.
    fIsLaunched = false;
    if (! getLaunchArgs().empty() && fLaunchRetries <= MAX_LAUNCH_RETRIES) {
        LOG_NOTE_F("isPipeCreationTimedOut(), retrying, named pipe path = %s", getNamedPipePath().c_str());
        retryLaunch();
    } else {
        LOG_NOTE_F("No launchArgs or too many tries. Switch to SiblingState::INACTIVE_KEEP_MESSAGES, "
                   "fLaunchRetries = %d, named pipe path = %s",
                   fLaunchRetries, getNamedPipePath().c_str());
        keepMessagesWhileInactive();
    }
}

void SiblingCoordinator::retryLaunch() {
    const char* path = getNamedPipePath().c_str();
    if (fMessageQueue.empty()) {
        LOG_NOTE_F("no message, switch to SiblingState::IDLE, named pipe path = %s", path);
        fSiblingState = SiblingState::IDLE;
        return;
    }
    auto message = std::dynamic_pointer_cast<const IMessage>(fMessageQueue.front());
    // NOTE: a launched process that still lives may yet open its pipe: it gets another wait, which counts
    // as a try, rather than a second process of its name.
    if (isRunning() || Process::isRunning(fLaunchedProcessId)) {
        LOG_NOTE_F("message is pending, named pipe path = %s", path);
        fIsLaunched = true;
        VERIFY(resetNamedPipeTimeout());
        ++fLaunchRetries;
        return;
    }
    if (message && isWorthALaunch(message->getOpCode())) {
        if (launchIfNotRunning()) {
            LOG_NOTE_F("switch to SiblingState::LAUNCHED, resetting pipe timeout, fLaunchRetries = %d, named "
                       "pipe path = %s",
                       fLaunchRetries, path);
            fSiblingState = SiblingState::LAUNCHED;
            VERIFY(resetNamedPipeTimeout());
            ++fLaunchRetries;
        } else {
            LOG_NOTE_F(
                "switch to SiblingState::INACTIVE_KEEP_MESSAGES because cannot launch, named pipe path "
                "= %s",
                path);
            keepMessagesWhileInactive();
        }
        return;
    }
    // A log line or a reply is no reason to start a process.
    LOG_NOTE_F("Switching to SiblingState::IDLE. Don't need to launch for opCode = %d, erasing message from "
               "queue, named pipe path = %s",
               message ? static_cast<int>(message->getOpCode()) : 0, path);
    fMessageQueue.erase(fMessageQueue.begin());
    fSiblingState = SiblingState::IDLE;
}

void SiblingCoordinator::turnSendRetriesExhausted() {
    const char* path = getNamedPipePath().c_str();
    LOG_NOTE_F("fSendRetries > MAX_SEND_RETRIES, named pipe path = %s", path);
    // Closes the pipe with it.
    if (! SANITY_CHECKED(deleteNamedPipe())) {
        return;
    }
    if (launchIfNotRunning()) {
        LOG_NOTE_F("switch to SiblingState::LAUNCHED, resetting pipe timeout, named pipe path = %s", path);
        fSiblingState = SiblingState::LAUNCHED;
        VERIFY(resetNamedPipeTimeout());
        fSendRetries = 0;
        ++fLaunchRetries;
    } else {
        LOG_NOTE_F(
            "switch to SiblingState::INACTIVE_KEEP_MESSAGES because cannot launch, named pipe path = %s",
            path);
        keepMessagesWhileInactive();
    }
}

void SiblingCoordinator::sendHeadMessage() {
    const char* path = getNamedPipePath().c_str();
    if (fdNamedPipe == 0) {
        fdNamedPipe = Pipes::openWriteNamedPipe(getNamedPipePath());
        LOG_TRACE_F("fdNamedPipe was 0; attempting to opening new pipe = %d, named pipe path = %s",
                    fdNamedPipe, path);
        if (fdNamedPipe == 0) {
            ++fSendRetries;
            LOG_NOTE_F("fdNamedPipe is 0, fSendRetries = %d, named pipe path = %s", fSendRetries, path);
            return;
        }
    }
    const std::string text = Utils::escapeIPC(Data_abstract::serializeToStr(fMessageQueue.front())) +
                             InternalCoordinator::PIPE_LINE_SEPARATOR;
    LOG_TRACE_F("Writing to pipe, message = %s, named pipe path = %s", text.c_str(), path);
    if (Pipes::writeToNamedPipe(fdNamedPipe, text)) {
        LOG_TRACE_F("switch to SiblingState::SENDING, message = %s, named pipe path = %s", text.c_str(),
                    path);
        fSiblingState = SiblingState::SENDING;
    } else {
        LOG_NOTE_F("cannot write to pipe, closing pipe. named pipe path = %s", path);
        VERIFY(Pipes::closeNamedPipe(fdNamedPipe));
        fdNamedPipe = 0;
        ++fSendRetries;
        LOG_NOTE_F("fdNamedPipe is now 0, fSendRetries = %d, named pipe path = %s", fSendRetries, path);
    }
}

} // namespace Brw
