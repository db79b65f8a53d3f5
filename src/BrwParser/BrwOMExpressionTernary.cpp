#include "BrwParser/BrwOMExpressionTernary.h"

#include <algorithm>

#include "BrwLogger/BrwCheck.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwTask/BrwYielding.h"

namespace Brw {

std::shared_ptr<OMExpressionTernary> OMExpressionTernary::factory(TernOp ternOp,
                                                                  const std::shared_ptr<IOMNode>& node1,
                                                                  const std::shared_ptr<IOMNode>& node2,
                                                                  const std::shared_ptr<IOMNode>& node3) {
    std::shared_ptr<OMExpressionTernary> retVal;
    do {
        SANITY_CHECK(node1);
        SANITY_CHECK(node2);
        SANITY_CHECK(node3);
        retVal = std::make_shared<OMExpressionTernary>(ternOp, node1, node2, node3);
    } while (false);
    return retVal;
}

void OMExpressionTernary::resolve_yielding(const std::shared_ptr<Task>& task, bool& resolved,
                                           AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                           ScriptPhase phase, OMExpressionTernaryResolution& resolution) {
    struct LocalVariableState : OMFunctionState {};
    YIELDING_BEGIN(LocalVariableState, frame, resolved = false);
    resolution = OMExpressionTernaryResolution();
    YIELDING_CHECK(prepareScope(scope));
    YIELDING_CHECK(fNode1);
    if (phase == PARSE && fTernOp == CONDITIONAL) {
        YIELDING_FINISH;
    }
    YIELDING_CALL(OMNode::getResolvedNode_yielding(task, resolution.fResolvedCondition, accessType, fNode1,
                                                   scope, phase, KEEP_RETURN_VALUE));
    YIELDING_CHECK(resolution.fResolvedCondition);
    if (! resolution.fResolvedCondition->isResolved(phase)) {
        YIELDING_FINISH;
    }
    if (fTernOp != CONDITIONAL && fTernOp != IF) {
        LOG_ERROR("unexpected ternOp");
        YIELDING_FINISH;
    }
    resolution.fChosenNode = resolution.fResolvedCondition->getAsBool() ? fNode2 : fNode3;
    YIELDING_CHECK(resolution.fChosenNode);
    YIELDING_CALL(OMNode::getResolvedNode_yielding(task, resolution.fResolvedNode, accessType,
                                                   resolution.fChosenNode, scope, phase, KEEP_RETURN_VALUE));
    YIELDING_CHECK(resolution.fResolvedNode);
    {
        std::shared_ptr<IOMNode> value = resolution.fResolvedNode;
        if (isBreakNode(value)) {
            value = OMStored::undefinedFactory();
        } else if (isReturnNode(value)) {
            value = value->unwrapReturnValue();
            YIELDING_CHECK(value);
        }
        if (! value->isResolved(phase)) {
            YIELDING_FINISH;
        }
    }
    resolved = true;
    YIELDING_END;
}

void OMExpressionTernary::get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                                       AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                       ScriptPhase phase) {
    struct LocalVariableState : OMFunctionState {
        OMExpressionTernaryResolution resolution;
        bool resolved = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    YIELDING_CALL(resolve_yielding(task, frame->resolved, accessType, scope, phase, frame->resolution));
    if (frame->resolved) {
        // A return or a break travels on through the branch, wrapper or keyword included.
        result = frame->resolution.fResolvedNode;
    }
    YIELDING_END;
}

OMExpression::DirectShape OMExpressionTernary::computeDirectShape() {
    if ((fTernOp != CONDITIONAL && fTernOp != IF) || ! isPureOperand(fNode1, fDirect1)) {
        return DIRECT_NONE;
    }
    const DirectShape shape2 = statementShape(fNode2, fDirect2);
    const DirectShape shape3 = statementShape(fNode3, fDirect3);
    if (shape2 == DIRECT_NONE || shape3 == DIRECT_NONE) {
        return DIRECT_NONE;
    }
    const DirectShape strongest = std::max(shape2, shape3);
    return fTernOp == IF ? std::max(strongest, DIRECT_READ_ONLY) : strongest;
}

bool OMExpressionTernary::evalDirectShape(const std::shared_ptr<Task>& task,
                                          const std::shared_ptr<OMScope>& scope,
                                          std::shared_ptr<IOMNode>& result) {
    std::shared_ptr<IOMNode> condition;
    if (! evalPureOperand(task, fNode1, fDirect1, scope, condition)) {
        return false;
    }
    const bool isFirst = condition->getAsBool();
    std::shared_ptr<IOMNode> value;
    if (! evalDirectNode(task, isFirst ? fNode2 : fNode3, isFirst ? fDirect2 : fDirect3, scope, value)) {
        return false;
    }
    if (! value) {
        // An internal fault, reported where it happened, after the chosen part may have written.
        result.reset();
        return true;
    }
    // As resolve_yielding checks it: a value that isn't final takes the long way; the chosen part is a
    // read, or a statement that has already checked its value.
    const std::shared_ptr<IOMNode> unwrapped = value->unwrapReturnValue();
    if (! unwrapped || ! unwrapped->isResolved(RUN)) {
        return false;
    }
    result = value;
    return true;
}

void OMExpressionTernary::set_yielding(const std::shared_ptr<Task>&, bool& success, std::shared_ptr<IOMNode>&,
                                       const std::shared_ptr<OMScope>&, ScriptPhase) {
    success = false;
    LOG_ERROR("setting value on ternary");
}

bool OMExpressionTernary::scanForLocalVariables(const std::shared_ptr<FunctionSignature>& signature,
                                                bool isStartOfStatement) {
    bool retVal = false;
    do {
        SANITY_CHECK(fNode1);
        SANITY_CHECK(fNode2);
        SANITY_CHECK(fNode3);
        bool allOK = true;
        for (const auto& node : {fNode1, fNode2, fNode3}) {
            if (node->getType() == OMType::Expression && node->getExpression()) {
                allOK = node->getExpression()->scanForLocalVariables(signature, isStartOfStatement) && allOK;
            }
            isStartOfStatement = false;
        }
        retVal = allOK;
    } while (false);
    return retVal;
}

uint64_t OMExpressionTernary::hash() const {
    if (fHash == 0) {
        if (! SANITY_CHECKED(fNode1 && fNode2 && fNode3)) {
            return 0;
        }
        const uint64_t op = static_cast<uint64_t>(static_cast<int64_t>(fTernOp));
        fHash = op * fNode1->hash() + (op + 2) * fNode2->hash() + (op + 4) * fNode3->hash() + 1123999;
    }
    return fHash;
}

std::string OMExpressionTernary::toString() const {
    return std::string(ternOpToPrefixStr(fTernOp)) + nodeText(fNode1) + ternOpToInfix1Str(fTernOp) +
           nodeText(fNode2) + ternOpToInfix2Str(fTernOp) + nodeText(fNode3) + ternOpToSuffixStr(fTernOp);
}

bool OMExpressionTernary::operator==(const OMExpression& other) const {
    if (other.getExpressionKind() != TERNARY) {
        return false;
    }
    const auto& otherTernary = dynamic_cast<const OMExpressionTernary&>(other);
    return fTernOp == otherTernary.fTernOp && nodesEqual(fNode1, otherTernary.fNode1) &&
           nodesEqual(fNode2, otherTernary.fNode2) && nodesEqual(fNode3, otherTernary.fNode3);
}

bool OMExpressionTernary::operator<(const OMExpression& other) const {
    if (getExpressionKind() != other.getExpressionKind()) {
        return getExpressionKind() < other.getExpressionKind();
    }
    const auto& otherTernary = dynamic_cast<const OMExpressionTernary&>(other);
    if (fTernOp != otherTernary.fTernOp) {
        return fTernOp < otherTernary.fTernOp;
    }
    for (const auto& [mine, theirs] :
         {std::pair{fNode1, otherTernary.fNode1}, std::pair{fNode2, otherTernary.fNode2},
          std::pair{fNode3, otherTernary.fNode3}}) {
        if (nodesLess(mine, theirs)) {
            return true;
        }
        if (nodesLess(theirs, mine)) {
            return false;
        }
    }
    return false;
}

} // namespace Brw
