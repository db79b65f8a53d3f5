#include "BrwParser/BrwOperatorsTest.h"

#include <initializer_list>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "BrwObject/BrwGUIDClass.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"

namespace Brw {

namespace {

using NodePtr = IOMNode::NodePtr;
using StoredPtr = std::shared_ptr<OMStored>;

// ---- values ----

template <class Value>
StoredPtr val(Value value) {
    return OMStored::factory(value);
}

StoredPtr undef() {
    return OMStored::undefinedFactory();
}

StoredPtr nullValue() {
    return OMStored::nullFactory();
}

StoredPtr nan() {
    return OMStored::nanFactory();
}

StoredPtr error() {
    return OMStored::errorFactory();
}

StoredPtr date(OMInt seconds) {
    StoredPtr node = undef();
    VERIFY(node->setDate(seconds));
    return node;
}

StoredPtr guid(uint64_t high, uint64_t low) {
    StoredPtr node = undef();
    VERIFY(node->setGUID(GUIDClass::factory(high, low)));
    return node;
}

StoredPtr arrayOf(std::initializer_list<NodePtr> elements) {
    return OMStored::factory(std::make_shared<OMArray>(elements));
}

// The attributes go in in the order given.
StoredPtr mapOf(std::initializer_list<std::pair<std::string, NodePtr>> attributes) {
    auto map = std::make_shared<OMMap>();
    for (const auto& [attr, value] : attributes) {
        (*map)[attr] = value;
    }
    StoredPtr node = undef();
    VERIFY(node->set(map));
    return node;
}

// ---- descriptions ----

std::string typeName(OMType type) {
    static const char* const names[] = {"?",          "Undefined", "Null",     "Bool",  "Date",
                                        "Int",        "Float",     "String",   "Array", "Map",
                                        "Expression", "Error",     "Function", "NaN",   "GUID"};
    const auto index = static_cast<size_t>(type);
    return index < std::size(names) ? names[index] : "?";
}

std::string describe(const NodePtr& node) {
    return node ? typeName(node->getType()) + " " + node->toString() : "null";
}

std::string describe(OMType type, const std::string& text) {
    return typeName(type) + " " + text;
}

std::string binOpText(BinOp op) {
    static const char* const texts[] = {
        "?",   "?",    "[]",   " * ",  " / ",  " % ",   " + ",   " - ",  " << ",    " >> ",
        " < ", " <= ", " > ",  " >= ", " == ", " === ", " !== ", " != ", " & ",     " ^ ",
        " | ", " && ", " || ", "?",    " = ",  ", ",    "; ",    "?",    " while ", " do-while "};
    const auto index = static_cast<size_t>(op);
    return index < std::size(texts) ? texts[index] : "?";
}

// ---- tables ----

struct BinaryCase {
    BinOp op;         // the operator
    NodePtr left;     // the left operand, kept
    NodePtr right;    // the right operand, kept
    OMType type;      // the expected result
    std::string text; // in the form of toString
};

struct UnaryCase {
    UnOp op;          // the operator
    NodePtr operand;  // kept
    OMType type;      // the expected result
    std::string text; // in the form of toString
};

bool checkBinaryCase(const BinaryCase& binaryCase) {
    bool retVal = false;
    do {
        const std::string label =
            binaryCase.left->toString() + binOpText(binaryCase.op) + binaryCase.right->toString() + " is ";
        NodePtr result =
            OMNode::binaryOperation(binaryCase.op, *binaryCase.left, KEEP_NODE, *binaryCase.right, KEEP_NODE);
        CHECK_EQUAL(label + describe(result), label + describe(binaryCase.type, binaryCase.text));
        retVal = true;
    } while (false);
    return retVal;
}

// Every case runs, so that each failing one is logged.
bool checkBinaryCases(const std::vector<BinaryCase>& cases) {
    bool allOK = true;
    for (const BinaryCase& binaryCase : cases) {
        allOK = checkBinaryCase(binaryCase) && allOK;
    }
    return allOK;
}

bool checkUnaryCases(const std::vector<UnaryCase>& cases) {
    bool allOK = true;
    for (const UnaryCase& unaryCase : cases) {
        const std::string label =
            "unary " + std::to_string(unaryCase.op) + " of " + unaryCase.operand->toString();
        NodePtr result = OMNode::unaryOperation(unaryCase.op, *unaryCase.operand, KEEP_NODE);
        const std::string expected = describe(unaryCase.type, unaryCase.text);
        const bool isOK = describe(result) == expected;
        if (! isOK) {
            LOG_ERROR(Test::describeMismatch(label.c_str(), describe(result), expected));
        }
        allOK = isOK && allOK;
    }
    return allOK;
}

// True when the operator gives the Bool true.
bool isTrue(BinOp op, const NodePtr& left, const NodePtr& right) {
    NodePtr result = OMNode::binaryOperation(op, *left, KEEP_NODE, *right, KEEP_NODE);
    return result && result->getType() == OMType::Bool && result->getBool();
}

// ---- log lines ----

// Lines logged while a case provokes failures on purpose. The logger can't forget an observer, so one is
// added once and records only while a case asks it to.
std::vector<std::string>* gRecordedLines = nullptr;

void recordLine(const std::string& line) {
    if (gRecordedLines != nullptr) {
        gRecordedLines->push_back(line);
    }
}

// Runs `provoke` with errors let through to the observer but not to standard error.
template <class Function>
std::vector<std::string> recordLogLines(Function provoke) {
    static bool isObserverAdded = false;
    if (! isObserverAdded) {
        Logger::addLineObserver(recordLine);
        isObserverAdded = true;
    }
    const int32_t savedLevel = Logger::getLogLevel();
    const std::string savedLogFile = Logger::getLogFile();
    std::vector<std::string> lines;
    Logger::setLogLevel(1);
    Logger::setLogFile("/dev/null");
    gRecordedLines = &lines;
    provoke();
    gRecordedLines = nullptr;
    Logger::setLogFile(savedLogFile);
    Logger::setLogLevel(savedLevel);
    return lines;
}

bool hasLineEndingWith(const std::vector<std::string>& lines, const std::string& message) {
    const std::string ending = " " + message;
    for (const std::string& line : lines) {
        if (line.size() >= ending.size() &&
            line.compare(line.size() - ending.size(), ending.size(), ending) == 0) {
            return true;
        }
    }
    return false;
}

} // namespace

bool OperatorsTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = testArithmeticAndBits();
    allOK = testComparisons() && allOK;
    allOK = testEqualityOfContainers() && allOK;
    allOK = testUnaryOperators() && allOK;
    allOK = testIncrements() && allOK;
    allOK = testTypeOf() && allOK;
    allOK = testNodeReuse() && allOK;
    allOK = testIndex() && allOK;
    allOK = testRefusals() && allOK;
    return allOK;
}

