// The operators of the script language over every pair of value kinds, and their two dispatchers.
#include <cmath>

#include "BrwLogger/BrwCheck.h"
#include "BrwObject/BrwGUIDClass.h"
#include "BrwParser/BrwOMExpression.h"
#include "BrwParser/BrwOMNode.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwParser/BrwOMValuePath.h"

namespace Brw {

namespace {

using BinaryOperator = bool (OMNode::*)(const IOMNode::NodePtr& result, IOMNode& other);
using UnaryOperator = bool (OMNode::*)(const std::shared_ptr<OMStored>& result);

// 2 to the 64th: the first double that no longer fits an index.
constexpr double INDEX_LIMIT = 18446744073709551616.0;

bool isErrorOrNaN(OMType type) {
    return type == OMType::Error || type == OMType::NaN;
}

bool isUndefinedOrNull(OMType type) {
    return type == OMType::Undefined || type == OMType::Null;
}

bool isNumber(OMType type) {
    return type == OMType::Int || type == OMType::Float;
}

// The operator of a code that has one; null for the codes the dispatcher handles itself or doesn't know.
BinaryOperator binaryOperatorOf(BinOp op) {
    switch (op) {
    case INDEX:
        return &OMNode::binop_index;
    case MULTIPLY:
        return &OMNode::binop_multiply;
    case DIVIDE:
        return &OMNode::binop_divide;
    case ADD:
        return &OMNode::binop_add;
    case SUBTRACT:
        return &OMNode::binop_subtract;
    case COMPARE_LT:
        return &OMNode::binop_compare_lt;
    case COMPARE_LE:
        return &OMNode::binop_compare_le;
    case COMPARE_GT:
        return &OMNode::binop_compare_gt;
    case COMPARE_GE:
        return &OMNode::binop_compare_ge;
    case COMPARE_EQ:
        return &OMNode::binop_compare_eq;
    case COMPARE_IDENTICAL:
        return &OMNode::binop_compare_identical;
    case COMPARE_NOT_IDENTICAL:
        return &OMNode::binop_compare_not_identical;
    case COMPARE_NE:
        return &OMNode::binop_compare_ne;
    case BIT_AND:
        return &OMNode::binop_bit_and;
    case BIT_XOR:
        return &OMNode::binop_bit_xor;
    case BIT_OR:
        return &OMNode::binop_bit_or;
    case BOOL_AND:
        return &OMNode::binop_bool_and;
    case BOOL_OR:
        return &OMNode::binop_bool_or;
    default:
        return nullptr;
    }
}

// Only the operators that need no l-value: the increments are carried out by the expression tree.
UnaryOperator unaryOperatorOf(UnOp op) {
    switch (op) {
    case NEGATIVE:
        return &OMNode::unop_negative;
    case POSITIVE:
        return &OMNode::unop_positive;
    case BOOL_NOT:
        return &OMNode::unop_bool_not;
    case BIT_NOT:
        return &OMNode::unop_bit_not;
    case TYPEOF:
        return &OMNode::unop_typeof;
    default:
        return nullptr;
    }
}

// Runs the operator of `op`, or the assignment and loop codes that have none; false when the code is
// unknown or the operator failed.
bool runBinaryOperator(BinOp op, OMStored& node1Stored, const IOMNode::NodePtr& result, IOMNode& node2) {
    bool retVal = false;
    do {
        if (op == ASSIGN || op == COMMA || op == SEMICOLON) {
            retVal = static_cast<bool>(result->set(node2));
            break;
        }
        if (op == WHILE || op == DO_WHILE) {
            // NOTE: a loop met as a plain value is undefined, and so is its left operand afterwards.
            const bool isOperandCleared = node1Stored.setUndefined();
            retVal = result->setUndefined() && isOperandCleared;
            break;
        }
        BinaryOperator binaryOperator = binaryOperatorOf(op);
        if (binaryOperator == nullptr) {
            // NOTE: remainder and shifts can be printed but have no meaning in the language.
            LOG_ERROR("unexpected operation");
            break;
        }
        retVal = (node1Stored.*binaryOperator)(result, node2);
    } while (false);
    return retVal;
}

// The node that receives a binary result: an operand that nothing else refers to, or a copy of the left.
IOMNode::NodePtr chooseResultNode(IOMNode& node1, const std::shared_ptr<OMStored>& node1Stored,
                                  NodeReuse reuse1, const std::shared_ptr<OMStored>& node2Stored,
                                  NodeReuse reuse2) {
    IOMNode::NodePtr retVal;
    do {
        if (reuse1 == REUSE_NODE) {
            SANITY_CHECK(! node1Stored->getDataStructureParent());
            retVal = node1Stored;
        } else if (reuse2 == REUSE_NODE) {
            SANITY_CHECK(! node2Stored->getDataStructureParent());
            retVal = node2Stored;
        } else {
            retVal = OMStored::cloneFactory(node1, 0);
        }
    } while (false);
    return retVal;
}

// `==` of one element of a container with its counterpart; false only on an internal fault.
bool isElementEqual(const IOMNode::NodePtr& child, const IOMNode::NodePtr& otherChild, bool& isEqual) {
    bool retVal = false;
    do {
        isEqual = false;
        SANITY_CHECK(child);
        std::shared_ptr<OMStored> tempNode = OMStored::cloneFactory(*child, 0);
        SANITY_CHECK(tempNode);
        SANITY_CHECK(otherChild);
        SANITY_CHECK(tempNode->binop_compare_eq(tempNode, *otherChild));
        isEqual = tempNode->getBool();
        retVal = true;
    } while (false);
    return retVal;
}

// Deep `==` of two arrays, element by element in order.
bool areArraysEqual(const IOMNode& array, const IOMNode& otherArray, bool& isEqual) {
    bool retVal = false;
    do {
        isEqual = array.getSize() == otherArray.getSize();
        std::shared_ptr<IOMNodeIterator> iterator = array.getIterator();
        std::shared_ptr<IOMNodeIterator> otherIterator = otherArray.getIterator();
        SANITY_CHECK(iterator && otherIterator);
        bool allOK = true;
        for (; isEqual && ! iterator->isAtEnd() && ! otherIterator->isAtEnd();
             ++*iterator, ++*otherIterator) {
            allOK = isElementEqual(**iterator, **otherIterator, isEqual);
            if (! allOK) {
                break;
            }
        }
        SANITY_CHECK(allOK);
        retVal = true;
    } while (false);
    return retVal;
}

// Deep `==` of two maps: the attributes are looked up by name, so their order doesn't matter.
bool areMapsEqual(const IOMNode& map, const IOMNode& otherMap, bool& isEqual) {
    bool retVal = false;
    do {
        isEqual = map.getSize() == otherMap.getSize();
        std::shared_ptr<IOMNodeIterator> iterator = map.getIterator();
        SANITY_CHECK(iterator);
        bool allOK = true;
        for (; isEqual && ! iterator->isAtEnd(); ++*iterator) {
            // An attribute the other map lacks reads as an Error node, which equals nothing.
            allOK = isElementEqual(**iterator, otherMap.getOMNode(iterator->getKey()), isEqual);
            if (! allOK) {
                break;
            }
        }
        SANITY_CHECK(allOK);
        retVal = true;
    } while (false);
    return retVal;
}

// `<` of two values of the same type that is neither a number nor a string.
bool isLessSameType(const IOMNode& node, const IOMNode& otherNode, bool& isLess) {
    bool retVal = false;
    do {
        isLess = false;
        const OMType type = node.getType();
        if (isUndefinedOrNull(type)) {
            isLess = false;
        } else if (type == OMType::Date) {
            isLess = node.getDate() < otherNode.getDate();
        } else if (type == OMType::GUID) {
            GUIDClass* guid = node.getGUID();
            SANITY_CHECK(guid);
            GUIDClass* otherGUID = otherNode.getGUID();
            SANITY_CHECK(otherGUID);
            isLess = *guid < *otherGUID;
        } else if (type == OMType::Bool) {
            isLess = ! node.getBool() && otherNode.getBool();
        } else if (type == OMType::Expression) {
            std::shared_ptr<OMExpression> expression = node.getExpression();
            SANITY_CHECK(expression);
            std::shared_ptr<OMExpression> otherExpression = otherNode.getExpression();
            SANITY_CHECK(otherExpression);
            isLess = *expression < *otherExpression;
        } else {
            // Containers and functions have no order.
            LOG_ERROR("unexpected type");
            break;
        }
        retVal = true;
    } while (false);
    return retVal;
}

// `<` as an ordered list of tests; false only when the values have no order.
bool isLessThan(const IOMNode& node, const IOMNode& otherNode, bool& isLess) {
    bool retVal = true;
    const OMType type = node.getType();
    const OMType otherType = otherNode.getType();
    isLess = false;
    if (type == OMType::NaN || otherType == OMType::NaN || type == OMType::Error ||
        otherType == OMType::Error) {
        isLess = false;
    } else if (type == OMType::String || otherType == OMType::String) {
        // NOTE: the right side is the raw string, on purpose: a number on the right reads as "".
        isLess = node.getAsString() < otherNode.getString();
    } else if (isNumber(type) && isNumber(otherType)) {
        isLess = node.getAsNum() < otherNode.getAsNum();
    } else if (type != otherType) {
        isLess = static_cast<int32_t>(type) < static_cast<int32_t>(otherType);
    } else {
        retVal = isLessSameType(node, otherNode, isLess);
    }
    return retVal;
}

// The index that `otherNode` stands for: a whole number of at least 0, given as Int or Float.
bool getIndex(const IOMNode& otherNode, uint64_t& index) {
    bool retVal = false;
    const double value = otherNode.getFloat();
    if (otherNode.getType() == OMType::Int && otherNode.getInt() >= 0) {
        index = static_cast<uint64_t>(otherNode.getInt());
        retVal = true;
    } else if (otherNode.getType() == OMType::Float && value >= 0.0 && value < INDEX_LIMIT &&
               std::floor(value) == value) {
        index = static_cast<uint64_t>(value);
        retVal = true;
    }
    return retVal;
}

} // namespace

// ---- dispatchers ----

IOMNode::NodePtr OMNode::binaryOperation(BinOp op, const NodePtr& node1, NodeReuse reuse1,
                                         const NodePtr& node2, NodeReuse reuse2, const ScopePtr& scope) {
    NodePtr retVal;
    do {
        SANITY_CHECK(node1);
        SANITY_CHECK(node2);
        SANITY_CHECK(scope);
        retVal = binaryOperation(op, *node1, reuse1, *node2, reuse2);
        SANITY_CHECK(retVal);
    } while (false);
    return retVal;
}

IOMNode::NodePtr OMNode::binaryOperation(BinOp op, IOMNode& node1, NodeReuse reuse1, IOMNode& node2,
                                         NodeReuse reuse2) {
    NodePtr retVal;
    do {
        // A sequence's value is its right side, whatever the left was.
        if (op == COMMA || op == SEMICOLON) {
            retVal = node2.clone(0);
            break;
        }
        if (node1.getType() == OMType::Error || node2.getType() == OMType::Error) {
            retVal = OMStored::errorFactory();
            break;
        }
        std::shared_ptr<OMStored> node1Stored = OMStored::rewrapFactory(node1);
        SANITY_CHECK(node1Stored);
        std::shared_ptr<OMStored> node2Stored = OMStored::rewrapFactory(node2);
        SANITY_CHECK(node2Stored);
        // A comparison writes its result before it reads it: a new node will do, no copy of the left.
        const bool isComparison = op >= COMPARE_LT && op <= COMPARE_NE;
        NodePtr result = isComparison && reuse1 == KEEP_NODE && reuse2 == KEEP_NODE
                             ? OMStored::undefinedFactory()
                             : chooseResultNode(node1, node1Stored, reuse1, node2Stored, reuse2);
        SANITY_CHECK(result);
        if (! runBinaryOperator(op, *node1Stored, result, node2)) {
            VERIFY(result->setUndefined());
        }
        retVal = result;
    } while (false);
    return retVal;
}

std::shared_ptr<OMStored> OMNode::unaryOperation(UnOp op, const NodePtr& node, const ScopePtr& scope,
                                                 NodeReuse reuse) {
    std::shared_ptr<OMStored> retVal;
    do {
        SANITY_CHECK(node);
        SANITY_CHECK(scope);
        if (op == RETURN) {
            // The value itself travels out of the function, wrapped once.
            NodePtr wrapped = node->isReturnValue() ? node : node->wrapReturnValue();
            retVal = std::dynamic_pointer_cast<OMStored>(wrapped);
        } else {
            retVal = unaryOperation(op, *node, reuse);
        }
        SANITY_CHECK(retVal);
    } while (false);
    return retVal;
}

// The result is always a new node: an operand is left as it is whatever the caller allows.
std::shared_ptr<OMStored> OMNode::unaryOperation(UnOp op, IOMNode& node, NodeReuse /*reuse*/) {
    std::shared_ptr<OMStored> retVal;
    do {
        retVal = OMStored::cloneFactory(node, 0);
        SANITY_CHECK(retVal);
        if (op == RETURN) {
            break;
        }
        UnaryOperator unaryOperator = unaryOperatorOf(op);
        auto* operand = dynamic_cast<OMNode*>(&node);
        bool success = false;
        if (unaryOperator == nullptr) {
            LOG_ERROR("invalid unOp");
        } else if (SANITY_CHECKED(operand)) {
            success = (operand->*unaryOperator)(retVal);
        }
        if (! success) {
            VERIFY(retVal->setUndefined());
        }
    } while (false);
    return retVal;
}

// ---- arithmetic ----

namespace {

// The length of a node's text form, without a copy of a stored text.
uint64_t textSizeOf(const IOMNode& node) {
    const OMStored* stored = node.getOMStoredRaw();
    return stored != nullptr && node.getType() == OMType::String ? stored->getTextSize()
                                                                 : node.getAsString().size();
}

} // namespace

bool OMNode::isSumWithinTextLimit(const IOMNode& left, const IOMNode& right) {
    return (left.getType() != OMType::String && right.getType() != OMType::String) ||
           ScriptLimits::isTextWithinLimit(textSizeOf(left) + textSizeOf(right));
}

bool OMNode::binop_add(const NodePtr& result, IOMNode& other) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        OMStored* self =
            result.get() == static_cast<IOMNode*>(this) ? const_cast<OMStored*>(getOMStoredRaw()) : nullptr;
        const bool isText = getType() == OMType::String || other.getType() == OMType::String;
        if (isText && ! ScriptLimits::isTextAllowed(textSizeOf(*this) + textSizeOf(other))) {
            retVal = result->setError();
        } else if (self != nullptr && getType() == OMType::String) {
            // Writing into the left operand itself: the text grows where it is instead of being copied.
            retVal = self->appendString(other.getAsString());
        } else if (isText) {
            retVal = result->set(getAsString() + other.getAsString());
        } else {
            retVal = result->setNum(getAsNum() + other.getAsNum());
        }
    } while (false);
    return retVal;
}

