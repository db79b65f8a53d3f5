#include "BrwService/BrwServiceSampleForTests.h"

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwTask/BrwYielding.h"

namespace Brw {

std::shared_ptr<ServiceSampleForTests>
ServiceSampleForTests::factoryFromParentName(const std::shared_ptr<IObject>& parentObj,
                                             const std::string& name) {
    std::shared_ptr<ServiceSampleForTests> retVal;
    do {
        std::shared_ptr<ServiceSampleForTests> serviceSampleForTests =
            Object::makeRegistered<ServiceSampleForTests>(name);
        SANITY_CHECK(serviceSampleForTests);
        if (parentObj) {
            SANITY_CHECK(serviceSampleForTests->attachToParent(parentObj));
        }
        retVal = serviceSampleForTests;
    } while (false);
    return retVal;
}

bool ServiceSampleForTests::registerDeregisterClass(RegisterDeregister registerDeregister) {
    return Object::registerDeregister(
        registerDeregister, [] { return true; }, [] { return true; });
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

SampleTree::~SampleTree() {
    for (const std::shared_ptr<ServiceSampleForTests>& service : fServices) {
        (void)service->deregisterObject();
    }
}

std::shared_ptr<ServiceSampleForTests> SampleTree::add(const std::string& name,
                                                       const std::shared_ptr<IObject>& parent) {
    std::shared_ptr<ServiceSampleForTests> service =
        ServiceSampleForTests::factoryFromParentName(parent ? parent : InternalCoordinator::factory(), name);
    if (service) {
        fServices.push_back(service);
    }
    return service;
}

} // namespace Brw