bool OperatorsTest::testArithmeticAndBits() {
    return checkBinaryCases({
        // A string on either side makes `+` a concatenation of the text forms.
        {ADD, val("a"), val(1.5), OMType::String, "\"a1.500000\""},
        {ADD, val(true), val(""), OMType::String, "\"true\""},
        {ADD, val(1), val("1"), OMType::String, "\"11\""},
        {ADD, arrayOf({val(1), val(2)}), val("x"), OMType::String, "\"1,2x\""},
        // Otherwise numbers; a whole result is an Int whatever the operands were.
        {ADD, val(true), val(true), OMType::Int, "2"},
        {ADD, val(0.5), val(2.5), OMType::Int, "3"},
        {ADD, val(0.5), val(1), OMType::Float, "1.500000"},
        {ADD, date(10), val(5), OMType::Int, "15"},
        {ADD, nullValue(), val(1), OMType::NaN, "NaN"},
        {ADD, undef(), val(1), OMType::NaN, "NaN"},
        {SUBTRACT, val("5"), val(2), OMType::Int, "3"},
        {SUBTRACT, val("abc"), val(1), OMType::NaN, "NaN"},
        {MULTIPLY, val(true), val(3.5), OMType::Float, "3.500000"},
        {DIVIDE, val(7), val(2), OMType::Float, "3.500000"},
        {DIVIDE, val(6), val("3"), OMType::Int, "2"},
        // Division by zero is NaN, not an infinity.
        {DIVIDE, val(1), val(0), OMType::NaN, "NaN"},
        {DIVIDE, val(-1), val(0.0), OMType::NaN, "NaN"},
        {DIVIDE, val(1), val(false), OMType::NaN, "NaN"},
        // Fractions and non-numbers have all bits set.
        {BIT_AND, val(6), val(3), OMType::Int, "2"},
        {BIT_AND, val(1.5), val(3), OMType::Int, "3"},
        {BIT_AND, val(0), val("abc"), OMType::Int, "0"},
        {BIT_OR, val(4), val(1), OMType::Int, "5"},
        {BIT_OR, undef(), val(0), OMType::Int, "-1"},
        {BIT_XOR, val(6), val(3), OMType::Int, "5"},
        {BIT_XOR, val(true), val(2.5), OMType::Int, "-2"},
        // `&&` and `||` give a Bool, never an operand.
        {BOOL_AND, val(1), val("x"), OMType::Bool, "true"},
        {BOOL_AND, val(""), val(1), OMType::Bool, "false"},
        {BOOL_OR, val(0), arrayOf({}), OMType::Bool, "true"},
        {BOOL_OR, nullValue(), val(0.0), OMType::Bool, "false"},
        // An Error operand makes an Error, also for `==`.
        {ADD, error(), val(1), OMType::Error, "error"},
        {MULTIPLY, val(2), error(), OMType::Error, "error"},
        {COMPARE_EQ, error(), error(), OMType::Error, "error"},
        {BOOL_OR, val(true), error(), OMType::Error, "error"},
        // A sequence is its right side, even behind an Error; a loop met as a value is undefined.
        {COMMA, val(1), val("x"), OMType::String, "\"x\""},
        {SEMICOLON, error(), val(5), OMType::Int, "5"},
        {ASSIGN, val(1), val("x"), OMType::String, "\"x\""},
        {WHILE, val(1), val(2), OMType::Undefined, "undefined"},
        {DO_WHILE, val(1), val(2), OMType::Undefined, "undefined"},
    });
}

