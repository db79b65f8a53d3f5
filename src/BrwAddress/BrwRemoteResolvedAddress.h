#pragma once

#include "BrwAddress/BrwAddress_abstract.h"
#include "BrwAddress/BrwIGUIDAddress.h"
#include "BrwAddress/BrwTraits/BrwGUIDAddress_trait.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

// A service of a coordinator of another machine by GUIDs, as LocalResolvedAddress prints it. It travels
// with its coordinator's name and host name, so that a receiver learns them.
class RemoteResolvedAddress : public Address_abstract, public GUIDAddress_trait, public virtual IGUIDAddress {
public:
    static constexpr const char* TYPENAME = "RemoteResolvedAddress";

    // A coordinator of this machine, or one of no known host, gives a LocalResolvedAddress.
    static std::shared_ptr<IObject> factoryFromGUIDs(GUIDClass* addressedGUID,
                                                     GUIDClass* upstreamCoordinatorGUID);
    static std::shared_ptr<IObject> factoryFromSerialized(const std::shared_ptr<IObject>& serializerObj);
    [[nodiscard]] static bool registerDeregisterClass(RegisterDeregister registerDeregister);

    std::string typeName() const override { return TYPENAME; }
    // Another machine's address stays as it is; one whose host turns out to be this machine resolves as a
    // local one.
    std::shared_ptr<IObject> resolved() const override;
    std::string getURL() const override;
    // The names that came with the address, or those the coordinator knows (kept once known).
    std::string getCoordinatorName() const override;
    std::string getHostName() const override;
    std::string getHostAddress() const override;
    bool isInternalCoordinatorAddress() const override { return isGUIDOfInternalCoordinator(); }
    GUIDClass* getUpstreamCoordinatorGUID() const override { return fUpstreamCoordinatorGUID; }
    GUIDClass* getAddressedGUID() const override { return fAddressedGUID; }
    bool serializeDeserializeContent(SerializeDeserialize mode,
                                     const std::shared_ptr<IObject>& serializerObj) override;
    uint64_t hash() const override;
    bool operator==(const IObject* other) const override;

protected:
    RemoteResolvedAddress(GUIDClass* addressedGUID, GUIDClass* upstreamCoordinatorGUID)
        : GUIDAddress_trait(addressedGUID, upstreamCoordinatorGUID) {}
    friend class Object;

private:
    mutable std::string fCoordinatorName; // filled on first need, also from const operations
    mutable std::string fHostName;        // likewise
    CachedHash fHash;                     // of the type name and the two GUIDs
};

} // namespace Brw
