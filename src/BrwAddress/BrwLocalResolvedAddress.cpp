#include "BrwAddress/BrwLocalResolvedAddress.h"

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwService/BrwIInternalCoordinator.h"

namespace Brw {

std::shared_ptr<IObject> LocalResolvedAddress::factory() {
    return Object::makeRegistered<LocalResolvedAddress>(nullptr, nullptr);
}

std::shared_ptr<IObject> LocalResolvedAddress::factoryFromGUIDs(GUIDClass* addressedGUID,
                                                                GUIDClass* upstreamCoordinatorGUID) {
    std::shared_ptr<IObject> retVal;
    do {
        SANITY_CHECK(addressedGUID);
        GUIDClass* upstream =
            upstreamCoordinatorGUID != nullptr ? upstreamCoordinatorGUID : InternalCoordinator::getOwnGUID();
        retVal = Object::makeRegistered<LocalResolvedAddress>(addressedGUID, upstream);
    } while (false);
    return retVal;
}

std::shared_ptr<IObject>
LocalResolvedAddress::factoryFromSerialized(const std::shared_ptr<IObject>& serializerObj) {
    return deserializeInto(Object::makeRegistered<LocalResolvedAddress>(nullptr, nullptr), serializerObj);
}

bool LocalResolvedAddress::registerDeregisterClass(RegisterDeregister registerDeregister) {
    // The check texts keep their established spacing.
    // clang-format off
    return Object::registerDeregister(registerDeregister,
        [] { return SANITY_CHECKED(Object::registerDeserializationFactory( TYPENAME, LocalResolvedAddress::factoryFromSerialized)); },
        [] { return SANITY_CHECKED(Object::deregisterDeserializationFactory( TYPENAME)); });
    // clang-format on
}

std::shared_ptr<IObject> LocalResolvedAddress::resolved() const {
    return resolvedByGUIDs(getSelfObj());
}

std::string LocalResolvedAddress::getURL() const {
    return isInternalCoordinatorAddress() ? INTERNAL_COORDINATOR_URL : getGUIDAddressURL("");
}

std::string LocalResolvedAddress::getCoordinatorName() const {
    if (fCoordinatorName.empty()) {
        if (std::shared_ptr<IInternalCoordinator> internalCoordinator = internalCoordinatorOf()) {
            fCoordinatorName = internalCoordinator->getCoordinatorName(fUpstreamCoordinatorGUID);
        }
    }
    return fCoordinatorName;
}

bool LocalResolvedAddress::serializeDeserializeContent(SerializeDeserialize mode,
                                                       const std::shared_ptr<IObject>& serializerObj) {
    bool retVal = false;
    do {
        ASSIGN_TYPED(ISerializer, serializer, serializerObj);
        if (! isKnownMode(mode)) {
            break;
        }
        SANITY_CHECK(serializeDeserializeGUIDs(mode, serializer));
        if (mode == SerializeDeserialize::SERIALIZE) {
            // The name goes along, so that a receiver learns it for a GUID it has never seen.
            SANITY_CHECK(serializer->putString(getCoordinatorName()));
        } else {
            if (! readName(serializer, fCoordinatorName)) {
                break;
            }
        }
        fHash.reset();
        retVal = true;
    } while (false);
    return retVal;
}

uint64_t LocalResolvedAddress::hash() const {
    return fHash.get([this] { return hashOfFields(TYPENAME, getGUIDTexts()); });
}

bool LocalResolvedAddress::operator==(const IObject* other) const {
    if (other == this) {
        return true;
    }
    const auto* address = isSameClass(other) ? dynamic_cast<const LocalResolvedAddress*>(other) : nullptr;
    return address != nullptr && hasSameGUIDs(*address);
}

} // namespace Brw