bool OMNode::binop_subtract(const NodePtr& result, IOMNode& other) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        retVal = result->setNum(getAsNum() - other.getAsNum());
    } while (false);
    return retVal;
}

bool OMNode::binop_multiply(const NodePtr& result, IOMNode& other) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        retVal = result->setNum(getAsNum() * other.getAsNum());
    } while (false);
    return retVal;
}

bool OMNode::binop_divide(const NodePtr& result, IOMNode& other) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        const double dOther = other.getAsNum();
        // NOTE: a division by zero is NaN, never an infinity.
        retVal = dOther == 0.0 ? result->setNaN() : result->setNum(getAsNum() / dOther);
    } while (false);
    return retVal;
}

// ---- bits and truth ----

bool OMNode::binop_bit_and(const NodePtr& result, IOMNode& other) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        const int64_t i = getAsBits();
        // Nothing can set a bit again: the right side isn't converted.
        retVal = i == 0 ? result->set(OMInt(0)) : result->set(i & other.getAsBits());
    } while (false);
    return retVal;
}

bool OMNode::binop_bit_or(const NodePtr& result, IOMNode& other) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        const int64_t i = getAsBits();
        // Nothing can clear a bit again: the right side isn't converted.
        retVal = i == -1 ? result->set(OMInt(-1)) : result->set(i | other.getAsBits());
    } while (false);
    return retVal;
}