bool OperatorsTest::testComparisons() {
    bool allOK = checkBinaryCases({
        // `==` never converts.
        {COMPARE_EQ, nullValue(), undef(), OMType::Bool, "true"},
        {COMPARE_IDENTICAL, nullValue(), undef(), OMType::Bool, "false"},
        {COMPARE_IDENTICAL, nullValue(), nullValue(), OMType::Bool, "true"},
        {COMPARE_EQ, val(1), val("1"), OMType::Bool, "false"},
        {COMPARE_EQ, val(1), val(1.0), OMType::Bool, "false"},
        {COMPARE_NE, val(1), val(1.0), OMType::Bool, "true"},
        {COMPARE_EQ, val(true), val(1), OMType::Bool, "false"},
        {COMPARE_EQ, val(2.5), val(2.5), OMType::Bool, "true"},
        {COMPARE_EQ, val("abc"), val("abc"), OMType::Bool, "true"},
        {COMPARE_EQ, date(5), date(5), OMType::Bool, "true"},
        {COMPARE_NOT_IDENTICAL, val("a"), val("b"), OMType::Bool, "true"},
        {COMPARE_NE, val(3), val(3), OMType::Bool, "false"},
        {COMPARE_GE, val(3), val(3), OMType::Bool, "true"},
        {COMPARE_LE, val(3), val(3), OMType::Bool, "true"},
        {COMPARE_GT, val(3), val(3), OMType::Bool, "false"},
        {COMPARE_LT, val(3), val(3), OMType::Bool, "false"},
        {COMPARE_LT, val(3), val(3.5), OMType::Bool, "true"},
        {COMPARE_GT, val(4), val(3.5), OMType::Bool, "true"},
        // NaN equals nothing and orders with nothing; only `!=` and `!==` say true.
        {COMPARE_EQ, nan(), nan(), OMType::Bool, "false"},
        {COMPARE_IDENTICAL, nan(), nan(), OMType::Bool, "false"},
        {COMPARE_NE, nan(), nan(), OMType::Bool, "true"},
        {COMPARE_NOT_IDENTICAL, nan(), nan(), OMType::Bool, "true"},
        {COMPARE_NE, nan(), val(1), OMType::Bool, "true"},
        {COMPARE_LT, nan(), val(1), OMType::Bool, "false"},
        {COMPARE_LT, val(1), nan(), OMType::Bool, "false"},
        {COMPARE_GE, nan(), val(1), OMType::Bool, "false"},
        {COMPARE_GT, val(1), nan(), OMType::Bool, "false"},
        {COMPARE_LE, nan(), nan(), OMType::Bool, "false"},
        // A string on either side compares text; a number on the right reads as "".
        {COMPARE_LT, val("a"), val("b"), OMType::Bool, "true"},
        {COMPARE_LT, val("b"), val(1), OMType::Bool, "false"},
        {COMPARE_LT, val("0"), val(5), OMType::Bool, "false"},
        {COMPARE_GT, val("b"), val(1), OMType::Bool, "true"},
        {COMPARE_LT, val(1), val("a"), OMType::Bool, "true"},
        {COMPARE_LT, val(10), val("9"), OMType::Bool, "true"},
        // Different types order by their type numbers.
        {COMPARE_LT, nullValue(), val(1), OMType::Bool, "true"},
        {COMPARE_LT, undef(), nullValue(), OMType::Bool, "true"},
        {COMPARE_LT, val(true), val(0), OMType::Bool, "true"},
        {COMPARE_LT, val(1), arrayOf({}), OMType::Bool, "true"},
        {COMPARE_GT, val(2), nullValue(), OMType::Bool, "true"},
        // Same types without numbers.
        {COMPARE_LT, undef(), undef(), OMType::Bool, "false"},
        {COMPARE_LE, undef(), nullValue(), OMType::Bool, "true"},
        {COMPARE_GE, nullValue(), nullValue(), OMType::Bool, "true"},
        {COMPARE_LT, val(false), val(true), OMType::Bool, "true"},
        {COMPARE_LT, val(true), val(false), OMType::Bool, "false"},
        {COMPARE_LT, val(true), val(true), OMType::Bool, "false"},
        {COMPARE_LT, date(1), date(2), OMType::Bool, "true"},
        {COMPARE_GE, date(1), date(2), OMType::Bool, "false"},
    });
    bool retVal = false;
    do {
        // A GUID can't be copied into a result node, so its comparisons are called directly. The halves
        // are unsigned, the high one first.
        StoredPtr result = undef();
        SANITY_CHECK(guid(1, 5)->binop_compare_lt(result, *guid(2, 0)) && result->getBool());
        SANITY_CHECK(guid(1, 5)->binop_compare_lt(result, *guid(1, 2)) && ! result->getBool());
        SANITY_CHECK(guid(~uint64_t(0), 0)->binop_compare_lt(result, *guid(1, 0)) && ! result->getBool());
        SANITY_CHECK(guid(1, 2)->binop_compare_identical(result, *guid(1, 2)) && result->getBool());
        SANITY_CHECK(guid(1, 2)->binop_compare_eq(result, *guid(1, 3)) && ! result->getBool());
        retVal = true;
    } while (false);
    return retVal && allOK;
}

