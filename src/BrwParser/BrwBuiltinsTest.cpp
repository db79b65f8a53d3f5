#include "BrwParser/BrwBuiltinsTest.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>

#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwParser/BrwOMAccessor.h"
#include "BrwParser/BrwOMExpressionLValue.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwCallTask.h"

namespace Brw {

namespace {

using NodePtr = std::shared_ptr<IOMNode>;

NodePtr lit(int value) {
    return OMStored::factory(static_cast<OMInt>(value));
}

NodePtr lit(OMFloat value) {
    return OMStored::factory(value);
}

NodePtr lit(const char* value) {
    return OMStored::factory(value);
}

NodePtr lit(bool value) {
    return OMStored::factory(value);
}

NodePtr arrayOf(std::initializer_list<NodePtr> elements) {
    NodePtr array = OMStored::arrayFactory();
    for (const NodePtr& element : elements) {
        (void)array->push(element);
    }
    return array;
}

NodePtr mapOf(std::initializer_list<std::pair<const char*, NodePtr>> members) {
    NodePtr map = OMStored::mapFactory();
    for (const auto& [key, value] : members) {
        (void)map->setSync(key, value);
    }
    return map;
}

NodePtr name(const char* identifier) {
    return OMStored::factory(std::make_shared<OMExpressionLValueStr>(nullptr, identifier, nullptr));
}

// `f(args)`.
NodePtr call(Token token, std::initializer_list<NodePtr> arguments) {
    return OMStored::factory(std::make_shared<OMExpressionLValueToken>(
        nullptr, token, std::make_shared<std::vector<NodePtr>>(arguments)));
}

// `parent.f(args)`.
NodePtr method(const NodePtr& parent, Token token, std::initializer_list<NodePtr> arguments) {
    return OMStored::factory(std::make_shared<OMExpressionLValueToken>(
        parent, token, std::make_shared<std::vector<NodePtr>>(arguments)));
}

// `parent.f`, without an argument list.
NodePtr property(const NodePtr& parent, Token token) {
    return OMStored::factory(std::make_shared<OMExpressionLValueToken>(parent, token, nullptr));
}

NodePtr assign(const NodePtr& target, const NodePtr& value) {
    NodePtr out;
    CallTask::call("test", [&](const std::shared_ptr<Task>& task) {
        OMNode::registerBinaryOperation_yielding(task, out, ASSIGN, target, value);
    });
    return out;
}

NodePtr eval(const NodePtr& node, const std::shared_ptr<OMScope>& scope) {
    NodePtr out;
    CallTask::call("test", [&](const std::shared_ptr<Task>& task) {
        node->eval_yielding(task, out, scope, UNWRAP_RETURN_VALUE);
    });
    return out;
}

std::shared_ptr<OMScope> freshScope() {
    return OMScope::factory(nullptr, OMScope::READS_PARENT);
}

// The kinds by their numbers.
const char* kindName(OMType type) {
    static const char* const NAMES[] = {"?",          "Undefined", "Null",     "Bool",  "Date",
                                        "Int",        "Float",     "String",   "Array", "Map",
                                        "Expression", "Error",     "Function", "NaN",   "GUID"};
    const auto number = static_cast<size_t>(type);
    return number < std::size(NAMES) ? NAMES[number] : "?";
}

// The kind and the debugging text of a value, so that 2 and 2.0 differ: "Int 2", "Float 2.000000".
std::string shown(const NodePtr& node) {
    return node ? std::string(kindName(node->getType())) + " " + node->toString() : std::string("null");
}

} // namespace

bool BuiltinsTest::setup() {
    fScriptErrors = std::make_unique<ScriptErrorCapture>();
    return fScriptErrors->isCapturing();
}

bool BuiltinsTest::teardown() {
    fScriptErrors.reset();
    return true;
}

bool BuiltinsTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = testNumbers();
    allOK = testNumberParsing() && allOK;
    allOK = testIsNaN() && allOK;
    allOK = testSubstrAndIndexOf() && allOK;
    allOK = testTextForms() && allOK;
    allOK = testContainers() && allOK;
    allOK = testPushAndPop() && allOK;
    allOK = testReferenceReading() && allOK;
    allOK = testReferenceWriting() && allOK;
    allOK = testScriptFilePath() && allOK;
    return allOK;
}

