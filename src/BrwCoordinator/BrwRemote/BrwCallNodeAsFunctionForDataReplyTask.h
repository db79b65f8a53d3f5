#pragma once

#include <cstdint>
#include <memory>

#include "BrwParser/BrwIOMNode.h"
#include "BrwTask/BrwTask.h"

namespace Brw {

class GUIDClass;
class OMScope;
class OMStored;

// Calls the script function of a data request's handler with the data as its one argument. The reply is
// the function's own act (sendData with one argument); on completion the task keeps, as its result, the
// map that describes what the function gave.
class CallNodeAsFunctionForDataReplyTask : public Task {
public:
    static std::shared_ptr<CallNodeAsFunctionForDataReplyTask>
    factory(const std::shared_ptr<OMStored>& functionNode, const std::shared_ptr<IOMNode>& dataNode,
            const std::shared_ptr<OMScope>& handlerScope, uint64_t serviceSequenceNumber,
            uint64_t clientSequenceNumber, GUIDClass* clientSessionGUID, GUIDClass* serviceSessionGUID);

    void timeslice() override;
    void handleCompletion() override;

    CallNodeAsFunctionForDataReplyTask(std::shared_ptr<OMStored> functionNode,
                                       std::shared_ptr<IOMNode> dataNode,
                                       std::shared_ptr<OMScope> handlerScope, uint64_t serviceSequenceNumber,
                                       uint64_t clientSequenceNumber, GUIDClass* clientSessionGUID,
                                       GUIDClass* serviceSessionGUID);

protected:
    bool isRequestContext(RequestContext context) const override {
        return context == RequestContext::CALL_NODE_AS_FUNCTION_FOR_DATA_REPLY;
    }

private:
    std::shared_ptr<OMStored> fFunctionNode; // the handler
    OMArgs fArguments;                       // the data, its one argument
    std::shared_ptr<OMScope> fHandlerScope;  // where the handler was registered
    uint64_t fServiceSessionSequenceNumber;  // this side's number of the request
    uint64_t fClientSequenceNumber;          // the requester's number
    GUIDClass* fClientSessionGUID;           // null without a session
    GUIDClass* fServiceSessionGUID;          // null without a session
    std::shared_ptr<IOMNode> fRetValNode;    // what the function gave
};

} // namespace Brw
