#pragma once

#include "BrwParser/BrwOMExpression.h"

namespace Brw {

struct OMExpressionUnaryResolution {
    std::shared_ptr<IOMNode> fResolvedNode; // value of the operand
};

// One operand and a prefix or postfix operator; `return x` is one of them.
class OMExpressionUnary : public virtual OMExpression {
public:
    OMExpressionUnary(UnOp unOp, const std::shared_ptr<IOMNode>& node) : fUnOp(unOp), fNode(node) {}

    static std::shared_ptr<OMExpressionUnary> factory(UnOp unOp, const std::shared_ptr<IOMNode>& node);

    void resolve_yielding(const std::shared_ptr<Task>& task, bool& resolved, AccessType accessType,
                          const std::shared_ptr<OMScope>& scope, ScriptPhase phase,
                          OMExpressionUnaryResolution& resolution);

    using OMExpression::get_yielding;
    void get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                      AccessType accessType, const std::shared_ptr<OMScope>& scope,
                      ScriptPhase phase) override;
    bool scanForLocalVariables(const std::shared_ptr<FunctionSignature>& signature,
                               bool isStartOfStatement) override;
    void set_yielding(const std::shared_ptr<Task>& task, bool& success, std::shared_ptr<IOMNode>& value,
                      const std::shared_ptr<OMScope>& scope, ScriptPhase phase) override;
    Kind getExpressionKind() const override { return UNARY; }
    uint64_t hash() const override;
    std::string toString() const override;
    bool operator==(const OMExpression& other) const override;
    bool operator<(const OMExpression& other) const override;
    bool isReturnUnary() const override { return fUnOp == RETURN; }
    std::shared_ptr<IOMNode> getOperand() const override { return fNode; }

    UnOp getUnOp() const { return fUnOp; }
    bool isIncrementOrDecrement() const {
        return fUnOp == PRE_DECREMENT || fUnOp == PRE_INCREMENT || fUnOp == POST_DECREMENT ||
               fUnOp == POST_INCREMENT;
    }

protected:
    // An operator on a pure operand is pure, and its return read-only; an increment of a name is a statement.
    DirectShape computeDirectShape() override;
    bool evalDirectShape(const std::shared_ptr<Task>& task, const std::shared_ptr<OMScope>& scope,
                         std::shared_ptr<IOMNode>& result) override;

private:
    // Steps the operand in place and gives the value the operator stands for.
    std::shared_ptr<IOMNode> stepInPlace(const std::shared_ptr<IOMNode>& operand) const;

    UnOp fUnOp;                      // the operator
    std::shared_ptr<IOMNode> fNode;  // the operand
    mutable uint64_t fHash = 0;      // 0: not computed yet
    OMExpression* fDirect = nullptr; // the pure expression of the operand, when the shape has one
};

} // namespace Brw