bool OMNode::binop_bit_xor(const NodePtr& result, IOMNode& other) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        retVal = result->set(getAsBits() ^ other.getAsBits());
    } while (false);
    return retVal;
}

// `&&` and `||` always give a Bool, never one of their operands.
bool OMNode::binop_bool_and(const NodePtr& result, IOMNode& other) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        retVal = result->set(getAsBool() && other.getAsBool());
    } while (false);
    return retVal;
}

bool OMNode::binop_bool_or(const NodePtr& result, IOMNode& other) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        retVal = result->set(getAsBool() || other.getAsBool());
    } while (false);
    return retVal;
}

// ---- index ----

// A whole number of at least 0 selects an element; anything else is the name of an attribute, so that
// `a[-1]` looks up "-1".
bool OMNode::binop_index(const NodePtr& result, IOMNode& other) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        IOMNode* otherNode = &other;
        uint64_t iValue = 0;
        if (getIndex(*otherNode, iValue)) {
            // clang-format off
            SANITY_CHECK(result->set(getOMNode((size_t) iValue)));
            // clang-format on
        } else {
            SANITY_CHECK(result->set(getOMNode(otherNode->getAsString())));
        }
        retVal = true;
    } while (false);
    return retVal;
}

// ---- comparisons ----

// NOTE: `==` never converts: 1 == "1" is false, and so is an Int against a Float of the same value.
// Containers compare deeply.
bool OMNode::binop_compare_eq(const NodePtr& result, IOMNode& other) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        const OMType type = getType();
        const OMType otherType = other.getType();
        bool isEqual = false;
        if (isErrorOrNaN(type) || isErrorOrNaN(otherType)) {
            isEqual = false;
        } else if (isUndefinedOrNull(type) && isUndefinedOrNull(otherType)) {
            isEqual = true;
        } else if (type != otherType) {
            isEqual = false;
        } else if (type == OMType::Expression) {
            std::shared_ptr<OMExpression> expression = getExpression();
            SANITY_CHECK(expression);
            std::shared_ptr<OMExpression> otherExpression = other.getExpression();
            SANITY_CHECK(otherExpression);
            isEqual = *expression == *otherExpression;
        } else if (type == OMType::Array || type == OMType::Map) {
            static OMValuePath path;
            OMValuePath::Step step(path, *this);
            if (! step.isEntered()) {
                // A container that holds itself, or one nested deeper than comparisons go: equal when it is
                // the same container.
                isEqual = OMValuePath::identityOf(*this) == OMValuePath::identityOf(other);
            } else if (type == OMType::Array) {
                SANITY_CHECK(areArraysEqual(*this, other, isEqual));
            } else {
                SANITY_CHECK(areMapsEqual(*this, other, isEqual));
            }
        } else {
            retVal = binop_compare_identical(result, other);
            break;
        }
        SANITY_CHECK(result->set(isEqual));
        retVal = true;
    } while (false);
    return retVal;
}

