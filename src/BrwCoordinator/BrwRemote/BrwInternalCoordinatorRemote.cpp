// The client side of remote scripts and data requests, and the handlers of data requests.

#include "BrwAddress/BrwIAddress.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwCoordinator/BrwRemote/BrwCallNodeAsFunctionForDataReplyTask.h"
#include "BrwCoordinator/BrwRemote/BrwHandleDataRequestTask.h"
#include "BrwCoordinator/BrwRemote/BrwRunRemoteScriptTask.h"
#include "BrwCoordinator/BrwRemote/BrwSendDataToRemoteTask.h"
#include "BrwCoordinator/BrwSiblingCoordinator.h"
#include "BrwEvent/BrwIEvent.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwMessage/BrwMessage.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwYielding.h"

namespace Brw {

uint64_t InternalCoordinator::nextSequenceNumber() {
    static uint64_t nextNumber = 1;
    return nextNumber++;
}

bool InternalCoordinator::startRequestTask(const std::shared_ptr<Task>& task) {
    bool retVal = false;
    do {
        SANITY_CHECK(task);
        if (! task->getParentTask() && fMainTask && ! fMainTask->isTaskCompleted()) {
            fMainTask->registerChildTask(task);
        }
        SANITY_CHECK(Task::startTask(task));
        // Its first slice now: the scheduler runs the tasks started last first, and requests made one after
        // the other must go out, and be served, in that order.
        SANITY_CHECK(task->runTimeslice(fEventLoopMicroseconds));
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::sendRequest(const std::shared_ptr<RemoteRequestTask_abstract>& requestTask,
                                      const std::shared_ptr<IOMNode>& messageNode) {
    bool retVal = false;
    do {
        const std::shared_ptr<const IObject>& targetAddressObj = requestTask->getTargetAddressObj();
        SANITY_CHECK(targetAddressObj);
        std::shared_ptr<IObject> message;
        ASSIGN(message, Message::factoryFromSenderDestinationAddressOpCodeOMNode(
                            getSelfObj(), targetAddressObj, requestTask->getOpCode(), messageNode));
        if (requestTask->isWaitingForReply()) {
            fPendingRequests[requestTask->getSequenceNumber()] = requestTask;
        }
        SANITY_CHECK(queueMessage(message));
        retVal = true;
    } while (false);
    return retVal;
}

void InternalCoordinator::runRemoteScript_yielding(const std::shared_ptr<Task>& task, bool& completed) {
    struct LocalVariableState : OMFunctionState {
        // Not owned: the frame lives in the task itself, which a parent may end before the frame is gone.
        RunRemoteScriptTask* runRemoteScriptTask = nullptr;
        bool isDone = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, completed = false);
    frame->runRemoteScriptTask = dynamic_cast<RunRemoteScriptTask*>(task.get());
    YIELDING_CHECK(frame->runRemoteScriptTask);
    {
        const RunRemoteScriptTask& runRemoteScriptTask = *frame->runRemoteScriptTask;
        std::shared_ptr<IOMNode> messageNode = OMStored::mapFactory();
        messageNode->setSync("clientSequenceNr",
                             OMStored::factory(static_cast<OMInt>(runRemoteScriptTask.getSequenceNumber())));
        // A file that the other side reads goes by its path.
        const bool isByPath = runRemoteScriptTask.getScriptText().empty();
        messageNode->setSync("script", OMStored::factory(isByPath ? runRemoteScriptTask.getScriptPath()
                                                                  : runRemoteScriptTask.getScriptText()));
        YIELDING_CHECK(sendRequest(std::static_pointer_cast<RemoteRequestTask_abstract>(task), messageNode));
    }
    if (frame->runRemoteScriptTask->isWaitingForReply()) {
        YIELDING_CALL(frame->runRemoteScriptTask->awaitReply_yielding(task, frame->isDone));
    }
    completed = true;
    YIELDING_END;
}

std::shared_ptr<SendDataToRemoteTask>
InternalCoordinator::sendDataToRemote(const std::shared_ptr<const IObject>& targetAddressObj,
                                      const std::string& callBackID, const std::shared_ptr<IOMNode>& dataNode,
                                      OpCode opCode, int64_t timeoutMicroseconds, uint64_t sequenceNumber,
                                      const std::shared_ptr<OMScope>& scope,
                                      const std::shared_ptr<OMStored>& callBackFunction) {
    std::shared_ptr<SendDataToRemoteTask> retVal;
    do {
        std::shared_ptr<SendDataToRemoteTask> sendDataToRemoteTask;
        ASSIGN(sendDataToRemoteTask,
               SendDataToRemoteTask::factory(targetAddressObj, timeoutMicroseconds, opCode, callBackID,
                                             dataNode, sequenceNumber, scope));
        if (callBackFunction) {
            LOG_NOTE("with callback function");
            sendDataToRemoteTask->setCallBack(callBackFunction);
        }
        retVal = sendDataToRemoteTask;
    } while (false);
    return retVal;
}

void InternalCoordinator::sendDataToRemote_yielding(const std::shared_ptr<Task>& task, bool& completed) {
    struct LocalVariableState : OMFunctionState {
        // Not owned: the frame lives in the task itself, which a parent may end before the frame is gone.
        SendDataToRemoteTask* sendDataToRemoteTask = nullptr;
        bool isDone = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, completed = false);
    frame->sendDataToRemoteTask = dynamic_cast<SendDataToRemoteTask*>(task.get());
    YIELDING_CHECK(frame->sendDataToRemoteTask);
    {
        const SendDataToRemoteTask& sendDataToRemoteTask = *frame->sendDataToRemoteTask;
        std::shared_ptr<IOMNode> messageNode = OMStored::mapFactory();
        messageNode->setSync("clientSequenceNr",
                             OMStored::factory(static_cast<OMInt>(sendDataToRemoteTask.getSequenceNumber())));
        messageNode->setSyncToCloned("data", sendDataToRemoteTask.getDataNode());
        messageNode->setSync("callBackID", OMStored::factory(sendDataToRemoteTask.getCallBackID()));
        YIELDING_CHECK(sendRequest(std::static_pointer_cast<RemoteRequestTask_abstract>(task), messageNode));
    }
    if (frame->sendDataToRemoteTask->isWaitingForReply()) {
        YIELDING_CALL(frame->sendDataToRemoteTask->awaitReply_yielding(task, frame->isDone));
    }
    completed = true;
    YIELDING_END;
}

bool InternalCoordinator::setDataRequestCallBack(const std::shared_ptr<OMScope>& scope,
                                                 const std::string& callBackID,
                                                 const std::shared_ptr<OMStored>& callBackFunction,
                                                 const std::string& name) {
    bool retVal = false;
    do {
        SANITY_CHECK(! callBackID.empty());
        SANITY_CHECK(callBackFunction);
        fDataRequestCallBacks[callBackID] = DataRequestCallBack{scope, callBackFunction, name};
        LOG_NOTE_F("data request callback %s: %s", callBackID.c_str(), name.c_str());
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::clearDataRequestCallBack(const std::string& callBackID) {
    return fDataRequestCallBacks.erase(callBackID) != 0;
}

std::shared_ptr<Task> InternalCoordinator::handleDataRequest(
    const std::shared_ptr<const IObject>& senderAddressObj, const std::string& callBackID,
    const std::shared_ptr<IOMNode>& dataNode, uint64_t clientSequenceNumber, GUIDClass* clientSessionGUID,
    GUIDClass* serviceSessionGUID) {
    std::shared_ptr<Task> retVal;
    do {
        ASSIGN_CONST_TYPED(IAddress, senderAddress, senderAddressObj);
        auto iter = fDataRequestCallBacks.find(callBackID);
        if (iter == fDataRequestCallBacks.end()) {
            LOG_ERROR_F("callBackID not found %s", callBackID.c_str());
            break;
        }
        const DataRequestCallBack& callBack = iter->second;
        if (! callBack.fFunction || callBack.fFunction->getType() != OMType::Function) {
            LOG_ERROR_F("callBackID not associated with a function: %s", callBackID.c_str());
            break;
        }
        const uint64_t serviceSequenceNumber = nextSequenceNumber();
        std::shared_ptr<Task> task;
        ASSIGN(task,
               HandleDataRequestTask::factory(senderAddressObj, callBackID, clientSequenceNumber,
                                              serviceSequenceNumber, clientSessionGUID, serviceSessionGUID));
        ASSIGN_TYPED(HandleDataRequestTask, handleDataRequestTask, task);
        const std::shared_ptr<OMScope>& handlerScope = callBack.fScope;
        SANITY_CHECK(handlerScope);
        std::shared_ptr<CallNodeAsFunctionForDataReplyTask> callNodeAsFunctionTask =
            CallNodeAsFunctionForDataReplyTask::factory(callBack.fFunction, dataNode, handlerScope,
                                                        serviceSequenceNumber, clientSequenceNumber,
                                                        clientSessionGUID, serviceSessionGUID);
        SANITY_CHECK(callNodeAsFunctionTask);
        handleDataRequestTask->registerChildTask(callNodeAsFunctionTask);
        SANITY_CHECK(startRequestTask(handleDataRequestTask));
        SANITY_CHECK(startRequestTask(callNodeAsFunctionTask));
        retVal = handleDataRequestTask;
    } while (false);
    return retVal;
}

bool InternalCoordinator::handleEvent(const std::string& handlerName,
                                      const std::shared_ptr<IObject>& eventObj) {
    bool retVal = false;
    do {
        SANITY_CHECK(EventListener::handleEvent(handlerName, eventObj));
        if (handlerName != SCRIPT_RESULTS_HANDLER_NAME) {
            retVal = true;
            break;
        }
        ASSIGN_TYPED(IEvent, event, eventObj);
        ASSIGN_TYPED(IMessage, message, event->getPayloadObj());
        if (message->getOpCode() == OpCode::DATA_REPLY) {
            SANITY_CHECK(handleEventDataResults(*message));
        } else if (message->getOpCode() == OpCode::EVAL_RESULT) {
            SANITY_CHECK(handleEventScriptResults(*message));
        }
        retVal = true;
    } while (false);
    return retVal;
}

std::shared_ptr<RemoteRequestTask_abstract>
InternalCoordinator::findPendingRequest(const IOMNode& messageNode) {
    std::shared_ptr<RemoteRequestTask_abstract> retVal;
    const auto sequenceNumber = static_cast<uint64_t>(messageNode.getOMNode("clientSequenceNr")->getInt());
    auto iter = fPendingRequests.find(sequenceNumber);
    if (iter != fPendingRequests.end()) {
        retVal = iter->second.lock();
    }
    if (! retVal) {
        // Its request has timed out, or was never this process's.
        LOG_WARNING("unmatched clientSessionId");
    }
    return retVal;
}

bool InternalCoordinator::handleEventScriptResults(const IMessage& message) {
    bool retVal = false;
    do {
        const std::shared_ptr<IOMNode> messageNode = message.getAsOMNode();
        SANITY_CHECK(messageNode);
        std::shared_ptr<RemoteRequestTask_abstract> requestTask = findPendingRequest(*messageNode);
        if (requestTask) {
            const bool isSuccess = messageNode->getOMNode("success")->getAsBool();
            std::shared_ptr<IOMNode> result =
                messageNode->containsAttr("result") ? messageNode->getOMNode("result") : nullptr;
            requestTask->handleReply(result, isSuccess);
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::handleEventDataResults(const IMessage& message) {
    bool retVal = false;
    do {
        const std::shared_ptr<IOMNode> messageNode = message.getAsOMNode();
        SANITY_CHECK(messageNode);
        SANITY_CHECK(messageNode->getType() == OMType::Map);
        std::shared_ptr<RemoteRequestTask_abstract> requestTask = findPendingRequest(*messageNode);
        if (requestTask) {
            const std::shared_ptr<OMScope>& scope = requestTask->getScope();
            SANITY_CHECK(scope);
            std::shared_ptr<IOMNode> resultNode = messageNode->getOMNode("data");
            SANITY_CHECK(resultNode);
            requestTask->handleReply(resultNode, true);
        }
        retVal = true;
    } while (false);
    return retVal;
}

void InternalCoordinator::removePendingRequest(uint64_t sequenceNumber,
                                               const RemoteRequestTask_abstract* requestTask) {
    auto iter = fPendingRequests.find(sequenceNumber);
    if (iter != fPendingRequests.end()) {
        std::shared_ptr<RemoteRequestTask_abstract> pending = iter->second.lock();
        if (! pending || pending.get() == requestTask) {
            fPendingRequests.erase(iter);
        }
    }
}

bool InternalCoordinator::discardMessaging() {
    bool retVal = true;
    fMessageQueue.clear();
    deregisterPendingTasks();
    for (const std::string& name : SiblingCoordinator::getSiblingNames()) {
        if (auto sibling = SiblingCoordinator::getSiblingCoordinator(name)) {
            retVal = sibling->deregisterObject() && retVal;
        }
    }
    return retVal;
}

void InternalCoordinator::deregisterPendingTasks() {
    fPendingRequests.clear();
    fDataRequestCallBacks.clear();
}

} // namespace Brw
