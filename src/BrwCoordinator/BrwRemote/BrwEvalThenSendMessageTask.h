#pragma once

#include <cstdint>
#include <memory>

#include "BrwMessage/BrwOpCode.h"
#include "BrwParser/BrwIOMNode.h"
#include "BrwTask/BrwTask.h"

namespace Brw {

class GUIDClass;
class IObject;
class OMScope;

// The service side of a remote script: evaluates the script in the session's scope and, whatever ended
// the evaluation, sends the value back to the requester. Scripts that run below it find the requester
// through getEvalThenSendMessageTask: their standard output goes there.
class EvalThenSendMessageTask : public Task {
public:
    static std::shared_ptr<EvalThenSendMessageTask>
    factory(const std::shared_ptr<IOMNode>& scriptNode, const std::shared_ptr<OMScope>& scope,
            const std::shared_ptr<const IObject>& senderObj,
            const std::shared_ptr<const IObject>& destinationAddressObj, uint64_t serviceSequenceNumber,
            uint64_t clientSequenceNumber, GUIDClass* clientSessionGUID, GUIDClass* serviceSessionGUID,
            OpCode opCode, HandleReturnValue handleReturnValue);

    // The start of a reply map, in its order: "serviceSequenceNr", "clientSequenceNr", "serviceSessionId",
    // "clientSessionId". The session keys say whether there is a session, not which.
    static std::shared_ptr<IOMNode> replyMapFactory(uint64_t serviceSequenceNumber,
                                                    uint64_t clientSequenceNumber,
                                                    GUIDClass* serviceSessionGUID,
                                                    GUIDClass* clientSessionGUID);

    // The address that the reply goes to: the requester.
    const std::shared_ptr<const IObject>& getDestinationAddressObj() const { return fDestinationAddressObj; }
    const std::shared_ptr<const IObject>& getSenderObj() const { return fSenderObj; }

    void timeslice() override;
    // Sends the reply, then ends as every task does.
    void handleCompletion() override;

    EvalThenSendMessageTask(std::shared_ptr<IOMNode> scriptNode, std::shared_ptr<OMScope> scope,
                            std::shared_ptr<const IObject> senderObj,
                            std::shared_ptr<const IObject> destinationAddressObj,
                            uint64_t serviceSequenceNumber, uint64_t clientSequenceNumber,
                            GUIDClass* clientSessionGUID, GUIDClass* serviceSessionGUID, OpCode opCode,
                            HandleReturnValue handleReturnValue);

protected:
    bool isRequestContext(RequestContext context) const override {
        return context == RequestContext::EVAL_THEN_SEND_MESSAGE;
    }

private:
    std::shared_ptr<IOMNode> fScriptNode;                  // what is evaluated
    std::shared_ptr<OMScope> fScope;                       // where
    std::shared_ptr<const IObject> fSenderObj;             // the service, sender of the reply
    std::shared_ptr<const IObject> fDestinationAddressObj; // the requester
    uint64_t fServiceSessionSequenceNumber;                // this side's number of the request
    uint64_t fClientSequenceNumber;                        // the requester's number, repeated
    GUIDClass* fClientSessionGUID;                         // null without a session
    GUIDClass* fServiceSessionGUID;                        // null without a session
    OpCode fOpCode;                                        // of the reply
    HandleReturnValue fHandleReturnValue;                  // how a return statement ends the script
    std::shared_ptr<IOMNode> fRetValNode;                  // the value; null when it gave none
};

} // namespace Brw
