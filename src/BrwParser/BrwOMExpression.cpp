#include "BrwParser/BrwOMExpression.h"

#include "BrwLogger/BrwCheck.h"
#include "BrwParser/BrwOMExpressionLValue.h"
#include "BrwParser/BrwOMQuickFunction.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwToken.h"

namespace Brw {

namespace {

constexpr const char* UNKNOWN_OPERATOR_TEXT = "??";

struct BinOpText {
    const char* prefix;
    const char* infix;
    const char* suffix;
};

// The three printed parts of a binary operator, or null for a value that is none.
const BinOpText* binOpText(BinOp binOp) {
    static const BinOpText texts[] = {
        {"", "[", "]"},          {"", " * ", ""},
        {"", " / ", ""},         {"", " % ", ""},
        {"", " + ", ""},         {"", " - ", ""},
        {"", " << ", ""},        {"", " >> ", ""},
        {"", " < ", ""},         {"", " <= ", ""},
        {"", " > ", ""},         {"", " >= ", ""},
        {"", " == ", ""},        {"", " === ", ""},
        {"", " !== ", ""},       {"", " != ", ""},
        {"", " & ", ""},         {"", " ^ ", ""},
        {"", " | ", ""},         {"", " && ", ""},
        {"", " || ", ""},        {nullptr, nullptr, nullptr},
        {"", " = ", ""},         {"", ", ", ""},
        {"", "; ", ""},          {nullptr, nullptr, nullptr},
        {"while (", ") {", "}"}, {"do {", "} while (", ")"},
    };
    const int index = static_cast<int>(binOp) - INDEX;
    if (index < 0 || index >= static_cast<int>(std::size(texts)) || texts[index].infix == nullptr) {
        LOG_ERROR("unexpected binOp");
        return nullptr;
    }
    return &texts[index];
}

} // namespace

void OMExpression::get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                                const std::shared_ptr<OMScope>& scope) {
    get_yielding(task, result, GET, scope, RUN);
}

const char* OMExpression::binOpToPrefixStr(BinOp binOp) {
    const BinOpText* text = binOpText(binOp);
    return text != nullptr ? text->prefix : UNKNOWN_OPERATOR_TEXT;
}

const char* OMExpression::binOpToInfixStr(BinOp binOp) {
    const BinOpText* text = binOpText(binOp);
    return text != nullptr ? text->infix : UNKNOWN_OPERATOR_TEXT;
}

const char* OMExpression::binOpToSuffixStr(BinOp binOp) {
    const BinOpText* text = binOpText(binOp);
    return text != nullptr ? text->suffix : UNKNOWN_OPERATOR_TEXT;
}

const char* OMExpression::unOpToPrefixStr(UnOp unOp) {
    switch (unOp) {
    case PRE_DECREMENT:
        return "--";
    case PRE_INCREMENT:
        return "++";
    case POST_DECREMENT:
    case POST_INCREMENT:
        return "";
    case NEGATIVE:
        return "-";
    case POSITIVE:
        return "+";
    case BOOL_NOT:
        return "! ";
    case BIT_NOT:
        return "~ ";
    case TYPEOF:
        return "typeof ";
    case RETURN:
        return "return ";
    default:
        LOG_ERROR("unexpected unOp");
        return UNKNOWN_OPERATOR_TEXT;
    }
}

const char* OMExpression::unOpToSuffixStr(UnOp unOp) {
    switch (unOp) {
    case POST_DECREMENT:
        return "--";
    case POST_INCREMENT:
        return "++";
    case PRE_DECREMENT:
    case PRE_INCREMENT:
    case NEGATIVE:
    case POSITIVE:
    case BOOL_NOT:
    case BIT_NOT:
    case TYPEOF:
    case RETURN:
        return "";
    default:
        LOG_ERROR("unexpected unOp");
        return UNKNOWN_OPERATOR_TEXT;
    }
}

const char* OMExpression::ternOpToPrefixStr(TernOp ternOp) {
    switch (ternOp) {
    case CONDITIONAL:
        return "";
    case IF:
        return "if (";
    default:
        LOG_ERROR("unexpected ternOp");
        return UNKNOWN_OPERATOR_TEXT;
    }
}

const char* OMExpression::ternOpToInfix1Str(TernOp ternOp) {
    switch (ternOp) {
    case CONDITIONAL:
        return " ? ";
    case IF:
        return ") {";
    default:
        LOG_ERROR("unexpected ternOp");
        return UNKNOWN_OPERATOR_TEXT;
    }
}

