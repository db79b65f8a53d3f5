// Data_abstract::deserializeFromStr over arbitrary text: any type name, any number of lines, lines cut
// short or left over. Whatever data object comes back must travel again: written, it reads back as an
// equal object with the same hash, and the copy writes the same text. The one change allowed is that of
// a DataOM, whose value travels as a text form that is not exact: its copy holds what that text parses
// to, and when the text doesn't parse, nothing comes back.

#include <string>

#include "BrwData/BrwDataOM.h"
#include "BrwData/BrwData_abstract.h"
#include "BrwEvent/BrwEvent.h"
#include "BrwFuzzRuntime.h"

namespace {

constexpr size_t MAX_INPUT_BYTES = 1 << 16;

// What one trip must make of `object` into `expected`; false when a DataOM's text doesn't parse, so that
// nothing can come back.
bool expectAfterTrip(const std::shared_ptr<Brw::IObject>& object, std::shared_ptr<Brw::IObject>& expected) {
    if (const auto dataOM = std::dynamic_pointer_cast<Brw::DataOM>(object)) {
        expected = Brw::DataOM::factoryFromJSONStr(dataOM->getContentText());
        return expected != nullptr;
    }
    if (const auto event = std::dynamic_pointer_cast<Brw::Event>(object)) {
        std::shared_ptr<Brw::IObject> payload;
        if (event->getPayloadObj() && ! expectAfterTrip(event->getPayloadObj(), payload)) {
            return false;
        }
        expected = Brw::Event::factoryFromNamePayload(event->getName(), payload);
        return expected != nullptr;
    }
    expected = object;
    return true;
}

void checkRoundTrip(const std::shared_ptr<Brw::IObject>& object) {
    if (! std::dynamic_pointer_cast<Brw::IData>(object)) {
        // A name of the plain factory table makes an object that is no data: it doesn't travel.
        return;
    }
    const std::string text = Brw::Data_abstract::serializeToStr(object);
    if (text.empty()) {
        BrwFuzz::fail("a data object that was read could not be written");
    }
    const std::shared_ptr<Brw::IObject> copy = Brw::Data_abstract::deserializeFromStr(text);
    std::shared_ptr<Brw::IObject> expected;
    if (! expectAfterTrip(object, expected)) {
        if (copy) {
            BrwFuzz::fail("a value whose text doesn't parse came back");
        }
        return;
    }
    const auto copyData = std::dynamic_pointer_cast<Brw::IData>(copy);
    const auto expectedData = std::dynamic_pointer_cast<Brw::IData>(expected);
    if (! copyData || ! expectedData) {
        BrwFuzz::fail("a data object that was written could not be read");
    }
    if (! (*copy == expected.get()) || copyData->hash() != expectedData->hash()) {
        BrwFuzz::fail("a data object came back different");
    }
    if (Brw::Data_abstract::serializeToStr(copy) != Brw::Data_abstract::serializeToStr(expected)) {
        BrwFuzz::fail("the copy of a data object writes another text");
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    BrwFuzz::startRuntime("fuzz_data");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > MAX_INPUT_BYTES) {
        return -1;
    }
    const BrwFuzz::InputScope inputScope;
    const std::string text(reinterpret_cast<const char*>(data), size);
    checkRoundTrip(Brw::Data_abstract::deserializeFromStr(text));
    return 0;
}
