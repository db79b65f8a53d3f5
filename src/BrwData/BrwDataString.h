#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "BrwData/BrwData_abstract.h"
#include "BrwData/BrwIDataString.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

// One text as a data object. Equal texts make equal objects.
class DataString : public Data_abstract, public virtual IDataString {
public:
    static constexpr const char* TYPENAME = "DataString";

    static std::shared_ptr<IObject> factoryFromString(const std::string& str);
    static std::shared_ptr<IObject> factoryFromSerialized(const std::shared_ptr<IObject>& serializerObj);
    [[nodiscard]] static bool registerDeregisterClass(RegisterDeregister registerDeregister);

    std::string typeName() const override { return TYPENAME; }
    const std::string& getString() const override { return fString; }
    bool serializeDeserializeContent(SerializeDeserialize mode,
                                     const std::shared_ptr<IObject>& serializerObj) override;
    // Computed on first request and kept.
    uint64_t hash() const override;
    // The same text.
    bool operator==(const IObject* other) const override;

protected:
    explicit DataString(std::string str) : fString(std::move(str)) {}
    friend class Object;

private:
    std::string fString; // the text
    CachedHash fHash;    // of the type name and the text
};

} // namespace Brw
