#pragma once

#include "BrwAddress/BrwAddress_abstract.h"
#include "BrwAddress/BrwIGUIDAddress.h"
#include "BrwAddress/BrwIIndexedAddress.h"
#include "BrwAddress/BrwTraits/BrwCoordinatorNameAddress_trait.h"
#include "BrwAddress/BrwTraits/BrwHostNameAddress_trait.h"
#include "BrwAddress/BrwTraits/BrwIndexedAddress_trait.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

// A service of a coordinator of another machine by host, coordinator name and path:
// "brw://" + host + "/" + coordinator + "/" + indices.
class RemoteUnresolvedAddress : public Address_abstract,
                                public CoordinatorNameAddress_trait,
                                public IndexedAddress_trait,
                                public HostNameAddress_trait,
                                public virtual IGUIDAddress,
                                public virtual IIndexedAddress {
public:
    static constexpr const char* TYPENAME = "RemoteUnresolvedAddress";

    // A host of this machine gives a LocalUnresolvedAddress.
    static std::shared_ptr<IObject>
    factoryFromCoordinatorNameIndicesHostName(const std::string& coordinatorName, const std::string& indices,
                                              const std::string& hostName);
    static std::shared_ptr<IObject> factoryFromSerialized(const std::shared_ptr<IObject>& serializerObj);
    [[nodiscard]] static bool registerDeregisterClass(RegisterDeregister registerDeregister);

    std::string typeName() const override { return TYPENAME; }
    // Another machine's address is as good as it gets here; one that turns out to be of this machine
    // resolves as a local one.
    std::shared_ptr<IObject> resolved() const override;
    std::string getURL() const override;
    // Another machine's coordinator is named through the coordinator map of the configuration.
    std::string getCoordinatorName() const override;
    bool isInternalCoordinatorAddress() const override;
    std::string getHostName() const override { return fHostName; }
    std::string getHostAddress() const override;
    GUIDClass* getUpstreamCoordinatorGUID() const override;
    GUIDClass* getAddressedGUID() const override { return nullptr; }
    const std::string& getIndices() const override { return fIndices; }
    const std::vector<std::string>& getIndexList() const override { return fIndexList; }
    bool serializeDeserializeContent(SerializeDeserialize mode,
                                     const std::shared_ptr<IObject>& serializerObj) override;
    uint64_t hash() const override;
    bool operator==(const IObject* other) const override;

protected:
    RemoteUnresolvedAddress(std::string coordinatorName, std::string indices, std::string hostName)
        : CoordinatorNameAddress_trait(std::move(coordinatorName)), IndexedAddress_trait(std::move(indices)),
          HostNameAddress_trait(std::move(hostName)) {}
    friend class Object;

private:
    bool isLocal() const;

    CachedHash fHash; // of the type name, the coordinator, the path and the host
};

} // namespace Brw