bool BuiltinsTest::testNumbers() {
    bool retVal = false;
    do {
        auto scope = freshScope();
        auto value = [&](Token token, std::initializer_list<NodePtr> arguments) {
            return shown(eval(call(token, arguments), scope));
        };
        // A whole result is an integer, anything else a double.
        CHECK_EQUAL(value(_abs, {lit(-3)}), "Int 3");
        CHECK_EQUAL(value(_abs, {lit(-3.5)}), "Float 3.500000");
        CHECK_EQUAL(value(_abs, {lit("-7")}), "Int 7");
        CHECK_EQUAL(value(_abs, {lit("x")}), "NaN NaN");
        CHECK_EQUAL(value(_sqr, {lit(1.5)}), "Float 2.250000");
        CHECK_EQUAL(value(_sqr, {lit(2.0)}), "Int 4");
        CHECK_EQUAL(value(_sqr, {lit("x")}), "NaN NaN");
        // The rounded root is compared with the root: only 0 and 1 come back as integers.
        CHECK_EQUAL(value(_sqrt, {lit(4)}), "Float 2.000000");
        CHECK_EQUAL(value(_sqrt, {lit(1)}), "Int 1");
        CHECK_EQUAL(value(_sqrt, {lit(0)}), "Int 0");
        CHECK_EQUAL(value(_sqrt, {lit(2)}), "Float 1.414214");
        CHECK_EQUAL(value(_sqrt, {lit(-4)}), "NaN NaN");
        // The member form is the same call.
        CHECK_EQUAL(shown(eval(method(lit(-9), _abs, {}), scope)), "Int 9");

        const uint64_t before = ScriptErrorLog::getReportCount();
        CHECK_EQUAL(value(_abs, {}), "Undefined undefined");
        CHECK_EQUAL(fScriptErrors->errorsSince(before), "insufficient arguments");
        retVal = true;
    } while (false);
    return retVal;
}

bool BuiltinsTest::testNumberParsing() {
    bool retVal = false;
    do {
        auto scope = freshScope();
        auto value = [&](Token token, std::initializer_list<NodePtr> arguments) {
            return shown(eval(call(token, arguments), scope));
        };
        CHECK_EQUAL(value(_parseInt, {lit("ff"), lit(16)}), "Int 255");
        CHECK_EQUAL(value(_parseInt, {lit("0xFF"), lit(16)}), "Int 255");
        CHECK_EQUAL(value(_parseInt, {lit("101"), lit(2)}), "Int 5");
        CHECK_EQUAL(value(_parseInt, {lit("z"), lit(36)}), "Int 35");
        // A radix of 1 or below, or a fraction below 2, reads in base 10; one above 36 reads nothing.
        CHECK_EQUAL(value(_parseInt, {lit("12"), lit(1)}), "Int 12");
        CHECK_EQUAL(value(_parseInt, {lit("12"), lit(1.9)}), "Int 12");
        CHECK_EQUAL(value(_parseInt, {lit("12"), lit(37)}), "NaN NaN");
        // Without a radix: decimal or 0x, and no fraction.
        CHECK_EQUAL(value(_parseInt, {lit("0x1F")}), "Int 31");
        CHECK_EQUAL(value(_parseInt, {lit(" -12.7")}), "Int -12");
        CHECK_EQUAL(value(_parseInt, {lit("x")}), "NaN NaN");
        CHECK_EQUAL(value(_parseInt, {lit("")}), "NaN NaN");
        CHECK_EQUAL(shown(eval(method(lit("42"), _parseInt, {}), scope)), "Int 42");

        CHECK_EQUAL(value(_parseFloat, {lit("1.5")}), "Float 1.500000");
        CHECK_EQUAL(value(_parseFloat, {lit("2e3")}), "Int 2000");
        CHECK_EQUAL(value(_parseFloat, {lit("0x10")}), "Int 0");
        CHECK_EQUAL(value(_parseFloat, {lit("abc")}), "NaN NaN");

        uint64_t before = ScriptErrorLog::getReportCount();
        CHECK_EQUAL(value(_parseFloat, {}), "NaN NaN");
        CHECK_EQUAL(fScriptErrors->errorsSince(before), "insufficient arguments");
        before = ScriptErrorLog::getReportCount();
        CHECK_EQUAL(value(_parseFloat, {lit("1"), lit(2)}), "NaN NaN");
        CHECK_EQUAL(fScriptErrors->errorsSince(before), "too many arguments");
        before = ScriptErrorLog::getReportCount();
        CHECK_EQUAL(shown(eval(method(lit("1"), _parseFloat, {lit(2)}), scope)), "NaN NaN");
        CHECK_EQUAL(fScriptErrors->errorsSince(before), "too many arguments");
        before = ScriptErrorLog::getReportCount();
        CHECK_EQUAL(value(_parseInt, {}), "NaN NaN");
        CHECK_EQUAL(fScriptErrors->errorsSince(before), "insufficient arguments");
        retVal = true;
    } while (false);
    return retVal;
}

