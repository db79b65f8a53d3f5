#pragma once

#include "BrwAddress/BrwAddress_abstract.h"
#include "BrwAddress/BrwIGUIDAddress.h"
#include "BrwAddress/BrwIIndexedAddress.h"
#include "BrwAddress/BrwTraits/BrwIndexedAddress_trait.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

// A service of this process by its path below the coordinator: "brw:////" + indices.
class InternalAddress : public Address_abstract,
                        public IndexedAddress_trait,
                        public virtual IGUIDAddress,
                        public virtual IIndexedAddress {
public:
    static constexpr const char* TYPENAME = "InternalAddress";

    // The coordinator itself.
    static std::shared_ptr<IObject> factory();
    static std::shared_ptr<IObject> factoryFromIndices(const std::string& indices);
    static std::shared_ptr<IObject> factoryFromSerialized(const std::shared_ptr<IObject>& serializerObj);
    [[nodiscard]] static bool registerDeregisterClass(RegisterDeregister registerDeregister);

    std::string typeName() const override { return TYPENAME; }
    std::shared_ptr<IObject> resolved() const override;
    std::string getURL() const override;
    std::string getCoordinatorName() const override;
    bool isInternalCoordinatorAddress() const override { return fIndices.empty(); }
    GUIDClass* getUpstreamCoordinatorGUID() const override;
    GUIDClass* getAddressedGUID() const override;
    const std::string& getIndices() const override { return fIndices; }
    const std::vector<std::string>& getIndexList() const override { return fIndexList; }
    bool serializeDeserializeContent(SerializeDeserialize mode,
                                     const std::shared_ptr<IObject>& serializerObj) override;
    uint64_t hash() const override;
    bool operator==(const IObject* other) const override;

protected:
    explicit InternalAddress(std::string indices) : IndexedAddress_trait(std::move(indices)) {}
    friend class Object;

private:
    CachedHash fHash; // of the type name and the path
};

} // namespace Brw
