#pragma once

#include "BrwParser/BrwOMExpression.h"
#include "BrwParser/BrwOMQuickFunction.h"

namespace Brw {

// What one evaluation of a binary expression found.
struct OMExpressionBinaryResolution {
    bool fIsReferenceAssignment = false;     // the left side is a reference(...) call
    std::shared_ptr<IOMNode> fResolvedNode1; // value of the left operand (the body's value for a loop)
    bool fIsReturn = false;                  // a return value travels on
    bool fIsBreak = false;                   // a break travels on
    std::shared_ptr<IOMNode> fResolvedNode2; // value of the right operand

    void clear() { *this = OMExpressionBinaryResolution(); }
};

// Two operands and an operator; also assignment, the loops and the two sequence operators.
class OMExpressionBinary : public virtual OMExpression {
public:
    OMExpressionBinary(BinOp binOp, const std::shared_ptr<IOMNode>& node1,
                       const std::shared_ptr<IOMNode>& node2)
        : fBinOp(binOp), fNode1(node1), fNode2(node2) {}

    static std::shared_ptr<OMExpressionBinary> factory(BinOp binOp, const std::shared_ptr<IOMNode>& node1,
                                                       const std::shared_ptr<IOMNode>& node2);

    // Evaluates the operands (and runs a loop to its end); `resolved` when they are final.
    void resolve_yielding(const std::shared_ptr<Task>& task, bool& resolved, AccessType accessType,
                          const std::shared_ptr<OMScope>& scope, ScriptPhase phase,
                          OMExpressionBinaryResolution& resolution);

    using OMExpression::get_yielding;
    void get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                      AccessType accessType, const std::shared_ptr<OMScope>& scope,
                      ScriptPhase phase) override;
    bool scanForLocalVariables(const std::shared_ptr<FunctionSignature>& signature,
                               bool isStartOfStatement) override;
    void set_yielding(const std::shared_ptr<Task>& task, bool& success, std::shared_ptr<IOMNode>& value,
                      const std::shared_ptr<OMScope>& scope, ScriptPhase phase) override;
    Kind getExpressionKind() const override { return BINARY; }
    uint64_t hash() const override;
    std::string toString() const override;
    bool operator==(const OMExpression& other) const override;
    bool operator<(const OMExpression& other) const override;

    BinOp getBinOp() const { return fBinOp; }
    const std::shared_ptr<IOMNode>& getNode1() const { return fNode1; }
    const std::shared_ptr<IOMNode>& getNode2() const { return fNode2; }

protected:
    // Operators on pure operands are pure; assigning a pure value to a name or an element is a statement.
    DirectShape computeDirectShape() override;
    bool evalDirectShape(const std::shared_ptr<Task>& task, const std::shared_ptr<OMScope>& scope,
                         std::shared_ptr<IOMNode>& result) override;

private:
    // The value of an assignment's right side, copied as an assignment copies it; null on an internal fault.
    bool evalAssignedValue(const std::shared_ptr<Task>& task, const std::shared_ptr<OMScope>& scope,
                           std::shared_ptr<IOMNode>& value);
    // The rest of `name[index] = value` once the element is found or made.
    bool assignElementDirect(const std::shared_ptr<Task>& task, const std::shared_ptr<OMScope>& scope,
                             const std::shared_ptr<IOMNode>& element, std::shared_ptr<IOMNode>& result);
    // `name = value` and `name[index] = value` without frames: the steps of get_yielding for a plain name or
    // element and a pure value.
    bool assignDirect(const std::shared_ptr<Task>& task, const std::shared_ptr<OMScope>& scope,
                      std::shared_ptr<IOMNode>& result);
    // The `while` and `do` loop, from the operand already evaluated in `resolution.fResolvedNode1`.
    void loop_yielding(const std::shared_ptr<Task>& task, bool& resolved, AccessType accessType,
                       const std::shared_ptr<OMScope>& scope, ScriptPhase phase,
                       OMExpressionBinaryResolution& resolution);
    // Runs iterations of the loop quickly (see OMQuickFunction::runLoop) when its condition was just found
    // true; says where the long way goes on.
    OMQuickFunction::LoopStop runQuickLoop(const std::shared_ptr<Task>& task,
                                           const std::shared_ptr<OMScope>& scope, size_t& statementIndex);
    // The parts of a loop: a do-loop has its body first.
    const std::shared_ptr<IOMNode>& loopCondition() const { return fBinOp == WHILE ? fNode1 : fNode2; }
    const std::shared_ptr<IOMNode>& loopBody() const { return fBinOp == WHILE ? fNode2 : fNode1; }
    // A loop's body as a block; null when it is none.
    class OMExpressionSequence* bodyBlock() const;
    // Writes the assigned value back through the data-structure parent of the target.
    void writeThroughParent_yielding(const std::shared_ptr<Task>& task, bool& success,
                                     const std::shared_ptr<IOMNode>& target, std::shared_ptr<IOMNode>& value);

    BinOp fBinOp;                     // the operator
    std::shared_ptr<IOMNode> fNode1;  // left operand (a loop's condition; a do-loop's body)
    std::shared_ptr<IOMNode> fNode2;  // right operand (a loop's body; a do-loop's condition)
    mutable uint64_t fHash = 0;       // 0: not computed yet
    OMExpression* fDirect1 = nullptr; // the pure expression of the left operand, when the shape has one
    OMExpression* fDirect2 = nullptr; // the same of the right operand
    class OMExpressionLValueStr* fDirectTarget = nullptr; // the name an assignment of the direct shape sets
    class OMExpressionSequence* fGrowInPlace = nullptr; // `name = name + ...`: the sum that may grow the node
    class OMExpressionLValueIndexByExpression* fDirectElement = nullptr; // `name[index] = ...`: what it sets
    std::shared_ptr<class OMQuickFunction> fQuickLoop; // a loop's quick form; null when it has none
    bool fIsQuickLoopTried = false;                    // fQuickLoop was compiled
};

} // namespace Brw
