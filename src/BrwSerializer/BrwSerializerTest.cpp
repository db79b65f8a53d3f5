#include "BrwSerializer/BrwSerializerTest.h"

#include <cstdlib>
#include <random>
#include <sstream>

#include "BrwMain/BrwLogRecorder.h"
#include "BrwObject/BrwGUIDClass.h"
#include "BrwSerializer/BrwSimpleSerializer.h"

namespace Brw {

namespace {

// Random cases per run of the round-trip property.
constexpr int PROPERTY_CASES = 3000;
// Names a seed that repeats a failed run of the property.
constexpr const char* SEED_VARIABLE = "BRW_TEST_SEED";

std::shared_ptr<SimpleSerializer> makeSerializer() {
    return std::dynamic_pointer_cast<SimpleSerializer>(SimpleSerializer::factory());
}

// The lines of `values` as the serializer writes them.
std::string writeLines(const std::vector<std::string>& values) {
    std::ostringstream stream;
    std::shared_ptr<SimpleSerializer> serializer = makeSerializer();
    bool isWritten = serializer && serializer->startSerialize(&stream);
    for (const std::string& value : values) {
        isWritten = isWritten && serializer->putString(value);
    }
    isWritten = isWritten && serializer->endSerialize();
    return isWritten ? stream.str() : "(not written)";
}

// Every line of `text`, read back; a last entry "(left over)" when the run did not end cleanly.
std::vector<std::string> readLines(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> values;
    std::shared_ptr<SimpleSerializer> serializer = makeSerializer();
    if (serializer && serializer->startDeserialize(&stream)) {
        while (serializer->isStringAvailable()) {
            values.push_back(serializer->getString());
        }
        bool isEnded = false;
        LogRecorder::record(1, [&] { isEnded = serializer->endDeserialize(); });
        if (! isEnded) {
            values.emplace_back("(left over)");
        }
    }
    return values;
}

std::string allBytes() {
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) {
        bytes.push_back(static_cast<char>(byte));
    }
    return bytes;
}

// The seed of this run: BRW_TEST_SEED when set, otherwise a fresh one.
uint64_t propertySeed() {
    const char* fixedSeed = std::getenv(SEED_VARIABLE);
    return fixedSeed != nullptr ? Utils::toUInt64(fixedSeed) : std::random_device()();
}

// A string that favours the bytes the escapes care about.
std::string randomBytes(std::mt19937_64& random) {
    static const std::string special("\0\n\r\\\"'\x1b\x7f\xff", 9);
    std::string bytes(random() % 40, ' ');
    for (char& byte : bytes) {
        byte = random() % 2 == 0 ? special[random() % special.size()] : static_cast<char>(random() % 256);
    }
    return bytes;
}

} // namespace

std::string SerializerTest::getClassTypeName() const {
    return SimpleSerializer::TYPENAME;
}

bool SerializerTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = testEveryByteThroughTheEscapes();
    allOK = testLineEndsAndUnknownEscapes() && allOK;
    allOK = testGrowingStream() && allOK;
    allOK = testLeftOverData() && allOK;
    allOK = testGUIDLines() && allOK;
    allOK = testRunChecks() && allOK;
    allOK = testRandomStringsComeBackEqual() && allOK;
    return allOK;
}

