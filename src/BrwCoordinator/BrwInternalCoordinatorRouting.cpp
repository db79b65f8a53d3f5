// The router of the coordinator: the queue of messages, their delivery to a service of this process, to
// another coordinator of this machine or through the gateway to another machine, and the coordinator's own
// messages.

#include <cstdio>
#include <unistd.h>

#include "BrwAddress/BrwICoordinatorNameAddress.h"
#include "BrwAddress/BrwIGUIDAddress.h"
#include "BrwAddress/BrwIHostNameAddress.h"
#include "BrwAddress/BrwLocalResolvedAddress.h"
#include "BrwAddress/BrwLocalUnresolvedAddress.h"
#include "BrwAddress/BrwRemoteResolvedAddress.h"
#include "BrwAddress/BrwRemoteUnresolvedAddress.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwCoordinator/BrwPipes/BrwPipes.h"
#include "BrwCoordinator/BrwPipes/BrwReadPipe.h"
#include "BrwCoordinator/BrwPipes/BrwWritePipe.h"
#include "BrwCoordinator/BrwSiblingCoordinator.h"
#include "BrwData/BrwData_abstract.h"
#include "BrwEvent/BrwEvent.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwMessage/BrwMessage.h"
#include "BrwParser/BrwIOMNode.h"
#include "BrwService/BrwIReceiver.h"
#include "BrwUtils/BrwUtils.h"

