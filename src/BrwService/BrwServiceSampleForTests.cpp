#include "BrwService/BrwServiceSampleForTests.h"

#include "BrwLogger/BrwCheck.h"
#include "BrwTask/BrwYielding.h"

namespace Brw {

std::shared_ptr<ServiceSampleForTests>
ServiceSampleForTests::factory(const std::string& name, const std::shared_ptr<IObject>& parentObj) {
    std::shared_ptr<ServiceSampleForTests> retVal;
    do {
        std::shared_ptr<ServiceSampleForTests> service = Object::makeRegistered<ServiceSampleForTests>(name);
        SANITY_CHECK(service);
        SANITY_CHECK(! parentObj || service->attachToParent(parentObj));
        retVal = service;
    } while (false);
    return retVal;
}

bool ServiceSampleForTests::receiveMessage(const std::shared_ptr<IObject>& messageObj) {
    bool retVal = false;
    do {
        SANITY_CHECK(Service_abstract::receiveMessage(messageObj));
        fReceivedMessages.push_back(messageObj);
        retVal = true;
    } while (false);
    return retVal;
}

void ServiceSampleForTests::timeslice_yielding(const std::shared_ptr<Task>& task, bool& completed) {
    struct LocalVariableState : OMFunctionState {};
    YIELDING_BEGIN(LocalVariableState, frame, completed = false);
    ++fSliceCount;
    YIELDING_CALL(Service_abstract::timeslice_yielding(task, completed));
    YIELDING_END;
}

} // namespace Brw
