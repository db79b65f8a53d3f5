#pragma once

#include <cstdint>
#include <memory>

#include "BrwObject/BrwIObject.h"
#include "BrwSerializer/BrwISerializer.h"

namespace Brw {

// A runtime object that can travel: it writes itself with its type name in front, and the receiver
// rebuilds it through the deserialization factory registered under that name. Data compare by value
// (operator==) where the class has a value.
class IData : public virtual IObject {
public:
    // The type name, then the content.
    virtual bool serialize(const std::shared_ptr<IObject>& serializerObj) const = 0;
    // Writes or reads everything but the type name, in one order both ways.
    virtual bool serializeDeserializeContent(SerializeDeserialize mode,
                                             const std::shared_ptr<IObject>& serializerObj) = 0;
    // Equal data have equal hashes.
    virtual uint64_t hash() const = 0;
};

} // namespace Brw
