#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "BrwParser/BrwIOMNode.h"

namespace Brw {

class OMQuickFunction;

// Base of all parsed script. A tree of expressions hangs in value nodes; expressions are immutable once
// built (but for the cached hash and shape), and per-evaluation state lives in the running task's frames, so
// one tree may be evaluated by several tasks at once.
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
                              AccessType accessType, const std::shared_ptr<OMScope>& scope,
                              ScriptPhase phase) = 0;
    // The short form for the top of an evaluation: GET at run time.
    virtual void get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                              const std::shared_ptr<OMScope>& scope);
    // Adds the names this expression makes local to `signature`.
    virtual bool scanForLocalVariables(const std::shared_ptr<FunctionSignature>& signature,
                                       bool isStartOfStatement) = 0;
    // Assigns `value` through this expression.
    virtual void set_yielding(const std::shared_ptr<Task>& task, bool& success,
                              std::shared_ptr<IOMNode>& value, const std::shared_ptr<OMScope>& scope,
                              ScriptPhase phase) = 0;
    virtual Kind getExpressionKind() const = 0;
    virtual uint64_t hash() const = 0;
    virtual std::string toString() const = 0;
    virtual bool operator==(const OMExpression& other) const = 0;
    virtual bool operator!=(const OMExpression& other) const { return ! (*this == other); }
    virtual bool operator<(const OMExpression& other) const = 0;
    virtual bool operator<=(const OMExpression& other) const { return *this < other || *this == other; }
    virtual bool operator>(const OMExpression& other) const {
        return ! (*this < other) && ! (*this == other);
    }
    virtual bool operator>=(const OMExpression& other) const { return ! (*this < other); }

    bool isLValue() const { return getExpressionKind() >= LVALUE_CALL && getExpressionKind() <= LVALUE_STR; }
    // The name of a plain name l-value; empty for anything else.
    virtual std::string getIdentifier() const { return std::string(); }
    // The token of a keyword expression; -1 for anything else.
    virtual int32_t getToken() const { return -1; }
    // True for `return x`, the wrapper that carries a return value out of a function.
    virtual bool isReturnUnary() const { return false; }
    // The operand of a unary expression; null for anything else.
    virtual std::shared_ptr<IOMNode> getOperand() const { return nullptr; }

    // What an expression can do without a frame, in rising order: nothing; give a value by reading only
    // (names, operators, `?:`, calls of functions that only read), so it may be an operand; read only but
    // be no operand (`return`, `if`, blocks of such statements); or make one write at its end (assignment
    // to a name, an increment, or an `if` that chooses one of those).
    enum DirectShape : int8_t {
        DIRECT_UNKNOWN = 0,
        DIRECT_NONE = 1,
        DIRECT_PURE = 2,
        DIRECT_READ_ONLY = 3,
        DIRECT_STATEMENT = 4,
    };

    // Evaluation at run time without frames, for the shapes that can't wait. True with `result` set when
    // done; false when the resumable path must do it, and then nothing was changed that it could tell.
    bool evalDirect(const std::shared_ptr<Task>& task, const std::shared_ptr<OMScope>& scope,
                    std::shared_ptr<IOMNode>& result) {
        return fIsDirectEvaluationOn && getDirectShape() != DIRECT_NONE &&
               evalDirectShape(task, scope, result);
    }
    // Off, every expression takes the resumable path: tests compare the two.
    static void setDirectEvaluation(bool isOn) { fIsDirectEvaluationOn = isOn; }
    static bool isDirectEvaluationOn() { return fIsDirectEvaluationOn; }
    DirectShape getDirectShape() {
        if (fDirectShape == DIRECT_UNKNOWN) {
            fDirectShape = computeDirectShape();
        }
        return fDirectShape;
    }

    // Whether folding at parse time found no constant here. What a fold needs can't change later (it sees
    // no variables), so a fold of an expression around this one needn't walk into it again.
    void markUnfoldable() { fIsUnfoldable = true; }
    bool isUnfoldable() const { return fIsUnfoldable; }

    // The quick form of a function with this body and `signature`, compiled on first need; null when the body
    // has none.
    const OMQuickFunction* getQuickFunction(const std::shared_ptr<FunctionSignature>& signature);

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
    // The shape, found once: expressions don't change after they are built.
    virtual DirectShape computeDirectShape() { return DIRECT_NONE; }
    // For the parser, which still adds to an expression it built.
    void forgetDirectShape() { fDirectShape = DIRECT_UNKNOWN; }
    // The direct evaluation of a shape other than DIRECT_NONE.
    virtual bool evalDirectShape(const std::shared_ptr<Task>&, const std::shared_ptr<OMScope>&,
                                 std::shared_ptr<IOMNode>&) {
        return false;
    }
    // An operand that reading alone can evaluate: a plain value, or an expression of the pure shape, which
    // is put in `expression` (null for a plain value).
    static bool isPureOperand(const std::shared_ptr<IOMNode>& node, OMExpression*& expression);
    // The value of such an operand; false when the resumable path must evaluate it.
    static bool evalPureOperand(const std::shared_ptr<Task>& task, const std::shared_ptr<IOMNode>& node,
                                OMExpression* expression, const std::shared_ptr<OMScope>& scope,
                                std::shared_ptr<IOMNode>& value);
    // The shape of a node as a statement: that of its expression, pure for a plain value, none for the rest.
    static DirectShape statementShape(const std::shared_ptr<IOMNode>& node, OMExpression*& expression);
    // The value of a node of a direct shape, as its evaluation gives it (a wrapped return value included).
    static bool evalDirectNode(const std::shared_ptr<Task>& task, const std::shared_ptr<IOMNode>& node,
                               OMExpression* expression, const std::shared_ptr<OMScope>& scope,
                               std::shared_ptr<IOMNode>& value);
    // A plain name: the head of a chain, without arguments; null for anything else.
    static class OMExpressionLValueStr* asPlainName(const std::shared_ptr<IOMNode>& node);

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

private:
    DirectShape fDirectShape = DIRECT_UNKNOWN;          // found on the first evaluation
    bool fIsUnfoldable = false;                         // folding at parse time found no constant
    std::shared_ptr<FunctionSignature> fQuickSignature; // what the quick form was compiled for, if tried
    std::shared_ptr<OMQuickFunction> fQuickFunction;    // null when the body has none

    static inline bool fIsDirectEvaluationOn = true; // expressions of a direct shape skip frames
};

} // namespace Brw