// `===`: scalars by value, containers and function bodies by identity.
bool OMNode::binop_compare_identical(const NodePtr& result, IOMNode& other) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        const OMType type = getType();
        const auto* stored = dynamic_cast<const OMStored*>(this);
        const auto* otherStored = dynamic_cast<const OMStored*>(&other);
        const bool areBothStored = stored != nullptr && otherStored != nullptr;
        bool isIdentical = false;
        if (isErrorOrNaN(type) || isErrorOrNaN(other.getType()) || type != other.getType()) {
            isIdentical = false;
        } else if (isUndefinedOrNull(type)) {
            isIdentical = true;
        } else if (type == OMType::Bool) {
            isIdentical = getBool() == other.getBool();
        } else if (type == OMType::Int) {
            isIdentical = getInt() == other.getInt();
        } else if (type == OMType::GUID) {
            isIdentical = getGUID() == other.getGUID(); // interned: equal values are one pointer
        } else if (type == OMType::Date) {
            isIdentical = getDate() == other.getDate();
        } else if (type == OMType::Float) {
            isIdentical = getFloat() == other.getFloat();
        } else if (type == OMType::String) {
            isIdentical = getString() == other.getString();
        } else if (type == OMType::Expression) {
            std::shared_ptr<OMExpression> expression = getExpression();
            SANITY_CHECK(expression);
            std::shared_ptr<OMExpression> otherExpression = other.getExpression();
            SANITY_CHECK(otherExpression);
            isIdentical = *expression == *otherExpression;
        } else if (type == OMType::Array) {
            isIdentical = areBothStored ? stored->getArray() == otherStored->getArray() : this == &other;
        } else if (type == OMType::Map) {
            isIdentical = areBothStored ? stored->getMap() == otherStored->getMap() : this == &other;
        } else if (type == OMType::Function) {
            isIdentical =
                areBothStored ? stored->getExpression() == otherStored->getExpression() : this == &other;
        } else {
            LOG_ERROR("unexpected type");
            break;
        }
        SANITY_CHECK(result->set(isIdentical));
        retVal = true;
    } while (false);
    return retVal;
}

