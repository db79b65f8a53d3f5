#pragma once

#include <vector>

#include "BrwParser/BrwOMExpression.h"

namespace Brw {

struct OMExpressionSequenceResolution {
    std::shared_ptr<OMArray> fResolvedNodes; // values of the nodes walked so far
};

// A left-to-right chain of one operator: a block of statements (`;`), a comma list, or a chain of `+`.
class OMExpressionSequence : public virtual OMExpression {
public:
    explicit OMExpressionSequence(BinOp binOp) : fBinOp(binOp), fNodes(std::make_shared<OMArray>()) {}

    static std::shared_ptr<OMExpressionSequence> factory(BinOp binOp, const std::shared_ptr<IOMNode>& node1,
                                                         const std::shared_ptr<IOMNode>& node2);

    // The parser's append; expressions are otherwise immutable.
    bool append(const std::shared_ptr<IOMNode>& node);
    std::shared_ptr<IOMNode> getNode(size_t index) const;
    size_t getNodeCount() const { return fNodes ? fNodes->size() : 0; }
    BinOp getBinOp() const { return fBinOp; }

    // Evaluates the nodes from `startIndex` on, up to a return or a break.
    void resolve_yielding(const std::shared_ptr<Task>& task, bool& resolved, AccessType accessType,
                          const std::shared_ptr<OMScope>& scope, ScriptPhase phase,
                          OMExpressionSequenceResolution& resolution, size_t startIndex = 0);

    using OMExpression::get_yielding;
    void get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                      AccessType accessType, const std::shared_ptr<OMScope>& scope,
                      ScriptPhase phase) override;
    // The value of a block whose statements before `startIndex` have run already.
    void getFrom_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                          AccessType accessType, const std::shared_ptr<OMScope>& scope, ScriptPhase phase,
                          size_t startIndex);
    bool scanForLocalVariables(const std::shared_ptr<FunctionSignature>& signature,
                               bool isStartOfStatement) override;
    void set_yielding(const std::shared_ptr<Task>& task, bool& success, std::shared_ptr<IOMNode>& value,
                      const std::shared_ptr<OMScope>& scope, ScriptPhase phase) override;
    Kind getExpressionKind() const override { return SEQUENCE; }
    uint64_t hash() const override;
    std::string toString() const override;
    bool operator==(const OMExpression& other) const override;
    bool operator<(const OMExpression& other) const override;

    // `name = name + ...` where the variable's node belongs to its scope alone: reads the operands after the
    // first, then adds them to that node itself, so a growing text isn't copied at every step. The value
    // goes to `result` (the node, or an Error value). False, with nothing changed, when that can't be done.
    bool growInPlaceDirect(const std::shared_ptr<Task>& task, const std::shared_ptr<OMScope>& scope,
                           const std::shared_ptr<IOMNode>& target, std::shared_ptr<IOMNode>& result);

protected:
    // A chain of an operator on pure operands is pure; a block or comma list of reads is read-only.
    DirectShape computeDirectShape() override;
    bool evalDirectShape(const std::shared_ptr<Task>& task, const std::shared_ptr<OMScope>& scope,
                         std::shared_ptr<IOMNode>& result) override;

private:
    // A block or comma list whose every statement has a direct shape.
    bool isDirectBlock() {
        getDirectShape();
        return fIsDirectBlock;
    }
    // Runs the statements of such a block without frames, in order from `doneCount` on, until one must take
    // the resumable path: `doneCount` says how far they ran. True when all of them did (or a return or break
    // ended the block), with the block's value in `result`.
    bool evalStatementsDirect(const std::shared_ptr<Task>& task, const std::shared_ptr<OMScope>& scope,
                              size_t& doneCount, std::shared_ptr<IOMNode>& result);
    // The value of a block or comma list from the value of its last statement: a copy (wrapped again when it
    // is a return value), unless nothing else holds that value.
    static std::shared_ptr<IOMNode> statementListValue(const std::shared_ptr<IOMNode>& last);

    BinOp fBinOp;                            // the chained operator; never ASSIGN
    std::shared_ptr<OMArray> fNodes;         // the operands in order
    mutable uint64_t fHash = 0;              // 0: not computed yet
    std::vector<OMExpression*> fDirectNodes; // the direct expression of each node, when the shape has them
    bool fIsDirectBlock = false;             // a block or comma list of statements of direct shapes
};

} // namespace Brw