namespace Brw {

namespace {

// Pieces of STD_OUT and STD_ERR text written to a person's terminal one at a time, each flushed, so that
// long output shows as it comes.
constexpr size_t TERMINAL_PIECE_BYTES = 4096;

// Writes `text` to `stream`; in flushed pieces when `inPieces`.
void writeText(FILE* stream, const std::string& text, bool inPieces) {
    const size_t pieceBytes = inPieces ? TERMINAL_PIECE_BYTES : text.size();
    for (size_t offset = 0; offset < text.size(); offset += pieceBytes) {
        std::fwrite(text.data() + offset, 1, std::min(pieceBytes, text.size() - offset), stream);
        if (inPieces) {
            std::fflush(stream);
        }
    }
    std::fflush(stream);
}

} // namespace

bool InternalCoordinator::queueMessage(const std::shared_ptr<IObject>& messageObj) {
    bool retVal = false;
    do {
        SANITY_CHECK(std::dynamic_pointer_cast<IMessage>(messageObj));
        fMessageQueue.push_back(messageObj);
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::processMessageQueues() {
    bool retVal = false;
    do {
        if (fMessageQueue.empty()) {
            retVal = true;
            break;
        }
        // What the deliveries queue waits for the next call.
        std::vector<std::shared_ptr<const IObject>> messages;
        messages.swap(fMessageQueue);
        ++fIsProcessingMessageQueue;
        bool allOK = true;
        for (const std::shared_ptr<const IObject>& message : messages) {
            reportMessagingActivityInEventLoop();
            if (! relayMessage(message)) {
                allOK = false;
            }
        }
        --fIsProcessingMessageQueue;
        SANITY_CHECK(allOK);
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::relayMessage(const std::shared_ptr<const IObject>& messageObj) {
    bool retVal = false;
    do {
        Message::logIPCMessage(messageObj);
        ASSIGN_TYPED(IMessage, message, Brw::Object::getObjectFromID(messageObj->getID()));
        const std::shared_ptr<const IObject> receiverAddress = message->getReceiverAddressObj();
        const std::string receiverText = receiverAddress ? receiverAddress->toString() : std::string("null");
        LOG_TRACE_F("receiverAddress: %s", receiverText.c_str());
        auto address = std::dynamic_pointer_cast<const IAddress>(receiverAddress);
        const std::shared_ptr<const IObject> resolvedReceiverAddress =
            address ? address->resolved() : nullptr;
        if (! resolvedReceiverAddress) {
            // A message to nowhere is not an error.
            LOG_TRACE_F("discarding message receiverAddress: %s", receiverText.c_str());
            retVal = true;
            break;
        }
        LOG_TRACE_F("resolvedReceiverAddress: %s", resolvedReceiverAddress->toString().c_str());
        SANITY_CHECK(message->setReceiverAddressObj(resolvedReceiverAddress));
        std::string hostName;
        std::string forwardToCoordinatorName;
        if (std::dynamic_pointer_cast<const RemoteUnresolvedAddress>(resolvedReceiverAddress) ||
            std::dynamic_pointer_cast<const RemoteResolvedAddress>(resolvedReceiverAddress)) {
            hostName =
                std::dynamic_pointer_cast<const IHostNameAddress>(resolvedReceiverAddress)->getHostName();
            LOG_TRACE_F("hostName: %s", hostName.c_str());
            if (fGatewaySendFunction == nullptr) {
                forwardToCoordinatorName = GATEWAY_COORDINATOR_NAME;
            }
        } else if (std::dynamic_pointer_cast<const LocalUnresolvedAddress>(resolvedReceiverAddress) ||
                   std::dynamic_pointer_cast<const LocalResolvedAddress>(resolvedReceiverAddress)) {
            forwardToCoordinatorName =
                std::dynamic_pointer_cast<const ICoordinatorNameAddress>(resolvedReceiverAddress)
                    ->getCoordinatorName();
        }
        LOG_TRACE_F("forwardToCoordinatorName: %s", forwardToCoordinatorName.c_str());
        if (forwardToCoordinatorName == fCoordinatorName) {
            forwardToCoordinatorName.clear();
        }
        if (! forwardToCoordinatorName.empty()) {
            if (fCoordinatorName != MAIN_COORDINATOR_NAME) {
                // Only main talks to its peers: everything else goes through it.
                forwardToCoordinatorName = MAIN_COORDINATOR_NAME;
                LOG_TRACE_F("adjusted forwardToCoordinatorName: %s", forwardToCoordinatorName.c_str());
            }
            SANITY_CHECK(relayToSibling(forwardToCoordinatorName, messageObj));
            std::shared_ptr<IObject> event;
            ASSIGN(event, Event::factoryFromNamePayload("messageRelayed", message));
            SANITY_CHECK(this->fireEvent(event));
            retVal = true;
            break;
        }
        if (fGatewaySendFunction != nullptr && ! hostName.empty() && ! isLocalHostName(hostName)) {
            const std::string text = Data_abstract::serializeToStr(messageObj);
            LOG_TRACE_F("gatewaySend to %s: %s", hostName.c_str(), text.c_str());
            VERIFY(fGatewaySendFunction(hostName, text));
            retVal = true;
            break;
        }
        InternalCoordinator* internalCoordinator = this;
        ASSIGN_CONST_TYPED(IObject, destinationObj,
                           internalCoordinator->resolveAddress(resolvedReceiverAddress));
        auto receiver =
            std::dynamic_pointer_cast<IReceiver>(Brw::Object::getObjectFromID(destinationObj->getID()));
        if (! receiver) {
            LOG_TRACE("destination has no IReceiver interface");
            retVal = true;
            break;
        }
        SANITY_CHECK(receiver->receiveMessage(message));
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::receiveMessageStr(const std::string& str) {
    bool retVal = false;
    do {
        ASSIGN_TYPED(IMessage, message, Data_abstract::deserializeFromStr(str));
        ASSIGN_CONST_TYPED(ICoordinatorNameAddress, coordinatorNameAddress, message->getSenderAddressObj());
        // A coordinator doesn't talk to itself through its own pipe.
        SANITY_CHECK(coordinatorNameAddress->getCoordinatorName() != fCoordinatorName);
        SANITY_CHECK(registerSenderAddressObj(message->getSenderAddressObj()));
        SANITY_CHECK(queueMessage(message));
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::receiveGatewayMessageStr(const std::string& hostName, const std::string& str) {
    bool retVal = false;
    do {
        ASSIGN_TYPED(IMessage, message, Data_abstract::deserializeFromStr(str));
        ASSIGN_CONST_TYPED(IHostNameAddress, receiverHostNameAddress, message->getReceiverAddressObj());
        if (isLocalHostName(receiverHostNameAddress->getHostName())) {
            SANITY_CHECK(registerSenderAddressObj(message->getSenderAddressObj()));
            SANITY_CHECK(queueMessage(message));
            retVal = true;
            break;
        }
        // For this machine: the sender becomes an address on the machine it came from, the receiver an
        // address of this one.
        ASSIGN_CONST_TYPED(IGUIDAddress, senderGUIDAddress, message->getSenderAddressObj());
        auto senderCoordinatorNameAddress =
            std::dynamic_pointer_cast<const ICoordinatorNameAddress>(message->getSenderAddressObj());
        SANITY_CHECK(registerUpstreamCoordinator(
            hostName, senderCoordinatorNameAddress ? senderCoordinatorNameAddress->getCoordinatorName() : "",
            senderGUIDAddress->getUpstreamCoordinatorGUID()));
        std::shared_ptr<IObject> senderAddress;
        ASSIGN(senderAddress,
               RemoteResolvedAddress::factoryFromGUIDs(senderGUIDAddress->getAddressedGUID(),
                                                       senderGUIDAddress->getUpstreamCoordinatorGUID()));
        std::shared_ptr<IObject> receiverAddress;
        const std::shared_ptr<const IObject>& oldReceiver = message->getReceiverAddressObj();
        if (auto ura = std::dynamic_pointer_cast<const RemoteUnresolvedAddress>(oldReceiver)) {
            receiverAddress = LocalUnresolvedAddress::factoryFromCoordinatorNameIndices(
                ura->getCoordinatorName(), ura->getIndices());
        } else if (auto rra = std::dynamic_pointer_cast<const RemoteResolvedAddress>(oldReceiver)) {
            receiverAddress = LocalResolvedAddress::factoryFromGUIDs(rra->getAddressedGUID(),
                                                                     rra->getUpstreamCoordinatorGUID());
        }
        SANITY_CHECK(receiverAddress);
        std::shared_ptr<IObject> repackagedMessage;
        ASSIGN(repackagedMessage,
               Message::factoryFromSenderDestinationAddressOpCodePayloadStr(
                   senderAddress, receiverAddress, message->getOpCode(), message->getPayloadStr()));
        LOG_TRACE_F("repackaged message: %s", repackagedMessage->toString().c_str());
        SANITY_CHECK(registerSenderAddressObj(senderAddress));
        SANITY_CHECK(queueMessage(repackagedMessage));
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::receiveMessage(const std::shared_ptr<IObject>& messageObj) {
    bool retVal = false;
    do {
        SANITY_CHECK(Service_abstract::receiveMessage(messageObj));
        ASSIGN_TYPED(IMessage, message, messageObj);
        const OpCode opCode = message->getOpCode();
        if (opCode == OpCode::TERMINATE) {
            LOG_NOTE("terminate requested");
            terminate();
        } else if (opCode == OpCode::STD_OUT || opCode == OpCode::STD_ERR) {
            const std::shared_ptr<IOMNode> node = message->getAsOMNode();
            if (node) {
                const bool isOut = opCode == OpCode::STD_OUT;
                const bool isTerminal = ::isatty(isOut ? STDOUT_FILENO : STDERR_FILENO) != 0;
                writeText(isOut ? stdout : stderr, node->getAsString(),
                          isTerminal && (fIsInteractive || ! fReadStdIn));
            }
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::relayToSibling(const std::string& coordinatorName,
                                         const std::shared_ptr<const IObject>& messageObj) {
    bool retVal = false;
    do {
        std::shared_ptr<SiblingCoordinator> sibling =
            SiblingCoordinator::getSiblingCoordinator(coordinatorName);
        if (! sibling) {
            LOG_TRACE("no matching sibling coordinator");
            ASSIGN(sibling,
                   std::dynamic_pointer_cast<SiblingCoordinator>(
                       SiblingCoordinator::factoryFromParentName(shared_from_this(), coordinatorName)));
        }
        LOG_TRACE("relaying to sibling coordinator");
        SANITY_CHECK(sibling->relayOutgoingMessage(messageObj));
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::isHoldingSiblingResponsesForTermination() const {
    return fIsTerminating && Pipes::namedPipeExists(getNamedPipePath(fCoordinatorName));
}

bool InternalCoordinator::monitorNamedPipe() {
    bool retVal = false;
    do {
        const std::string namedPipePath = getNamedPipePath(fCoordinatorName);
        SANITY_CHECK(! namedPipePath.empty());
        if (fNamedPipeHandle != 0 && isFileCheckDue(fNextPipeFileCheckTime) &&
            ! Pipes::namedPipeExists(namedPipePath)) {
            LOG_NOTE_F("closing handle %d because pipe does not exist any more %s", fNamedPipeHandle,
                       namedPipePath.c_str());
            VERIFY(Pipes::closeNamedPipe(fNamedPipeHandle));
            LOG_NOTE_F("handle closed %s", namedPipePath.c_str());
            fNamedPipeHandle = 0;
        }
        if (fNamedPipeHandle == 0) {
            if (fIsTerminating) {
                // A leftover of nobody's: once, not every round.
                if (ReadPipe::isAllIdle() && Pipes::namedPipeExists(namedPipePath) &&
                    ! Pipes::namedPipeIsActive(namedPipePath)) {
                    destroyInputPipe(namedPipePath);
                }
                retVal = true;
                break;
            }
            LOG_NOTE_F("opening named pipe %s", namedPipePath.c_str());
            fNamedPipeHandle = Pipes::openReadNamedPipe(namedPipePath);
            if (fNamedPipeHandle == 0) {
                LOG_ERROR_F("cannot open read pipe %s. Possibly coordinator conflict - quitting",
                            namedPipePath.c_str());
                terminate();
                break;
            }
        }
        // Every whole line that has come: one message each.
        bool isAnyRead = false;
        bool readComplete = true;
        while (readComplete) {
            std::string received;
            SANITY_CHECK(
                Pipes::readFromNamedPipe(received, fNamedPipeHandle, readComplete, PIPE_LINE_SEPARATOR));
            if (received.empty()) {
                break;
            }
            isAnyRead = true;
            fInputString += received;
            LOG_TRACE_F("%s: readComplete = %d, inString %s", fCoordinatorName.c_str(), readComplete ? 1 : 0,
                        fInputString.c_str());
            reportMessagingActivityInEventLoop();
            if (readComplete) {
                fInputString.pop_back();
                const std::string str = Utils::unescapeIPC(fInputString);
                fInputString.clear();
                // A line that isn't a message is reported and dropped; the next one is read all the same.
                VERIFY(receiveMessageStr(str));
            }
        }
        if (fIsTerminating && ! isAnyRead && ReadPipe::isAllIdle()) {
            destroyInputPipe(namedPipePath);
        }
        retVal = true;
    } while (false);
    return retVal;
}

void InternalCoordinator::destroyInputPipe(const std::string& namedPipePath) {
    LOG_NOTE_F("busy terminating. Destroy input named pipe %s", namedPipePath.c_str());
    destroyNamedPipe();
    LOG_NOTE_F("pipe destroyed %s", namedPipePath.c_str());
}

void InternalCoordinator::destroyNamedPipe() {
    const std::string namedPipePath = getNamedPipePath(fCoordinatorName);
    if (fNamedPipeHandle != 0) {
        VERIFY(Pipes::closeNamedPipe(fNamedPipeHandle));
        fNamedPipeHandle = 0;
    }
    if (! namedPipePath.empty() && Pipes::namedPipeExists(namedPipePath) &&
        ! Pipes::namedPipeIsActive(namedPipePath)) {
        VERIFY(Pipes::deleteNamedPipe(namedPipePath));
    }
}

bool InternalCoordinator::handleMessagingTimeslice() {
    WritePipe::timeslice();
    ReadPipe::timeslice();
    if (fIsInitFinished) {
        EXPECTED(monitorNamedPipe());
    }
    EXPECTED(processMessageQueues());
    return true;
}

std::string InternalCoordinator::getNamedPipePath(const std::string& coordinatorName) {
    const std::string& folderPath = getPipeFolderPath();
    return folderPath.empty() ? folderPath : folderPath + coordinatorName;
}

} // namespace Brw
