#include "BrwCoordinator/BrwRemote/BrwSendDataToRemoteTask.h"

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"

namespace Brw {

SendDataToRemoteTask::SendDataToRemoteTask(std::shared_ptr<const IObject> targetAddressObj,
                                           int64_t timeoutMicroseconds, OpCode opCode, std::string callBackID,
                                           std::shared_ptr<IOMNode> dataNode, uint64_t sequenceNumber,
                                           std::shared_ptr<OMScope> scope)
    : RemoteRequestTask_abstract("SendDataToRemoteTask", std::move(targetAddressObj), opCode,
                                 opCode == OpCode::DATA_REPLY ? NO_WAIT : timeoutMicroseconds, sequenceNumber,
                                 std::move(scope)),
      fCallBackID(std::move(callBackID)), fDataNode(std::move(dataNode)) {}

std::shared_ptr<SendDataToRemoteTask>
SendDataToRemoteTask::factory(const std::shared_ptr<const IObject>& targetAddressObj,
                              int64_t timeoutMicroseconds, OpCode opCode, const std::string& callBackID,
                              const std::shared_ptr<IOMNode>& dataNode, uint64_t sequenceNumber,
                              const std::shared_ptr<OMScope>& scope) {
    std::shared_ptr<SendDataToRemoteTask> retVal;
    do {
        SANITY_CHECK(targetAddressObj);
        SANITY_CHECK(dataNode);
        auto sendDataToRemoteTask = std::make_shared<SendDataToRemoteTask>(
            targetAddressObj, timeoutMicroseconds, opCode, callBackID, dataNode, sequenceNumber, scope);
        Task::registerTask(sendDataToRemoteTask);
        retVal = sendDataToRemoteTask;
    } while (false);
    return retVal;
}

void SendDataToRemoteTask::sendAndWait_yielding(const std::shared_ptr<Task>& task, bool& completed) {
    auto internalCoordinator = std::dynamic_pointer_cast<InternalCoordinator>(InternalCoordinator::factory());
    if (! internalCoordinator) {
        completed = false;
        return;
    }
    internalCoordinator->sendDataToRemote_yielding(task, completed);
}

} // namespace Brw