const char* OMExpression::ternOpToInfix2Str(TernOp ternOp) {
    switch (ternOp) {
    case CONDITIONAL:
        return " : ";
    case IF:
        return "} else {";
    default:
        LOG_ERROR("unexpected ternOp");
        return UNKNOWN_OPERATOR_TEXT;
    }
}

const char* OMExpression::ternOpToSuffixStr(TernOp ternOp) {
    switch (ternOp) {
    case CONDITIONAL:
        return "";
    case IF:
        return "}";
    default:
        LOG_ERROR("unexpected ternOp");
        return UNKNOWN_OPERATOR_TEXT;
    }
}

bool OMExpression::nodesEqual(const std::shared_ptr<IOMNode>& left, const std::shared_ptr<IOMNode>& right) {
    if (! left || ! right) {
        return ! left && ! right;
    }
    return left->cmpOp_EQ(*right, KEEP_NODE);
}

bool OMExpression::nodesLess(const std::shared_ptr<IOMNode>& left, const std::shared_ptr<IOMNode>& right) {
    if (! left || ! right) {
        return ! left && right;
    }
    return left->cmpOp_LT(*right, KEEP_NODE);
}

std::string OMExpression::nodeText(const std::shared_ptr<IOMNode>& node) {
    return node ? node->toString() : std::string();
}

const OMQuickFunction* OMExpression::getQuickFunction(const std::shared_ptr<FunctionSignature>& signature) {
    // The signature is kept, so that no other one can come to have its address.
    if (fQuickSignature != signature) {
        fQuickSignature = signature;
        fQuickFunction = signature ? OMQuickFunction::compile(*signature, *this) : nullptr;
    }
    return fQuickFunction.get();
}

bool OMExpression::isPureOperand(const std::shared_ptr<IOMNode>& node, OMExpression*& expression) {
    expression = nullptr;
    if (! node || node->isReturnValue()) {
        return false;
    }
    switch (node->getType()) {
    case OMType::Array:
    case OMType::Map:
    case OMType::Function:
        // A literal container or function is copied or bound when evaluated: the resumable path does that.
        return false;
    case OMType::Expression: {
        const std::shared_ptr<OMExpression> nodeExpression = node->getExpression();
        if (! nodeExpression || nodeExpression->getDirectShape() != DIRECT_PURE) {
            return false;
        }
        // The node owns the expression for as long as the tree lives: a plain pointer is enough.
        expression = nodeExpression.get();
        return true;
    }
    default:
        return true;
    }
}

bool OMExpression::evalPureOperand(const std::shared_ptr<Task>& task, const std::shared_ptr<IOMNode>& node,
                                   OMExpression* expression, const std::shared_ptr<OMScope>& scope,
                                   std::shared_ptr<IOMNode>& value) {
    // A variable that holds an expression (a built-in, a wrapped value) takes the long way.
    return evalDirectNode(task, node, expression, scope, value) && value &&
           value->getType() != OMType::Expression;
}

OMExpression::DirectShape OMExpression::statementShape(const std::shared_ptr<IOMNode>& node,
                                                       OMExpression*& expression) {
    expression = nullptr;
    if (node && node->getType() == OMType::Expression) {
        const std::shared_ptr<OMExpression> nodeExpression = node->getExpression();
        if (nodeExpression) {
            expression = nodeExpression.get();
            return nodeExpression->getDirectShape();
        }
    }
    return isPureOperand(node, expression) ? DIRECT_PURE : DIRECT_NONE;
}

bool OMExpression::evalDirectNode(const std::shared_ptr<Task>& task, const std::shared_ptr<IOMNode>& node,
                                  OMExpression* expression, const std::shared_ptr<OMScope>& scope,
                                  std::shared_ptr<IOMNode>& value) {
    if (expression == nullptr) {
        value = node;
        return true;
    }
    return expression->evalDirect(task, scope, value);
}

OMExpressionLValueStr* OMExpression::asPlainName(const std::shared_ptr<IOMNode>& node) {
    if (! node || node->getType() != OMType::Expression) {
        return nullptr;
    }
    auto* name = dynamic_cast<OMExpressionLValueStr*>(node->getExpression().get());
    return name != nullptr && name->getDirectShape() == DIRECT_PURE ? name : nullptr;
}

bool OMExpression::prepareScope(const std::shared_ptr<OMScope>& scope) {
    bool retVal = false;
    do {
        SANITY_CHECK(scope);
        if (scope->getType() != OMType::Map) {
            SANITY_CHECK(scope->setEmptyMap());
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool OMExpression::isReturnNode(const std::shared_ptr<IOMNode>& node) {
    return node && node->isReturnValue();
}

bool OMExpression::isBreakNode(const std::shared_ptr<IOMNode>& node) {
    return node && node->isKeyword(_break);
}

} // namespace Brw
