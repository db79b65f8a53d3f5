#pragma once

#include <memory>
#include <string>
#include <vector>

#include "BrwSerializer/BrwISerializer.h"

namespace Brw {

class GUIDClass;

// An address by GUIDs: the service's own and that of the coordinator that owns it. Both are interned and
// never owned.
class GUIDAddress_trait {
public:
    GUIDAddress_trait(GUIDClass* addressedGUID, GUIDClass* upstreamCoordinatorGUID)
        : fAddressedGUID(addressedGUID), fUpstreamCoordinatorGUID(upstreamCoordinatorGUID) {}

    // "brw://" + upstream + "/" + addressed, and "/" + `tail` when there is one.
    std::string getGUIDAddressURL(const std::string& tail) const;

protected:
    // The addressed GUID is this process's coordinator.
    bool isGUIDOfInternalCoordinator() const;
    // The resolution of a local address by GUIDs: a service of this process gives its own address again;
    // one of another coordinator gives `self` while that coordinator is known, and null when nothing is
    // known of it.
    std::shared_ptr<IObject> resolvedByGUIDs(const std::shared_ptr<IObject>& self) const;
    bool hasSameGUIDs(const GUIDAddress_trait& other) const {
        return fAddressedGUID == other.fAddressedGUID &&
               fUpstreamCoordinatorGUID == other.fUpstreamCoordinatorGUID;
    }
    // The texts of the two GUIDs, addressed first: the fields an address by GUIDs hashes.
    std::vector<std::string> getGUIDTexts() const;
    // The two GUIDs as two lines, both ways.
    [[nodiscard]] bool serializeDeserializeGUIDs(SerializeDeserialize mode,
                                                 const std::shared_ptr<ISerializer>& serializer);

    GUIDClass* fAddressedGUID;           // the service
    GUIDClass* fUpstreamCoordinatorGUID; // its coordinator
};

} // namespace Brw
