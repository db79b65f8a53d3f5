#pragma once

#include "BrwCoordinator/BrwRemote/BrwRemoteRequestTask_abstract.h"

namespace Brw {

// Sends data to the data-request callback of a coordinator: a DATA_REQUEST that may wait for its
// DATA_REPLY, or the DATA_REPLY itself, which waits for nothing and carries the sequence number of the
// request it answers.
class SendDataToRemoteTask : public RemoteRequestTask_abstract {
public:
    static std::shared_ptr<SendDataToRemoteTask>
    factory(const std::shared_ptr<const IObject>& targetAddressObj, int64_t timeoutMicroseconds,
            OpCode opCode, const std::string& callBackID, const std::shared_ptr<IOMNode>& dataNode,
            uint64_t sequenceNumber, const std::shared_ptr<OMScope>& scope);

    const std::string& getCallBackID() const { return fCallBackID; }
    const std::shared_ptr<IOMNode>& getDataNode() const { return fDataNode; }

    SendDataToRemoteTask(std::shared_ptr<const IObject> targetAddressObj, int64_t timeoutMicroseconds,
                         OpCode opCode, std::string callBackID, std::shared_ptr<IOMNode> dataNode,
                         uint64_t sequenceNumber, std::shared_ptr<OMScope> scope);

protected:
    void sendAndWait_yielding(const std::shared_ptr<Task>& task, bool& completed) override;

private:
    std::string fCallBackID;            // names the handler on the other side
    std::shared_ptr<IOMNode> fDataNode; // what is sent
};

} // namespace Brw
