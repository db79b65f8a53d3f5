#pragma once

#include <memory>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"

namespace Brw {

// The body of the factory of a service that every coordinator has once: the first call makes it and hangs
// it below the coordinator by `attach` (a checked attachToParent, so that its report names the service);
// later calls give the same object for as long as the tree holds it. The tree alone owns it, so that it
// goes with the coordinator.
template <class Service, class Attach>
std::shared_ptr<IObject> singletonServiceFactory(std::weak_ptr<Service>& instance, Attach attach) {
    std::shared_ptr<IObject> retVal = instance.lock();
    do {
        if (retVal) {
            break;
        }
        std::shared_ptr<IObject> internalCoordinator;
        ASSIGN(internalCoordinator, InternalCoordinator::factory());
        std::shared_ptr<Service> service = Object::makeRegistered<Service>();
        SANITY_CHECK(service);
        if (! attach(service, internalCoordinator)) {
            VERIFY(service->deregisterObject());
            break;
        }
        instance = service;
        retVal = service;
    } while (false);
    return retVal;
}

} // namespace Brw
