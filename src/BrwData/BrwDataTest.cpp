#include "BrwData/BrwDataTest.h"

#include <sstream>

#include "BrwData/BrwDataNull.h"
#include "BrwData/BrwDataOM.h"
#include "BrwData/BrwDataString.h"
#include "BrwMain/BrwLogRecorder.h"
#include "BrwParser/BrwOMAccessor.h"
#include "BrwSerializer/BrwSimpleSerializer.h"

namespace Brw {

namespace {

// The object of `text`, with the lines logged up to `level` recorded into `lines`.
std::shared_ptr<IObject> deserializeRecorded(const std::string& text, std::vector<std::string>& lines,
                                             int32_t level = 1) {
    std::shared_ptr<IObject> object;
    lines = LogRecorder::record(level, [&] { object = Data_abstract::deserializeFromStr(text); });
    return object;
}

// `data` written and read back.
std::shared_ptr<IObject> roundTrip(const std::shared_ptr<IObject>& data) {
    return Data_abstract::deserializeFromStr(Data_abstract::serializeToStr(data));
}

bool isEqualData(const std::shared_ptr<IObject>& left, const std::shared_ptr<IObject>& right) {
    const auto leftData = std::dynamic_pointer_cast<IData>(left);
    const auto rightData = std::dynamic_pointer_cast<IData>(right);
    return leftData && rightData && *left == right.get() && leftData->hash() == rightData->hash();
}

} // namespace

bool DataTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = testNullTravelsAsDataNull();
    allOK = testDataStringRoundTrip() && allOK;
    allOK = testDataOMRoundTrip() && allOK;
    allOK = testUnknownTypeNames() && allOK;
    allOK = testMalformedInput() && allOK;
    return allOK;
}

bool DataTest::testNullTravelsAsDataNull() {
    bool retVal = false;
    do {
        const std::shared_ptr<IObject> dataNull = DataNull::factory();
        SANITY_CHECK(dataNull && dataNull == DataNull::factory());
        CHECK_EQUAL(Data_abstract::serializeToStr(nullptr), "DataNull\n");
        CHECK_EQUAL(Data_abstract::serializeToStr(dataNull), "DataNull\n");
        std::vector<std::string> lines;
        SANITY_CHECK(! deserializeRecorded("DataNull\n", lines) && lines.empty());

        // Through a serializer of the caller's: the one line, and nothing else.
        std::ostringstream stream;
        ASSIGN_TYPED(SimpleSerializer, serializer, SimpleSerializer::factory());
        SANITY_CHECK(serializer->startSerialize(&stream));
        SANITY_CHECK(Data_abstract::serialize(nullptr, serializer) && serializer->endSerialize());
        CHECK_EQUAL(stream.str(), "DataNull\n");
        retVal = true;
    } while (false);
    return retVal;
}

bool DataTest::testDataStringRoundTrip() {
    bool retVal = false;
    do {
        std::string bytes;
        for (int byte = 255; byte >= 0; --byte) {
            bytes.push_back(static_cast<char>(byte));
        }
        const std::shared_ptr<IObject> original = DataString::factoryFromString(bytes);
        const std::shared_ptr<IObject> copy = roundTrip(original);
        SANITY_CHECK(copy && copy != original && isEqualData(copy, original));
        ASSIGN_TYPED(IDataString, copyString, copy);
        CHECK_EQUAL(copyString->getString(), bytes);
        CHECK_EQUAL(Data_abstract::serializeToStr(DataString::factoryFromString("a\"b")),
                    "DataString\na\\\"b\n");

        const std::shared_ptr<IObject> other = DataString::factoryFromString(bytes.substr(1));
        SANITY_CHECK(*other != original.get() && *DataNull::factory() != original.get());
        SANITY_CHECK(
            isEqualData(roundTrip(DataString::factoryFromString("")), DataString::factoryFromString("")));
        retVal = true;
    } while (false);
    return retVal;
}

