#pragma once

#include <memory>
#include <string>

#include "BrwData/BrwIData.h"
#include "BrwObject/BrwObject.h"

namespace Brw {

class ISerializer;

// The base of every data object, and the entry points that write and read any of them with its type name
// in front. A null object travels as "DataNull" and comes back as null.
class Data_abstract : public Object, public virtual IData {
public:
    // How deep type-prefixed objects may nest in one read: a payload in a payload in ... Deeper input is
    // refused rather than taking the native stack down.
    static constexpr int MAX_NESTED_OBJECTS = 64;

    bool serialize(const std::shared_ptr<IObject>& serializerObj) const override;

    // As the member form; null `data` is written as the DataNull.
    [[nodiscard]] static bool serialize(std::shared_ptr<const IObject> data,
                                        const std::shared_ptr<IObject>& serializerObj);
    // The serialized lines of `data`; empty on failure.
    static std::string serializeToStr(std::shared_ptr<const IObject> data);
    // The object of the serialized lines in `str`; null for a serialized null and on failure, trailing
    // data included.
    static std::shared_ptr<IObject> deserializeFromStr(const std::string& str);
    // Reads a type name and rebuilds the object through the factories registered under it; null for a
    // serialized null and on failure.
    static std::shared_ptr<IObject>
    factoryFromTypePrefixedSerialized(const std::shared_ptr<IObject>& serializerObj);
    // As factoryFromTypePrefixedSerialized, telling a serialized null (true, `object` null) from a failure
    // (false).
    [[nodiscard]] static bool deserializeTypePrefixed(const std::shared_ptr<IObject>& serializerObj,
                                                      std::shared_ptr<IObject>& object);

    // The next line into `value`: false, after a failed check, at the end of input or when the last line
    // has no line feed yet.
    [[nodiscard]] static bool readString(const std::shared_ptr<ISerializer>& serializer, std::string& value);

protected:
    // Fills `data` from the serializer: the object, or null after "cannot deserialize". The common body of
    // the classes' factoryFromSerialized.
    static std::shared_ptr<IObject> deserializeInto(const std::shared_ptr<IData>& data,
                                                    const std::shared_ptr<IObject>& serializerObj);
};

} // namespace Brw
