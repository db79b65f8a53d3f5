#include "BrwData/BrwDataTest.h"

#include "BrwData/BrwDataNull.h"
#include "BrwData/BrwDataOM.h"
#include "BrwData/BrwDataString.h"
#include "BrwMain/BrwLogRecorder.h"
#include "BrwParser/BrwOMAccessor.h"
#include "BrwSerializer/BrwSimpleSerializer.h"

namespace Brw {

namespace {

// `data` written and read back.
std::shared_ptr<IObject> roundTrip(const std::shared_ptr<IObject>& data) {
    return Data_abstract::deserializeFromStr(Data_abstract::serializeToStr(data));
}

bool isEqualData(const std::shared_ptr<IObject>& left, const std::shared_ptr<IObject>& right) {
    const auto leftData = std::dynamic_pointer_cast<IData>(left);
    const auto rightData = std::dynamic_pointer_cast<IData>(right);
    return leftData && rightData && *left == right.get() && leftData->hash() == rightData->hash();
}

// Reading `text` gives nothing and logs `message`, recorded at `level`.
bool isRefused(const std::string& text, const std::string& message, int32_t level = 1) {
    return LogRecorder::failsWith([&] { return Data_abstract::deserializeFromStr(text); }, message, level);
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
        std::shared_ptr<IObject> read = dataNull;
        SANITY_CHECK(
            LogRecorder::record(1, [&] { read = Data_abstract::deserializeFromStr("DataNull\n"); }).empty());
        SANITY_CHECK(! read);
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
        SANITY_CHECK(*DataString::factoryFromString(bytes.substr(1)) != original.get());
        SANITY_CHECK(*DataNull::factory() != original.get());
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
        SANITY_CHECK(accessor.getInt("a") == 123 && accessor.getString("b") == "x");
        SANITY_CHECK(isEqualData(roundTrip(original), original));
        const std::shared_ptr<IObject> nested =
            DataOM::factoryFromJSONStr("[1, 2.5, \"line\\nfeed\", {\"k\": [true, null]}, -7]");
        SANITY_CHECK(nested && isEqualData(roundTrip(nested), nested) && *nested != original.get());
        // Equal when they travel as the same text: NaN equals itself, and 1 is not "1", which the script's
        // loose == would say.
        const std::shared_ptr<IObject> notANumber = DataOM::factoryFromJSONStr("NaN");
        SANITY_CHECK(notANumber && isEqualData(roundTrip(notANumber), notANumber));
        SANITY_CHECK(*DataOM::factoryFromJSONStr("1") != DataOM::factoryFromJSONStr("\"1\"").get());

        // Without a node it writes "null", which comes back as a node of kind Null.
        const std::shared_ptr<IObject> empty = DataOM::factoryFromOMNode(nullptr);
        CHECK_EQUAL(Data_abstract::serializeToStr(empty), "DataOM\nnull\n");
        ASSIGN_TYPED(DataOM, nullOM, roundTrip(empty));
        SANITY_CHECK(nullOM->getOMNode() && nullOM->getOMNode()->getType() == OMType::Null);
        CHECK_EQUAL(empty->toString(), "DataOM OM = nullptr");
        ASSIGN_TYPED(DataOM, longOM, DataOM::factoryFromJSONStr("\"" + std::string(40, 'y') + "\""));
        CHECK_EQUAL(longOM->toString(),
                    "DataOM OM = " + OMAccessor(longOM->getOMNode()).toString().substr(0, 34));
        retVal = true;
    } while (false);
    return retVal;
}

bool DataTest::testUnknownTypeNames() {
    bool retVal = false;
    do {
        SANITY_CHECK(isRefused("Nonesuch\n", "wrapped deserialization factory for Nonesuch is null", 3));
        // A name of the plain factory table makes its object, with no content read; being no data, it
        // doesn't travel.
        const std::shared_ptr<IObject> made = Data_abstract::deserializeFromStr("SimpleSerializer\n");
        SANITY_CHECK(made && made->typeName() == SimpleSerializer::TYPENAME);
        SANITY_CHECK(LogRecorder::failsWith([&] { return ! Data_abstract::serializeToStr(made).empty(); },
                                            "ASSIGN_CONST_TYPED failed: 'IData adjustedData = dataOrNull;'"));
        retVal = true;
    } while (false);
    return retVal;
}

bool DataTest::testMalformedInput() {
    bool retVal = false;
    do {
        SANITY_CHECK(isRefused("", "SANITY_CHECK failed: '! serializer->atEnd()' evaluates to false"));
        // The content line is missing, has no line feed, or is followed by more.
        for (const char* text : {"DataString\n", "DataString\nabc", "DataOM\n{a:\n"}) {
            SANITY_CHECK(isRefused(text, "cannot deserialize"));
        }
        SANITY_CHECK(isRefused("DataString\nabc\nextra\n", "not at inputStream.eof()"));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
