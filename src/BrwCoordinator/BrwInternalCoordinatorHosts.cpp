// What a coordinator knows of hosts and of the coordinators it has heard from, and how it finds a service
// by address.

#include <algorithm>

#include "BrwAddress/BrwIAddress.h"
#include "BrwAddress/BrwICoordinatorNameAddress.h"
#include "BrwAddress/BrwIGUIDAddress.h"
#include "BrwAddress/BrwIHostNameAddress.h"
#include "BrwAddress/BrwIIndexedAddress.h"
#include "BrwAddress/BrwRemoteResolvedAddress.h"
#include "BrwAddress/BrwTraits/BrwGUIDAddress_trait.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwObject/BrwGUIDClass.h"
#include "BrwUtils/BrwUtils.h"

namespace Brw {

namespace {

using GUIDToName = std::unordered_map<GUIDClass*, std::string, FNV1aPointerHash>;
using GUIDToGUID = std::unordered_map<GUIDClass*, GUIDClass*, FNV1aPointerHash>;
using NameToGUID = std::unordered_map<std::string, GUIDClass*, FNV1aHash>;

// The tables of the process, lower-cased host names throughout.
struct HostTables {
    std::unordered_set<std::string, FNV1aHash> localHostNames; // names of this machine besides the fixed ones
    std::unordered_map<std::string, std::vector<std::string>, FNV1aHash> hostAddresses; // IPs in order
    NameToGUID upstreamByHostAndName;                                                   // host|name -> GUID
    GUIDToName coordinatorNameByUpstream;
    GUIDToName hostNameByUpstream;
    GUIDToGUID upstreamBySender; // for every GUID ever seen as a sender
};

HostTables& hostTables() {
    static auto* tables = new HostTables();
    return *tables;
}

// The names that are local whatever was registered.
bool isFixedLocalHostName(const std::string& lowerHostName) {
    return lowerHostName == InternalCoordinator::LOCAL_HOST_NAME ||
           lowerHostName == InternalCoordinator::LOCAL_IP_ADDRESS || lowerHostName == "::1";
}

// The key of a coordinator of a host in the upstream table; a local host counts as none.
std::string coordinatorKey(const std::string& hostName, const std::string& coordinatorName) {
    const std::string host =
        InternalCoordinator::isLocalHostName(hostName) ? std::string() : Utils::toLower(hostName);
    return host + "|" + coordinatorName;
}

} // namespace

GUIDClass* InternalCoordinator::getOwnGUID() {
    std::shared_ptr<IObject> internalCoordinator = factory();
    return internalCoordinator ? internalCoordinator->createGUID() : nullptr;
}

bool InternalCoordinator::isLocalHostName(const std::string& hostName) {
    const std::string lowerHostName = Utils::toLower(hostName);
    return isFixedLocalHostName(lowerHostName) || hostTables().localHostNames.count(lowerHostName) != 0;
}

bool InternalCoordinator::registerHostName(const std::string& hostName, const std::string& ipAddress) {
    bool retVal = false;
    do {
        SANITY_CHECK(! hostName.empty());
        SANITY_CHECK(! ipAddress.empty());
        const std::string lowerHostName = Utils::toLower(hostName);
        if (ipAddress == LOCAL_IP_ADDRESS || lowerHostName == LOCAL_HOST_NAME) {
            LOG_NOTE_F("register as localHostName: %s", lowerHostName.c_str());
            hostTables().localHostNames.insert(lowerHostName);
        }
        LOG_NOTE_F("register %s -> %s", lowerHostName.c_str(), ipAddress.c_str());
        std::vector<std::string>& addresses = hostTables().hostAddresses[lowerHostName];
        if (std::find(addresses.begin(), addresses.end(), ipAddress) == addresses.end()) {
            addresses.push_back(ipAddress);
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::registerLocalHostName(const std::string& localHostName) {
    return registerHostName(localHostName, LOCAL_IP_ADDRESS);
}

std::string InternalCoordinator::getHostAddress(const std::string& hostName) {
    std::string retVal;
    do {
        SANITY_CHECK(! hostName.empty());
        const std::string lowerHostName = Utils::toLower(hostName);
        if (isFixedLocalHostName(lowerHostName)) {
            retVal = LOCAL_IP_ADDRESS;
            break;
        }
        auto iter = hostTables().hostAddresses.find(lowerHostName);
        if (iter == hostTables().hostAddresses.end() || iter->second.empty()) {
            // A host that isn't known at all is reached by its name.
            retVal = hostName;
            break;
        }
        retVal = iter->second.front();
    } while (false);
    return retVal;
}

std::string InternalCoordinator::mapCoordinatorName(const std::string& coordinatorName) {
    auto iter = fCoordinatorMap.find(Utils::toLower(coordinatorName));
    return iter == fCoordinatorMap.end() || iter->second.empty() ? coordinatorName : iter->second;
}

void InternalCoordinator::clearHostTables() {
    hostTables() = HostTables();
}

std::string InternalCoordinator::getCoordinatorName(GUIDClass* upstreamCoordinatorGUID) const {
    std::string retVal;
    do {
        SANITY_CHECK(upstreamCoordinatorGUID);
        if (upstreamCoordinatorGUID == createGUID()) {
            retVal = fCoordinatorName;
            break;
        }
        auto iter = hostTables().coordinatorNameByUpstream.find(upstreamCoordinatorGUID);
        if (iter != hostTables().coordinatorNameByUpstream.end()) {
            retVal = iter->second;
        }
    } while (false);
    return retVal;
}

std::string InternalCoordinator::getHostName(GUIDClass* upstreamCoordinatorGUID) const {
    std::string retVal;
    do {
        SANITY_CHECK(upstreamCoordinatorGUID);
        if (upstreamCoordinatorGUID == createGUID()) {
            retVal = LOCAL_HOST_NAME;
            break;
        }
        auto iter = hostTables().hostNameByUpstream.find(upstreamCoordinatorGUID);
        if (iter != hostTables().hostNameByUpstream.end()) {
            retVal = iter->second;
        }
    } while (false);
    return retVal;
}

GUIDClass* InternalCoordinator::getUpstreamCoordinatorGUID(const std::string& hostName,
                                                           const std::string& coordinatorName) const {
    GUIDClass* retVal = nullptr;
    do {
        SANITY_CHECK(! coordinatorName.empty());
        if ((hostName.empty() || isLocalHostName(hostName)) && coordinatorName == fCoordinatorName) {
            retVal = createGUID();
            break;
        }
        auto iter = hostTables().upstreamByHostAndName.find(coordinatorKey(hostName, coordinatorName));
        if (iter != hostTables().upstreamByHostAndName.end()) {
            retVal = iter->second;
        }
    } while (false);
    return retVal;
}

bool InternalCoordinator::isValidUpstreamCoordinatorGUID(GUIDClass* guid) const {
    return guid != nullptr &&
           (guid == createGUID() || hostTables().coordinatorNameByUpstream.count(guid) != 0);
}

bool InternalCoordinator::registerSenderAddressObj(const std::shared_ptr<const IObject>& senderAddressObj) {
    bool retVal = false;
    do {
        ASSIGN_CONST_TYPED(IGUIDAddress, guidAddress, senderAddressObj);
        ASSIGN_CONST_TYPED(IHostNameAddress, hostNameAddress, senderAddressObj);
        ASSIGN_CONST_TYPED(ICoordinatorNameAddress, coordinatorNameAddress, senderAddressObj);
        SANITY_CHECK(std::dynamic_pointer_cast<const IAddress>(senderAddressObj));
        GUIDClass* upstreamCoordinatorGUID = guidAddress->getUpstreamCoordinatorGUID();
        SANITY_CHECK(registerUpstreamCoordinator(hostNameAddress->getHostName(),
                                                 coordinatorNameAddress->getCoordinatorName(),
                                                 upstreamCoordinatorGUID));
        if (GUIDClass* senderGUID = guidAddress->getAddressedGUID()) {
            hostTables().upstreamBySender[senderGUID] = upstreamCoordinatorGUID;
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::registerUpstreamCoordinator(const std::string& hostName,
                                                      const std::string& coordinatorName,
                                                      GUIDClass* upstreamCoordinatorGUID) {
    bool retVal = false;
    do {
        SANITY_CHECK(upstreamCoordinatorGUID);
        const std::string host = isLocalHostName(hostName) ? std::string() : Utils::toLower(hostName);
        HostTables& tables = hostTables();
        if (! coordinatorName.empty()) {
            tables.upstreamByHostAndName[coordinatorKey(host, coordinatorName)] = upstreamCoordinatorGUID;
            tables.coordinatorNameByUpstream[upstreamCoordinatorGUID] = coordinatorName;
        }
        tables.hostNameByUpstream[upstreamCoordinatorGUID] = host;
        retVal = true;
    } while (false);
    return retVal;
}

std::shared_ptr<const IObject> InternalCoordinator::getAddressFromGUID(GUIDClass* guid) const {
    std::shared_ptr<const IObject> retVal;
    do {
        SANITY_CHECK(guid);
        auto iter = hostTables().upstreamBySender.find(guid);
        if (iter != hostTables().upstreamBySender.end() && iter->second != createGUID()) {
            retVal = RemoteResolvedAddress::factoryFromGUIDs(guid, iter->second);
            break;
        }
        ASSIGN_CONST_TYPED(IAddressable, service, Object::getRegisteredObject(guid));
        retVal = service->getAddressObj();
    } while (false);
    return retVal;
}

std::shared_ptr<const IObject>
InternalCoordinator::resolveAddress(const std::shared_ptr<const IObject>& addressObj) {
    std::shared_ptr<const IObject> retVal;
    do {
        SANITY_CHECK(addressObj);
        auto hostNameAddress = std::dynamic_pointer_cast<const IHostNameAddress>(addressObj);
        if (hostNameAddress && ! isLocalHostName(hostNameAddress->getHostName())) {
            break;
        }
        auto coordinatorNameAddress = std::dynamic_pointer_cast<const ICoordinatorNameAddress>(addressObj);
        if (coordinatorNameAddress && coordinatorNameAddress->getCoordinatorName() != fCoordinatorName) {
            break;
        }
        if (dynamic_cast<const GUIDAddress_trait*>(addressObj.get()) != nullptr) {
            auto byGUIDs = std::dynamic_pointer_cast<const IGUIDAddress>(addressObj);
            GUIDClass* guid = byGUIDs->getAddressedGUID();
            SANITY_CHECK(guid);
            if (guid == createGUID()) {
                retVal = getSelfObj();
            } else if (byGUIDs->getUpstreamCoordinatorGUID() == createGUID()) {
                retVal = std::dynamic_pointer_cast<const IService>(Object::getRegisteredObject(guid));
            }
            break;
        }
        ASSIGN_CONST_TYPED(IIndexedAddress, indexedAddress, addressObj);
        retVal = findServiceByIndices(indexedAddress->getIndexList());
    } while (false);
    return retVal;
}

std::shared_ptr<const IObject>
InternalCoordinator::findServiceByIndices(const std::vector<std::string>& indexList) {
    std::shared_ptr<const IObject> retVal;
    do {
        std::shared_ptr<IObject> current = getSelfObj();
        for (size_t position = 0; current && position + 1 < indexList.size(); position += 2) {
            const std::string& indexStr = indexList[position + 1];
            SANITY_CHECK(Utils::isNumeric(indexStr));
            ASSIGN_TYPED(IService, curService, current);
            current = curService->getChild(indexList[position], Utils::toUInt64(indexStr));
        }
        retVal = current;
    } while (false);
    return retVal;
}

} // namespace Brw