bool BuiltinsTest::testIsNaN() {
    bool retVal = false;
    do {
        auto scope = freshScope();
        auto value = [&](const NodePtr& argument) { return shown(eval(call(_isNaN, {argument}), scope)); };
        CHECK_EQUAL(value(lit("abc")), "Bool true");
        CHECK_EQUAL(value(lit("12")), "Bool false");
        CHECK_EQUAL(value(lit(5)), "Bool false");
        CHECK_EQUAL(value(lit(1.5)), "Bool false");
        CHECK_EQUAL(value(OMStored::nanFactory()), "Bool true");
        // Anything that is no number and no text is not a number, a boolean included.
        CHECK_EQUAL(value(arrayOf({})), "Bool true");
        CHECK_EQUAL(value(mapOf({})), "Bool true");
        CHECK_EQUAL(value(lit(true)), "Bool true");
        CHECK_EQUAL(value(OMStored::nullFactory()), "Bool true");
        CHECK_EQUAL(value(OMStored::undefinedFactory()), "Bool true");
        retVal = true;
    } while (false);
    return retVal;
}

bool BuiltinsTest::testSubstrAndIndexOf() {
    bool retVal = false;
    do {
        auto scope = freshScope();
        auto value = [&](Token token, std::initializer_list<NodePtr> arguments) {
            return shown(eval(call(token, arguments), scope));
        };
        CHECK_EQUAL(value(_substr, {lit("abc"), lit(1)}), "String \"bc\"");
        CHECK_EQUAL(value(_substr, {lit("abc"), lit(1), lit(1)}), "String \"b\"");
        CHECK_EQUAL(value(_substr, {lit("abc")}), "String \"abc\"");
        CHECK_EQUAL(value(_substr, {lit("abc"), lit(3)}), "String \"\"");
        CHECK_EQUAL(value(_substr, {lit("abc"), lit(1e30)}), "String \"\"");
        // Negative numbers saturate to 0, huge lengths to the end.
        CHECK_EQUAL(value(_substr, {lit("abc"), lit(-1)}), "String \"abc\"");
        CHECK_EQUAL(value(_substr, {lit("abc"), lit(1), lit(-5)}), "String \"\"");
        CHECK_EQUAL(value(_substr, {lit("abc"), lit(1), lit(1e30)}), "String \"bc\"");
        CHECK_EQUAL(value(_substr, {lit(12345), lit(2), lit(2)}), "String \"34\"");
        CHECK_EQUAL(shown(eval(method(lit("hello"), _substr, {lit(1), lit(3)}), scope)), "String \"ell\"");

        CHECK_EQUAL(value(_indexOf, {lit("abcabc"), lit("c"), lit(3)}), "Int 5");
        CHECK_EQUAL(value(_indexOf, {lit("abcabc"), lit("c")}), "Int 2");
        CHECK_EQUAL(value(_indexOf, {lit("abcabc"), lit("bc"), lit(-4)}), "Int 1");
        CHECK_EQUAL(value(_indexOf, {lit("abc"), lit("c"), lit(3)}), "Int -1");
        CHECK_EQUAL(value(_indexOf, {lit("abc"), lit("d")}), "Int -1");
        CHECK_EQUAL(value(_indexOf, {lit(""), lit("a")}), "Int -1");
        CHECK_EQUAL(value(_indexOf, {lit("a"), lit("")}), "Int -1");

        const uint64_t before = ScriptErrorLog::getReportCount();
        CHECK_EQUAL(value(_indexOf, {lit("abc")}), "Undefined undefined");
        CHECK_EQUAL(value(_substr, {}), "Undefined undefined");
        CHECK_EQUAL(fScriptErrors->errorsSince(before), "insufficient arguments | insufficient arguments");
        retVal = true;
    } while (false);
    return retVal;
}

