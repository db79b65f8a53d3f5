#include "BrwParser/BrwOMQuickValueTest.h"

#include <cmath>
#include <limits>
#include <vector>

#include "BrwParser/BrwOMNode.h"
#include "BrwParser/BrwOMQuickValue.h"
#include "BrwParser/BrwOMStored.h"

namespace Brw {

namespace {

// Fresh nodes of the values the operators are tried on.
std::vector<std::shared_ptr<IOMNode>> sampleNodes() {
    return {
        OMStored::factory(OMInt(0)),
        OMStored::factory(OMInt(7)),
        OMStored::factory(OMInt(-3)),
        OMStored::factory(OMInt(9007199254740993)),
        OMStored::factory(std::numeric_limits<OMInt>::max()),
        OMStored::factory(OMFloat(1.5)),
        OMStored::factory(OMFloat(-0.5)),
        OMStored::factory(OMFloat(2.0)),
        OMStored::factory(OMFloat(1e300)),
        OMStored::factory(std::numeric_limits<OMFloat>::infinity()),
        OMStored::factory(true),
        OMStored::factory(false),
        OMStored::undefinedFactory(),
        OMStored::nullFactory(),
        OMStored::nanFactory(),
        OMStored::factory(""),
        OMStored::factory("12"),
        OMStored::factory("1.5"),
        OMStored::factory("abc"),
    };
}

// Same type and value; a number by its bits, so that -0 and 0 differ too.
bool isSameValue(const IOMNode& quick, const IOMNode& node) {
    if (quick.getType() != node.getType()) {
        return false;
    }
    switch (node.getType()) {
    case OMType::Int:
        return quick.getInt() == node.getInt();
    case OMType::Float:
        return std::signbit(quick.getFloat()) == std::signbit(node.getFloat()) &&
               (quick.getFloat() == node.getFloat() ||
                (std::isnan(quick.getFloat()) && std::isnan(node.getFloat())));
    case OMType::Bool:
        return quick.getBool() == node.getBool();
    case OMType::String:
        return quick.getString() == node.getString();
    default:
        return true;
    }
}

// The text a failed case logs: the operator's number and both operands.
std::string caseText(int32_t op, const IOMNode& left, const IOMNode* right) {
    return std::to_string(op) + " on " + left.toString() +
           (right != nullptr ? " and " + right->toString() : "");
}

// 1, logged, when the quick result isn't what the node operator gave; else 0.
int mismatch(const OMQuickValue& result, const IOMNode& expected, const std::string& what) {
    const std::shared_ptr<IOMNode> quick = result.toNode();
    if (isSameValue(*quick, expected)) {
        return 0;
    }
    LOG_ERROR("quick result differs: " + what + " gives " + quick->toString() + ", not " +
              expected.toString());
    return 1;
}

} // namespace

bool OMQuickValueTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = true;
    allOK = testBinaryOperators() && allOK;
    allOK = testUnaryOperators() && allOK;
    allOK = testContainersTakeTheLongWay() && allOK;
    return allOK;
}

bool OMQuickValueTest::testBinaryOperators() {
    bool retVal = false;
    do {
        const std::vector<std::shared_ptr<IOMNode>> nodes = sampleNodes();
        int mismatchCount = 0;
        for (int32_t op = MULTIPLY; op <= BOOL_OR; ++op) {
            if (! OMQuickValue::isQuickBinary(op)) {
                continue;
            }
            for (const auto& left : nodes) {
                for (const auto& right : nodes) {
                    OMQuickValue quickLeft;
                    OMQuickValue quickRight;
                    OMQuickValue result;
                    SANITY_CHECK(OMQuickValue::fromNode(left, quickLeft));
                    SANITY_CHECK(OMQuickValue::fromNode(right, quickRight));
                    SANITY_CHECK(OMQuickValue::binary(static_cast<BinOp>(op), quickLeft, quickRight, result));
                    const std::shared_ptr<IOMNode> expected =
                        OMNode::binaryOperation(static_cast<BinOp>(op), *left, KEEP_NODE, *right, KEEP_NODE);
                    SANITY_CHECK(expected);
                    mismatchCount += mismatch(result, *expected, caseText(op, *left, right.get()));
                }
            }
        }
        CHECK_EQUAL(mismatchCount, 0);
        retVal = true;
    } while (false);
    return retVal;
}

bool OMQuickValueTest::testUnaryOperators() {
    bool retVal = false;
    do {
        int mismatchCount = 0;
        for (int32_t op = PRE_DECREMENT; op <= RETURN; ++op) {
            if (! OMQuickValue::isQuickUnary(op)) {
                continue;
            }
            for (const auto& operand : sampleNodes()) {
                OMQuickValue quickOperand;
                OMQuickValue result;
                SANITY_CHECK(OMQuickValue::fromNode(operand, quickOperand));
                SANITY_CHECK(OMQuickValue::unary(static_cast<UnOp>(op), quickOperand, result));
                const std::shared_ptr<IOMNode> expected =
                    OMNode::unaryOperation(static_cast<UnOp>(op), *operand, KEEP_NODE);
                SANITY_CHECK(expected);
                mismatchCount += mismatch(result, *expected, caseText(op, *operand, nullptr));
            }
        }
        CHECK_EQUAL(mismatchCount, 0);
        retVal = true;
    } while (false);
    return retVal;
}

bool OMQuickValueTest::testContainersTakeTheLongWay() {
    bool retVal = false;
    do {
        // A container is held, not copied, and no operator runs on it: the long way reports what it must.
        std::shared_ptr<IOMNode> list = OMStored::arrayFactory();
        OMQuickValue quickList;
        SANITY_CHECK(OMQuickValue::fromNode(list, quickList));
        SANITY_CHECK(quickList.isContainer() && quickList.toNode() == list);
        OMQuickValue one = OMQuickValue::fromInt(1);
        OMQuickValue result;
        SANITY_CHECK(! OMQuickValue::binary(COMPARE_LT, quickList, one, result));
        SANITY_CHECK(! OMQuickValue::binary(ADD, one, quickList, result));
        SANITY_CHECK(! OMQuickValue::unary(NEGATIVE, quickList, result));
        // A text is copied: the quick value doesn't change with the node it came from.
        std::shared_ptr<IOMNode> text = OMStored::factory("ab");
        OMQuickValue quickText;
        SANITY_CHECK(OMQuickValue::fromNode(text, quickText));
        SANITY_CHECK(text->set(std::string("changed")));
        CHECK_EQUAL(quickText.toNode()->getString(), std::string("ab"));
        // Values no quick code holds.
        OMQuickValue ignored;
        SANITY_CHECK(! OMQuickValue::fromNode(OMStored::errorFactory(), ignored));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