bool DataTest::testDataOMRoundTrip() {
    bool retVal = false;
    do {
        const std::shared_ptr<IObject> original = DataOM::factoryFromJSONStr("{a:123,b:\"x\"}");
        ASSIGN_TYPED(DataOM, dataOM, original);
        const OMAccessor accessor(dataOM->getOMNode());
        CHECK_EQUAL(accessor.getInt("a"), 123);
        CHECK_EQUAL(accessor.getString("b"), "x");
        SANITY_CHECK(isEqualData(roundTrip(original), original));
        const std::shared_ptr<IObject> nested =
            DataOM::factoryFromJSONStr("[1, 2.5, \"line\\nfeed\", {\"k\": [true, null]}, -7]");
        SANITY_CHECK(nested && isEqualData(roundTrip(nested), nested));
        SANITY_CHECK(*nested != original.get());
        // Equal when they travel as the same text: NaN equals itself, and 1 is not "1", which the script's
        // loose == would say.
        const std::shared_ptr<IObject> notANumber = DataOM::factoryFromJSONStr("NaN");
        SANITY_CHECK(notANumber && *notANumber == notANumber.get() &&
                     isEqualData(roundTrip(notANumber), notANumber));
        SANITY_CHECK(*DataOM::factoryFromJSONStr("1") != DataOM::factoryFromJSONStr("\"1\"").get());

        // Without a node it writes "null", which comes back as a node of kind Null.
        const std::shared_ptr<IObject> empty = DataOM::factoryFromOMNode(nullptr);
        CHECK_EQUAL(Data_abstract::serializeToStr(empty), "DataOM\nnull\n");
        ASSIGN_TYPED(DataOM, nullOM, roundTrip(empty));
        SANITY_CHECK(nullOM->getOMNode() && nullOM->getOMNode()->getType() == OMType::Null);
        CHECK_EQUAL(empty->toString(), "DataOM OM = nullptr");

        const std::string longText = std::string(40, 'y');
        ASSIGN_TYPED(DataOM, longOM, DataOM::factoryFromJSONStr("\"" + longText + "\""));
        CHECK_EQUAL(longOM->toString(),
                    "DataOM OM = " +
                        OMAccessor(longOM->getOMNode()).toString().substr(0, DataOM::TO_STRING_LENGTH));
        retVal = true;
    } while (false);
    return retVal;
}

bool DataTest::testUnknownTypeNames() {
    bool retVal = false;
    do {
        std::vector<std::string> lines;
        SANITY_CHECK(! deserializeRecorded("Nonesuch\n", lines, 3));
        SANITY_CHECK(LogRecorder::hasLineWith(lines, "wrapped deserialization factory for Nonesuch is null"));
        // A name of the plain factory table makes its object, with no content read.
        const std::shared_ptr<IObject> made = deserializeRecorded("SimpleSerializer\n", lines, 1);
        SANITY_CHECK(made && made->typeName() == SimpleSerializer::TYPENAME && lines.empty());
        // What isn't data doesn't travel.
        std::string text = "(not written)";
        lines = LogRecorder::record(1, [&] { text = Data_abstract::serializeToStr(made); });
        SANITY_CHECK(
            text.empty() &&
            LogRecorder::hasLineWith(lines, "ASSIGN_CONST_TYPED failed: 'IData adjustedData = dataOrNull;'"));
        retVal = true;
    } while (false);
    return retVal;
}

bool DataTest::testMalformedInput() {
    bool retVal = false;
    do {
        std::vector<std::string> lines;
        SANITY_CHECK(! deserializeRecorded("", lines));
        SANITY_CHECK(LogRecorder::hasLineWith(
            lines, "SANITY_CHECK failed: '! serializer->atEnd()' evaluates to false"));
        // The content line is missing, has no line feed, or is followed by more.
        for (const char* text : {"DataString\n", "DataString\nabc", "DataOM\n{a:\n"}) {
            SANITY_CHECK(! deserializeRecorded(text, lines) &&
                         LogRecorder::hasLineWith(lines, "cannot deserialize"));
        }
        SANITY_CHECK(! deserializeRecorded("DataString\nabc\nextra\n", lines));
        SANITY_CHECK(LogRecorder::hasLineWith(lines, "not at inputStream.eof()"));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