bool BuiltinsTest::testTextForms() {
    bool retVal = false;
    do {
        auto scope = freshScope();
        auto value = [&](Token token, std::initializer_list<NodePtr> arguments) {
            return shown(eval(call(token, arguments), scope));
        };
        CHECK_EQUAL(shown(eval(method(lit("abc"), _toUpperCase, {}), scope)), "String \"ABC\"");
        // The bytes of a multi-byte UTF-8 letter stay as they are: U+00E4 and U+00C4.
        CHECK_EQUAL(value(_toUpperCase, {lit("z\xC3\xA4")}), "String \"Z\xC3\xA4\"");
        CHECK_EQUAL(value(_toLowerCase, {lit("\xC3\x84"
                                             "BC")}),
                    "String \"\xC3\x84"
                    "bc\"");
        CHECK_EQUAL(value(_toLowerCase, {lit(12)}), "String \"12\"");

        CHECK_EQUAL(value(_enquote, {lit("a\"b")}), "String \"\"a\\\"b\"\"");
        CHECK_EQUAL(value(_enquote, {lit("it's"), lit("'x")}), "String \"'it\\'s'\"");
        CHECK_EQUAL(value(_enquote, {lit("x"), lit("")}), "String \"\"x\"\"");

        CHECK_EQUAL(value(_toString, {lit("s")}), "String \"\"s\"\"");
        CHECK_EQUAL(value(_toString, {arrayOf({lit(1), lit("a")})}), "String \"[1, \"a\"]\"");
        CHECK_EQUAL(value(_stringify, {mapOf({{"b1", lit(true)}})}), "String \"{\"b1\":true}\"");
        CHECK_EQUAL(value(_stringify, {lit(1.5)}), "String \"1.500000\"");

        const uint64_t before = ScriptErrorLog::getReportCount();
        CHECK_EQUAL(value(_toUpperCase, {}), "Undefined undefined");
        CHECK_EQUAL(value(_enquote, {}), "Undefined undefined");
        CHECK_EQUAL(fScriptErrors->errorsSince(before), "insufficient arguments | insufficient arguments");
        retVal = true;
    } while (false);
    return retVal;
}

