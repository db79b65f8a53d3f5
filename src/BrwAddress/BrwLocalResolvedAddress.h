#pragma once

#include "BrwAddress/BrwAddress_abstract.h"
#include "BrwAddress/BrwIGUIDAddress.h"
#include "BrwAddress/BrwTraits/BrwGUIDAddress_trait.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

// A service of a coordinator of this machine by GUIDs: "brw://" + upstream GUID + "/" + addressed GUID.
// It travels with its coordinator's name, so that a receiver learns it.
class LocalResolvedAddress : public Address_abstract, public GUIDAddress_trait, public virtual IGUIDAddress {
public:
    static constexpr const char* TYPENAME = "LocalResolvedAddress";

    static std::shared_ptr<IObject> factory();
    // Without an upstream GUID the service is taken to be this process's.
    static std::shared_ptr<IObject> factoryFromGUIDs(GUIDClass* addressedGUID,
                                                     GUIDClass* upstreamCoordinatorGUID);
    static std::shared_ptr<IObject> factoryFromSerialized(const std::shared_ptr<IObject>& serializerObj);
    [[nodiscard]] static bool registerDeregisterClass(RegisterDeregister registerDeregister);

    std::string typeName() const override { return TYPENAME; }
    // A service of this process gives its own address again; one of another coordinator stays as it is
    // while that coordinator is known, and is null when nothing is known of it.
    std::shared_ptr<IObject> resolved() const override;
    std::string getURL() const override;
    // The name that came with the address, or the one the coordinator knows (kept once known).
    std::string getCoordinatorName() const override;
    bool isInternalCoordinatorAddress() const override { return isGUIDOfInternalCoordinator(); }
    GUIDClass* getUpstreamCoordinatorGUID() const override { return fUpstreamCoordinatorGUID; }
    GUIDClass* getAddressedGUID() const override { return fAddressedGUID; }
    bool serializeDeserializeContent(SerializeDeserialize mode,
                                     const std::shared_ptr<IObject>& serializerObj) override;
    uint64_t hash() const override;
    bool operator==(const IObject* other) const override;

protected:
    LocalResolvedAddress(GUIDClass* addressedGUID, GUIDClass* upstreamCoordinatorGUID)
        : GUIDAddress_trait(addressedGUID, upstreamCoordinatorGUID) {}
    friend class Object;

private:
    mutable std::string fCoordinatorName; // filled on first need, also from const operations
    CachedHash fHash;                     // of the type name and the two GUIDs
};

} // namespace Brw
