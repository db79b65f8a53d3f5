#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "BrwParser/BrwIOMNode.h"

namespace Brw {

// Base of all parsed script. A tree of expressions hangs in value nodes; expressions are immutable once
// built (but for the cached hash), and per-evaluation state lives in the running task's frames, so one
// tree may be evaluated by several tasks at once.
class OMExpression : public std::enable_shared_from_this<OMExpression> {
public:
    // Kinds in the order of `operator<`.
    enum Kind : int32_t {
        KEYWORD = 1,
        LVALUE_CALL = 2,
        LVALUE_INDEX = 3,
        LVALUE_INDEX_BY_EXPRESSION = 4,
        LVALUE_TOKEN = 5,
        LVALUE_STR = 6,
        UNARY = 7,
        BINARY = 8,
        TERNARY = 9,
        SEQUENCE = 10,
    };

    virtual ~OMExpression() = default;

    // Evaluates the expression.
    virtual void get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                              AccessType accessType, const std::shared_ptr<OMScope>& scope, ScriptPhase phase) = 0;
    // The short form for the top of an evaluation: GET at run time.
    virtual void get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                              const std::shared_ptr<OMScope>& scope);
    // Adds the names this expression makes local to `signature`.
    virtual bool scanForLocalVariables(const std::shared_ptr<FunctionSignature>& signature,
                                       bool isStartOfStatement) = 0;
    // Assigns `value` through this expression.
    virtual void set_yielding(const std::shared_ptr<Task>& task, bool& success, std::shared_ptr<IOMNode>& value,
                              const std::shared_ptr<OMScope>& scope, ScriptPhase phase) = 0;
    virtual Kind getExpressionKind() const = 0;
    virtual uint64_t hash() const = 0;
    virtual std::string toString() const = 0;
    virtual bool operator==(const OMExpression& other) const = 0;
    virtual bool operator!=(const OMExpression& other) const { return !(*this == other); }
    virtual bool operator<(const OMExpression& other) const = 0;
    virtual bool operator<=(const OMExpression& other) const { return *this < other || *this == other; }
    virtual bool operator>(const OMExpression& other) const { return !(*this < other) && !(*this == other); }
    virtual bool operator>=(const OMExpression& other) const { return !(*this < other); }

    bool isLValue() const { return getExpressionKind() >= LVALUE_CALL && getExpressionKind() <= LVALUE_STR; }
    // The name of a plain name l-value; empty for anything else.
    virtual std::string getIdentifier() const { return std::string(); }
    // The token of a keyword expression; -1 for anything else.
    virtual int32_t getToken() const { return -1; }
    // True for `return x`, the wrapper that carries a return value out of a function.
    virtual bool isReturnUnary() const { return false; }
    // The operand of a unary expression; null for anything else.
    virtual std::shared_ptr<IOMNode> getOperand() const { return nullptr; }

    // `return operand` as an expression: how a value is wrapped to travel out of a function.
    static std::shared_ptr<OMExpression> returnFactory(const std::shared_ptr<IOMNode>& operand);

    // The printed parts of the operators; "??" for a value that is no operator.
    static const char* binOpToPrefixStr(BinOp binOp);
    static const char* binOpToInfixStr(BinOp binOp);
    static const char* binOpToSuffixStr(BinOp binOp);
    static const char* unOpToPrefixStr(UnOp unOp);
    static const char* unOpToSuffixStr(UnOp unOp);
    static const char* ternOpToPrefixStr(TernOp ternOp);
    static const char* ternOpToInfix1Str(TernOp ternOp);
    static const char* ternOpToInfix2Str(TernOp ternOp);
    static const char* ternOpToSuffixStr(TernOp ternOp);

protected:
    // Operand comparisons by value, as the comparison operators make them; null sorts first.
    static bool nodesEqual(const std::shared_ptr<IOMNode>& left, const std::shared_ptr<IOMNode>& right);
    static bool nodesLess(const std::shared_ptr<IOMNode>& left, const std::shared_ptr<IOMNode>& right);
    // The text of an operand, "" for a missing one.
    static std::string nodeText(const std::shared_ptr<IOMNode>& node);
    // A scope that isn't a map is made one before use.
    static bool prepareScope(const std::shared_ptr<OMScope>& scope);
    // The signals that travel up through operands: a wrapped return value and a `break`.
    static bool isReturnNode(const std::shared_ptr<IOMNode>& node);
    static bool isBreakNode(const std::shared_ptr<IOMNode>& node);
};

} // namespace Brw