bool SerializerTest::testEveryByteThroughTheEscapes() {
    bool retVal = false;
    do {
        // The wire form that peers read: the escape letters of the bytes below 0x20, then the printable
        // bytes with both quotes and the backslash escaped, then the rest as they are.
        const std::string bytes = allBytes();
        const std::string expected = std::string("\\z\\S\\s\\e\\E\\T\\A\\b\\<\\t\\n\\V\\f\\r\\O\\I") +
                                     "\\L\\1\\2\\3\\4\\K\\Y\\P\\D\\R\\C\\!\\U\\F\\W\\X" + " !\\\"#$%&\\'" +
                                     bytes.substr(0x28, 0x5C - 0x28) + "\\\\" + bytes.substr(0x5D) + "\n";
        CHECK_EQUAL(writeLines({bytes}), expected);
        CHECK_EQUAL(readLines(expected), std::vector<std::string>({bytes}));
        // Each byte alone, so that no escape leans on its neighbours.
        for (char byte : bytes) {
            const std::string single(1, byte);
            CHECK_EQUAL(readLines(writeLines({single, single})), std::vector<std::string>({single, single}));
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool SerializerTest::testLineEndsAndUnknownEscapes() {
    bool retVal = false;
    do {
        const std::string value = "a\nb\rc\"d\\e";
        const std::string written = writeLines({value});
        SANITY_CHECK(written.find('\n') == written.size() - 1);
        CHECK_EQUAL(readLines(written), std::vector<std::string>({value}));

        // An empty string is an empty line, and it is available.
        CHECK_EQUAL(writeLines({"", ""}), "\n\n");
        CHECK_EQUAL(readLines("\n\n"), std::vector<std::string>({"", ""}));

        // An unknown letter stands for itself; a backslash at the end of a line is dropped.
        CHECK_EQUAL(readLines("\\q\nab\\\n\\\\\\z\n"),
                    std::vector<std::string>({"q", "ab", std::string("\\\0", 2)}));
        retVal = true;
    } while (false);
    return retVal;
}

bool SerializerTest::testGrowingStream() {
    bool retVal = false;
    do {
        std::stringstream stream;
        stream << "first\nsec";
        std::shared_ptr<SimpleSerializer> serializer = makeSerializer();
        SANITY_CHECK(serializer->startDeserialize(&stream));
        CHECK_EQUAL(serializer->getString(), "first");
        // The last line has no line feed yet: not available, and kept for later.
        SANITY_CHECK(! serializer->isStringAvailable());
        CHECK_EQUAL(serializer->getString(), "");
        SANITY_CHECK(serializer->atEnd());
        stream << "ond\\n";
        SANITY_CHECK(! serializer->isStringAvailable());
        stream << "\n";
        SANITY_CHECK(! serializer->atEnd() && serializer->isStringAvailable());
        CHECK_EQUAL(serializer->getString(), "second\n");
        SANITY_CHECK(serializer->atEnd() && serializer->endDeserialize());
        retVal = true;
    } while (false);
    return retVal;
}

bool SerializerTest::testLeftOverData() {
    bool retVal = false;
    do {
        std::istringstream stream("a\nb\n");
        std::shared_ptr<SimpleSerializer> serializer = makeSerializer();
        SANITY_CHECK(serializer->startDeserialize(&stream) && serializer->getString() == "a");
        const auto endDeserialize = [&] { return serializer->endDeserialize(); };
        SANITY_CHECK(LogRecorder::failsWith(endDeserialize, "not at inputStream.eof()"));
        // The serializer is free for the next run all the same. A line read ahead and not taken is left
        // over too, as is a last line without its line feed.
        std::istringstream readAhead("z\n");
        SANITY_CHECK(serializer->startDeserialize(&readAhead) && serializer->isStringAvailable());
        SANITY_CHECK(LogRecorder::failsWith(endDeserialize, "not at inputStream.eof()"));
        CHECK_EQUAL(readLines("x\ny"), std::vector<std::string>({"x", "(left over)"}));
        retVal = true;
    } while (false);
    return retVal;
}

bool SerializerTest::testGUIDLines() {
    bool retVal = false;
    do {
        const std::string text = "A0000000-0000-0000-0123-456789ABCDEF";
        GUIDClass* guid = GUIDClass::factory(text);
        std::ostringstream out;
        std::shared_ptr<SimpleSerializer> serializer = makeSerializer();
        SANITY_CHECK(serializer->startSerialize(&out));
        SANITY_CHECK(serializer->putGUID(guid) && serializer->putGUID(nullptr));
        SANITY_CHECK(serializer->endSerialize());
        CHECK_EQUAL(out.str(), text + "\n\n");

        // Any grouping and either case read as the same GUID; an empty line is none.
        std::istringstream in(text +
                              "\nA0000000000000000123456789ABCDEF\n{a0000000-0000-0000-0123-456789abcdef}\n" +
                              "A000 0000 0000 0000 0123 4567 89AB CDEF\n\n");
        SANITY_CHECK(serializer->startDeserialize(&in));
        for (int grouping = 0; grouping < 4; ++grouping) {
            SANITY_CHECK(serializer->getGUID() == guid);
        }
        SANITY_CHECK(serializer->getGUID() == nullptr);
        SANITY_CHECK(serializer->endDeserialize());
        // Through the object the serializer still gives its own GUID.
        const std::shared_ptr<const SimpleSerializer> constSerializer = serializer;
        SANITY_CHECK(constSerializer->getGUID() == nullptr);
        retVal = true;
    } while (false);
    return retVal;
}

bool SerializerTest::testRunChecks() {
    bool retVal = false;
    do {
        std::shared_ptr<SimpleSerializer> serializer = makeSerializer();
        std::ostringstream first;
        std::ostringstream second;
        // A second start fails and leaves the first stream in place.
        SANITY_CHECK(serializer->startSerialize(&first));
        SANITY_CHECK(LogRecorder::failsWith([&] { return serializer->startSerialize(&second); },
                                            "SANITY_CHECK failed: '! fpOutputStream' evaluates to false"));
        SANITY_CHECK(serializer->putString("x") && serializer->endSerialize());
        SANITY_CHECK(first.str() == "x\n" && second.str().empty());
        SANITY_CHECK(LogRecorder::failsWith([&] { return serializer->putString("y"); },
                                            "SANITY_CHECK failed: 'fpOutputStream' evaluates to false"));
        std::ostringstream broken;
        broken.setstate(std::ios::badbit);
        SANITY_CHECK(serializer->startSerialize(&broken));
        SANITY_CHECK(
            LogRecorder::failsWith([&] { return serializer->putGUID(nullptr); }, "failed to write guid"));
        SANITY_CHECK(serializer->endSerialize());

        // Reading without a stream.
        SANITY_CHECK(LogRecorder::failsWith([&] { return serializer->isStringAvailable(); },
                                            "SANITY_CHECK failed: 'fpInputStream' evaluates to false"));
        SANITY_CHECK(
            LogRecorder::failsWith([&] { return ! serializer->atEnd(); }, "'fpInputStream' evaluates"));
        SANITY_CHECK(LogRecorder::failsWith([&] { return serializer->endDeserialize(); },
                                            "SANITY_CHECK failed: 'inputStream' evaluates to false"));
        retVal = true;
    } while (false);
    return retVal;
}

bool SerializerTest::testRandomStringsComeBackEqual() {
    bool retVal = false;
    const uint64_t seed = propertySeed();
    std::mt19937_64 random(seed);
    int failedCase = -1;
    do {
        for (int testCase = 0; testCase < PROPERTY_CASES && failedCase < 0; ++testCase) {
            std::vector<std::string> values(1 + random() % 6);
            for (std::string& value : values) {
                value = randomBytes(random);
            }
            if (readLines(writeLines(values)) != values) {
                failedCase = testCase;
            }
        }
        if (failedCase >= 0) {
            LOG_ERROR_F("case %d of the serializer round trip failed; %s=%llu repeats the run", failedCase,
                        SEED_VARIABLE, static_cast<unsigned long long>(seed));
            break;
        }
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
