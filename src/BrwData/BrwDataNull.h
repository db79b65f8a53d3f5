#pragma once

#include <memory>
#include <string>

#include "BrwData/BrwData_abstract.h"

namespace Brw {

// No data at all: the form in which a null object travels. One object per process.
class DataNull : public Data_abstract {
public:
    static constexpr const char* TYPENAME = "DataNull";

    // The one DataNull, made on first use; null once the class has been deregistered at teardown.
    static std::shared_ptr<IObject> factory();
    static std::shared_ptr<IObject> factoryFromSerialized(const std::shared_ptr<IObject>& serializerObj);
    // Deregistering also lets go of the one object, so that none is left at the end of the process.
    [[nodiscard]] static bool registerDeregisterClass(RegisterDeregister registerDeregister);

    std::string typeName() const override { return TYPENAME; }
    // Writes and reads nothing.
    bool serializeDeserializeContent(SerializeDeserialize mode,
                                     const std::shared_ptr<IObject>& serializerObj) override;
    uint64_t hash() const override;

protected:
    DataNull() = default;
    friend class Object;
};

} // namespace Brw