// NOTE: NaN != NaN is true, unlike every other comparison of NaN.
bool OMNode::binop_compare_ne(const NodePtr& result, IOMNode& other) {
    return negatedComparison(result, other, &OMNode::binop_compare_eq);
}

bool OMNode::binop_compare_not_identical(const NodePtr& result, IOMNode& other) {
    return negatedComparison(result, other, &OMNode::binop_compare_identical);
}

bool OMNode::negatedComparison(const NodePtr& result, IOMNode& other,
                               bool (OMNode::*comparison)(const NodePtr&, IOMNode&)) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        if (getType() == OMType::NaN && other.getType() == OMType::NaN) {
            retVal = result->set(true);
            break;
        }
        SANITY_CHECK((this->*comparison)(result, other));
        retVal = result->set(! result->getBool());
    } while (false);
    return retVal;
}

// Different types order by their type numbers; containers and functions have no order and fail.
bool OMNode::binop_compare_lt(const NodePtr& result, IOMNode& other) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        bool isLess = false;
        SANITY_CHECK(isLessThan(*this, other, isLess));
        retVal = result->set(isLess);
    } while (false);
    return retVal;
}

bool OMNode::binop_compare_ge(const NodePtr& result, IOMNode& other) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        if (getType() == OMType::NaN || other.getType() == OMType::NaN) {
            retVal = result->set(false);
            break;
        }
        bool isLess = false;
        SANITY_CHECK(isLessThan(*this, other, isLess));
        retVal = result->set(! isLess);
    } while (false);
    return retVal;
}