bool OperatorsTest::testEqualityOfContainers() {
    bool retVal = false;
    do {
        // Maps are equal by their attributes, whatever the order they were made in.
        StoredPtr forward = mapOf({{"a", val(1)},
                                   {"b", arrayOf({val(1), val(2)})},
                                   {"c", mapOf({{"x", val("y")}})},
                                   {"d", nullValue()},
                                   {"e", val(2.5)},
                                   {"f", undef()}});
        StoredPtr backward = mapOf({{"f", undef()},
                                    {"e", val(2.5)},
                                    {"d", nullValue()},
                                    {"c", mapOf({{"x", val("y")}})},
                                    {"b", arrayOf({val(1), val(2)})},
                                    {"a", val(1)}});
        SANITY_CHECK(isTrue(COMPARE_EQ, forward, backward));
        SANITY_CHECK(! isTrue(COMPARE_IDENTICAL, forward, backward));
        SANITY_CHECK(isTrue(COMPARE_IDENTICAL, forward, OMStored::cloneFactory(*forward, 0)));
        SANITY_CHECK(isTrue(COMPARE_EQ, mapOf({{"a", val("b")}, {"c", val("d")}}),
                            mapOf({{"c", val("d")}, {"a", val("b")}})));
        SANITY_CHECK(! isTrue(COMPARE_EQ, mapOf({{"a", val("b")}, {"c", val("d")}}),
                              mapOf({{"a", val("b")}, {"c", val("e")}})));
        // The same size with another name; an attribute that is missing is no undefined one.
        SANITY_CHECK(! isTrue(COMPARE_EQ, mapOf({{"a", val(1)}, {"b", val(2)}}),
                              mapOf({{"a", val(1)}, {"c", val(2)}})));
        SANITY_CHECK(! isTrue(COMPARE_EQ, mapOf({{"a", undef()}}), mapOf({{"b", undef()}})));
        SANITY_CHECK(! isTrue(COMPARE_EQ, mapOf({{"a", val(1)}}), mapOf({{"a", val(1)}, {"b", val(2)}})));
        SANITY_CHECK(! isTrue(COMPARE_EQ, mapOf({{"a", val(1)}, {"b", val(2)}}), mapOf({{"a", val(1)}})));

        // Arrays compare deeply by `==` and by identity of the vector by `===`.
        StoredPtr nested = arrayOf({val(1), arrayOf({val(2), val(3)}), mapOf({{"x", val(1)}})});
        StoredPtr sameNested = arrayOf({val(1), arrayOf({val(2), val(3)}), mapOf({{"x", val(1)}})});
        SANITY_CHECK(isTrue(COMPARE_EQ, nested, sameNested));
        SANITY_CHECK(! isTrue(COMPARE_NE, nested, sameNested));
        SANITY_CHECK(! isTrue(COMPARE_IDENTICAL, nested, sameNested));
        SANITY_CHECK(isTrue(COMPARE_NOT_IDENTICAL, nested, sameNested));
        SANITY_CHECK(isTrue(COMPARE_IDENTICAL, nested, OMStored::cloneFactory(*nested, 0)));
        SANITY_CHECK(
            ! isTrue(COMPARE_IDENTICAL, nested, OMStored::cloneFactory(*nested, OMStored::CLONE_ALL_LEVELS)));
        SANITY_CHECK(isTrue(COMPARE_EQ, arrayOf({}), arrayOf({})));
        SANITY_CHECK(! isTrue(COMPARE_EQ, arrayOf({val(1), val(2)}), arrayOf({val(1), val(2.0)})));
        SANITY_CHECK(! isTrue(COMPARE_EQ, arrayOf({val(1), val(2)}), arrayOf({val(1), val(2), val(3)})));
        SANITY_CHECK(! isTrue(COMPARE_EQ, arrayOf({val(1), val(2), val(3)}), arrayOf({val(1), val(2)})));
        SANITY_CHECK(! isTrue(COMPARE_EQ, arrayOf({nan()}), arrayOf({nan()})));
        SANITY_CHECK(! isTrue(COMPARE_EQ, arrayOf({}), mapOf({})));
        // The elements compared are left as they were.
        CHECK_EQUAL(nested->toString(), "[1, [2, 3], { \"x\": 1 }]");
        retVal = true;
    } while (false);
    return retVal;
}

