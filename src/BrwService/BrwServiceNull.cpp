#include "BrwService/BrwServiceNull.h"

#include "BrwService/BrwServiceSingleton.h"

namespace Brw {

namespace {

std::weak_ptr<ServiceNull> gServiceNull;

} // namespace

std::shared_ptr<IObject> ServiceNull::factory() {
    return singletonServiceFactory(
        gServiceNull, [](const auto& serviceNull, const auto& internalCoordinator) {
            return SANITY_CHECKED(serviceNull->attachToParent(internalCoordinator));
        });
}

bool ServiceNull::registerDeregisterClass(RegisterDeregister registerDeregister) {
    // clang-format off
    return Object::registerDeregister(registerDeregister,
        [] { return SANITY_CHECKED(Object::registerFactory( TYPENAME, ServiceNull::factory)); },
        [] { return SANITY_CHECKED(Object::deregisterFactory( TYPENAME)); });
    // clang-format on
}

} // namespace Brw
