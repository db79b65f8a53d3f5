#include "BrwCoordinator/BrwRemote/BrwHandleDataRequestTask.h"

#include "BrwLogger/BrwCheck.h"

namespace Brw {

std::shared_ptr<HandleDataRequestTask> Task::getHandleDataRequestTask() {
    return std::static_pointer_cast<HandleDataRequestTask>(
        findRequestContext(RequestContext::HANDLE_DATA_REQUEST));
}

HandleDataRequestTask::HandleDataRequestTask(std::shared_ptr<const IObject> senderAddressObj,
                                             std::string callBackID, uint64_t clientSequenceNumber,
                                             uint64_t serviceSequenceNumber, GUIDClass* clientSessionGUID,
                                             GUIDClass* serviceSessionGUID)
    : Task("HandleDataRequestTask", NO_TIMEOUT, nullptr), fSenderAddressObj(std::move(senderAddressObj)),
      fCallBackID(std::move(callBackID)), fClientSequenceNumber(clientSequenceNumber),
      fServiceSequenceNumber(serviceSequenceNumber), fClientSessionGUID(clientSessionGUID),
      fServiceSessionGUID(serviceSessionGUID) {}

std::shared_ptr<HandleDataRequestTask>
HandleDataRequestTask::factory(const std::shared_ptr<const IObject>& senderAddressObj,
                               const std::string& callBackID, uint64_t clientSequenceNumber,
                               uint64_t serviceSequenceNumber, GUIDClass* clientSessionGUID,
                               GUIDClass* serviceSessionGUID) {
    std::shared_ptr<HandleDataRequestTask> retVal;
    do {
        SANITY_CHECK(senderAddressObj);
        auto handleDataRequestTask = std::make_shared<HandleDataRequestTask>(
            senderAddressObj, callBackID, clientSequenceNumber, serviceSequenceNumber, clientSessionGUID,
            serviceSessionGUID);
        Task::registerTask(handleDataRequestTask);
        retVal = handleDataRequestTask;
    } while (false);
    return retVal;
}

} // namespace Brw
