#pragma once

#include <memory>
#include <string>

#include "BrwService/BrwICoordinator.h"

namespace Brw {

class GUIDClass;

// The root service of a process: what it knows of the coordinators and hosts it has heard from, and how
// it finds a service by address.
class IInternalCoordinator : public virtual ICoordinator {
public:
    // The address of the service or coordinator of this GUID; null when unknown.
    virtual std::shared_ptr<const IObject> getAddressFromGUID(GUIDClass* guid) const = 0;
    // The name of the coordinator of this GUID: this one's for its own GUID, else what it has been told,
    // else empty.
    virtual std::string getCoordinatorName(GUIDClass* upstreamCoordinatorGUID) const = 0;
    // The host of the coordinator of this GUID: "localhost" for its own GUID, else what it has been told,
    // else empty.
    virtual std::string getHostName(GUIDClass* upstreamCoordinatorGUID) const = 0;
    // The GUID of the coordinator of this name on this host; null when unknown.
    virtual GUIDClass* getUpstreamCoordinatorGUID(const std::string& hostName,
                                                  const std::string& coordinatorName) const = 0;
    // True for its own GUID and for the GUID of any coordinator it has heard from.
    virtual bool isValidUpstreamCoordinatorGUID(GUIDClass* guid) const = 0;
    // Learns the coordinator, the host and the GUIDs of a sender address.
    [[nodiscard]] virtual bool
    registerSenderAddressObj(const std::shared_ptr<const IObject>& senderAddressObj) = 0;
    // The service of this process that an address names; null when it names none.
    virtual std::shared_ptr<const IObject>
    resolveAddress(const std::shared_ptr<const IObject>& addressObj) = 0;
    // Asks the process to stop; the loops end once everything is idle.
    virtual bool terminate() = 0;
};

} // namespace Brw
