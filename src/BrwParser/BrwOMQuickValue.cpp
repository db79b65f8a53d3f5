#include "BrwParser/BrwOMQuickValue.h"

#include <cmath>
#include <limits>

#include "BrwParser/BrwOMNode.h"
#include "BrwParser/BrwOMStored.h"

namespace Brw {

namespace {

// The range of doubles that a 64-bit whole number can hold exactly as an Int.
constexpr double INT_LOW = -9.2233720368547758e18;
constexpr double INT_HIGH = 9.2233720368547758e18;

bool isNumber(OMType type) {
    return type == OMType::Int || type == OMType::Float;
}

bool isUndefinedOrNull(OMType type) {
    return type == OMType::Undefined || type == OMType::Null;
}

// `<` as the operators order values: NaN is never less, numbers by value, other types by type number.
bool isLess(const OMQuickValue& left, const OMQuickValue& right) {
    if (left.fType == OMType::NaN || right.fType == OMType::NaN) {
        return false;
    }
    if (isNumber(left.fType) && isNumber(right.fType)) {
        return left.asNum() < right.asNum();
    }
    if (left.fType != right.fType) {
        return static_cast<int32_t>(left.fType) < static_cast<int32_t>(right.fType);
    }
    return left.fType == OMType::Bool && ! left.fBool && right.fBool;
}

// `===`: same type and value; an Int never equals a Float.
bool isIdentical(const OMQuickValue& left, const OMQuickValue& right) {
    if (left.fType == OMType::NaN || left.fType != right.fType) {
        return false;
    }
    switch (left.fType) {
    case OMType::Bool:
        return left.fBool == right.fBool;
    case OMType::Int:
        return left.fInt == right.fInt;
    case OMType::Float:
        return left.fFloat == right.fFloat;
    default:
        return true; // undefined and null
    }
}

// `==`: as `===`, but undefined and null equal each other.
bool isEqual(const OMQuickValue& left, const OMQuickValue& right) {
    if (left.fType == OMType::NaN || right.fType == OMType::NaN) {
        return false;
    }
    return (isUndefinedOrNull(left.fType) && isUndefinedOrNull(right.fType)) || isIdentical(left, right);
}

bool isBothNaN(const OMQuickValue& left, const OMQuickValue& right) {
    return left.fType == OMType::NaN && right.fType == OMType::NaN;
}

} // namespace

bool OMQuickValue::fromNode(const std::shared_ptr<IOMNode>& node, OMQuickValue& value) {
    value.fType = node->getType();
    value.fInt = 0;
    value.fNode.reset();
    switch (value.fType) {
    case OMType::Undefined:
    case OMType::Null:
    case OMType::NaN:
        break;
    case OMType::Bool:
        value.fBool = node->getBool();
        break;
    case OMType::Int:
        value.fInt = node->getInt();
        break;
    case OMType::Float:
        value.fFloat = node->getFloat();
        break;
    case OMType::String:
        // A copy: the original may change while the copy is in use.
        value.fNode = node->clone(0);
        break;
    case OMType::Map:
    case OMType::Array:
        value.fNode = node;
        break;
    default:
        return false;
    }
    return node->isResolved(RUN) && (value.fNode || value.isPlain());
}

OMQuickValue OMQuickValue::fromNum(double number) {
    OMQuickValue value;
    if (std::isnan(number)) {
        value.fType = OMType::NaN;
    } else if (number >= INT_LOW && number < INT_HIGH &&
               static_cast<double>(static_cast<OMInt>(number)) == number) {
        value.fType = OMType::Int;
        value.fInt = static_cast<OMInt>(number);
    } else {
        value.fType = OMType::Float;
        value.fFloat = number;
    }
    return value;
}

OMQuickValue OMQuickValue::fromInt(OMInt number) {
    OMQuickValue value;
    value.fType = OMType::Int;
    value.fInt = number;
    return value;
}

OMQuickValue OMQuickValue::fromBool(bool truth) {
    OMQuickValue value;
    value.fType = OMType::Bool;
    value.fBool = truth;
    return value;
}

std::shared_ptr<IOMNode> OMQuickValue::toNode() const {
    switch (fType) {
    case OMType::Null:
        return OMStored::nullFactory();
    case OMType::NaN:
        return OMStored::nanFactory();
    case OMType::Bool:
        return OMStored::factory(fBool);
    case OMType::Int:
        return OMStored::factory(fInt);
    case OMType::Float:
        return OMStored::factory(fFloat);
    case OMType::String:
        return fNode->clone(0);
    case OMType::Map:
    case OMType::Array:
        return fNode;
    default:
        return OMStored::undefinedFactory();
    }
}

bool OMQuickValue::storeInto(IOMNode& node) const {
    switch (fType) {
    case OMType::Null:
        return node.setNull();
    case OMType::NaN:
        return node.setNaN();
    case OMType::Bool:
        return node.set(fBool);
    case OMType::Int:
        return node.set(fInt);
    case OMType::Float:
        return node.set(fFloat);
    case OMType::Undefined:
        return node.setUndefined();
    default:
        return fNode && node.set(*fNode);
    }
}

double OMQuickValue::asNum() const {
    switch (fType) {
    case OMType::Bool:
        return fBool ? 1.0 : 0.0;
    case OMType::Int:
        return static_cast<double>(fInt);
    case OMType::Float:
        return fFloat;
    default:
        return fNode ? fNode->getAsNum() : std::numeric_limits<double>::quiet_NaN();
    }
}

bool OMQuickValue::asBool() const {
    switch (fType) {
    case OMType::Bool:
        return fBool;
    case OMType::Int:
        return fInt != 0;
    case OMType::Float:
        return fFloat != 0.0;
    default:
        return fNode && fNode->getAsBool();
    }
}

int64_t OMQuickValue::asBits() const {
    const double number = asNum();
    if (std::isnan(number) || number < INT_LOW || number >= INT_HIGH) {
        return -1;
    }
    const auto whole = static_cast<int64_t>(std::floor(number));
    return static_cast<double>(whole) == number ? whole : -1;
}

bool OMQuickValue::isQuickBinary(int32_t op) {
    return op == MULTIPLY || op == DIVIDE || op == ADD || op == SUBTRACT ||
           (op >= COMPARE_LT && op <= BOOL_OR);
}

bool OMQuickValue::isQuickUnary(int32_t op) {
    return op == NEGATIVE || op == POSITIVE || op == BOOL_NOT || op == BIT_NOT;
}

bool OMQuickValue::nodeBinary(BinOp op, const OMQuickValue& left, const OMQuickValue& right,
                              OMQuickValue& result) {
    // A text takes the operators of nodes, which never fail on texts; containers take the long way, and so
    // does a text past the limit, which the long way reports once.
    if (! isQuickBinary(op) || left.isContainer() || right.isContainer()) {
        return false;
    }
    const std::shared_ptr<IOMNode> leftNode = left.fNode ? left.fNode : left.toNode();
    const std::shared_ptr<IOMNode> rightNode = right.fNode ? right.fNode : right.toNode();
    if (op == ADD && ! OMNode::isSumWithinTextLimit(*leftNode, *rightNode)) {
        return false;
    }
    const std::shared_ptr<IOMNode> node =
        OMNode::binaryOperation(op, *leftNode, KEEP_NODE, *rightNode, KEEP_NODE);
    return node && fromOwnNode(node, result);
}

bool OMQuickValue::unary(UnOp op, const OMQuickValue& operand, OMQuickValue& result) {
    if (! isQuickUnary(op) || operand.isContainer()) {
        return false;
    }
    if (operand.fNode) {
        const std::shared_ptr<IOMNode> node = OMNode::unaryOperation(op, *operand.fNode, KEEP_NODE);
        return node && fromOwnNode(node, result);
    }
    switch (op) {
    case NEGATIVE:
        result = fromNum(-operand.asNum());
        return true;
    case POSITIVE:
        result = fromNum(operand.asNum());
        return true;
    case BOOL_NOT:
        result = fromBool(! operand.asBool());
        return true;
    case BIT_NOT:
        result = fromInt(~operand.asBits());
        return true;
    default:
        return false;
    }
}

bool OMQuickValue::fromOwnNode(const std::shared_ptr<IOMNode>& node, OMQuickValue& value) {
    // A result nobody else holds needn't be copied again.
    if (node->getType() == OMType::String) {
        value.fType = OMType::String;
        value.fNode = node;
        return true;
    }
    return fromNode(node, value);
}

bool OMQuickValue::plainBinary(BinOp op, const OMQuickValue& left, const OMQuickValue& right,
                               OMQuickValue& result) {
    switch (op) {
    case ADD:
        result = fromNum(left.asNum() + right.asNum());
        return true;
    case SUBTRACT:
        result = fromNum(left.asNum() - right.asNum());
        return true;
    case MULTIPLY:
        result = fromNum(left.asNum() * right.asNum());
        return true;
    case DIVIDE: {
        // A division by zero is NaN, never an infinity.
        const double divisor = right.asNum();
        result = divisor == 0.0 ? fromNum(std::numeric_limits<double>::quiet_NaN())
                                : fromNum(left.asNum() / divisor);
        return true;
    }
    case COMPARE_LT:
        result = fromBool(isLess(left, right));
        return true;
    case COMPARE_LE:
        result = fromBool(isLess(left, right) || isEqual(left, right));
        return true;
    case COMPARE_GT:
        result = fromBool(left.fType != OMType::NaN && right.fType != OMType::NaN && ! isLess(left, right) &&
                          ! isEqual(left, right));
        return true;
    case COMPARE_GE:
        result = fromBool(left.fType != OMType::NaN && right.fType != OMType::NaN && ! isLess(left, right));
        return true;
    case COMPARE_EQ:
        result = fromBool(isEqual(left, right));
        return true;
    case COMPARE_NE:
        result = fromBool(isBothNaN(left, right) || ! isEqual(left, right));
        return true;
    case COMPARE_IDENTICAL:
        result = fromBool(isIdentical(left, right));
        return true;
    case COMPARE_NOT_IDENTICAL:
        result = fromBool(isBothNaN(left, right) || ! isIdentical(left, right));
        return true;
    case BIT_AND: {
        const int64_t bits = left.asBits();
        result = fromInt(bits == 0 ? 0 : bits & right.asBits());
        return true;
    }
    case BIT_OR: {
        const int64_t bits = left.asBits();
        result = fromInt(bits == -1 ? -1 : bits | right.asBits());
        return true;
    }
    case BIT_XOR:
        result = fromInt(left.asBits() ^ right.asBits());
        return true;
    case BOOL_AND:
        result = fromBool(left.asBool() && right.asBool());
        return true;
    case BOOL_OR:
        result = fromBool(left.asBool() || right.asBool());
        return true;
    default:
        return false;
    }
    return false;
}

} // namespace Brw
