#include "BrwAddress/BrwLocalUnresolvedAddress.h"

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwService/BrwIInternalCoordinator.h"

namespace Brw {

std::shared_ptr<IObject>
LocalUnresolvedAddress::factoryFromCoordinatorNameIndices(const std::string& coordinatorName,
                                                          const std::string& indices) {
    return Object::makeRegistered<LocalUnresolvedAddress>(coordinatorName, indices);
}

std::shared_ptr<IObject>
LocalUnresolvedAddress::factoryFromSerialized(const std::shared_ptr<IObject>& serializerObj) {
    return deserializeInto(Object::makeRegistered<LocalUnresolvedAddress>(
                               InternalCoordinator::getCoordinatorName(), std::string()),
                           serializerObj);
}

bool LocalUnresolvedAddress::registerDeregisterClass(RegisterDeregister registerDeregister) {
    // The check texts keep their established spacing.
    // clang-format off
    return Object::registerDeregister(registerDeregister,
        [] { return SANITY_CHECKED(Object::registerDeserializationFactory( TYPENAME, LocalUnresolvedAddress::factoryFromSerialized)); },
        [] { return SANITY_CHECKED(Object::deregisterDeserializationFactory( TYPENAME)); });
    // clang-format on
}

std::shared_ptr<IObject> LocalUnresolvedAddress::resolved() const {
    return fCoordinatorName == InternalCoordinator::getCoordinatorName() ? resolvedThroughService()
                                                                         : getSelfObj();
}

std::string LocalUnresolvedAddress::getURL() const {
    return isInternalCoordinatorAddress() ? INTERNAL_COORDINATOR_URL
                                          : "brw:///" + fCoordinatorName + "/" + fIndices;
}

bool LocalUnresolvedAddress::isInternalCoordinatorAddress() const {
    return fCoordinatorName == InternalCoordinator::getCoordinatorName() && fIndices.empty();
}

GUIDClass* LocalUnresolvedAddress::getUpstreamCoordinatorGUID() const {
    std::shared_ptr<IInternalCoordinator> internalCoordinator = internalCoordinatorOf();
    return internalCoordinator ? internalCoordinator->getUpstreamCoordinatorGUID("", fCoordinatorName)
                               : nullptr;
}

GUIDClass* LocalUnresolvedAddress::getAddressedGUID() const {
    auto address = std::dynamic_pointer_cast<const IGUIDAddress>(resolved());
    return address && address.get() != this ? address->getAddressedGUID() : nullptr;
}

bool LocalUnresolvedAddress::serializeDeserializeContent(SerializeDeserialize mode,
                                                         const std::shared_ptr<IObject>& serializerObj) {
    bool retVal = false;
    do {
        ASSIGN_TYPED(ISerializer, serializer, serializerObj);
        if (! isKnownMode(mode)) {
            break;
        }
        SANITY_CHECK(serializeDeserializeCoordinatorName(mode, serializer));
        SANITY_CHECK(serializeDeserializeIndices(mode, serializer));
        fHash.reset();
        retVal = true;
    } while (false);
    return retVal;
}

uint64_t LocalUnresolvedAddress::hash() const {
    return fHash.get([this] { return hashOfFields(TYPENAME, {fCoordinatorName, fIndices}); });
}

bool LocalUnresolvedAddress::operator==(const IObject* other) const {
    if (other == this) {
        return true;
    }
    const auto* address = isSameClass(other) ? dynamic_cast<const LocalUnresolvedAddress*>(other) : nullptr;
    return address != nullptr && address->fCoordinatorName == fCoordinatorName &&
           address->fIndices == fIndices;
}

} // namespace Brw
