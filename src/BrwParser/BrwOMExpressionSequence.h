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

    void resolve_yielding(const std::shared_ptr<Task>& task, bool& resolved, AccessType accessType,
                          const std::shared_ptr<OMScope>& scope, ScriptPhase phase,
                          OMExpressionSequenceResolution& resolution);

    using OMExpression::get_yielding;
    void get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result, AccessType accessType,
                      const std::shared_ptr<OMScope>& scope, ScriptPhase phase) override;
    bool scanForLocalVariables(const std::shared_ptr<FunctionSignature>& signature,
                               bool isStartOfStatement) override;
    void set_yielding(const std::shared_ptr<Task>& task, bool& success, std::shared_ptr<IOMNode>& value,
                      const std::shared_ptr<OMScope>& scope, ScriptPhase phase) override;
    Kind getExpressionKind() const override { return SEQUENCE; }
    uint64_t hash() const override;
    std::string toString() const override;
    bool operator==(const OMExpression& other) const override;
    bool operator<(const OMExpression& other) const override;

private:
    BinOp fBinOp;                    // the chained operator; never ASSIGN
    std::shared_ptr<OMArray> fNodes; // the operands in order
    mutable uint64_t fHash = 0;      // 0: not computed yet
};

} // namespace Brw
