// Address_abstract::factoryFromURL over arbitrary text. Whatever address comes back must print a URL that
// reads back as an address printing the same URL, must resolve without harm, and must travel: written and
// read back it is an equal address.

#include <string>

#include "BrwAddress/BrwAddress_abstract.h"
#include "BrwFuzzRuntime.h"

namespace {

constexpr size_t MAX_INPUT_BYTES = 1 << 12;

std::string urlOf(const std::shared_ptr<Brw::IObject>& object) {
    const auto address = std::dynamic_pointer_cast<const Brw::IAddress>(object);
    if (! address) {
        BrwFuzz::fail("a URL made something that is no address");
    }
    return address->getURL();
}

void checkAddress(const std::shared_ptr<Brw::IObject>& object) {
    const std::string url = urlOf(object);
    std::string tail;
    const std::shared_ptr<Brw::IObject> again = Brw::Address_abstract::factoryFromURL(url, tail);
    if (! again || urlOf(again) != url || ! tail.empty()) {
        BrwFuzz::fail("the URL that an address prints doesn't read back as the same address");
    }
    (void)std::dynamic_pointer_cast<const Brw::IAddress>(object)->resolved();
    const std::shared_ptr<Brw::IObject> copy =
        Brw::Data_abstract::deserializeFromStr(Brw::Data_abstract::serializeToStr(object));
    if (! copy || ! (*copy == object.get())) {
        BrwFuzz::fail("an address came back different from its trip through the serializer");
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    BrwFuzz::startRuntime("fuzz_address");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > MAX_INPUT_BYTES) {
        return -1;
    }
    const BrwFuzz::InputScope inputScope;
    std::string tail;
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (const std::shared_ptr<Brw::IObject> address = Brw::Address_abstract::factoryFromURL(text, tail)) {
        checkAddress(address);
    }
    return 0;
}
