#include "BrwAddress/BrwAddress_abstract.h"
#include "BrwAddress/BrwIAddress.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwCoordinator/BrwRemote/BrwEvalThenSendMessageTask.h"
#include "BrwCoordinator/BrwRemote/BrwHandleDataRequestTask.h"
#include "BrwCoordinator/BrwRemote/BrwSendDataToRemoteTask.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwMessage/BrwMessage.h"
#include "BrwParser/BrwOMAccessor.h"
#include "BrwParser/BrwOMExpressionLValue.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwParser/BrwOutputStreamStdErr.h"
#include "BrwTask/BrwYielding.h"
#include "BrwUtils/BrwClock.h"

namespace Brw {

namespace {

using NodePtr = std::shared_ptr<IOMNode>;

// Where sendData goes when no target is given: the default object-model service of this coordinator.
constexpr const char* DEFAULT_DATA_TARGET_URL = "brw:////default";

// What sendData reads from its arguments.
struct SendDataArguments {
    NodePtr data;
    std::string targetURL = DEFAULT_DATA_TARGET_URL;
    std::string callBackID = InternalCoordinator::fDefaultCallBackID;
    int64_t timeoutMicroseconds = InternalCoordinator::fRemoteTimeoutMicroseconds; // <= 0: don't wait
    std::shared_ptr<OMStored> callBack;                                            // called with the reply
};

// The arguments after the data, by kind and in any order; the first string is the target, the second the
// callback id.
void readSendDataOptions(OMExpressionLValueResolution& resolution, SendDataArguments& arguments) {
    size_t stringCount = 0;
    for (size_t index = 1; index < resolution.getArgumentCount(); ++index) {
        const NodePtr option = resolution.getArgument(index);
        switch (option->getType()) {
        case OMType::Function:
            arguments.callBack = OMStored::rewrapFactory(*option);
            break;
        case OMType::Int:
            arguments.timeoutMicroseconds = option->getInt() * Clock::MICROSECONDS_PER_MILLISECOND;
            break;
        case OMType::String:
            (stringCount++ == 0 ? arguments.targetURL : arguments.callBackID) = option->getString();
            break;
        default:
            break;
        }
    }
}

// The reply of a handler to the request it handles: to the requester, under the request's id and number.
std::shared_ptr<SendDataToRemoteTask> replyTaskFactory(InternalCoordinator& internalCoordinator,
                                                       const HandleDataRequestTask& request,
                                                       const NodePtr& data,
                                                       const std::shared_ptr<OMScope>& scope) {
    return internalCoordinator.sendDataToRemote(request.getSenderAddressObj(), request.getCallBackID(), data,
                                                OpCode::DATA_REPLY, RemoteRequestTask_abstract::NO_WAIT,
                                                request.getClientSequenceNumber(), scope, nullptr);
}

// The coordinator that a script runs for, when that is another one: the requester of the remote script or
// of the data request that the script serves. Null when the script runs for this coordinator.
std::shared_ptr<const IObject> requesterAddressOf(Task& task) {
    if (auto evalThenSendMessageTask = task.getEvalThenSendMessageTask()) {
        return evalThenSendMessageTask->getDestinationAddressObj();
    }
    if (auto handleDataRequestTask = task.getHandleDataRequestTask()) {
        return handleDataRequestTask->getSenderAddressObj();
    }
    return nullptr;
}

} // namespace

void OMExpressionLValueToken::registerMessagingBuiltins() {
    registerBuiltin(_sendData, nullptr, ftn_sendData_yielding);
    registerBuiltin(_setDataRequestCallBack, ftn_setDataRequestCallBack, nullptr);
    registerBuiltin(_stdOut, nullptr, ftn_stdOut_yielding);
    registerBuiltin(_stdErr, nullptr, ftn_stdErr_yielding);
}

void OMExpressionLValueToken::ftn_stdOut_yielding(const std::shared_ptr<Task>& task, NodePtr& result,
                                                  AccessType accessType,
                                                  const std::shared_ptr<OMScope>& scope,
                                                  OMExpressionLValueResolution& resolution) {
    ftn_stdErrOrOut_yielding(task, result, accessType, scope, OpCode::STD_OUT, resolution);
}

void OMExpressionLValueToken::ftn_stdErr_yielding(const std::shared_ptr<Task>& task, NodePtr& result,
                                                  AccessType accessType,
                                                  const std::shared_ptr<OMScope>& scope,
                                                  OMExpressionLValueResolution& resolution) {
    ftn_stdErrOrOut_yielding(task, result, accessType, scope, OpCode::STD_ERR, resolution);
}

void OMExpressionLValueToken::ftn_stdErrOrOut_yielding(const std::shared_ptr<Task>& task, NodePtr& result,
                                                       AccessType accessType,
                                                       const std::shared_ptr<OMScope>& scope, OpCode opCode,
                                                       OMExpressionLValueResolution& resolution) {
    struct LocalVariableState : OMFunctionState {
        std::shared_ptr<OutputStream> stream; // the process's own, kept for the wait
    };
    YIELDING_BEGIN(LocalVariableState, frame, result = OMStored::undefinedFactory());
    {
        YIELDING_ASSIGN_TYPED(InternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        std::shared_ptr<const IObject> targetAddressObj = requesterAddressOf(*task);
        if (targetAddressObj) {
            YIELDING_ASSIGN_CONST_TYPED(IAddress, targetAddress, targetAddressObj);
            std::string text;
            for (size_t index = 0; index < resolution.getArgumentCount(); ++index) {
                text += OMAccessor(resolution.getArgument(index)).getAsString();
            }
            std::shared_ptr<IObject> message;
            YIELDING_ASSIGN(message, Message::factoryFromSenderDestinationAddressOpCodeOMNode(
                                         internalCoordinator->getAddressObj(), targetAddress, opCode,
                                         OMStored::factory(text)));
            YIELDING_CHECK(internalCoordinator->queueMessage(message));
            YIELDING_FINISH;
        }
        if (opCode == OpCode::STD_OUT) {
            frame->stream = internalCoordinator->outputStreamFactory();
        } else {
            frame->stream = std::make_shared<OutputStreamStdErr>();
        }
    }
    YIELDING_CALL(ftn_output_yielding(task, result, accessType, scope, resolution, frame->stream));
    YIELDING_END;
}

void OMExpressionLValueToken::ftn_sendData_yielding(const std::shared_ptr<Task>& task, NodePtr& result,
                                                    AccessType, const std::shared_ptr<OMScope>& scope,
                                                    OMExpressionLValueResolution& resolution) {
    struct LocalVariableState : OMFunctionState {
        SendDataArguments arguments;
        std::shared_ptr<SendDataToRemoteTask> sendDataToRemoteTask;
        bool isDone = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    result = OMStored::undefinedFactory();
    {
        YIELDING_ASSIGN_TYPED(InternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        YIELDING_CHECK(scope);
        SendDataArguments& arguments = frame->arguments;
        if (resolution.getArgumentCount() == 0) {
            ScriptErrorLog::report("insufficient arguments");
            YIELDING_FINISH;
        }
        arguments.data = resolution.getArgument(0);
        if (arguments.data->getType() == OMType::Null || arguments.data->getType() == OMType::Undefined) {
            ScriptErrorLog::report("invalid data");
            YIELDING_FINISH;
        }
        std::shared_ptr<HandleDataRequestTask> request =
            resolution.getArgumentCount() == 1 ? task->getHandleDataRequestTask() : nullptr;
        if (request) {
            if (request->getCallBackID().empty()) {
                ScriptErrorLog::report("empty callBack ID");
                YIELDING_FINISH;
            }
            std::shared_ptr<SendDataToRemoteTask> replyTask =
                replyTaskFactory(*internalCoordinator, *request, arguments.data, scope);
            YIELDING_CHECK(replyTask);
            YIELDING_CHECK(internalCoordinator->startRequestTask(replyTask));
            YIELDING_CHECK(result->set(true));
            YIELDING_FINISH;
        }
        readSendDataOptions(resolution, arguments);
        std::string tail;
        std::shared_ptr<IObject> targetAddressObj =
            Address_abstract::factoryFromURL(arguments.targetURL, tail);
        if (! targetAddressObj) {
            ScriptErrorLog::report("invalid target address");
            YIELDING_FINISH;
        }
        const bool isWaiting = arguments.timeoutMicroseconds > 0;
        // A callback needs the reply even when the caller doesn't wait for it.
        const int64_t replyTimeoutMicroseconds =
            isWaiting ? arguments.timeoutMicroseconds
                      : (arguments.callBack ? InternalCoordinator::fRemoteTimeoutMicroseconds
                                            : RemoteRequestTask_abstract::NO_WAIT);
        frame->sendDataToRemoteTask = internalCoordinator->sendDataToRemote(
            targetAddressObj, arguments.callBackID, arguments.data, OpCode::DATA_REQUEST,
            replyTimeoutMicroseconds, InternalCoordinator::nextSequenceNumber(), scope, arguments.callBack);
        YIELDING_CHECK(frame->sendDataToRemoteTask);
        if (! isWaiting) {
            LOG_NOTE("timeoutMicroseconds <= 0");
            YIELDING_CHECK(internalCoordinator->startRequestTask(frame->sendDataToRemoteTask));
            YIELDING_CHECK(result->set(true));
            YIELDING_FINISH;
        }
        LOG_NOTE("sendDataToRemoteTask start waiting");
        YIELDING_CHECK(frame->sendDataToRemoteTask->startForCaller(task));
    }
    YIELDING_CALL(frame->sendDataToRemoteTask->awaitCompletion_yielding(task, frame->isDone));
    LOG_NOTE("sendDataToRemoteTask completed");
    {
        const std::string failure =
            frame->sendDataToRemoteTask->getFailureText(frame->arguments.targetURL, "the request failed");
        if (failure.empty()) {
            result = frame->sendDataToRemoteTask->getReplyNode();
        } else {
            ScriptErrorLog::report("sendData: " + failure);
        }
    }
    YIELDING_END;
}

NodePtr OMExpressionLValueToken::ftn_setDataRequestCallBack(AccessType, const std::shared_ptr<OMScope>& scope,
                                                            OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (resolution.getArgumentCount() < 2) {
            ScriptErrorLog::report("insufficient arguments");
            break;
        }
        const std::string callBackID = resolution.getArgument(0)->getAsString();
        if (callBackID.empty()) {
            ScriptErrorLog::report("empty callBack ID");
            break;
        }
        const NodePtr callBackFunction = resolution.getArgument(1);
        const OMType type = callBackFunction->getType();
        if (type != OMType::Function && type != OMType::Undefined) {
            ScriptErrorLog::report("invalid callBack ID");
            break;
        }
        ASSIGN_TYPED(InternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        if (type == OMType::Undefined) {
            internalCoordinator->clearDataRequestCallBack(callBackID);
            break;
        }
        SANITY_CHECK(scope);
        SANITY_CHECK(internalCoordinator->setDataRequestCallBack(scope, callBackID,
                                                                 OMStored::rewrapFactory(*callBackFunction),
                                                                 callBackFunction->getFunctionName()));
    } while (false);
    return retVal;
}

} // namespace Brw
