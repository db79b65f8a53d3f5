#pragma once

#include "BrwAddress/BrwAddress_abstract.h"
#include "BrwAddress/BrwIGUIDAddress.h"
#include "BrwAddress/BrwIIndexedAddress.h"
#include "BrwAddress/BrwTraits/BrwCoordinatorNameAddress_trait.h"
#include "BrwAddress/BrwTraits/BrwIndexedAddress_trait.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

// A service of a coordinator of this machine by the coordinator's name and the path below it:
// "brw:///" + coordinator + "/" + indices.
class LocalUnresolvedAddress : public Address_abstract,
                               public CoordinatorNameAddress_trait,
                               public IndexedAddress_trait,
                               public virtual IGUIDAddress,
                               public virtual IIndexedAddress {
public:
    static constexpr const char* TYPENAME = "LocalUnresolvedAddress";

    static std::shared_ptr<IObject> factoryFromCoordinatorNameIndices(const std::string& coordinatorName,
                                                                      const std::string& indices);
    static std::shared_ptr<IObject> factoryFromSerialized(const std::shared_ptr<IObject>& serializerObj);
    [[nodiscard]] static bool registerDeregisterClass(RegisterDeregister registerDeregister);

    std::string typeName() const override { return TYPENAME; }
    // This process's coordinator resolves by the path; another coordinator is as good as it gets here.
    std::shared_ptr<IObject> resolved() const override;
    std::string getURL() const override;
    std::string getCoordinatorName() const override { return fCoordinatorName; }
    bool isInternalCoordinatorAddress() const override;
    GUIDClass* getUpstreamCoordinatorGUID() const override;
    GUIDClass* getAddressedGUID() const override;
    const std::string& getIndices() const override { return fIndices; }
    const std::vector<std::string>& getIndexList() const override { return fIndexList; }
    bool serializeDeserializeContent(SerializeDeserialize mode,
                                     const std::shared_ptr<IObject>& serializerObj) override;
    uint64_t hash() const override;
    bool operator==(const IObject* other) const override;

protected:
    LocalUnresolvedAddress(std::string coordinatorName, std::string indices)
        : CoordinatorNameAddress_trait(std::move(coordinatorName)), IndexedAddress_trait(std::move(indices)) {
    }
    friend class Object;

private:
    CachedHash fHash; // of the type name, the coordinator and the path
};

} // namespace Brw
