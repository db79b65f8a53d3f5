#include "BrwParser/BrwOMStoredTest.h"

#include <cmath>
#include <cstring>

#include "BrwObject/BrwGUIDClass.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"

namespace Brw {

namespace {

using NodePtr = std::shared_ptr<IOMNode>;

// A map of the given attributes, each a string value.
std::shared_ptr<OMStored> mapOf(std::initializer_list<std::pair<const char*, NodePtr>> attributes) {
    auto map = OMStored::mapFactory();
    for (const auto& [key, value] : attributes) {
        map->setSync(key, value);
    }
    return map;
}

std::shared_ptr<OMStored> arrayOf(std::initializer_list<NodePtr> elements) {
    auto array = OMStored::arrayFactory();
    for (const auto& element : elements) {
        array->push(element);
    }
    return array;
}

} // namespace

bool OMStoredTest::test() {
    REPORT_CLASS_TEST;
    OMScope::getRootScope(); // lives as long as the process
    const int64_t nodesBefore = OMStored::getOMStoredCount();
    bool allOK = testScalarsAndRawGetters();
    allOK = testContainers() && allOK;
    allOK = testSharingAndCloning() && allOK;
    allOK = testDataStructureLinks() && allOK;
    allOK = testTextForms() && allOK;
    allOK = testConversions() && allOK;
    allOK = testHashAndScalars() && allOK;
    allOK = testScopes() && allOK;
    allOK = testDeepValuesGoWithoutRecursion() && allOK;
    // Every node made above is gone again.
    if (OMStored::getOMStoredCount() != nodesBefore) {
        LOG_ERROR(
            describeMismatch("OMStored::getOMStoredCount()", OMStored::getOMStoredCount(), nodesBefore));
        allOK = false;
    }
    return allOK;
}

bool OMStoredTest::testScalarsAndRawGetters() {
    bool retVal = false;
    do {
        auto node = OMStored::factory(static_cast<OMFloat>(111.0));
        CHECK_EQUAL(node->getType(), OMType::Float);
        CHECK_EQUAL(node->getInt(), 0);
        CHECK_EQUAL(OMStored::factory(5)->getFloat(), 0.0);
        SANITY_CHECK(node->set("text"));
        CHECK_EQUAL(node->getString(), "text");
        SANITY_CHECK(node->setUndefined());
        SANITY_CHECK(! node->getBool() && node->getInt() == 0 && node->getFloat() == 0.0 &&
                     node->getString().empty());
        SANITY_CHECK(node->setGUID(nullptr));
        SANITY_CHECK(node->getGUID() == GUIDClass::factory(0, 0));
        SANITY_CHECK(node->setNum(3.0) && node->getType() == OMType::Int && node->getInt() == 3);
        SANITY_CHECK(node->setNum(-0.5) && node->getType() == OMType::Float);
        SANITY_CHECK(node->setNum(std::nan("")) && node->getType() == OMType::NaN);
        SANITY_CHECK(node->setNum(1e300) && node->getType() == OMType::Float);
        retVal = true;
    } while (false);
    return retVal;
}

bool OMStoredTest::testContainers() {
    bool retVal = false;
    do {
        auto array = OMStored::arrayFactory();
        SANITY_CHECK(array->setSync(2, OMStored::factory(true)));
        CHECK_EQUAL(array->getSize(), 3u);
        CHECK_EQUAL(array->getType(0), OMType::Undefined);
        CHECK_EQUAL(array->getType(2), OMType::Bool);
        SANITY_CHECK(array->getOMNode(7)->getType() == OMType::Error);
        SANITY_CHECK(array->getOMNode("1")->getType() == OMType::Undefined);
        SANITY_CHECK(array->getOMNode("x")->getType() == OMType::Error);

        auto empty = OMStored::arrayFactory();
        SANITY_CHECK(empty->pop()->getType() == OMType::Undefined && empty->getSize() == 0);
        SANITY_CHECK(array->pop()->getType() == OMType::Bool && array->getSize() == 2);
        SANITY_CHECK(array->removeIdx(0) && array->getSize() == 1);
        SANITY_CHECK(array->removeIdx(9) && array->getSize() == 1);

        auto map = OMStored::mapFactory();
        SANITY_CHECK(! map->push(OMStored::factory(1)) && map->getSize() == 0);
        for (const char* key : {"u1", "s1", "n1", "i1", "eo", "ea", "d1", "b1"}) {
            SANITY_CHECK(map->setSync(key, OMStored::factory(key)));
        }
        const std::vector<std::string> sorted = {"b1", "d1", "ea", "eo", "i1", "n1", "s1", "u1"};
        SANITY_CHECK(map->getKeys() == sorted);
        SANITY_CHECK(map->setSync("x", OMStored::undefinedFactory()));
        CHECK_EQUAL(map->getSize(), 9u);
        SANITY_CHECK(map->getOMNode("missing")->getType() == OMType::Error);
        SANITY_CHECK(map->containsAttr("x") && ! map->containsAttr("missing") && ! array->containsAttr("0"));
        SANITY_CHECK(map->removeAttr("x") && map->getSize() == 8);

        // A read-protected attribute looks like an error to whoever walks the map.
        SANITY_CHECK(map->setPermissions("b1", 0));
        bool sawError = false;
        for (auto iterator = map->getIterator(); ! iterator->isAtEnd(); ++*iterator) {
            sawError = sawError || (iterator->getKey() == "b1" && (**iterator)->getType() == OMType::Error);
        }
        SANITY_CHECK(sawError);
        // ... and a write-protected one refuses a new value.
        {
            LogLevelScope quiet(0);
            SANITY_CHECK(! map->setSync("b1", OMStored::factory(2)));
        }
        CHECK_EQUAL(map->getPermissions("d1"), OMStored::PERMISSION_DEFAULT);
        retVal = true;
    } while (false);
    return retVal;
}

bool OMStoredTest::testSharingAndCloning() {
    bool retVal = false;
    do {
        // Plain variables share containers.
        auto a = arrayOf({OMStored::factory(5), OMStored::factory(6)});
        auto b = OMStored::cloneFactory(*a, 0);
        SANITY_CHECK(b->getArray() == a->getArray());
        SANITY_CHECK(a->setSync(1, OMStored::factory(99)));
        CHECK_EQUAL(b->getOMNode(1)->getInt(), 99);

        // Cloned a level deeper, the outer container is new but the elements are the same nodes.
        auto c = OMStored::cloneFactory(*a, 1);
        SANITY_CHECK(c->getArray() != a->getArray());
        SANITY_CHECK(a->setSync(0, OMStored::factory(1)));
        CHECK_EQUAL(c->getOMNode(0)->getInt(), 5);

        auto map = mapOf({{"x", OMStored::factory(1)}});
        auto sharedMap = OMStored::cloneFactory(*map, 0);
        SANITY_CHECK(map->setSync("x", OMStored::factory(2)));
        CHECK_EQUAL(sharedMap->getOMNode("x")->getInt(), 2);

        // Into a data structure a map is copied.
        auto tree = OMStored::mapFactory();
        SANITY_CHECK(tree->setIsDataStructure(true));
        auto stored = tree->setSync("m", map);
        SANITY_CHECK(stored);
        SANITY_CHECK(stored->getOMStoredPtr()->getMap() != map->getMap());
        SANITY_CHECK(map->setSync("x", OMStored::factory(3)));
        CHECK_EQUAL(tree->getOMNode("m")->getOMNode("x")->getInt(), 2);

        // A GUID can't be copied by assignment.
        auto guid = OMStored::undefinedFactory();
        SANITY_CHECK(guid->setGUID(GUIDClass::randomFactory()));
        LogLevelScope quiet(0);
        SANITY_CHECK(! OMStored::cloneFactory(*guid, 0));
        retVal = true;
    } while (false);
    return retVal;
}

bool OMStoredTest::testDataStructureLinks() {
    bool retVal = false;
    do {
        auto root = OMStored::mapFactory();
        SANITY_CHECK(root->setIsDataStructure(true));
        NodePtr other = root->setSync("other", OMStored::mapFactory());
        SANITY_CHECK(other);
        NodePtr val5 = other->setSync("val5", arrayOf({OMStored::factory(1), OMStored::factory(2)}));
        SANITY_CHECK(val5);
        CHECK_EQUAL(val5->getOMNode(1)->getSelector(), "/other/val5/1");
        CHECK_EQUAL(val5->getSelector(), "/other/val5");
        SANITY_CHECK(val5->getOMNode(1)->getDataStructureParent() == val5);
        CHECK_EQUAL(val5->getOMNode(1)->getDataStructureIdx(), 1u);

        auto rootArray = OMStored::arrayFactory();
        SANITY_CHECK(rootArray->setIsDataStructure(true));
        SANITY_CHECK(rootArray->setSync(3, OMStored::factory(7)));
        CHECK_EQUAL(rootArray->getOMNode(3)->getSelector(), "/3");

        // The same node can't hang under two parents: the second tree gets its own copy.
        auto second = OMStored::mapFactory();
        SANITY_CHECK(second->setIsDataStructure(true));
        NodePtr copy = second->setSync("v", val5);
        SANITY_CHECK(copy && copy != val5 && copy->getDataStructureParent() == second);
        SANITY_CHECK(copy->getOMNode(0)->getDataStructureParent() == copy);

        // Assignment keeps a node's place; clear drops it.
        NodePtr element = val5->getOMNode(0);
        SANITY_CHECK(element->set(OMStored::factory("new")));
        SANITY_CHECK(element->getDataStructureParent() == val5);
        SANITY_CHECK(element->clear() && element->getType() == OMType::Undefined);
        SANITY_CHECK(! element->getDataStructureParent() && ! element->isDataStructure());
        retVal = true;
    } while (false);
    return retVal;
}

bool OMStoredTest::testTextForms() {
    bool retVal = false;
    do {
        struct Case {
            NodePtr node;
            const char* asString;
            const char* toString;
        };
        auto date = OMStored::undefinedFactory();
        SANITY_CHECK(date->setDate(0));
        auto guid = OMStored::undefinedFactory();
        SANITY_CHECK(guid->setGUID(GUIDClass::factory("A0000000-0000-0000-0123-456789ABCDEF")));
        auto nested = mapOf(
            {{"b", arrayOf({OMStored::factory(1), OMStored::factory("x")})}, {"a", OMStored::factory(true)}});
        const Case cases[] = {
            {OMStored::undefinedFactory(), "undefined", "undefined"},
            {OMStored::nullFactory(), "null", "null"},
            {OMStored::factory(false), "false", "false"},
            {OMStored::factory(-5), "-5", "-5"},
            {OMStored::factory(static_cast<OMFloat>(111.0)), "111.000000", "111.000000"},
            {OMStored::factory("xyz"), "xyz", "\"xyz\""},
            {OMStored::factory("say \"hi\""), "say \"hi\"", "\"say \"hi\"\""},
            {date, "Thu Jan  1 00:00:00 1970", "Thu Jan  1 00:00:00 1970"},
            {OMStored::errorFactory(), "error", "error"},
            {OMStored::nanFactory(), "NaN", "NaN"},
            {guid, "A0000000-0000-0000-0123-456789ABCDEF", "A0000000-0000-0000-0123-456789ABCDEF"},
            {arrayOf({OMStored::factory(1), OMStored::factory(2), OMStored::factory(3)}), "1,2,3",
             "[1, 2, 3]"},
            {OMStored::arrayFactory(), "", "[]"},
            {OMStored::mapFactory(), "{  }", "{  }"},
            {nested, "{ \"a\": true, \"b\": [1, \"x\"] }", "{ \"a\": true, \"b\": [1, \"x\"] }"},
        };
        bool allOK = true;
        for (const Case& test : cases) {
            if (test.node->getAsString() != test.asString || test.node->toString() != test.toString) {
                LOG_ERROR("text forms of " + test.node->toString() + " are " + test.node->getAsString() +
                          " / " + test.node->toString() + ", expected " + test.asString + " / " +
                          test.toString);
                allOK = false;
            }
        }
        SANITY_CHECK(allOK);
        retVal = true;
    } while (false);
    return retVal;
}

bool OMStoredTest::testConversions() {
    bool retVal = false;
    do {
        struct Case {
            NodePtr node;
            bool asBool;
        };
        const Case cases[] = {
            {OMStored::undefinedFactory(), false}, {OMStored::nullFactory(), false},
            {OMStored::errorFactory(), false},     {OMStored::nanFactory(), false},
            {OMStored::factory(true), true},       {OMStored::factory(0), false},
            {OMStored::factory(0.0), false},       {OMStored::factory(0.5), true},
            {OMStored::factory(""), false},        {OMStored::factory("false"), true},
            {OMStored::factory("0"), true},        {OMStored::arrayFactory(), true},
            {OMStored::mapFactory(), true},
        };
        bool allOK = true;
        for (const Case& test : cases) {
            if (test.node->getAsBool() != test.asBool) {
                LOG_ERROR("getAsBool of " + test.node->toString() + " is wrong");
                allOK = false;
            }
        }
        SANITY_CHECK(allOK);
        CHECK_EQUAL(OMStored::factory("12")->getAsNum(), 12.0);
        SANITY_CHECK(std::isnan(OMStored::factory("abc")->getAsNum()));
        const double undefinedAsNum = OMStored::undefinedFactory()->getAsNum();
        uint64_t bits = 0;
        std::memcpy(&bits, &undefinedAsNum, sizeof(bits));
        CHECK_EQUAL(bits, 0xFFF8000000000000ULL);
        CHECK_EQUAL(OMStored::factory(true)->getAsNum(), 1.0);
        CHECK_EQUAL(OMStored::factory(1.5)->getAsBits(), -1);
        CHECK_EQUAL(OMStored::factory(-3.0)->getAsBits(), -3);
        CHECK_EQUAL(OMStored::nanFactory()->getAsBits(), -1);
        CHECK_EQUAL(OMStored::factory(1e30)->getAsBits(), -1);
        retVal = true;
    } while (false);
    return retVal;
}

bool OMStoredTest::testHashAndScalars() {
    bool retVal = false;
    do {
        CHECK_EQUAL(OMStored::factory(0.0)->hash(), OMStored::factory(-0.0)->hash());
        CHECK_EQUAL(OMStored::factory("abc")->hash(), OMStored::factory("abc")->hash());
        SANITY_CHECK(OMStored::factory(1)->hash() != OMStored::factory(2)->hash());
        auto left = mapOf({{"a", OMStored::factory(1)}, {"b", OMStored::factory("x")}});
        auto right = mapOf({{"b", OMStored::factory("x")}, {"a", OMStored::factory(1)}});
        CHECK_EQUAL(left->hash(), right->hash());
        CHECK_EQUAL(OMStored::undefinedFactory()->hash(), 9999u);
        SANITY_CHECK(! OMStored::nanFactory()->isScalar() && OMStored::errorFactory()->isScalar());
        auto date = OMStored::undefinedFactory();
        SANITY_CHECK(date->setDate(5) && ! date->isScalar());
        retVal = true;
    } while (false);
    return retVal;
}

bool OMStoredTest::testScopes() {
    bool retVal = false;
    do {
        auto outer = OMScope::factory(nullptr, OMScope::READS_PARENT);
        SANITY_CHECK(outer->setSync("a", OMStored::factory(11)));
        auto frame = OMScope::factory(outer, OMScope::FUNCTION_FRAME);
        auto isolated = OMScope::factory(outer, OMScope::ISOLATED);
        auto reader = OMScope::factory(outer, OMScope::READS_PARENT);
        CHECK_EQUAL(frame->getOMNode("a")->getInt(), 11);
        SANITY_CHECK(isolated->getOMNode("a")->getType() == OMType::Error);
        // A frame writes to the caller's existing variable and makes a new one locally.
        SANITY_CHECK(frame->setSync("a", OMStored::factory(12)));
        SANITY_CHECK(frame->setSync("fresh", OMStored::factory(1)));
        CHECK_EQUAL(outer->getOMNode("a")->getInt(), 12);
        SANITY_CHECK(! outer->containsAttr("fresh"));
        // A read-only view writes locally and shadows.
        SANITY_CHECK(reader->setSync("a", OMStored::factory(13)));
        CHECK_EQUAL(outer->getOMNode("a")->getInt(), 12);
        CHECK_EQUAL(reader->getOMNode("a")->getInt(), 13);

        reader->pushScriptFilePath("/x/one.bwq");
        auto inner = OMScope::factory(reader, OMScope::FUNCTION_FRAME);
        CHECK_EQUAL(inner->getScriptFilePath(), "/x/one.bwq");
        SANITY_CHECK(reader->popScriptFilePath());
        LogLevelScope quiet(0);
        SANITY_CHECK(! reader->popScriptFilePath());
        retVal = true;
    } while (false);
    return retVal;
}

// A value nested far deeper than the stack could recurse, in arrays and maps, is freed one element at a
// time when its last holder lets go.
bool OMStoredTest::testDeepValuesGoWithoutRecursion() {
    bool retVal = false;
    do {
        const int64_t nodesBefore = OMStored::getOMStoredCount();
        constexpr int DEPTH = 300000;
        std::shared_ptr<OMStored> value = OMStored::arrayFactory();
        for (int level = 0; level < DEPTH; ++level) {
            std::shared_ptr<OMStored> outer = level % 2 == 0 ? OMStored::arrayFactory() : OMStored::mapFactory();
            SANITY_CHECK(level % 2 == 0 ? outer->push(value) : static_cast<bool>(outer->setSync("x", value)));
            value = outer;
        }
        SANITY_CHECK(OMStored::getOMStoredCount() > nodesBefore + DEPTH);
        value.reset();
        CHECK_EQUAL(OMStored::getOMStoredCount(), nodesBefore);
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
