#include "BrwAddress/BrwRemoteUnresolvedAddress.h"

#include "BrwAddress/BrwLocalUnresolvedAddress.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwService/BrwIInternalCoordinator.h"

namespace Brw {

std::shared_ptr<IObject> RemoteUnresolvedAddress::factoryFromCoordinatorNameIndicesHostName(
    const std::string& coordinatorName, const std::string& indices, const std::string& hostName) {
    if (InternalCoordinator::isLocalHostName(hostName)) {
        return LocalUnresolvedAddress::factoryFromCoordinatorNameIndices(coordinatorName, indices);
    }
    return Object::makeRegistered<RemoteUnresolvedAddress>(coordinatorName, indices, hostName);
}

std::shared_ptr<IObject>
RemoteUnresolvedAddress::factoryFromSerialized(const std::shared_ptr<IObject>& serializerObj) {
    return deserializeInto(Object::makeRegistered<RemoteUnresolvedAddress>(
                               InternalCoordinator::getCoordinatorName(), std::string(), std::string()),
                           serializerObj);
}

bool RemoteUnresolvedAddress::registerDeregisterClass(RegisterDeregister registerDeregister) {
    // The check texts keep their established spacing.
    // clang-format off
    return Object::registerDeregister(registerDeregister,
        [] { return SANITY_CHECKED(Object::registerDeserializationFactory( TYPENAME, RemoteUnresolvedAddress::factoryFromSerialized)); },
        [] { return SANITY_CHECKED(Object::deregisterDeserializationFactory( TYPENAME)); });
    // clang-format on
}

bool RemoteUnresolvedAddress::isLocal() const {
    return InternalCoordinator::isLocalHostName(fHostName);
}

std::shared_ptr<IObject> RemoteUnresolvedAddress::resolved() const {
    LOG_TRACE_F("fHostName = %s", fHostName.c_str());
    if (! isLocal()) {
        return getSelfObj();
    }
    LOG_TRACE("resolves to local");
    if (fCoordinatorName == InternalCoordinator::getCoordinatorName()) {
        return resolvedThroughService();
    }
    return LocalUnresolvedAddress::factoryFromCoordinatorNameIndices(fCoordinatorName, fIndices);
}

std::string RemoteUnresolvedAddress::getURL() const {
    return isInternalCoordinatorAddress() ? INTERNAL_COORDINATOR_URL
                                          : "brw://" + fHostName + "/" + fCoordinatorName + "/" + fIndices;
}

std::string RemoteUnresolvedAddress::getCoordinatorName() const {
    return isLocal() ? fCoordinatorName : InternalCoordinator::mapCoordinatorName(fCoordinatorName);
}

bool RemoteUnresolvedAddress::isInternalCoordinatorAddress() const {
    return isLocal() && fCoordinatorName == InternalCoordinator::getCoordinatorName() && fIndices.empty();
}

std::string RemoteUnresolvedAddress::getHostAddress() const {
    return InternalCoordinator::getHostAddress(fHostName);
}

GUIDClass* RemoteUnresolvedAddress::getUpstreamCoordinatorGUID() const {
    std::shared_ptr<IInternalCoordinator> internalCoordinator = internalCoordinatorOf();
    return internalCoordinator ? internalCoordinator->getUpstreamCoordinatorGUID(fHostName, fCoordinatorName)
                               : nullptr;
}

bool RemoteUnresolvedAddress::serializeDeserializeContent(SerializeDeserialize mode,
                                                          const std::shared_ptr<IObject>& serializerObj) {
    bool retVal = false;
    do {
        ASSIGN_TYPED(ISerializer, serializer, serializerObj);
        if (! isKnownMode(mode)) {
            break;
        }
        SANITY_CHECK(serializeDeserializeCoordinatorName(mode, serializer));
        SANITY_CHECK(serializeDeserializeIndices(mode, serializer));
        SANITY_CHECK(serializeDeserializeHostName(mode, serializer));
        fHash.reset();
        retVal = true;
    } while (false);
    return retVal;
}

uint64_t RemoteUnresolvedAddress::hash() const {
    return fHash.get([this] { return hashOfFields(TYPENAME, {fCoordinatorName, fIndices, fHostName}); });
}

bool RemoteUnresolvedAddress::operator==(const IObject* other) const {
    if (other == this) {
        return true;
    }
    const auto* address = isSameClass(other) ? dynamic_cast<const RemoteUnresolvedAddress*>(other) : nullptr;
    return address != nullptr && address->fCoordinatorName == fCoordinatorName &&
           address->fIndices == fIndices && address->fHostName == fHostName;
}

} // namespace Brw