bool OperatorsTest::testUnaryOperators() {
    bool allOK = checkUnaryCases({
        {NEGATIVE, val(true), OMType::Int, "-1"},
        {NEGATIVE, val(false), OMType::Int, "0"},
        {POSITIVE, val(true), OMType::Int, "1"},
        {NEGATIVE, val("12"), OMType::Int, "-12"},
        {NEGATIVE, val(1.5), OMType::Float, "-1.500000"},
        {POSITIVE, val("abc"), OMType::NaN, "NaN"},
        {NEGATIVE, nullValue(), OMType::NaN, "NaN"},
        {NEGATIVE, error(), OMType::NaN, "NaN"},
        // Containers are true even when empty; only the empty string is a false text.
        {BOOL_NOT, arrayOf({val(1), val(2), val(3)}), OMType::Bool, "false"},
        {BOOL_NOT, mapOf({}), OMType::Bool, "false"},
        {BOOL_NOT, val(""), OMType::Bool, "true"},
        {BOOL_NOT, val("0"), OMType::Bool, "false"},
        {BOOL_NOT, val("false"), OMType::Bool, "false"},
        {BOOL_NOT, nullValue(), OMType::Bool, "true"},
        {BOOL_NOT, undef(), OMType::Bool, "true"},
        {BOOL_NOT, nan(), OMType::Bool, "true"},
        {BOOL_NOT, val(0.0), OMType::Bool, "true"},
        // A fraction has all bits set.
        {BIT_NOT, val(1.5), OMType::Int, "0"},
        {BIT_NOT, val("abc"), OMType::Int, "0"},
        {BIT_NOT, val(0), OMType::Int, "-1"},
        {BIT_NOT, val(5), OMType::Int, "-6"},
        {RETURN, val(7), OMType::Int, "7"},
    });
    bool retVal = false;
    do {
        // Chains: -+true, +-true, !!true, !(!(!false)).
        StoredPtr minusPlus = OMNode::unaryOperation(
            NEGATIVE, *OMNode::unaryOperation(POSITIVE, *val(true), KEEP_NODE), KEEP_NODE);
        CHECK_EQUAL(describe(minusPlus), "Int -1");
        StoredPtr plusMinus = OMNode::unaryOperation(
            POSITIVE, *OMNode::unaryOperation(NEGATIVE, *val(true), KEEP_NODE), KEEP_NODE);
        CHECK_EQUAL(describe(plusMinus), "Int -1");
        StoredPtr notNot = OMNode::unaryOperation(
            BOOL_NOT, *OMNode::unaryOperation(BOOL_NOT, *val(true), KEEP_NODE), KEEP_NODE);
        CHECK_EQUAL(describe(notNot), "Bool true");
        StoredPtr notFalse = val(false);
        for (int i = 0; i < 3; ++i) {
            notFalse = OMNode::unaryOperation(BOOL_NOT, *notFalse, KEEP_NODE);
        }
        CHECK_EQUAL(describe(notFalse), "Bool true");
        // The result of a return in its plain form is a copy, never the operand.
        StoredPtr operand = val(7);
        SANITY_CHECK(OMNode::unaryOperation(RETURN, *operand, REUSE_NODE) != operand);
        retVal = true;
    } while (false);
    return retVal && allOK;
}

