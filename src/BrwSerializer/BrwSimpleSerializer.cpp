#include "BrwSerializer/BrwSimpleSerializer.h"

#include <streambuf>

#include "BrwLogger/BrwCheck.h"
#include "BrwObject/BrwGUIDClass.h"

namespace Brw {

namespace {

// The next byte of the stream without taking it, or EOF. The stream buffer is read directly: it has no
// sticky end state, so a stream that grows after its end was seen is read on, and no locale applies.
int peekByte(std::istream& inputStream) {
    std::streambuf* buffer = inputStream.rdbuf();
    return buffer != nullptr ? buffer->sgetc() : std::char_traits<char>::eof();
}

bool isEndOfStream(int byte) {
    return std::char_traits<char>::eq_int_type(byte, std::char_traits<char>::eof());
}

} // namespace

std::shared_ptr<IObject> SimpleSerializer::factory() {
    return Object::makeRegistered<SimpleSerializer>();
}

bool SimpleSerializer::registerDeregisterClass(RegisterDeregister registerDeregister) {
    // The check texts keep their established spacing.
    // clang-format off
    return Object::registerDeregister(registerDeregister,
        [] { return SANITY_CHECKED(Object::registerFactory( TYPENAME, SimpleSerializer::factory)); },
        [] { return SANITY_CHECKED(Object::deregisterFactory( TYPENAME)); });
    // clang-format on
}

bool SimpleSerializer::startSerialize(std::ostream* outputStream) {
    bool retVal = false;
    do {
        SANITY_CHECK(outputStream);
        SANITY_CHECK(! fpOutputStream);
        fpOutputStream = outputStream;
        retVal = true;
    } while (false);
    return retVal;
}

bool SimpleSerializer::endSerialize() {
    bool retVal = false;
    do {
        SANITY_CHECK(fpOutputStream);
        fpOutputStream = nullptr;
        retVal = true;
    } while (false);
    return retVal;
}

bool SimpleSerializer::putGUID(GUIDClass* guid) {
    bool retVal = putString(guid != nullptr ? guid->toSectionedString() : std::string());
    if (! retVal) {
        LOG_ERROR("failed to write guid");
    }
    return retVal;
}

bool SimpleSerializer::putString(const std::string& value) {
    return putRawString(Utils::escapeSerializer(value, EscapeTable::serializerLines()));
}

bool SimpleSerializer::putRawString(const std::string& line) {
    bool retVal = false;
    do {
        SANITY_CHECK(fpOutputStream);
        fpOutputStream->write(line.data(), static_cast<std::streamsize>(line.size()));
        fpOutputStream->put(LINE_END);
        if (! *fpOutputStream) {
            LOG_ERROR("failed to write str");
            break;
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool SimpleSerializer::startDeserialize(std::istream* inputStream) {
    bool retVal = false;
    do {
        SANITY_CHECK(inputStream);
        SANITY_CHECK(! fpInputStream);
        fpInputStream = inputStream;
        fLineBuffer.clear();
        fIsLineComplete = false;
        retVal = true;
    } while (false);
    return retVal;
}

// A line read ahead into the buffer and not taken counts as left over, as do bytes still in the stream.
bool SimpleSerializer::endDeserialize() {
    bool retVal = false;
    std::istream* inputStream = fpInputStream;
    fpInputStream = nullptr;
    const bool isBufferEmpty = fLineBuffer.empty() && ! fIsLineComplete;
    fLineBuffer.clear();
    fIsLineComplete = false;
    do {
        SANITY_CHECK(inputStream);
        if (! isBufferEmpty || ! isEndOfStream(peekByte(*inputStream))) {
            LOG_ERROR("not at inputStream.eof()");
            break;
        }
        retVal = true;
    } while (false);
    return retVal;
}

GUIDClass* SimpleSerializer::getGUID() {
    const std::string line = getString();
    // Every hexadecimal digit counts and nothing else: the grouping doesn't matter.
    return line.empty() ? nullptr : GUIDClass::factory(line);
}

std::string SimpleSerializer::getString() {
    std::string line;
    if (isStringAvailable()) {
        line.swap(fLineBuffer);
        fIsLineComplete = false;
    }
    return Utils::unescapeSerializer(line, EscapeTable::serializerLines());
}

bool SimpleSerializer::isStringAvailable() {
    bool retVal = false;
    do {
        SANITY_CHECK(fpInputStream);
        std::streambuf* buffer = fpInputStream->rdbuf();
        while (! fIsLineComplete && buffer != nullptr) {
            const int byte = buffer->sbumpc();
            if (isEndOfStream(byte)) {
                break;
            }
            if (byte == LINE_END) {
                fIsLineComplete = true;
            } else {
                fLineBuffer.push_back(std::char_traits<char>::to_char_type(byte));
            }
        }
        retVal = fIsLineComplete;
    } while (false);
    return retVal;
}

bool SimpleSerializer::atEnd() {
    bool retVal = true;
    do {
        SANITY_CHECK(fpInputStream);
        retVal = ! fIsLineComplete && isEndOfStream(peekByte(*fpInputStream));
    } while (false);
    return retVal;
}

} // namespace Brw
