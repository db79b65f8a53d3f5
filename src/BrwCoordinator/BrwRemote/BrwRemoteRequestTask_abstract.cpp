#include "BrwCoordinator/BrwRemote/BrwRemoteRequestTask_abstract.h"

#include "BrwAddress/BrwIAddress.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwYielding.h"
#include "BrwUtils/BrwClock.h"

namespace Brw {

RemoteRequestTask_abstract::RemoteRequestTask_abstract(const char* name,
                                                       std::shared_ptr<const IObject> targetAddressObj,
                                                       OpCode opCode, int64_t replyTimeoutMicroseconds,
                                                       uint64_t sequenceNumber,
                                                       std::shared_ptr<OMScope> scope)
    : Task(name, NO_TIMEOUT, nullptr), fTargetAddressObj(std::move(targetAddressObj)), fOpCode(opCode),
      fReplyTimeoutMicroseconds(replyTimeoutMicroseconds), fSequenceNumber(sequenceNumber),
      fScope(std::move(scope)), fReplyNode(OMStored::undefinedFactory()) {}

std::string RemoteRequestTask_abstract::getTargetURL() const {
    auto address = std::dynamic_pointer_cast<const IAddress>(fTargetAddressObj);
    return address ? address->getURL() : std::string();
}

void RemoteRequestTask_abstract::handleReply(const std::shared_ptr<IOMNode>& replyNode, bool isSuccess) {
    fHasReply = true;
    fIsReplySuccess = isSuccess;
    if (replyNode) {
        fReplyNode = replyNode;
    }
}

void RemoteRequestTask_abstract::timeslice() {
    bool success = false;
    run_yielding(shared_from_this(), success);
}

void RemoteRequestTask_abstract::run_yielding(const std::shared_ptr<Task>& task, bool& success) {
    struct LocalVariableState : OMFunctionState {
        bool isSent = false;
        OMArgs callBackArguments;                // the reply's value
        std::shared_ptr<IOMNode> callBackResult; // dropped
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    YIELDING_CALL(sendAndWait_yielding(task, frame->isSent));
    if (fCallBack) {
        frame->callBackArguments = std::make_shared<std::vector<std::shared_ptr<IOMNode>>>(1, fReplyNode);
        YIELDING_CALL(fCallBack->callNodeAsFunction_yielding(task, frame->callBackResult, false, nullptr,
                                                             frame->callBackArguments, fScope));
    }
    success = frame->isSent;
    YIELDING_END;
}

void RemoteRequestTask_abstract::awaitReply_yielding(const std::shared_ptr<Task>& task, bool& isDone) {
    struct LocalVariableState : OMFunctionState {
        int64_t deadline = 0;
    };
    YIELDING_BEGIN(LocalVariableState, frame, isDone = false);
    frame->deadline = Clock::now() + Clock::fromMicroseconds(fReplyTimeoutMicroseconds);
    while (! fHasReply && Clock::now() < frame->deadline) {
        // Waiting for the outside like a reader of a stream: the event loop may sleep meanwhile, and the
        // reply wakes it.
        task->setWaitingForInput(true);
        YIELDING_WAIT(task->yieldAndSleep());
    }
    task->setWaitingForInput(false);
    fIsReplyTimedOut = ! fHasReply;
    isDone = true;
    YIELDING_END;
}

bool RemoteRequestTask_abstract::startForCaller(const std::shared_ptr<Task>& callerTask) {
    callerTask->registerChildTask(shared_from_this());
    return Task::startTask(shared_from_this());
}

void RemoteRequestTask_abstract::awaitCompletion_yielding(const std::shared_ptr<Task>& task, bool& isDone) {
    struct LocalVariableState : OMFunctionState {};
    YIELDING_BEGIN(LocalVariableState, frame, isDone = false);
    while (! isTaskCompleted()) {
        // The reply comes from outside: the event loop may sleep meanwhile.
        task->setWaitingForInput(true);
        YIELDING_WAIT(task->yieldAndSleep());
    }
    task->setWaitingForInput(false);
    isDone = true;
    YIELDING_END;
}

std::string RemoteRequestTask_abstract::getFailureText(const std::string& targetText,
                                                       const char* failedText) const {
    if (fIsReplyTimedOut) {
        return "no reply from " + targetText + " within " +
               std::to_string(fReplyTimeoutMicroseconds / Clock::MICROSECONDS_PER_MILLISECOND) + " ms";
    }
    return fHasReply && fIsReplySuccess ? std::string() : std::string(failedText) + " on " + targetText;
}

void RemoteRequestTask_abstract::handleCompletion() {
    if (auto internalCoordinator =
            std::dynamic_pointer_cast<InternalCoordinator>(InternalCoordinator::factory())) {
        internalCoordinator->removePendingRequest(fSequenceNumber, this);
    }
    Task::handleCompletion();
}

} // namespace Brw