bool OperatorsTest::testIncrements() {
    using Increment = bool (OMNode::*)(const std::shared_ptr<OMStored>& result);
    struct IncrementCase {
        Increment increment;      // the operator
        StoredPtr operand;        // changed by it
        std::string result;       // toString of the result
        std::string operandAfter; // toString of the operand afterwards
    };
    const std::vector<IncrementCase> cases = {
        {&OMNode::unop_pre_increment, val(true), "2", "2"},
        {&OMNode::unop_pre_increment, val(false), "1", "1"},
        {&OMNode::unop_pre_decrement, val(true), "0", "0"},
        {&OMNode::unop_pre_decrement, val(false), "-1", "-1"},
        {&OMNode::unop_pre_increment, val(1.5), "2.500000", "2.500000"},
        {&OMNode::unop_post_increment, val(5), "5", "6"},
        {&OMNode::unop_post_decrement, val("3"), "\"3\"", "2"},
        {&OMNode::unop_post_increment, undef(), "undefined", "NaN"},
    };
    bool allOK = true;
    for (size_t i = 0; i < cases.size(); ++i) {
        StoredPtr result = undef();
        const bool isDone = ((*cases[i].operand).*cases[i].increment)(result);
        const std::string actual =
            std::to_string(isDone) + " " + result->toString() + " " + cases[i].operand->toString();
        const std::string expected = "1 " + cases[i].result + " " + cases[i].operandAfter;
        if (actual != expected) {
            LOG_ERROR(
                Test::describeMismatch(("increment case " + std::to_string(i)).c_str(), actual, expected));
            allOK = false;
        }
    }
    return allOK;
}

bool OperatorsTest::testTypeOf() {
    auto signature = std::make_shared<FunctionSignature>();
    bool allOK = checkUnaryCases({
        {TYPEOF, undef(), OMType::String, "\"undefined\""},
        {TYPEOF, nullValue(), OMType::String, "\"object\""},
        {TYPEOF, date(0), OMType::String, "\"object\""},
        {TYPEOF, arrayOf({}), OMType::String, "\"object\""},
        {TYPEOF, mapOf({}), OMType::String, "\"object\""},
        {TYPEOF, val(false), OMType::String, "\"boolean\""},
        {TYPEOF, val(1), OMType::String, "\"number\""},
        {TYPEOF, val(1.5), OMType::String, "\"number\""},
        {TYPEOF, nan(), OMType::String, "\"number\""},
        {TYPEOF, val("abc"), OMType::String, "\"string\""},
        {TYPEOF, OMStored::factory(std::shared_ptr<OMExpression>()), OMType::String, "\"expression\""},
        {TYPEOF, error(), OMType::String, "\"error\""},
        {TYPEOF, OMStored::factory(signature, nullptr), OMType::String, "\"function\""},
    });
    bool retVal = false;
    do {
        // A GUID can't be copied into the result, so its typeof is called directly.
        StoredPtr result = undef();
        SANITY_CHECK(guid(1, 2)->unop_typeof(result));
        CHECK_EQUAL(result->getString(), "GUID");
        // "a" + typeof -1.2, and typeof !1.
        NodePtr text = OMNode::binaryOperation(
            ADD, *val("a"), KEEP_NODE,
            *OMNode::unaryOperation(TYPEOF, *OMNode::unaryOperation(NEGATIVE, *val(1.2), KEEP_NODE),
                                    KEEP_NODE),
            KEEP_NODE);
        CHECK_EQUAL(describe(text), "String \"anumber\"");
        StoredPtr typeOfNot =
            OMNode::unaryOperation(TYPEOF, *OMNode::unaryOperation(BOOL_NOT, *val(1), KEEP_NODE), KEEP_NODE);
        CHECK_EQUAL(describe(typeOfNot), "String \"boolean\"");
        retVal = true;
    } while (false);
    return retVal && allOK;
}