bool OMNode::binop_compare_gt(const NodePtr& result, IOMNode& other) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        if (getType() == OMType::NaN || other.getType() == OMType::NaN) {
            retVal = result->set(false);
            break;
        }
        bool isLess = false;
        SANITY_CHECK(isLessThan(*this, other, isLess));
        if (isLess) {
            retVal = result->set(false);
            break;
        }
        SANITY_CHECK(binop_compare_eq(result, other));
        retVal = result->set(! result->getBool());
    } while (false);
    return retVal;
}

bool OMNode::binop_compare_le(const NodePtr& result, IOMNode& other) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        bool isLess = false;
        SANITY_CHECK(isLessThan(*this, other, isLess));
        retVal = isLess ? result->set(true) : binop_compare_eq(result, other);
    } while (false);
    return retVal;
}

// ---- unary operators ----

bool OMNode::unop_negative(const std::shared_ptr<OMStored>& result) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        retVal = result->setNum(-getAsNum());
    } while (false);
    return retVal;
}

bool OMNode::unop_positive(const std::shared_ptr<OMStored>& result) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        retVal = result->setNum(getAsNum());
    } while (false);
    return retVal;
}

bool OMNode::unop_bool_not(const std::shared_ptr<OMStored>& result) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        retVal = result->set(! getAsBool());
    } while (false);
    return retVal;
}

// NOTE: a fraction has the bits -1, so ~1.5 is 0.
bool OMNode::unop_bit_not(const std::shared_ptr<OMStored>& result) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        retVal = result->set(~getAsBits());
    } while (false);
    return retVal;
}

bool OMNode::unop_typeof(const std::shared_ptr<OMStored>& result) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        std::string typeOf = "error";
        switch (getType()) {
        case OMType::Undefined:
            typeOf = "undefined";
            break;
        case OMType::Null:
        case OMType::Date:
        case OMType::Array:
        case OMType::Map:
            typeOf = "object";
            break;
        case OMType::Bool:
            typeOf = "boolean";
            break;
        case OMType::Int:
        case OMType::Float:
        case OMType::NaN:
            typeOf = "number";
            break;
        case OMType::String:
            typeOf = "string";
            break;
        case OMType::Expression:
            typeOf = "expression";
            break;
        case OMType::Error:
            typeOf = "error";
            break;
        case OMType::Function:
            typeOf = "function";
            break;
        case OMType::GUID:
            typeOf = "GUID";
            break;
        default:
            LOG_ERROR("unexpected type");
            break;
        }
        SANITY_CHECK(result->set(typeOf));
        retVal = true;
    } while (false);
    return retVal;
}

// The increments change the operand itself and hand its new (pre) or old (post) value to `result`.

bool OMNode::unop_pre_increment(const std::shared_ptr<OMStored>& result) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        SANITY_CHECK(setNum(getAsNum() + 1));
        retVal = static_cast<bool>(result->set(*this));
    } while (false);
    return retVal;
}

bool OMNode::unop_pre_decrement(const std::shared_ptr<OMStored>& result) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        SANITY_CHECK(setNum(getAsNum() - 1));
        retVal = static_cast<bool>(result->set(*this));
    } while (false);
    return retVal;
}

bool OMNode::unop_post_increment(const std::shared_ptr<OMStored>& result) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        SANITY_CHECK(result->set(*this));
        retVal = setNum(getAsNum() + 1);
    } while (false);
    return retVal;
}

bool OMNode::unop_post_decrement(const std::shared_ptr<OMStored>& result) {
    bool retVal = false;
    do {
        SANITY_CHECK(result);
        SANITY_CHECK(result->set(*this));
        retVal = setNum(getAsNum() - 1);
    } while (false);
    return retVal;
}

} // namespace Brw