bool BuiltinsTest::testContainers() {
    bool retVal = false;
    do {
        auto scope = freshScope();
        auto value = [&](Token token, std::initializer_list<NodePtr> arguments) {
            return shown(eval(call(token, arguments), scope));
        };
        CHECK_EQUAL(value(_size, {arrayOf({lit(1), lit(2), lit(3)})}), "Int 3");
        CHECK_EQUAL(value(_size, {mapOf({{"a", lit(1)}, {"b", lit(2)}})}), "Int 2");
        CHECK_EQUAL(value(_size, {lit("abc")}), "Int 0");

        CHECK_EQUAL(value(_keys, {mapOf({{"zeta", lit(1)}, {"alpha", lit(2)}, {"mid", lit(3)}})}),
                    "Array [\"alpha\", \"mid\", \"zeta\"]");
        CHECK_EQUAL(value(_keys, {mapOf({})}), "Array []");
        CHECK_EQUAL(value(_keys, {arrayOf({lit(1)})}), "Undefined undefined");

        // Bytes, not letters: U+00E9 counts twice.
        CHECK_EQUAL(value(_length, {lit("h\xC3\xA9llo")}), "Int 6");
        CHECK_EQUAL(shown(eval(property(lit("abc"), _length), scope)), "Int 3");
        CHECK_EQUAL(value(_length, {arrayOf({lit(1), lit(2)})}), "Int 2");
        // On anything else length is a member of that name.
        CHECK_EQUAL(shown(eval(property(mapOf({{"length", lit(7)}}), _length), scope)), "Int 7");
        {
            LogLevelScope quiet(0);
            CHECK_EQUAL(value(_length, {lit(5)}), "Undefined undefined");
            CHECK_EQUAL(value(_length, {mapOf({{"size", lit(7)}})}), "Undefined undefined");
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool BuiltinsTest::testPushAndPop() {
    bool retVal = false;
    do {
        auto scope = freshScope();
        SANITY_CHECK(scope->setSync("a", arrayOf({lit(1)})));
        SANITY_CHECK(scope->setSync("x", lit(5)));
        // a.push(x) appends a copy of x: changing x later leaves the element alone.
        CHECK_EQUAL(shown(eval(method(name("a"), _push, {name("x")}), scope)), "Int 5");
        CHECK_EQUAL(shown(eval(call(_push, {name("a"), lit("two")}), scope)), "String \"two\"");
        SANITY_CHECK(scope->getOMNode("x")->set(OMInt(6)));
        CHECK_EQUAL(shown(scope->getOMNode("a")), "Array [1, 5, \"two\"]");
        // An array pushed is shared, as an assignment shares it.
        SANITY_CHECK(scope->setSync("inner", arrayOf({})));
        SANITY_CHECK(eval(call(_push, {name("a"), name("inner")}), scope));
        SANITY_CHECK(eval(call(_push, {name("inner"), lit(9)}), scope));
        CHECK_EQUAL(shown(scope->getOMNode("a")->getOMNode(3)), "Array [9]");

        CHECK_EQUAL(shown(eval(method(name("a"), _pop, {}), scope)), "Array [9]");
        CHECK_EQUAL(shown(eval(call(_pop, {name("a")}), scope)), "String \"two\"");
        CHECK_EQUAL(shown(scope->getOMNode("a")), "Array [1, 5]");
        CHECK_EQUAL(shown(eval(call(_pop, {lit(5)}), scope)), "Undefined undefined");

        uint64_t before = ScriptErrorLog::getReportCount();
        CHECK_EQUAL(shown(eval(call(_push, {lit(5), lit(1)}), scope)), "Error error");
        CHECK_EQUAL(fScriptErrors->errorsSince(before), "push failed");
        before = ScriptErrorLog::getReportCount();
        CHECK_EQUAL(shown(eval(method(name("a"), _push, {}), scope)), "Undefined undefined");
        CHECK_EQUAL(fScriptErrors->errorsSince(before), "insufficient arguments");
        CHECK_EQUAL(scope->getOMNode("a")->getSize(), 2u);
        retVal = true;
    } while (false);
    return retVal;
}

namespace {

// t = { a: { b: { c: 1 }, d: { c: 2 } }, e: { f: { c: 3 } } }
std::shared_ptr<OMScope> scopeWithTree() {
    auto scope = freshScope();
    OMAccessor tree(OMStored::mapFactory());
    if (! tree.set("a/b/c", 1) || ! tree.set("a/d/c", 2) || ! tree.set("e/f/c", 3) ||
        ! scope->setSync("t", tree.getOMNode())) {
        return nullptr;
    }
    return scope;
}

} // namespace

bool BuiltinsTest::testReferenceReading() {
    bool retVal = false;
    do {
        auto scope = scopeWithTree();
        SANITY_CHECK(scope);
        auto value = [&](std::initializer_list<NodePtr> arguments) {
            return shown(eval(call(_reference, arguments), scope));
        };
        CHECK_EQUAL(value({name("t"), lit("a/b/c")}), "Int 1");
        // One match is the node itself, unless an array is asked for.
        CHECK_EQUAL(value({name("t"), lit("a/b/c"), lit("selectarray")}), "Array [1]");
        CHECK_EQUAL(value({name("t"), lit("a/b/c"), lit("selectfirst")}), "Int 1");
        CHECK_EQUAL(value({name("t"), lit("a/b/c"), lit("whatever")}), "Int 1");
        // Several matches are always an array.
        NodePtr all = eval(call(_reference, {name("t"), lit("$.*/$.*/c")}), scope);
        SANITY_CHECK(all && all->getType() == OMType::Array);
        CHECK_EQUAL(all->getSize(), 3u);
        NodePtr two = eval(call(_reference, {name("t"), lit("a/$.*/c"), lit("selectfirst")}), scope);
        SANITY_CHECK(two && two->getType() == OMType::Array);
        CHECK_EQUAL(two->getSize(), 2u);
        // The left part is the base; without a container the scope is.
        CHECK_EQUAL(shown(eval(method(name("t"), _reference, {lit("e/f/c")}), scope)), "Int 3");
        CHECK_EQUAL(value({lit("t/a/d/c")}), "Int 2");

        // A missing path is an error and creates nothing.
        uint64_t before = ScriptErrorLog::getReportCount();
        CHECK_EQUAL(value({name("t"), lit("a/x/c")}), "Error error");
        CHECK_EQUAL(value({lit("nowhere/c")}), "Error error");
        CHECK_EQUAL(fScriptErrors->errorsSince(before), "cannot access reference | cannot access reference");
        CHECK_EQUAL(OMAccessor(scope->getOMNode("t")).getSize("a"), 2u);
        SANITY_CHECK(! scope->containsAttr("nowhere"));
        before = ScriptErrorLog::getReportCount();
        CHECK_EQUAL(value({}), "Undefined undefined");
        CHECK_EQUAL(fScriptErrors->errorsSince(before), "insufficient arguments");
        retVal = true;
    } while (false);
    return retVal;
}

bool BuiltinsTest::testReferenceWriting() {
    bool retVal = false;
    do {
        auto scope = scopeWithTree();
        SANITY_CHECK(scope);
        const uint64_t before = ScriptErrorLog::getReportCount();
        // reference(t, "$.*/$.*/c") = 9 writes every match.
        NodePtr all = assign(call(_reference, {name("t"), lit("$.*/$.*/c")}), lit(9));
        CHECK_EQUAL(shown(eval(all, scope)), "Int 9");
        OMAccessor tree(scope->getOMNode("t"));
        CHECK_EQUAL(tree.getInt("a/b/c") + tree.getInt("a/d/c") + tree.getInt("e/f/c"), 27);
        // One match: only that node.
        SANITY_CHECK(eval(assign(call(_reference, {name("t"), lit("a/b/c")}), lit(5)), scope));
        CHECK_EQUAL(tree.getInt("a/b/c"), 5);
        CHECK_EQUAL(tree.getInt("a/d/c"), 9);
        CHECK_EQUAL(fScriptErrors->errorsSince(before), "");
        // A path that isn't there yet is made by the write.
        SANITY_CHECK(eval(assign(call(_reference, {name("t"), lit("a/n/c")}), lit(7)), scope));
        CHECK_EQUAL(tree.getInt("a/n/c"), 7);
        CHECK_EQUAL(tree.getSize("a"), 3u);
        retVal = true;
    } while (false);
    return retVal;
}

bool BuiltinsTest::testScriptFilePath() {
    bool retVal = false;
    do {
        auto outer = freshScope();
        auto inner = OMScope::factory(outer, OMScope::FUNCTION_FRAME);
        CHECK_EQUAL(shown(eval(call(_scriptFilePath, {}), inner)), "String \"\"");
        outer->pushScriptFilePath("scripts/outer.bwq");
        CHECK_EQUAL(shown(eval(call(_scriptFilePath, {}), inner)), "String \"scripts/outer.bwq\"");
        inner->pushScriptFilePath("scripts/inner.bwq");
        CHECK_EQUAL(shown(eval(call(_scriptFilePath, {}), inner)), "String \"scripts/inner.bwq\"");
        SANITY_CHECK(inner->popScriptFilePath());
        SANITY_CHECK(outer->popScriptFilePath());
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