bool OperatorsTest::testNodeReuse() {
    bool retVal = false;
    do {
        // Reusing the left operand makes it the result.
        StoredPtr left = val(1);
        StoredPtr right = val(2);
        NodePtr result = OMNode::binaryOperation(ADD, *left, REUSE_NODE, *right, KEEP_NODE);
        SANITY_CHECK(result == left);
        CHECK_EQUAL(left->toString() + " " + right->toString(), "3 2");
        // ... or the right one.
        left = val(1);
        right = val(2);
        result = OMNode::binaryOperation(SUBTRACT, *left, KEEP_NODE, *right, REUSE_NODE);
        SANITY_CHECK(result == right);
        CHECK_EQUAL(left->toString() + " " + right->toString(), "1 -1");
        // Keeping both leaves both untouched.
        left = val("a");
        right = val(2);
        result = OMNode::binaryOperation(ADD, *left, KEEP_NODE, *right, KEEP_NODE);
        SANITY_CHECK(result && result != left && result != right);
        CHECK_EQUAL(describe(result) + " " + left->toString() + " " + right->toString(),
                    "String \"a2\" \"a\" 2");
        // An accumulator grows in place.
        StoredPtr accumulator = val("a");
        for (int i = 0; i < 3; ++i) {
            SANITY_CHECK(OMNode::binaryOperation(ADD, *accumulator, REUSE_NODE, *val("b"), KEEP_NODE) ==
                         accumulator);
        }
        CHECK_EQUAL(accumulator->getString(), "abbb");
        // A reused container becomes its element; the vector it shared is left intact.
        StoredPtr array = arrayOf({val(10), val(20)});
        StoredPtr sharing = OMStored::cloneFactory(*array, 0);
        SANITY_CHECK(OMNode::binaryOperation(INDEX, *array, REUSE_NODE, *val(1), KEEP_NODE) == array);
        CHECK_EQUAL(describe(array), "Int 20");
        CHECK_EQUAL(sharing->toString(), "[10, 20]");
        // A reused assignment target takes the right value.
        left = val(1);
        SANITY_CHECK(OMNode::binaryOperation(ASSIGN, *left, REUSE_NODE, *val("x"), KEEP_NODE) == left);
        CHECK_EQUAL(left->getString(), "x");
        // The shared-pointer form is the same with a scope.
        left = val(4);
        result = OMNode::binaryOperation(MULTIPLY, left, REUSE_NODE, val(2.5), KEEP_NODE, OMScope::factory());
        SANITY_CHECK(result == left);
        CHECK_EQUAL(left->toString(), "10");
        StoredPtr negated = OMNode::unaryOperation(NEGATIVE, left, OMScope::factory(), KEEP_NODE);
        CHECK_EQUAL(describe(negated) + " " + left->toString(), "Int -10 10");
        retVal = true;
    } while (false);
    return retVal;
}

