#include "BrwParser/BrwOMExpressionBinary.h"

#include "BrwLogger/BrwCheck.h"
#include "BrwParser/BrwOMExpressionLValue.h"
#include "BrwParser/BrwOMExpressionSequence.h"
#include "BrwParser/BrwOMQuickFunction.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwToken.h"
#include "BrwTask/BrwYielding.h"

namespace Brw {

std::shared_ptr<OMExpressionBinary> OMExpressionBinary::factory(BinOp binOp,
                                                                const std::shared_ptr<IOMNode>& node1,
                                                                const std::shared_ptr<IOMNode>& node2) {
    std::shared_ptr<OMExpressionBinary> retVal;
    do {
        SANITY_CHECK(node1);
        SANITY_CHECK(node2);
        retVal = std::make_shared<OMExpressionBinary>(binOp, node1, node2);
    } while (false);
    return retVal;
}

void OMExpressionBinary::resolve_yielding(const std::shared_ptr<Task>& task, bool& resolved,
                                          AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                          ScriptPhase phase, OMExpressionBinaryResolution& resolution) {
    struct LocalVariableState : OMFunctionState {
        AccessType node1Access = GET; // how the left operand is resolved
    };
    YIELDING_BEGIN(LocalVariableState, frame, resolved = false);
    resolution.clear();
    YIELDING_CHECK(prepareScope(scope));
    frame->node1Access = accessType;
    if (phase == RUN && fBinOp == ASSIGN && fNode1->isLValue()) {
        std::shared_ptr<OMExpression> expression1 = fNode1->getExpression();
        YIELDING_CHECK(expression1);
        resolution.fIsReferenceAssignment =
            expression1->getExpressionKind() == LVALUE_TOKEN && expression1->getToken() == _reference;
        frame->node1Access = SET;
    }
    YIELDING_CALL(OMNode::getResolvedNode_yielding(task, resolution.fResolvedNode1, frame->node1Access,
                                                   fNode1, scope, phase, KEEP_RETURN_VALUE));
    YIELDING_CHECK(resolution.fResolvedNode1);
    if (! resolution.fResolvedNode1->isResolved(phase)) {
        YIELDING_FINISH;
    }
    if (fBinOp == WHILE || fBinOp == DO_WHILE) {
        // NOTE: loops never fold while the tree is built: `while (true) {}` would never end.
        if (phase == PARSE) {
            YIELDING_FINISH;
        }
        YIELDING_CALL(loop_yielding(task, resolved, accessType, scope, phase, resolution));
        YIELDING_FINISH;
    }
    resolution.fIsReturn = isReturnNode(resolution.fResolvedNode1);
    resolution.fIsBreak = isBreakNode(resolution.fResolvedNode1);
    if ((fBinOp == COMMA || fBinOp == SEMICOLON) && (resolution.fIsReturn || resolution.fIsBreak)) {
        // The signal ends the sequence: the right side is never evaluated.
        resolution.fResolvedNode2 = OMStored::undefinedFactory();
        resolved = true;
        YIELDING_FINISH;
    }
    YIELDING_CHECK(fNode2);
    YIELDING_CALL(OMNode::getResolvedNode_yielding(task, resolution.fResolvedNode2, accessType, fNode2, scope,
                                                   phase, KEEP_RETURN_VALUE));
    YIELDING_CHECK(resolution.fResolvedNode2);
    {
        const bool isReturn = isReturnNode(resolution.fResolvedNode2);
        const bool isBreak = isBreakNode(resolution.fResolvedNode2);
        if ((fBinOp == COMMA || fBinOp == SEMICOLON) && (isReturn || isBreak)) {
            resolution.fResolvedNode1 = resolution.fResolvedNode2;
            resolution.fResolvedNode2 = OMStored::undefinedFactory();
            resolution.fIsReturn = isReturn;
            resolution.fIsBreak = isBreak;
            resolved = true;
            YIELDING_FINISH;
        }
        if (isBreak) {
            resolution.fResolvedNode2 = OMStored::undefinedFactory();
        } else if (isReturn) {
            resolution.fResolvedNode2 = resolution.fResolvedNode2->unwrapReturnValue();
            YIELDING_CHECK(resolution.fResolvedNode2);
        }
        // A fresh result that nothing else holds needs no copy: nobody can see the difference.
        if (fBinOp == ASSIGN && resolution.fResolvedNode2.use_count() > 1 &&
            (resolution.fResolvedNode2 == fNode2 || resolution.fResolvedNode2->isScalar())) {
            // The tree and the target share nothing; a container from another variable is shared.
            resolution.fResolvedNode2 = resolution.fResolvedNode2->clone(OMStored::CLONE_ALL_LEVELS);
            YIELDING_CHECK(resolution.fResolvedNode2);
        }
        resolution.fIsReturn = false;
        resolution.fIsBreak = false;
        resolved = true;
    }
    YIELDING_END;
}

void OMExpressionBinary::loop_yielding(const std::shared_ptr<Task>& task, bool& resolved,
                                       AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                       ScriptPhase phase, OMExpressionBinaryResolution& resolution) {
    struct LocalVariableState : OMFunctionState {
        std::shared_ptr<IOMNode> condition; // value of the condition
        std::shared_ptr<IOMNode> body;      // value of the body
        bool isBodyDone = false;            // the body ran before the first test: a do-loop
        OMQuickFunction::LoopStop quickStop = OMQuickFunction::LOOP_AT_BODY; // where quick iterations stopped
        size_t statementIndex = 0; // the statement of the body they stopped at
    };
    YIELDING_BEGIN(LocalVariableState, frame, resolved = false);
    {
        const bool isDoWhile = fBinOp == DO_WHILE;
        (isDoWhile ? frame->body : frame->condition) = std::move(resolution.fResolvedNode1);
        resolution.fResolvedNode1.reset();
        frame->isBodyDone = isDoWhile;
    }
    for (;;) {
        if (! frame->isBodyDone) {
            // A break or return in the condition counts as its plain value.
            if (isBreakNode(frame->condition)) {
                frame->condition = OMStored::undefinedFactory();
            } else if (isReturnNode(frame->condition)) {
                frame->condition = frame->condition->unwrapReturnValue();
                YIELDING_CHECK(frame->condition);
            }
            if (! frame->condition->getAsBool()) {
                // A finished loop has the value undefined.
                resolution.fResolvedNode1 = OMStored::undefinedFactory();
                resolution.fResolvedNode2 = OMStored::undefinedFactory();
                resolved = true;
                YIELDING_FINISH;
            }
            // The values of the last round are done with; held, they would keep a variable's node shared.
            frame->condition.reset();
            frame->body.reset();
            frame->quickStop = phase == RUN ? runQuickLoop(task, scope, frame->statementIndex)
                                            : OMQuickFunction::LOOP_AT_BODY;
            if (frame->quickStop == OMQuickFunction::LOOP_FINISHED) {
                frame->condition = OMStored::factory(false);
                continue;
            }
            if (frame->quickStop == OMQuickFunction::LOOP_AT_CONDITION) {
                frame->body = OMStored::undefinedFactory();
            } else if (frame->quickStop == OMQuickFunction::LOOP_AT_STATEMENT) {
                YIELDING_CHECK(bodyBlock());
                YIELDING_CALL(bodyBlock()->getFrom_yielding(task, frame->body, accessType, scope, phase,
                                                            frame->statementIndex));
            } else {
                YIELDING_CALL(OMNode::getResolvedNode_yielding(task, frame->body, accessType, loopBody(),
                                                               scope, phase, KEEP_RETURN_VALUE));
            }
            YIELDING_CHECK(frame->body);
            if (! frame->body->isResolved(phase)) {
                YIELDING_FINISH;
            }
        }
        frame->isBodyDone = false;
        {
            const bool isReturn = isReturnNode(frame->body);
            const bool isBreak = isBreakNode(frame->body);
            if (isBreak) {
                frame->body = OMStored::undefinedFactory();
            }
            if (isReturn || isBreak) {
                // The loop consumes a break; a return travels on.
                resolution.fResolvedNode1 = frame->body;
                resolution.fResolvedNode2 = OMStored::undefinedFactory();
                resolution.fIsReturn = isReturn;
                resolution.fIsBreak = false;
                resolved = true;
                YIELDING_FINISH;
            }
        }
        YIELDING_CALL(OMNode::getResolvedNode_yielding(task, frame->condition, accessType, loopCondition(),
                                                       scope, phase, KEEP_RETURN_VALUE));
        YIELDING_CHECK(frame->condition);
    }
    YIELDING_END;
}

OMQuickFunction::LoopStop OMExpressionBinary::runQuickLoop(const std::shared_ptr<Task>& task,
                                                           const std::shared_ptr<OMScope>& scope,
                                                           size_t& statementIndex) {
    if (! isDirectEvaluationOn() || ! scope->isPlain()) {
        return OMQuickFunction::LOOP_AT_BODY;
    }
    if (! fIsQuickLoopTried) {
        fIsQuickLoopTried = true;
        fQuickLoop = OMQuickFunction::compileLoop(loopCondition(), loopBody());
    }
    return fQuickLoop ? fQuickLoop->runLoop(task, scope, OMStored::getCallDepth(), statementIndex)
                      : OMQuickFunction::LOOP_AT_BODY;
}

OMExpressionSequence* OMExpressionBinary::bodyBlock() const {
    const std::shared_ptr<IOMNode>& body = loopBody();
    return body && body->getType() == OMType::Expression
               ? dynamic_cast<OMExpressionSequence*>(body->getExpression().get())
               : nullptr;
}

void OMExpressionBinary::get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                                      AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                      ScriptPhase phase) {
    struct LocalVariableState : OMFunctionState {
        OMExpressionBinaryResolution resolution;
        bool resolved = false;
        bool success = false;
        std::shared_ptr<IOMNodeIterator> iterator; // over the nodes a reference selected
        std::shared_ptr<IOMNode> element;          // one of them
        std::shared_ptr<IOMNode> value;            // the value handed to one of them
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    YIELDING_CHECK(scope);
    YIELDING_CALL(resolve_yielding(task, frame->resolved, accessType, scope, phase, frame->resolution));
    if (! frame->resolved) {
        YIELDING_FINISH;
    }
    if (phase == PARSE && (frame->resolution.fResolvedNode1->getType() == OMType::Expression ||
                           frame->resolution.fResolvedNode2->getType() == OMType::Expression)) {
        YIELDING_FINISH;
    }
    if (frame->resolution.fIsReferenceAssignment &&
        frame->resolution.fResolvedNode1->getType() == OMType::Array) {
        // `reference(...) = v` assigns to every node the reference selected.
        for (frame->iterator = frame->resolution.fResolvedNode1->getIterator(); ! frame->iterator->isAtEnd();
             ++*frame->iterator) {
            frame->element = **frame->iterator;
            YIELDING_CHECK(frame->element);
            frame->value = frame->resolution.fResolvedNode2;
            YIELDING_CALL(frame->element->setAndAccess_yielding(task, frame->success, frame->value));
            YIELDING_CHECK(frame->success);
        }
        result = frame->resolution.fResolvedNode2;
        YIELDING_FINISH;
    }
    if (frame->resolution.fIsReturn || frame->resolution.fIsBreak) {
        result = frame->resolution.fResolvedNode1;
        YIELDING_FINISH;
    }
    if (fBinOp == ASSIGN) {
        result = frame->resolution.fResolvedNode2;
        YIELDING_CHECK(result);
        if (fNode1->getType() == OMType::Expression) {
            YIELDING_CHECK(fNode1->getExpression());
            if (fNode1->getExpression()->isLValue()) {
                YIELDING_CALL(
                    fNode1->getExpression()->set_yielding(task, frame->success, result, scope, phase));
                if (! frame->success) {
                    YIELDING_FINISH;
                }
            }
        }
        YIELDING_CALL(
            writeThroughParent_yielding(task, frame->success, frame->resolution.fResolvedNode1, result));
        YIELDING_FINISH;
    }
    result = OMNode::binaryOperation(fBinOp, frame->resolution.fResolvedNode1, KEEP_NODE,
                                     frame->resolution.fResolvedNode2, KEEP_NODE, scope);
    YIELDING_CHECK(result);
    YIELDING_END;
}

void OMExpressionBinary::writeThroughParent_yielding(const std::shared_ptr<Task>& task, bool& success,
                                                     const std::shared_ptr<IOMNode>& target,
                                                     std::shared_ptr<IOMNode>& value) {
    struct LocalVariableState : OMFunctionState {
        std::shared_ptr<IOMNode> parent;
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = true);
    frame->parent = target ? target->getDataStructureParent() : nullptr;
    if (! frame->parent) {
        YIELDING_FINISH;
    }
    if (frame->parent->getType() == OMType::Array && target->getDataStructureIdx() != ~uint64_t(0)) {
        YIELDING_CALL(
            frame->parent->setAndAccess_yielding(task, success, target->getDataStructureIdx(), value));
        YIELDING_CHECK(success);
    } else if (frame->parent->getType() == OMType::Map && ! target->getDataStructureKey().empty()) {
        YIELDING_CALL(
            frame->parent->setAndAccess_yielding(task, success, target->getDataStructureKey(), value));
        YIELDING_CHECK(success);
    }
    YIELDING_END;
}

OMExpression::DirectShape OMExpressionBinary::computeDirectShape() {
    if (fBinOp >= MULTIPLY && fBinOp <= BOOL_OR) {
        return isPureOperand(fNode1, fDirect1) && isPureOperand(fNode2, fDirect2) ? DIRECT_PURE : DIRECT_NONE;
    }
    if (fBinOp == ASSIGN) {
        fDirectTarget = asPlainName(fNode1);
        if (fDirectTarget == nullptr && fNode1 && fNode1->getType() == OMType::Expression) {
            auto* element = dynamic_cast<OMExpressionLValueIndexByExpression*>(fNode1->getExpression().get());
            fDirectElement = element != nullptr && element->isDirectElementTarget() ? element : nullptr;
        }
        if ((fDirectTarget == nullptr && fDirectElement == nullptr) || ! isPureOperand(fNode2, fDirect2)) {
            return DIRECT_NONE;
        }
        if (fDirectElement != nullptr) {
            return DIRECT_STATEMENT;
        }
        auto* sum = dynamic_cast<OMExpressionSequence*>(fDirect2);
        OMExpressionLValueStr* first =
            sum != nullptr && sum->getBinOp() == ADD ? asPlainName(sum->getNode(0)) : nullptr;
        if (first != nullptr && first->getIdentifier() == fDirectTarget->getIdentifier()) {
            fGrowInPlace = sum;
        }
        return DIRECT_STATEMENT;
    }
    return DIRECT_NONE;
}

bool OMExpressionBinary::evalDirectShape(const std::shared_ptr<Task>& task,
                                         const std::shared_ptr<OMScope>& scope,
                                         std::shared_ptr<IOMNode>& result) {
    if (fBinOp == ASSIGN) {
        return assignDirect(task, scope, result);
    }
    std::shared_ptr<IOMNode> value1;
    std::shared_ptr<IOMNode> value2;
    if (! evalPureOperand(task, fNode1, fDirect1, scope, value1) ||
        ! evalPureOperand(task, fNode2, fDirect2, scope, value2)) {
        return false;
    }
    result = OMNode::binaryOperation(fBinOp, value1, KEEP_NODE, value2, KEEP_NODE, scope);
    return result != nullptr;
}

bool OMExpressionBinary::assignDirect(const std::shared_ptr<Task>& task,
                                      const std::shared_ptr<OMScope>& scope,
                                      std::shared_ptr<IOMNode>& result) {
    // The variable or element is made before the value is read, as on the resumable path; that one finds it
    // made.
    std::shared_ptr<IOMNode> target;
    if (fDirectElement != nullptr) {
        return fDirectElement->findElementDirect(task, scope, target) &&
               assignElementDirect(task, scope, target, result);
    }
    if (! fDirectTarget->findTargetDirect(scope, target) || ! target->isResolved(RUN) ||
        target->getDataStructureParent()) {
        return false;
    }
    std::shared_ptr<IOMNode> value;
    if (fGrowInPlace != nullptr && fGrowInPlace->growInPlaceDirect(task, scope, target, value)) {
        // The variable's own node, grown, is where it was; anything else (an Error value) is stored.
        result = value == target ? value : fDirectTarget->storeDirect(scope, value);
        return true;
    }
    if (! evalAssignedValue(task, scope, value)) {
        return false;
    }
    result = value ? fDirectTarget->storeDirect(scope, value) : nullptr;
    return true;
}

bool OMExpressionBinary::evalAssignedValue(const std::shared_ptr<Task>& task,
                                           const std::shared_ptr<OMScope>& scope,
                                           std::shared_ptr<IOMNode>& value) {
    if (! evalPureOperand(task, fNode2, fDirect2, scope, value)) {
        return false;
    }
    // The tree and the target share nothing; a container from another variable is shared.
    if (value.use_count() > 1 && (value == fNode2 || value->isScalar())) {
        value = value->clone(OMStored::CLONE_ALL_LEVELS);
        (void)SANITY_CHECKED(value);
    }
    return true;
}

bool OMExpressionBinary::assignElementDirect(const std::shared_ptr<Task>& task,
                                             const std::shared_ptr<OMScope>& scope,
                                             const std::shared_ptr<IOMNode>& element,
                                             std::shared_ptr<IOMNode>& result) {
    std::shared_ptr<IOMNode> value;
    if (! evalAssignedValue(task, scope, value)) {
        return false;
    }
    // The element takes the value, as setAndAccess_yielding gives it.
    (void)SANITY_CHECKED(! value || element->set(value));
    result = value ? element : nullptr;
    return true;
}

void OMExpressionBinary::set_yielding(const std::shared_ptr<Task>&, bool& success,
                                      std::shared_ptr<IOMNode>& value, const std::shared_ptr<OMScope>& scope,
                                      ScriptPhase) {
    success = false;
    do {
        SANITY_CHECK(fBinOp == INDEX);
        std::shared_ptr<IOMNode> lValue =
            OMNode::binaryOperation(fBinOp, fNode1, KEEP_NODE, fNode2, KEEP_NODE, scope);
        SANITY_CHECK(lValue);
        SANITY_CHECK(lValue->set(*value));
        success = true;
    } while (false);
}

bool OMExpressionBinary::scanForLocalVariables(const std::shared_ptr<FunctionSignature>& signature,
                                               bool isStartOfStatement) {
    bool retVal = false;
    do {
        if (fBinOp == ASSIGN && isStartOfStatement && fNode1) {
            const std::string name = fNode1->getAsIdentifier();
            if (! name.empty()) {
                SANITY_CHECK(signature->addLocalVariable(name));
            }
        }
        retVal = true;
    } while (false);
    return retVal;
}

uint64_t OMExpressionBinary::hash() const {
    if (fHash == 0) {
        if (! SANITY_CHECKED(fNode1 && fNode2)) {
            return 0;
        }
        const uint64_t op = static_cast<uint64_t>(static_cast<int64_t>(fBinOp));
        fHash = op * fNode1->hash() + (op + 2) * fNode2->hash() + 1123999;
    }
    return fHash;
}

std::string OMExpressionBinary::toString() const {
    return std::string(binOpToPrefixStr(fBinOp)) + nodeText(fNode1) + binOpToInfixStr(fBinOp) +
           nodeText(fNode2) + binOpToSuffixStr(fBinOp);
}

bool OMExpressionBinary::operator==(const OMExpression& other) const {
    if (other.getExpressionKind() != BINARY) {
        return false;
    }
    const auto& otherBinary = dynamic_cast<const OMExpressionBinary&>(other);
    return fBinOp == otherBinary.fBinOp && nodesEqual(fNode1, otherBinary.fNode1) &&
           nodesEqual(fNode2, otherBinary.fNode2);
}

bool OMExpressionBinary::operator<(const OMExpression& other) const {
    if (getExpressionKind() != other.getExpressionKind()) {
        return getExpressionKind() < other.getExpressionKind();
    }
    const auto& otherBinary = dynamic_cast<const OMExpressionBinary&>(other);
    if (fBinOp != otherBinary.fBinOp) {
        return fBinOp < otherBinary.fBinOp;
    }
    if (nodesLess(fNode1, otherBinary.fNode1)) {
        return true;
    }
    if (nodesLess(otherBinary.fNode1, fNode1)) {
        return false;
    }
    return nodesLess(fNode2, otherBinary.fNode2);
}

} // namespace Brw
