// SimpleSerializer's reader over arbitrary bytes that arrive in chunks, as from a pipe, with its read
// functions called in a random order and checked against a model of the stream as lines:
// - a line is there only once its line feed has arrived, and getString gives it unescaped, or "";
// - getGUID gives null for an empty or missing line and the GUID of the line's digits otherwise;
// - atEnd never hides a complete line and is never false at nothing;
// - endDeserialize is true exactly when every byte that arrived has been taken;
// - every string read comes back the same through putString and a second reader.
//
// Input: the stream's bytes, then one byte that chooses the chunk size and the order of the calls.

#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "BrwFuzzRuntime.h"
#include "BrwObject/BrwGUIDClass.h"
#include "BrwSerializer/BrwSimpleSerializer.h"
#include "BrwUtils/BrwUtils.h"

namespace {

constexpr size_t MAX_INPUT_BYTES = 1 << 16;

enum class ReadCall { IS_STRING_AVAILABLE, GET_STRING, GET_GUID, AT_END, COUNT };

// The bytes that have arrived, and how many of them the reader's results have taken.
class LineModel {
public:
    void arrive(const std::string& bytes) { fArrived += bytes; }
    bool hasLine() { return findLineEnd() != std::string::npos; }
    bool isAllTaken() const { return fTaken == fArrived.size(); }
    // The next complete line, taken; "" when there is none.
    std::string takeLine() {
        const size_t lineEnd = findLineEnd();
        if (lineEnd == std::string::npos) {
            return "";
        }
        std::string line = fArrived.substr(fTaken, lineEnd - fTaken);
        fTaken = lineEnd + 1;
        fSearched = fTaken;
        return line;
    }

private:
    // Where the next line ends; each byte is searched once, however often this is asked.
    size_t findLineEnd() {
        const size_t lineEnd = fArrived.find('\n', fSearched);
        fSearched = lineEnd == std::string::npos ? fArrived.size() : lineEnd;
        return lineEnd;
    }

    std::string fArrived; // every byte written to the stream so far
    size_t fTaken = 0;    // bytes of fArrived behind the last line taken
    size_t fSearched = 0; // bytes of fArrived known to hold no line feed of the next line
};

std::shared_ptr<Brw::SimpleSerializer> makeSerializer() {
    auto serializer = std::dynamic_pointer_cast<Brw::SimpleSerializer>(Brw::SimpleSerializer::factory());
    if (! serializer) {
        BrwFuzz::fail("no serializer");
    }
    return serializer;
}

std::string unescaped(const std::string& line) {
    return Brw::Utils::unescapeSerializer(line, Brw::EscapeTable::serializerLines());
}

// One call of the reader, checked against the model; a string read is added to `read`.
void checkReadCall(ReadCall call, Brw::SimpleSerializer& serializer, LineModel& model,
                   std::vector<std::string>& read) {
    switch (call) {
    case ReadCall::IS_STRING_AVAILABLE:
        if (serializer.isStringAvailable() != model.hasLine()) {
            BrwFuzz::fail("isStringAvailable disagrees with the lines that arrived");
        }
        break;
    case ReadCall::GET_STRING:
        read.push_back(serializer.getString());
        if (read.back() != unescaped(model.takeLine())) {
            BrwFuzz::fail("getString gave another line");
        }
        break;
    case ReadCall::GET_GUID: {
        const std::string line = unescaped(model.takeLine());
        Brw::GUIDClass* expected = line.empty() ? nullptr : Brw::GUIDClass::factory(line);
        if (serializer.getGUID() != expected) {
            BrwFuzz::fail("getGUID gave another GUID");
        }
        break;
    }
    default:
        if (serializer.atEnd() && model.hasLine()) {
            BrwFuzz::fail("atEnd with a complete line there");
        }
        if (! serializer.atEnd() && model.isAllTaken()) {
            BrwFuzz::fail("not atEnd with every byte taken");
        }
        break;
    }
}

// Every string written and read again by fresh serializers comes back the same.
void checkWriteReadBack(const std::vector<std::string>& values) {
    std::ostringstream out;
    auto writer = makeSerializer();
    bool isWritten = writer->startSerialize(&out);
    for (const std::string& value : values) {
        isWritten = writer->putString(value) && isWritten;
    }
    if (! writer->endSerialize() || ! isWritten) {
        BrwFuzz::fail("the strings read could not be written");
    }
    std::istringstream in(out.str());
    auto reader = makeSerializer();
    bool isReadBack = reader->startDeserialize(&in);
    for (const std::string& value : values) {
        isReadBack = isReadBack && reader->isStringAvailable() && reader->getString() == value;
    }
    if (! reader->endDeserialize() || ! isReadBack) {
        BrwFuzz::fail("a string written did not come back the same");
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    BrwFuzz::startRuntime("fuzz_serializer");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0 || size > MAX_INPUT_BYTES) {
        return -1;
    }
    const BrwFuzz::InputScope inputScope;
    const uint8_t plan = data[size - 1];
    const std::string bytes(reinterpret_cast<const char*>(data), size - 1);
    // Low bits: bytes per chunk, 0 for all at once. The whole byte seeds the order of the calls.
    const size_t chunkBytes = (plan & 0x0F) == 0 ? bytes.size() + 1 : (plan & 0x0F);
    std::minstd_rand random(plan + 1u);
    std::stringstream stream;
    LineModel model;
    std::vector<std::string> read;
    auto serializer = makeSerializer();
    if (! serializer->startDeserialize(&stream)) {
        BrwFuzz::fail("startDeserialize failed");
    }
    for (size_t position = 0; position < bytes.size() || model.hasLine(); position += chunkBytes) {
        const std::string chunk = position < bytes.size() ? bytes.substr(position, chunkBytes) : "";
        stream << chunk;
        model.arrive(chunk);
        for (unsigned calls = 1 + random() % 3; calls > 0; --calls) {
            checkReadCall(static_cast<ReadCall>(random() % static_cast<unsigned>(ReadCall::COUNT)),
                          *serializer, model, read);
        }
    }
    if (serializer->endDeserialize() != model.isAllTaken()) {
        BrwFuzz::fail("endDeserialize disagrees with what is left over");
    }
    checkWriteReadBack(read);
    return 0;
}