bool OperatorsTest::testIndex() {
    StoredPtr array = arrayOf({val(10), val(20), val(30)});
    StoredPtr map = mapOf({{"-1", val("neg")}, {"1", val("one")}, {"x", val(7)}, {"1.500000", val("frac")}});
    return checkBinaryCases({
        // A whole number of at least 0 is a position, as Int or as Float.
        {INDEX, array, val(1), OMType::Int, "20"},
        {INDEX, array, val(2.0), OMType::Int, "30"},
        {INDEX, array, val("1"), OMType::Int, "20"},
        {INDEX, array, val(5), OMType::Error, "error"},
        {INDEX, arrayOf({arrayOf({val(1)})}), val(0), OMType::Array, "[1]"},
        // Anything else is the name of an attribute.
        {INDEX, array, val(-1), OMType::Error, "error"},
        {INDEX, array, val(1e30), OMType::Error, "error"},
        {INDEX, map, val(-1), OMType::String, "\"neg\""},
        {INDEX, map, val("x"), OMType::Int, "7"},
        {INDEX, map, val(1.5), OMType::String, "\"frac\""},
        {INDEX, map, val("1"), OMType::String, "\"one\""},
        // A map has no elements by position, a string no characters.
        {INDEX, map, val(1), OMType::Error, "error"},
        {INDEX, val("abc"), val(0), OMType::Error, "error"},
    });
}

bool OperatorsTest::testRefusals() {
    bool retVal = false;
    do {
        NodePtr result;
        // Remainder and shifts exist only as text.
        auto lines = recordLogLines([&result]() {
            result = OMNode::binaryOperation(MODULO, *val(7), KEEP_NODE, *val(2), KEEP_NODE);
        });
        CHECK_EQUAL(describe(result), "Undefined undefined");
        SANITY_CHECK(hasLineEndingWith(lines, "unexpected operation"));
        lines = recordLogLines([&result]() {
            result = OMNode::binaryOperation(SHIFT_LEFT, *val(1), KEEP_NODE, *val(2), KEEP_NODE);
        });
        CHECK_EQUAL(describe(result), "Undefined undefined");
        // The increments need an l-value: the dispatcher doesn't take them.
        lines = recordLogLines(
            [&result]() { result = OMNode::unaryOperation(PRE_INCREMENT, *val(1), KEEP_NODE); });
        CHECK_EQUAL(describe(result), "Undefined undefined");
        SANITY_CHECK(hasLineEndingWith(lines, "invalid unOp"));
        // Containers and functions have no order.
        lines = recordLogLines([&result]() {
            result = OMNode::binaryOperation(COMPARE_LT, *arrayOf({val(1)}), KEEP_NODE, *arrayOf({val(2)}),
                                             KEEP_NODE);
        });
        CHECK_EQUAL(describe(result), "Undefined undefined");
        SANITY_CHECK(hasLineEndingWith(lines, "unexpected type"));
        lines = recordLogLines([&result]() {
            result = OMNode::binaryOperation(COMPARE_GT, *mapOf({}), KEEP_NODE, *mapOf({}), KEEP_NODE);
        });
        CHECK_EQUAL(describe(result), "Undefined undefined");
        // A node inside a data structure is never reused as a result.
        StoredPtr tree = OMStored::mapFactory();
        SANITY_CHECK(tree->setIsDataStructure(true));
        NodePtr child = tree->setSync("k", val(1));
        SANITY_CHECK(child && child->getDataStructureParent() == tree);
        lines = recordLogLines(
            [&]() { result = OMNode::binaryOperation(ADD, *child, REUSE_NODE, *val(1), KEEP_NODE); });
        SANITY_CHECK(! result);
        SANITY_CHECK(
            hasLineEndingWith(lines, "'! node1Stored->getDataStructureParent()' evaluates to false"));
        CHECK_EQUAL(child->toString(), "1");
        // The shared-pointer forms need a scope.
        lines = recordLogLines([&result]() {
            result = OMNode::binaryOperation(ADD, val(1), KEEP_NODE, val(1), KEEP_NODE, nullptr);
        });
        SANITY_CHECK(! result);
        SANITY_CHECK(hasLineEndingWith(lines, "'scope' evaluates to false"));
        // Called directly, the equality family sees Error operands, and a missing result is a fault.
        StoredPtr direct = undef();
        SANITY_CHECK(error()->binop_compare_eq(direct, *error()) && ! direct->getBool());
        SANITY_CHECK(error()->binop_compare_ne(direct, *val(1)) && direct->getBool());
        bool isAdded = true;
        lines = recordLogLines([&isAdded]() { isAdded = val(1)->binop_add(nullptr, *val(2)); });
        SANITY_CHECK(! isAdded);
        SANITY_CHECK(hasLineEndingWith(lines, "'result' evaluates to false"));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
