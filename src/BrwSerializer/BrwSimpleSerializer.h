#pragma once

#include <istream>
#include <memory>
#include <ostream>
#include <string>

#include "BrwSerializer/BrwSerializer_abstract.h"

namespace Brw {

// The line form of everything that travels: each value is one line of escaped bytes ended by one line
// feed, with no carriage return, no code page and no locale. A reader fed from a growing stream keeps a
// last line without its line feed in its buffer and goes on from there once more bytes have come.
class SimpleSerializer : public Serializer_abstract {
public:
    static constexpr const char* TYPENAME = "SimpleSerializer";
    // Ends every line.
    static constexpr char LINE_END = '\n';

    static std::shared_ptr<IObject> factory();
    [[nodiscard]] static bool registerDeregisterClass(RegisterDeregister registerDeregister);

    std::string typeName() const override { return TYPENAME; }

    // The object's own GUID, beside the reading getGUID of the serializer.
    using Object::getGUID;

    bool startSerialize(std::ostream* outputStream) override;
    bool endSerialize() override;
    bool putGUID(GUIDClass* guid) override;
    bool putString(const std::string& value) override;
    // Writes `line` and a line feed as they are: the caller vouches that it holds no line feed.
    bool putRawString(const std::string& line);
    bool startDeserialize(std::istream* inputStream) override;
    bool endDeserialize() override;
    GUIDClass* getGUID() override;
    std::string getString() override;
    bool isStringAvailable() override;
    bool atEnd() override;

protected:
    SimpleSerializer() = default;
    friend class Object;

private:
    std::ostream* fpOutputStream = nullptr; // written in the serialize run; not owned
    std::istream* fpInputStream = nullptr;  // read in the deserialize run; not owned
    std::string fLineBuffer;                // bytes of the next line read so far, still escaped
    bool fIsLineComplete = false;           // fLineBuffer holds a whole line, its line feed consumed
};

} // namespace Brw
