#include "BrwParser/BrwAccessorTest.h"

#include <cmath>
#include <vector>

#include "BrwObject/BrwGUIDClass.h"
#include "BrwParser/BrwOMAccessor.h"
#include "BrwParser/BrwOMStored.h"

namespace Brw {

namespace {

using NodePtr = std::shared_ptr<IOMNode>;

// How a node prints in each of the accessor's text forms.
struct TextFormCase {
    const char* fName;      // the kind, for the log
    NodePtr fNode;          // the value
    std::string fToString;  // OMAccessor::toString
    std::string fStringify; // OMAccessor::stringify
    std::string fTypeOf;    // OMAccessor::typeOf
};

std::shared_ptr<OMStored> dateNode(OMInt seconds) {
    auto node = OMStored::undefinedFactory();
    return node->setDate(seconds) ? node : nullptr;
}

std::shared_ptr<OMStored> functionNode() {
    auto signature = std::make_shared<FunctionSignature>();
    if (! signature->addParameter("bla2") || ! signature->addParameter("x") ||
        ! signature->addParameter("y")) {
        return nullptr;
    }
    return OMStored::factory(signature, std::shared_ptr<OMExpression>());
}

std::shared_ptr<OMStored> guidNode(GUIDClass* guid) {
    auto node = OMStored::undefinedFactory();
    return node->setGUID(guid) ? node : nullptr;
}

} // namespace

bool AccessorTest::test() {
    REPORT_CLASS_TEST;
    const int64_t nodesBefore = OMStored::getOMStoredCount();
    bool allOK = testDefaultAndNodeless();
    allOK = testSettersByIndexAndOnTheNode() && allOK;
    allOK = testSettersByPath() && allOK;
    allOK = testGetters() && allOK;
    allOK = testTextForms() && allOK;
    allOK = testEqualityAndHash() && allOK;
    if (OMStored::getOMStoredCount() != nodesBefore) {
        LOG_ERROR(
            describeMismatch("OMStored::getOMStoredCount()", OMStored::getOMStoredCount(), nodesBefore));
        allOK = false;
    }
    return allOK;
}

bool AccessorTest::testDefaultAndNodeless() {
    bool retVal = false;
    do {
        OMAccessor defaultAccessor;
        SANITY_CHECK(defaultAccessor.getType() == OMType::Undefined);
        CHECK_EQUAL(defaultAccessor.getSize(), 0u);
        SANITY_CHECK(defaultAccessor == OMAccessor(nullptr));
        CHECK_EQUAL(defaultAccessor.hash(), OMAccessor(nullptr).hash());

        // Without a node, getters give the zero of their type and a missing child prints as undefined.
        OMAccessor nodeless(nullptr);
        std::vector<double> zeros;
        {
            LogLevelScope quiet(0);
            zeros = {static_cast<double>(nodeless.getInt()),
                     static_cast<double>(nodeless.getAsBits()),
                     static_cast<double>(nodeless.getString().size()),
                     static_cast<double>(nodeless.getInt("a/b")),
                     static_cast<double>(nodeless.getAsBits("a")),
                     static_cast<double>(nodeless.getType(3)),
                     nodeless.getOMNode("a") ? 1.0 : 0.0,
                     nodeless.getAsNum()};
        }
        SANITY_CHECK(zeros.size() == 8 && std::isnan(zeros[7]));
        zeros.pop_back();
        SANITY_CHECK(zeros ==
                     std::vector<double>({0, -1, 0, 0, 0, static_cast<double>(OMType::Undefined), 0}));
        CHECK_EQUAL(nodeless.toString(), "undefined");
        CHECK_EQUAL(nodeless.typeOf("a"), "undefined");

        // The first write makes the node the write needs.
        SANITY_CHECK(defaultAccessor.set("b1", true));
        SANITY_CHECK(defaultAccessor.getType() == OMType::Map);
        CHECK_EQUAL(defaultAccessor.getSize(), 1u);
        SANITY_CHECK(defaultAccessor.getBool("b1"));
        SANITY_CHECK(nodeless.set("b1", true));
        SANITY_CHECK(nodeless.getType() == OMType::Map && nodeless.getSize() == 1);
        OMAccessor nodelessArray(nullptr);
        SANITY_CHECK(nodelessArray.set(1, "x"));
        SANITY_CHECK(nodelessArray.getType() == OMType::Array && nodelessArray.getSize() == 2);
        OMAccessor nodelessScalar(nullptr);
        SANITY_CHECK(nodelessScalar.set(5));
        SANITY_CHECK(nodelessScalar.getType() == OMType::Int && nodelessScalar.getInt() == 5);
        retVal = true;
    } while (false);
    return retVal;
}

bool AccessorTest::testSettersByIndexAndOnTheNode() {
    bool retVal = false;
    do {
        OMAccessor array;
        SANITY_CHECK(array.setEmptyArray());
        SANITY_CHECK(array.set(2, true));
        CHECK_EQUAL(array.getSize(), 3u);
        SANITY_CHECK(array.getType(0) == OMType::Undefined && array.getType(1) == OMType::Undefined);
        SANITY_CHECK(array.getBool(2));
        // Every kind by index, each into its own slot.
        SANITY_CHECK(array.set(3, "c") && array.set(4, std::string("s")) && array.set(5, 1.5) &&
                     array.set(6, 7));
        SANITY_CHECK(array.setEmptyMap(7) && array.setEmptyArray(8) && array.setError(9) && array.setNaN(10));
        SANITY_CHECK(array.setNull(11) && array.setUndefined(2));
        CHECK_EQUAL(array.stringify(),
                    "[undefined, undefined, undefined, \"c\", \"s\", 1.500000, 7, {}, [], error, "
                    "NaN, null]");

        // The pointer form stores the node itself, the const node form a copy.
        auto shared = OMStored::factory(7);
        SANITY_CHECK(array.set(0, NodePtr(shared)));
        SANITY_CHECK(array.getOMNode(0) == shared);
        SANITY_CHECK(array.set(1, *shared));
        SANITY_CHECK(array.getOMNode(1) != shared && array.getInt(1) == 7);
        SANITY_CHECK(shared->set(8));
        SANITY_CHECK(array.getInt(0) == 8 && array.getInt(1) == 7);

        // An index can't address a map: the setter refuses and the map stays as it was.
        OMAccessor map(OMStored::mapFactory());
        SANITY_CHECK(! map.set(0, 1));
        CHECK_EQUAL(map.getSize(), 0u);

        // On the node itself a setter replaces the value, whatever kind it had.
        OMAccessor scalar;
        SANITY_CHECK(scalar.set("text") && scalar.getString() == "text");
        SANITY_CHECK(scalar.set(std::string("other")) && scalar.getString() == "other");
        SANITY_CHECK(scalar.set(2.5) && scalar.getFloat() == 2.5);
        SANITY_CHECK(scalar.set(static_cast<OMInt>(-3)) && scalar.getInt() == -3);
        SANITY_CHECK(scalar.set(false) && scalar.getType() == OMType::Bool);
        SANITY_CHECK(scalar.setNull() && scalar.getType() == OMType::Null);
        SANITY_CHECK(scalar.set(NodePtr(OMStored::factory("copied"))) && scalar.getString() == "copied");
        retVal = true;
    } while (false);
    return retVal;
}

bool AccessorTest::testSettersByPath() {
    bool retVal = false;
    do {
        OMAccessor map(OMStored::mapFactory());
        for (const char* key : {"b1", "i1", "s1", "d1"}) {
            SANITY_CHECK(map.set(key, key));
        }
        SANITY_CHECK(map.setUndefined("u1"));
        CHECK_EQUAL(map.getSize(), 5u);
        SANITY_CHECK(map.getType("u1") == OMType::Undefined);
        SANITY_CHECK(map.getKeys() == std::vector<std::string>({"b1", "d1", "i1", "s1", "u1"}));

        // A path makes the maps on its way, and arrays where a segment is an index.
        OMAccessor tree(OMStored::mapFactory());
        SANITY_CHECK(tree.set("a/b/c", 1));
        SANITY_CHECK(tree.getType("a") == OMType::Map && tree.getType("a/b") == OMType::Map);
        CHECK_EQUAL(tree.getInt("a/b/c"), 1);
        CHECK_EQUAL(tree.getSize(), 1u);
        SANITY_CHECK(tree.set("a/list/2", "x"));
        SANITY_CHECK(tree.getType("a/list") == OMType::Array);
        CHECK_EQUAL(tree.getSize("a/list"), 3u);
        CHECK_EQUAL(tree.getString("a/list/2"), "x");
        // Writing again replaces the value in its place.
        SANITY_CHECK(tree.set("a/b/c", 2.5));
        CHECK_EQUAL(tree.getFloat("a/b/c"), 2.5);
        CHECK_EQUAL(tree.getSize("a/b"), 1u);
        SANITY_CHECK(tree.setEmptyArray("k/array") && tree.setEmptyMap("k/map") && tree.setError("k/error"));
        SANITY_CHECK(tree.setNaN("k/nan") && tree.setNull("k/null"));
        CHECK_EQUAL(tree.stringify("k"),
                    "{\"array\":[], \"error\":error, \"map\":{}, \"nan\":NaN, \"null\":null}");

        // The tree keeps a copy of a value given by pointer: the value's later changes don't reach it.
        auto value = OMStored::factory(8);
        SANITY_CHECK(tree.set("p", NodePtr(value)));
        SANITY_CHECK(value->set(9));
        CHECK_EQUAL(tree.getInt("p"), 8);
        SANITY_CHECK(tree.set("q", *value));
        CHECK_EQUAL(tree.getInt("q"), 9);

        // A path that can't be made: a name below a scalar.
        SANITY_CHECK(! tree.set("p/x", 1));
        CHECK_EQUAL(tree.getInt("p"), 8);
        retVal = true;
    } while (false);
    return retVal;
}

bool AccessorTest::testGetters() {
    bool retVal = false;
    do {
        OMAccessor tree(OMStored::mapFactory());
        SANITY_CHECK(tree.set("main/val99", "12") && tree.set("main/val1", 12) && tree.set("main/f", 1.5));
        SANITY_CHECK(tree.set("main/date", *dateNode(86400)));
        // Raw getters never convert; the getAs family does.
        CHECK_EQUAL(tree.getInt("main/val99"), 0);
        CHECK_EQUAL(tree.getAsNum("main/val99"), 12.0);
        CHECK_EQUAL(tree.getAsBits("main/val1"), 12);
        CHECK_EQUAL(tree.getAsBits("main/f"), -1);
        SANITY_CHECK(tree.getAsBool("main/val99"));
        CHECK_EQUAL(tree.getAsString("main/val1"), "12");
        CHECK_EQUAL(tree.getFloat("main/f"), 1.5);
        CHECK_EQUAL(tree.getFloat("main/val1"), 0.0);
        CHECK_EQUAL(tree.getDate("main/date"), 86400);
        SANITY_CHECK(tree.getGUID("main/none") == GUIDClass::factory(0, 0));
        // A missing child gives the zero of each type.
        SANITY_CHECK(std::isnan(tree.getAsNum("main/none")));
        CHECK_EQUAL(tree.getAsBits("main/none"), 0);
        SANITY_CHECK(! tree.getAsBool("main/none") && ! tree.getBool("main/none"));
        CHECK_EQUAL(tree.getAsString("main/none"), "");
        CHECK_EQUAL(tree.getSize("main/none"), 0u);
        SANITY_CHECK(tree.getType("main/none") == OMType::Undefined);
        SANITY_CHECK(! tree.getOMNode("main/none"));
        SANITY_CHECK(tree.getKeys() == std::vector<std::string>({"main"}));

        // Multi-byte text and a zero byte come through whole.
        auto array = OMStored::arrayFactory();
        for (const NodePtr& element : std::vector<NodePtr>{
                 OMStored::factory(111), OMStored::factory(2), OMStored::factory("\xE2\x86\x92"),
                 OMStored::factory(std::string("B\0a", 3)), guidNode(GUIDClass::factory(1, 2))}) {
            SANITY_CHECK(array->push(element));
        }
        OMAccessor elements(array);
        CHECK_EQUAL(elements.getString(2), "\xE2\x86\x92");
        CHECK_EQUAL(elements.getString(2).size(), 3u);
        SANITY_CHECK(elements.getString(3) == std::string("B\0a", 3));
        CHECK_EQUAL(elements.getInt(0), 111);
        CHECK_EQUAL(elements.getString(0), "");
        CHECK_EQUAL(elements.getString(9), "");
        // A GUID can't be copied by assignment, so it is read by index, which copies nothing.
        SANITY_CHECK(elements.getGUID(4) == GUIDClass::factory(1, 2));
        SANITY_CHECK(elements.getGUID(0) == GUIDClass::factory(0, 0));
        SANITY_CHECK(array->removeIdx(4));
        CHECK_EQUAL(elements.getAsString(), std::string("111,2,\xE2\x86\x92,B\0a", 13));
        retVal = true;
    } while (false);
    return retVal;
}

bool AccessorTest::testTextForms() {
    bool retVal = false;
    do {
        GUIDClass* guid = GUIDClass::factory(0xA000000000000000ULL, 0x0123456789ABCDEFULL);
        auto nested = OMStored::mapFactory();
        auto list = OMStored::arrayFactory();
        SANITY_CHECK(list->push(OMStored::factory(1)) && list->push(OMStored::factory("b")));
        SANITY_CHECK(list->push(OMStored::mapFactory()));
        SANITY_CHECK(nested->setSync("s", OMStored::factory("a")) && nested->setSync("n", list));
        SANITY_CHECK(nested->setSync("e", OMStored::arrayFactory()));
        auto single = OMStored::mapFactory();
        SANITY_CHECK(single->setSync("b1", OMStored::factory(true)));

        const std::vector<TextFormCase> cases = {
            {"Undefined", OMStored::undefinedFactory(), "undefined", "undefined", "undefined"},
            {"Null", OMStored::nullFactory(), "null", "null", "object"},
            {"Bool", OMStored::factory(false), "false", "false", "boolean"},
            {"Date", dateNode(0), "Thu Jan  1 00:00:00 1970", "0", "object"},
            {"Int", OMStored::factory(-5), "-5", "-5", "number"},
            {"Float", OMStored::factory(111.0), "111.000000", "111.000000", "number"},
            {"String", OMStored::factory("xyz"), "xyz", "\"xyz\"", "string"},
            {"empty Array", OMStored::arrayFactory(), "[  ]", "[]", "object"},
            {"empty Map", OMStored::mapFactory(), "{  }", "{}", "object"},
            {"Error", OMStored::errorFactory(), "error", "error", "error"},
            {"NaN", OMStored::nanFactory(), "NaN", "NaN", "number"},
            {"GUID", guidNode(guid), guid->toSectionedString(), guid->toSectionedString(), "GUID"},
            {"Function", functionNode(), "function bla2(x, y){}", "function bla2(x, y){}", "function"},
            {"Map", single, "{ b1: true }", "{\"b1\":true}", "object"},
            {"nested", nested, "{ e: [  ],n: [ 1, b, {  } ],s: a }",
             "{\"e\":[], \"n\":[1, \"b\", {}], \"s\":\"a\"}", "object"},
        };
        bool allOK = true;
        for (const TextFormCase& textCase : cases) {
            if (! textCase.fNode) {
                LOG_ERROR_F("no node for the case %s", textCase.fName);
                allOK = false;
                continue;
            }
            OMAccessor accessor(textCase.fNode);
            if (accessor.toString() != textCase.fToString || accessor.stringify() != textCase.fStringify ||
                accessor.typeOf() != textCase.fTypeOf) {
                LOG_ERROR_F("%s prints as '%s', '%s', '%s'", textCase.fName, accessor.toString().c_str(),
                            accessor.stringify().c_str(), accessor.typeOf().c_str());
                allOK = false;
            }
        }
        SANITY_CHECK(allOK);

        // The forms by path and by index read the child first.
        OMAccessor tree(nested);
        CHECK_EQUAL(tree.toString("n"), "[ 1, b, {  } ]");
        CHECK_EQUAL(tree.stringify("n/1"), "\"b\"");
        CHECK_EQUAL(tree.typeOf("s"), "string");
        CHECK_EQUAL(tree.toString("missing"), "undefined");
        OMAccessor elements(list);
        CHECK_EQUAL(elements.toString(1), "b");
        CHECK_EQUAL(elements.stringify(2), "{}");
        CHECK_EQUAL(elements.typeOf(0), "number");
        CHECK_EQUAL(elements.stringify(7), "undefined");
        retVal = true;
    } while (false);
    return retVal;
}

bool AccessorTest::testEqualityAndHash() {
    bool retVal = false;
    do {
        OMAccessor left(OMStored::mapFactory());
        OMAccessor right(OMStored::mapFactory());
        SANITY_CHECK(left.set("a/b", 1) && left.set("a/c", "x") && right.set("a/c", "x") &&
                     right.set("a/b", 1));
        // Deep equality, whatever the order of making.
        SANITY_CHECK(left == right);
        CHECK_EQUAL(left.hash(), right.hash());
        SANITY_CHECK(right.set("a/b", 2));
        SANITY_CHECK(! (left == right));
        SANITY_CHECK(left.hash() != right.hash());

        // Copies share the node.
        OMAccessor copy = left;
        SANITY_CHECK(copy.set("a/d", true));
        SANITY_CHECK(left.getBool("a/d"));
        SANITY_CHECK(copy == left);
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
