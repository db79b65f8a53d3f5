#pragma once

#include <istream>
#include <ostream>
#include <string>

#include "BrwObject/BrwIObject.h"

namespace Brw {

class GUIDClass;

// Which way serializeDeserializeContent goes: the one function writes and reads a class's fields in the
// same order.
enum class SerializeDeserialize { SERIALIZE = 0, DESERIALIZE = 1 };

// Flattens values into text lines, one value per line, and reads them back in the same order. Writing and
// reading are two independent runs, each bound to one stream from its start to its end.
class ISerializer : public virtual IObject {
public:
    // NOTE: the reading getGUID below would hide the object's own GUID getter; both stay callable, and a
    // non-const serializer reads the stream.
    using IObject::getGUID;

    virtual bool startSerialize(std::ostream* outputStream) = 0;
    virtual bool endSerialize() = 0;
    // A GUID as its sectioned text; null as an empty line.
    virtual bool putGUID(GUIDClass* guid) = 0;
    virtual bool putString(const std::string& value) = 0;
    virtual bool startDeserialize(std::istream* inputStream) = 0;
    // Lets go of the stream; false when data are left in it.
    virtual bool endDeserialize() = 0;
    // The next line as an interned GUID; null for an empty line or when no line is there.
    virtual GUIDClass* getGUID() = 0;
    // The next line, unescaped; empty when no complete line is there.
    virtual std::string getString() = 0;
    // True when a complete line is there to be read.
    virtual bool isStringAvailable() = 0;
    // True when the next read would hit the end of the stream.
    virtual bool atEnd() = 0;
};

} // namespace Brw
