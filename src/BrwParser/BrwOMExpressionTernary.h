#pragma once

#include "BrwParser/BrwOMExpression.h"

namespace Brw {

struct OMExpressionTernaryResolution {
    std::shared_ptr<IOMNode> fResolvedCondition; // value of the condition
    std::shared_ptr<IOMNode> fChosenNode;        // the branch the condition chose
    std::shared_ptr<IOMNode> fResolvedNode;      // value of that branch, signals included
};

// `c ? a : b` and `if (c) a else b`.
class OMExpressionTernary : public virtual OMExpression {
public:
    OMExpressionTernary(TernOp ternOp, const std::shared_ptr<IOMNode>& node1,
                        const std::shared_ptr<IOMNode>& node2, const std::shared_ptr<IOMNode>& node3)
        : fTernOp(ternOp), fNode1(node1), fNode2(node2), fNode3(node3) {}

    static std::shared_ptr<OMExpressionTernary> factory(TernOp ternOp, const std::shared_ptr<IOMNode>& node1,
                                                        const std::shared_ptr<IOMNode>& node2,
                                                        const std::shared_ptr<IOMNode>& node3);

    void resolve_yielding(const std::shared_ptr<Task>& task, bool& resolved, AccessType accessType,
                          const std::shared_ptr<OMScope>& scope, ScriptPhase phase,
                          OMExpressionTernaryResolution& resolution);

    using OMExpression::get_yielding;
    void get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                      AccessType accessType, const std::shared_ptr<OMScope>& scope,
                      ScriptPhase phase) override;
    bool scanForLocalVariables(const std::shared_ptr<FunctionSignature>& signature,
                               bool isStartOfStatement) override;
    void set_yielding(const std::shared_ptr<Task>& task, bool& success, std::shared_ptr<IOMNode>& value,
                      const std::shared_ptr<OMScope>& scope, ScriptPhase phase) override;
    Kind getExpressionKind() const override { return TERNARY; }
    uint64_t hash() const override;
    std::string toString() const override;
    bool operator==(const OMExpression& other) const override;
    bool operator<(const OMExpression& other) const override;

    TernOp getTernOp() const { return fTernOp; }
    const std::shared_ptr<IOMNode>& getNode1() const { return fNode1; }
    const std::shared_ptr<IOMNode>& getNode2() const { return fNode2; }
    const std::shared_ptr<IOMNode>& getNode3() const { return fNode3; }

protected:
    // `?:` on pure parts is pure; an `if` has the shape of its strongest part, and is never pure.
    DirectShape computeDirectShape() override;
    bool evalDirectShape(const std::shared_ptr<Task>& task, const std::shared_ptr<OMScope>& scope,
                         std::shared_ptr<IOMNode>& result) override;

private:
    TernOp fTernOp;                   // CONDITIONAL or IF
    std::shared_ptr<IOMNode> fNode1;  // the condition
    std::shared_ptr<IOMNode> fNode2;  // taken when it is true
    std::shared_ptr<IOMNode> fNode3;  // taken otherwise; undefined for an `if` without `else`
    OMExpression* fDirect1 = nullptr; // the direct expressions of the three parts, when the shape has them
    OMExpression* fDirect2 = nullptr;
    OMExpression* fDirect3 = nullptr;
    mutable uint64_t fHash = 0; // 0: not computed yet
};

} // namespace Brw
