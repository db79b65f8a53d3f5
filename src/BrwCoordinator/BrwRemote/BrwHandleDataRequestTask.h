#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "BrwTask/BrwTask.h"

namespace Brw {

class GUIDClass;
class IObject;

// Carries a data request while its handler runs: the handler's call is a child task, and a script below
// it finds the request through getHandleDataRequestTask to answer it. Ends with the call.
class HandleDataRequestTask : public Task {
public:
    static std::shared_ptr<HandleDataRequestTask>
    factory(const std::shared_ptr<const IObject>& senderAddressObj, const std::string& callBackID,
            uint64_t clientSequenceNumber, uint64_t serviceSequenceNumber, GUIDClass* clientSessionGUID,
            GUIDClass* serviceSessionGUID);

    // The requester: where the reply goes.
    const std::shared_ptr<const IObject>& getSenderAddressObj() const { return fSenderAddressObj; }
    const std::string& getCallBackID() const { return fCallBackID; }
    uint64_t getClientSequenceNumber() const { return fClientSequenceNumber; }
    uint64_t getServiceSequenceNumber() const { return fServiceSequenceNumber; }
    GUIDClass* getClientSessionGUID() const { return fClientSessionGUID; }
    GUIDClass* getServiceSessionGUID() const { return fServiceSessionGUID; }

    // Nothing of its own to do: the call runs as its child.
    void timeslice() override {}

    HandleDataRequestTask(std::shared_ptr<const IObject> senderAddressObj, std::string callBackID,
                          uint64_t clientSequenceNumber, uint64_t serviceSequenceNumber,
                          GUIDClass* clientSessionGUID, GUIDClass* serviceSessionGUID);

protected:
    bool isRequestContext(RequestContext context) const override {
        return context == RequestContext::HANDLE_DATA_REQUEST;
    }

private:
    std::shared_ptr<const IObject> fSenderAddressObj; // the requester
    std::string fCallBackID;                          // the handler's identifier, repeated in the reply
    uint64_t fClientSequenceNumber;                   // the requester's number, repeated in the reply
    uint64_t fServiceSequenceNumber;                  // this side's number of the request
    GUIDClass* fClientSessionGUID;                    // null without a session
    GUIDClass* fServiceSessionGUID;                   // null without a session
};

} // namespace Brw
