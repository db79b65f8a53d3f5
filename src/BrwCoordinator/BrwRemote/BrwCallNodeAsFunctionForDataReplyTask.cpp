#include "BrwCoordinator/BrwRemote/BrwCallNodeAsFunctionForDataReplyTask.h"

#include "BrwCoordinator/BrwRemote/BrwEvalThenSendMessageTask.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwParser/BrwOMStored.h"

namespace Brw {

std::shared_ptr<CallNodeAsFunctionForDataReplyTask> Task::getCallNodeAsFunctionForDataReplyTask() {
    return std::static_pointer_cast<CallNodeAsFunctionForDataReplyTask>(
        findRequestContext(RequestContext::CALL_NODE_AS_FUNCTION_FOR_DATA_REPLY));
}

CallNodeAsFunctionForDataReplyTask::CallNodeAsFunctionForDataReplyTask(
    std::shared_ptr<OMStored> functionNode, std::shared_ptr<IOMNode> dataNode,
    std::shared_ptr<OMScope> handlerScope, uint64_t serviceSequenceNumber, uint64_t clientSequenceNumber,
    GUIDClass* clientSessionGUID, GUIDClass* serviceSessionGUID)
    : Task("CallNodeAsFunctionForDataReplyTask", DEFAULT_TIMEOUT, nullptr),
      fFunctionNode(std::move(functionNode)),
      fArguments(std::make_shared<std::vector<std::shared_ptr<IOMNode>>>(1, std::move(dataNode))),
      fHandlerScope(std::move(handlerScope)), fServiceSessionSequenceNumber(serviceSequenceNumber),
      fClientSequenceNumber(clientSequenceNumber), fClientSessionGUID(clientSessionGUID),
      fServiceSessionGUID(serviceSessionGUID) {}

std::shared_ptr<CallNodeAsFunctionForDataReplyTask> CallNodeAsFunctionForDataReplyTask::factory(
    const std::shared_ptr<OMStored>& functionNode, const std::shared_ptr<IOMNode>& dataNode,
    const std::shared_ptr<OMScope>& handlerScope, uint64_t serviceSequenceNumber,
    uint64_t clientSequenceNumber, GUIDClass* clientSessionGUID, GUIDClass* serviceSessionGUID) {
    std::shared_ptr<CallNodeAsFunctionForDataReplyTask> retVal;
    do {
        SANITY_CHECK(functionNode);
        SANITY_CHECK(dataNode);
        SANITY_CHECK(handlerScope);
        auto callNodeAsFunctionTask = std::make_shared<CallNodeAsFunctionForDataReplyTask>(
            functionNode, dataNode, handlerScope, serviceSequenceNumber, clientSequenceNumber,
            clientSessionGUID, serviceSessionGUID);
        Task::registerTask(callNodeAsFunctionTask);
        retVal = callNodeAsFunctionTask;
    } while (false);
    return retVal;
}

void CallNodeAsFunctionForDataReplyTask::timeslice() {
    fFunctionNode->callNodeAsFunction_yielding(shared_from_this(), fRetValNode, false, nullptr, fArguments,
                                               fHandlerScope);
}

void CallNodeAsFunctionForDataReplyTask::handleCompletion() {
    std::shared_ptr<IOMNode> replyMap = EvalThenSendMessageTask::replyMapFactory(
        fServiceSessionSequenceNumber, fClientSequenceNumber, fServiceSessionGUID, fClientSessionGUID);
    replyMap->setSyncToCloned("data", fRetValNode ? fRetValNode : OMStored::undefinedFactory());
    setResult(replyMap);
    Task::handleCompletion();
}

} // namespace Brw
