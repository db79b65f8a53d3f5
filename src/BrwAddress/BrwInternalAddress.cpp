#include "BrwAddress/BrwInternalAddress.h"

#include "BrwAddress/BrwIGUIDAddress.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"

namespace Brw {

std::shared_ptr<IObject> InternalAddress::factory() {
    return factoryFromIndices(std::string());
}

std::shared_ptr<IObject> InternalAddress::factoryFromIndices(const std::string& indices) {
    return Object::makeRegistered<InternalAddress>(indices);
}

std::shared_ptr<IObject>
InternalAddress::factoryFromSerialized(const std::shared_ptr<IObject>& serializerObj) {
    return deserializeInto(Object::makeRegistered<InternalAddress>(std::string()), serializerObj);
}

bool InternalAddress::registerDeregisterClass(RegisterDeregister registerDeregister) {
    // The check texts keep their established spacing.
    // clang-format off
    return Object::registerDeregister(registerDeregister,
        [] { return SANITY_CHECKED(Object::registerDeserializationFactory( TYPENAME, InternalAddress::factoryFromSerialized)); },
        [] { return SANITY_CHECKED(Object::deregisterDeserializationFactory( TYPENAME)); });
    // clang-format on
}

std::shared_ptr<IObject> InternalAddress::resolved() const {
    return resolvedThroughService();
}

std::string InternalAddress::getURL() const {
    return INTERNAL_COORDINATOR_URL + fIndices;
}

std::string InternalAddress::getCoordinatorName() const {
    return InternalCoordinator::getCoordinatorName();
}

GUIDClass* InternalAddress::getUpstreamCoordinatorGUID() const {
    return InternalCoordinator::getOwnGUID();
}

GUIDClass* InternalAddress::getAddressedGUID() const {
    auto address = std::dynamic_pointer_cast<const IGUIDAddress>(resolved());
    return address ? address->getAddressedGUID() : nullptr;
}

bool InternalAddress::serializeDeserializeContent(SerializeDeserialize mode,
                                                  const std::shared_ptr<IObject>& serializerObj) {
    bool retVal = false;
    do {
        ASSIGN_TYPED(ISerializer, serializer, serializerObj);
        if (! isKnownMode(mode)) {
            break;
        }
        SANITY_CHECK(serializeDeserializeIndices(mode, serializer));
        fHash.reset();
        retVal = true;
    } while (false);
    return retVal;
}

uint64_t InternalAddress::hash() const {
    return fHash.get([this] { return hashOfFields(TYPENAME, {fIndices}); });
}

bool InternalAddress::operator==(const IObject* other) const {
    return other == this ||
           (isSameClass(other) && dynamic_cast<const InternalAddress*>(other)->fIndices == fIndices);
}

} // namespace Brw
