#include "BrwCoordinator/BrwRemote/BrwEvalThenSendMessageTask.h"

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwMessage/BrwMessage.h"
#include "BrwParser/BrwOMStored.h"

namespace Brw {

std::shared_ptr<EvalThenSendMessageTask> Task::getEvalThenSendMessageTask() {
    return std::static_pointer_cast<EvalThenSendMessageTask>(
        findRequestContext(RequestContext::EVAL_THEN_SEND_MESSAGE));
}

EvalThenSendMessageTask::EvalThenSendMessageTask(
    std::shared_ptr<IOMNode> scriptNode, std::shared_ptr<OMScope> scope,
    std::shared_ptr<const IObject> senderObj, std::shared_ptr<const IObject> destinationAddressObj,
    uint64_t serviceSequenceNumber, uint64_t clientSequenceNumber, GUIDClass* clientSessionGUID,
    GUIDClass* serviceSessionGUID, OpCode opCode, HandleReturnValue handleReturnValue)
    : Task("EvalThenSendMessageTask", DEFAULT_TIMEOUT, nullptr), fScriptNode(std::move(scriptNode)),
      fScope(std::move(scope)), fSenderObj(std::move(senderObj)),
      fDestinationAddressObj(std::move(destinationAddressObj)),
      fServiceSessionSequenceNumber(serviceSequenceNumber), fClientSequenceNumber(clientSequenceNumber),
      fClientSessionGUID(clientSessionGUID), fServiceSessionGUID(serviceSessionGUID), fOpCode(opCode),
      fHandleReturnValue(handleReturnValue) {}

std::shared_ptr<EvalThenSendMessageTask> EvalThenSendMessageTask::factory(
    const std::shared_ptr<IOMNode>& scriptNode, const std::shared_ptr<OMScope>& scope,
    const std::shared_ptr<const IObject>& senderObj,
    const std::shared_ptr<const IObject>& destinationAddressObj, uint64_t serviceSequenceNumber,
    uint64_t clientSequenceNumber, GUIDClass* clientSessionGUID, GUIDClass* serviceSessionGUID, OpCode opCode,
    HandleReturnValue handleReturnValue) {
    std::shared_ptr<EvalThenSendMessageTask> retVal;
    do {
        SANITY_CHECK(scriptNode);
        SANITY_CHECK(scope);
        auto evalThenSendMessageTask = std::make_shared<EvalThenSendMessageTask>(
            scriptNode, scope, senderObj, destinationAddressObj, serviceSequenceNumber, clientSequenceNumber,
            clientSessionGUID, serviceSessionGUID, opCode, handleReturnValue);
        Task::registerTask(evalThenSendMessageTask);
        retVal = evalThenSendMessageTask;
    } while (false);
    return retVal;
}

std::shared_ptr<IOMNode> EvalThenSendMessageTask::replyMapFactory(uint64_t serviceSequenceNumber,
                                                                  uint64_t clientSequenceNumber,
                                                                  GUIDClass* serviceSessionGUID,
                                                                  GUIDClass* clientSessionGUID) {
    std::shared_ptr<IOMNode> replyMap = OMStored::mapFactory();
    replyMap->setSync("serviceSequenceNr", OMStored::factory(static_cast<OMInt>(serviceSequenceNumber)));
    replyMap->setSync("clientSequenceNr", OMStored::factory(static_cast<OMInt>(clientSequenceNumber)));
    replyMap->setSync("serviceSessionId", OMStored::factory(serviceSessionGUID != nullptr));
    replyMap->setSync("clientSessionId", OMStored::factory(clientSessionGUID != nullptr));
    return replyMap;
}

void EvalThenSendMessageTask::timeslice() {
    fScriptNode->eval_yielding(shared_from_this(), fRetValNode, fScope, fHandleReturnValue);
}

void EvalThenSendMessageTask::handleCompletion() {
    do {
        std::shared_ptr<IOMNode> replyMap = replyMapFactory(
            fServiceSessionSequenceNumber, fClientSequenceNumber, fServiceSessionGUID, fClientSessionGUID);
        replyMap->setSyncToCloned("result", fRetValNode ? fRetValNode : OMStored::undefinedFactory());
        replyMap->setSync("success", OMStored::factory(! ! fRetValNode));
        ASSIGN_TYPED(InternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        std::shared_ptr<IObject> resultMessage;
        ASSIGN(resultMessage, Message::factoryFromSenderDestinationAddressOpCodeOMNode(
                                  fSenderObj, fDestinationAddressObj, fOpCode, replyMap));
        SANITY_CHECK(internalCoordinator->queueMessage(resultMessage));
    } while (false);
    Task::handleCompletion();
}

} // namespace Brw
