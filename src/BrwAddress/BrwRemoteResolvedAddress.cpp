#include "BrwAddress/BrwRemoteResolvedAddress.h"

#include "BrwAddress/BrwLocalResolvedAddress.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwService/BrwIInternalCoordinator.h"

namespace Brw {

std::shared_ptr<IObject> RemoteResolvedAddress::factoryFromGUIDs(GUIDClass* addressedGUID,
                                                                 GUIDClass* upstreamCoordinatorGUID) {
    std::shared_ptr<IObject> retVal;
    do {
        SANITY_CHECK(addressedGUID);
        SANITY_CHECK(upstreamCoordinatorGUID);
        ASSIGN_TYPED(IInternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        const std::string hostName = internalCoordinator->getHostName(upstreamCoordinatorGUID);
        if (hostName.empty() || InternalCoordinator::isLocalHostName(hostName)) {
            retVal = LocalResolvedAddress::factoryFromGUIDs(addressedGUID, upstreamCoordinatorGUID);
            break;
        }
        retVal = Object::makeRegistered<RemoteResolvedAddress>(addressedGUID, upstreamCoordinatorGUID);
    } while (false);
    return retVal;
}

std::shared_ptr<IObject>
RemoteResolvedAddress::factoryFromSerialized(const std::shared_ptr<IObject>& serializerObj) {
    return deserializeInto(Object::makeRegistered<RemoteResolvedAddress>(nullptr, nullptr), serializerObj);
}

bool RemoteResolvedAddress::registerDeregisterClass(RegisterDeregister registerDeregister) {
    // The check texts keep their established spacing.
    // clang-format off
    return Object::registerDeregister(registerDeregister,
        [] { return SANITY_CHECKED(Object::registerDeserializationFactory( TYPENAME, RemoteResolvedAddress::factoryFromSerialized)); },
        [] { return SANITY_CHECKED(Object::deregisterDeserializationFactory( TYPENAME)); });
    // clang-format on
}

std::shared_ptr<IObject> RemoteResolvedAddress::resolved() const {
    const std::string hostName = getHostName();
    LOG_TRACE_F("hostName = %s", hostName.c_str());
    if (hostName.empty()) {
        return factoryFromGUIDs(fAddressedGUID, fUpstreamCoordinatorGUID);
    }
    if (! InternalCoordinator::isLocalHostName(hostName)) {
        return getSelfObj();
    }
    LOG_TRACE("resolves to local");
    return resolvedByGUIDs(getSelfObj());
}

std::string RemoteResolvedAddress::getURL() const {
    return isInternalCoordinatorAddress() ? INTERNAL_COORDINATOR_URL : getGUIDAddressURL("");
}

std::string RemoteResolvedAddress::getCoordinatorName() const {
    if (fCoordinatorName.empty()) {
        if (std::shared_ptr<IInternalCoordinator> internalCoordinator = internalCoordinatorOf()) {
            fCoordinatorName = internalCoordinator->getCoordinatorName(fUpstreamCoordinatorGUID);
        }
    }
    return fCoordinatorName;
}

std::string RemoteResolvedAddress::getHostName() const {
    if (fHostName.empty()) {
        if (std::shared_ptr<IInternalCoordinator> internalCoordinator = internalCoordinatorOf()) {
            fHostName = internalCoordinator->getHostName(fUpstreamCoordinatorGUID);
        }
    }
    return fHostName;
}

std::string RemoteResolvedAddress::getHostAddress() const {
    return InternalCoordinator::getHostAddress(getHostName());
}

bool RemoteResolvedAddress::serializeDeserializeContent(SerializeDeserialize mode,
                                                        const std::shared_ptr<IObject>& serializerObj) {
    bool retVal = false;
    do {
        ASSIGN_TYPED(ISerializer, serializer, serializerObj);
        if (! isKnownMode(mode)) {
            break;
        }
        SANITY_CHECK(serializeDeserializeGUIDs(mode, serializer));
        if (mode == SerializeDeserialize::SERIALIZE) {
            // The names go along, so that a receiver learns them for a GUID it has never seen.
            SANITY_CHECK(serializer->putString(getCoordinatorName()));
            SANITY_CHECK(serializer->putString(getHostName()));
        } else {
            if (! readName(serializer, fCoordinatorName) || ! readName(serializer, fHostName)) {
                break;
            }
        }
        fHash.reset();
        retVal = true;
    } while (false);
    return retVal;
}

uint64_t RemoteResolvedAddress::hash() const {
    return fHash.get([this] { return hashOfFields(TYPENAME, getGUIDTexts()); });
}

bool RemoteResolvedAddress::operator==(const IObject* other) const {
    if (other == this) {
        return true;
    }
    const auto* address = isSameClass(other) ? dynamic_cast<const RemoteResolvedAddress*>(other) : nullptr;
    return address != nullptr && hasSameGUIDs(*address);
}

} // namespace Brw
