#include "BrwParser/BrwOMExpressionUnary.h"

#include "BrwLogger/BrwCheck.h"
#include "BrwParser/BrwOMExpressionLValue.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwTask/BrwYielding.h"

namespace Brw {

std::shared_ptr<OMExpression> OMExpression::returnFactory(const std::shared_ptr<IOMNode>& operand) {
    return OMExpressionUnary::factory(RETURN, operand);
}

std::shared_ptr<OMExpressionUnary> OMExpressionUnary::factory(UnOp unOp,
                                                              const std::shared_ptr<IOMNode>& node) {
    std::shared_ptr<OMExpressionUnary> retVal;
    do {
        SANITY_CHECK(node);
        retVal = std::make_shared<OMExpressionUnary>(unOp, node);
    } while (false);
    return retVal;
}

void OMExpressionUnary::resolve_yielding(const std::shared_ptr<Task>& task, bool& resolved,
                                         AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                         ScriptPhase phase, OMExpressionUnaryResolution& resolution) {
    struct LocalVariableState : OMFunctionState {};
    YIELDING_BEGIN(LocalVariableState, frame, resolved = false);
    resolution.fResolvedNode.reset();
    YIELDING_CHECK(prepareScope(scope));
    YIELDING_CALL(OMNode::getResolvedNode_yielding(task, resolution.fResolvedNode, accessType, fNode, scope,
                                                   phase, KEEP_RETURN_VALUE));
    YIELDING_CHECK(resolution.fResolvedNode);
    resolved = resolution.fResolvedNode->getType() != OMType::Expression || (phase == RUN && fUnOp == RETURN);
    YIELDING_END;
}

void OMExpressionUnary::get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                                     AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                     ScriptPhase phase) {
    struct LocalVariableState : OMFunctionState {
        OMExpressionUnaryResolution resolution;
        bool resolved = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    YIELDING_CALL(resolve_yielding(task, frame->resolved, accessType, scope, phase, frame->resolution));
    if (! frame->resolved) {
        YIELDING_FINISH;
    }
    YIELDING_CHECK(frame->resolution.fResolvedNode);
    if (isIncrementOrDecrement()) {
        result = stepInPlace(frame->resolution.fResolvedNode);
        YIELDING_FINISH;
    }
    result = OMNode::unaryOperation(fUnOp, frame->resolution.fResolvedNode, scope, KEEP_NODE);
    YIELDING_CHECK(result);
    YIELDING_END;
}

std::shared_ptr<IOMNode> OMExpressionUnary::stepInPlace(const std::shared_ptr<IOMNode>& operand) const {
    std::shared_ptr<IOMNode> retVal;
    do {
        std::shared_ptr<OMStored> valueStored = operand->getOMStoredPtr();
        SANITY_CHECK(valueStored);
        std::shared_ptr<OMStored> tempNode = OMStored::undefinedFactory();
        if (fUnOp == PRE_DECREMENT) {
            SANITY_CHECK(valueStored->unop_pre_decrement(tempNode));
        } else if (fUnOp == PRE_INCREMENT) {
            SANITY_CHECK(valueStored->unop_pre_increment(tempNode));
        } else if (fUnOp == POST_DECREMENT) {
            SANITY_CHECK(valueStored->unop_post_decrement(tempNode));
        } else {
            SANITY_CHECK(valueStored->unop_post_increment(tempNode));
        }
        retVal = tempNode;
    } while (false);
    return retVal;
}

OMExpression::DirectShape OMExpressionUnary::computeDirectShape() {
    if (isIncrementOrDecrement()) {
        fDirect = asPlainName(fNode);
        return fDirect != nullptr ? DIRECT_STATEMENT : DIRECT_NONE;
    }
    if (! isPureOperand(fNode, fDirect)) {
        return DIRECT_NONE;
    }
    return fUnOp == RETURN ? DIRECT_READ_ONLY : DIRECT_PURE;
}

bool OMExpressionUnary::evalDirectShape(const std::shared_ptr<Task>& task,
                                        const std::shared_ptr<OMScope>& scope,
                                        std::shared_ptr<IOMNode>& result) {
    std::shared_ptr<IOMNode> value;
    if (! evalPureOperand(task, fNode, fDirect, scope, value)) {
        return false;
    }
    result = isIncrementOrDecrement() ? stepInPlace(value)
                                      : OMNode::unaryOperation(fUnOp, value, scope, KEEP_NODE);
    return true;
}

void OMExpressionUnary::set_yielding(const std::shared_ptr<Task>& task, bool& success,
                                     std::shared_ptr<IOMNode>& value, const std::shared_ptr<OMScope>& scope,
                                     ScriptPhase phase) {
    struct LocalVariableState : OMFunctionState {
        std::shared_ptr<IOMNode> lValue;
        std::shared_ptr<IOMNode> operated;
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    YIELDING_CALL(
        OMNode::getResolvedNode_yielding(task, frame->lValue, SET, fNode, scope, phase, KEEP_RETURN_VALUE));
    YIELDING_CHECK(frame->lValue);
    frame->operated = OMNode::unaryOperation(fUnOp, value, scope, KEEP_NODE);
    YIELDING_CHECK(frame->operated);
    YIELDING_CALL(frame->lValue->setAndAccess_yielding(task, success, frame->operated));
    YIELDING_CHECK(success);
    YIELDING_END;
}

bool OMExpressionUnary::scanForLocalVariables(const std::shared_ptr<FunctionSignature>&, bool) {
    return true;
}

uint64_t OMExpressionUnary::hash() const {
    if (fHash == 0) {
        if (! SANITY_CHECKED(fNode)) {
            return 0;
        }
        const uint64_t op = static_cast<uint64_t>(static_cast<int64_t>(fUnOp));
        const uint64_t h = fNode->hash();
        fHash = ((op * h) ^ h) + 32837837189ULL;
    }
    return fHash;
}

std::string OMExpressionUnary::toString() const {
    return std::string(unOpToPrefixStr(fUnOp)) + nodeText(fNode) + unOpToSuffixStr(fUnOp);
}

bool OMExpressionUnary::operator==(const OMExpression& other) const {
    if (other.getExpressionKind() != UNARY) {
        return false;
    }
    const auto& otherUnary = dynamic_cast<const OMExpressionUnary&>(other);
    return fUnOp == otherUnary.fUnOp && nodesEqual(fNode, otherUnary.fNode);
}

bool OMExpressionUnary::operator<(const OMExpression& other) const {
    if (getExpressionKind() != other.getExpressionKind()) {
        return getExpressionKind() < other.getExpressionKind();
    }
    const auto& otherUnary = dynamic_cast<const OMExpressionUnary&>(other);
    if (fUnOp != otherUnary.fUnOp) {
        return fUnOp < otherUnary.fUnOp;
    }
    return nodesLess(fNode, otherUnary.fNode);
}

} // namespace Brw
