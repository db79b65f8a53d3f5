#include "BrwParser/BrwOMExpressionSequence.h"

#include <algorithm>

#include "BrwLogger/BrwCheck.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwToken.h"
#include "BrwTask/BrwYielding.h"

namespace Brw {

std::shared_ptr<OMExpressionSequence> OMExpressionSequence::factory(BinOp binOp,
                                                                    const std::shared_ptr<IOMNode>& node1,
                                                                    const std::shared_ptr<IOMNode>& node2) {
    std::shared_ptr<OMExpressionSequence> retVal;
    do {
        SANITY_CHECK(binOp != BinOp::ASSIGN);
        auto sequence = std::make_shared<OMExpressionSequence>(binOp);
        SANITY_CHECK(sequence->append(node1));
        SANITY_CHECK(sequence->append(node2));
        retVal = sequence;
    } while (false);
    return retVal;
}

bool OMExpressionSequence::append(const std::shared_ptr<IOMNode>& node) {
    bool retVal = false;
    do {
        SANITY_CHECK(node);
        fNodes->push_back(node);
        fHash = 0;
        forgetDirectShape();
        retVal = true;
    } while (false);
    return retVal;
}

std::shared_ptr<IOMNode> OMExpressionSequence::getNode(size_t index) const {
    return fNodes && index < fNodes->size() ? (*fNodes)[index] : nullptr;
}

void OMExpressionSequence::resolve_yielding(const std::shared_ptr<Task>& task, bool& resolved,
                                            AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                            ScriptPhase phase, OMExpressionSequenceResolution& resolution,
                                            size_t startIndex) {
    struct LocalVariableState : OMFunctionState {
        size_t index = 0;
        std::shared_ptr<IOMNode> value;
    };
    YIELDING_BEGIN(LocalVariableState, frame, resolved = false);
    YIELDING_CHECK(fBinOp != BinOp::ASSIGN);
    YIELDING_CHECK(prepareScope(scope));
    resolution.fResolvedNodes = std::make_shared<OMArray>();
    resolution.fResolvedNodes->reserve(fNodes->size());
    for (frame->index = startIndex; frame->index < fNodes->size(); ++frame->index) {
        YIELDING_CHECK((*fNodes)[frame->index]);
        // Only the last value of a block counts: holding the others would keep a variable's node shared
        // while later statements run (a loop then couldn't write it in place).
        frame->value.reset();
        if (phase == RUN && (fBinOp == COMMA || fBinOp == SEMICOLON)) {
            resolution.fResolvedNodes->clear();
        }
        YIELDING_CALL(OMNode::getResolvedNode_yielding(
            task, frame->value, accessType, (*fNodes)[frame->index], scope, phase, KEEP_RETURN_VALUE));
        YIELDING_CHECK(frame->value);
        if (! frame->value->isResolved(phase)) {
            YIELDING_FINISH;
        }
        resolution.fResolvedNodes->push_back(frame->value);
        if ((fBinOp == COMMA || fBinOp == SEMICOLON) &&
            (isReturnNode(frame->value) || isBreakNode(frame->value))) {
            // A return or a break ends the sequence: what follows isn't evaluated.
            break;
        }
    }
    resolved = true;
    YIELDING_END;
}

void OMExpressionSequence::get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                                        AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                        ScriptPhase phase) {
    getFrom_yielding(task, result, accessType, scope, phase, 0);
}

void OMExpressionSequence::getFrom_yielding(const std::shared_ptr<Task>& task,
                                            std::shared_ptr<IOMNode>& result, AccessType accessType,
                                            const std::shared_ptr<OMScope>& scope, ScriptPhase phase,
                                            size_t startIndex) {
    struct LocalVariableState : OMFunctionState {
        OMExpressionSequenceResolution resolution;
        bool resolved = false;
        size_t startIndex = 0; // statements before it ran earlier, or without frames
    };
    size_t directCount = startIndex;
    if (phase == RUN && accessType == GET && scope && scope->isPlain() && ! task->hasPendingFunctionState() &&
        scope->getType() == OMType::Map && isDirectBlock() &&
        evalStatementsDirect(task, scope, directCount, result)) {
        return;
    }
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    YIELDING_CHECK(fBinOp != BinOp::ASSIGN);
    if (! fNodes || fNodes->empty()) {
        result = OMStored::undefinedFactory();
        YIELDING_FINISH;
    }
    // Only the last value counts in a block, so the values of the statements that already ran aren't kept.
    frame->startIndex = directCount;
    YIELDING_CALL(resolve_yielding(task, frame->resolved, accessType, scope, phase, frame->resolution,
                                   frame->startIndex));
    if (! frame->resolved) {
        YIELDING_FINISH;
    }
    {
        std::shared_ptr<IOMNode> accumulated;
        bool isAccumulatorOwn = false; // the accumulator is a node of this evaluation, not an operand
        bool sawReturn = false;
        for (std::shared_ptr<IOMNode> node : *frame->resolution.fResolvedNodes) {
            if (! SANITY_CHECKED(node)) {
                accumulated.reset();
                break;
            }
            if (phase == PARSE && node->getType() == OMType::Expression) {
                YIELDING_FINISH;
            }
            if (node->isReturnValue()) {
                sawReturn = true;
                node = node->unwrapReturnValue();
                if (! node) {
                    break;
                }
            }
            if (! accumulated) {
                accumulated = node;
            } else {
                // Once the accumulator is this evaluation's own it may be written into: a long chain of `+`
                // doesn't copy its growing text at every step.
                accumulated = OMNode::binaryOperation(
                    fBinOp, accumulated, isAccumulatorOwn ? REUSE_NODE : KEEP_NODE, node, KEEP_NODE, scope);
                isAccumulatorOwn = true;
            }
        }
        if (accumulated && ! isAccumulatorOwn) {
            accumulated = accumulated->clone(0);
        }
        if (frame->resolution.fResolvedNodes->empty()) {
            accumulated = OMStored::undefinedFactory();
        }
        if (sawReturn && accumulated) {
            accumulated = accumulated->wrapReturnValue();
        }
        result = accumulated;
    }
    YIELDING_CHECK(result);
    YIELDING_END;
}

OMExpression::DirectShape OMExpressionSequence::computeDirectShape() {
    fDirectNodes.assign(getNodeCount(), nullptr);
    fIsDirectBlock = false;
    if (fDirectNodes.empty()) {
        return DIRECT_NONE;
    }
    if (fBinOp == COMMA || fBinOp == SEMICOLON) {
        // A block of reads is read-only as a whole; one with writes runs its statements one by one without
        // frames, but is no shape of its own: after a write, a statement that must take the long way
        // can't take the whole block with it.
        DirectShape strongest = DIRECT_PURE;
        for (size_t index = 0; index < fDirectNodes.size() && strongest != DIRECT_NONE; ++index) {
            const DirectShape shape = statementShape((*fNodes)[index], fDirectNodes[index]);
            strongest = shape == DIRECT_NONE ? DIRECT_NONE : std::max(strongest, shape);
        }
        fIsDirectBlock = strongest != DIRECT_NONE;
        return strongest == DIRECT_PURE || strongest == DIRECT_READ_ONLY ? DIRECT_READ_ONLY : DIRECT_NONE;
    }
    if (fBinOp < MULTIPLY || fBinOp > BOOL_OR) {
        return DIRECT_NONE;
    }
    for (size_t index = 0; index < fDirectNodes.size(); ++index) {
        if (! isPureOperand((*fNodes)[index], fDirectNodes[index])) {
            return DIRECT_NONE;
        }
    }
    return DIRECT_PURE;
}

bool OMExpressionSequence::evalDirectShape(const std::shared_ptr<Task>& task,
                                           const std::shared_ptr<OMScope>& scope,
                                           std::shared_ptr<IOMNode>& result) {
    if (fBinOp == COMMA || fBinOp == SEMICOLON) {
        size_t doneCount = 0;
        return evalStatementsDirect(task, scope, doneCount, result);
    }
    std::shared_ptr<IOMNode> accumulated;
    std::shared_ptr<IOMNode> value;
    for (size_t index = 0; index < fDirectNodes.size(); ++index) {
        if (! evalPureOperand(task, (*fNodes)[index], fDirectNodes[index], scope, value)) {
            return false;
        }
        // As get_yielding folds: from the second operand on, the accumulator is this evaluation's own.
        accumulated = index == 0
                          ? value
                          : OMNode::binaryOperation(fBinOp, accumulated, index > 1 ? REUSE_NODE : KEEP_NODE,
                                                    value, KEEP_NODE, scope);
        if (! accumulated) {
            return false;
        }
    }
    result = fDirectNodes.size() == 1 ? accumulated->clone(0) : accumulated;
    return result != nullptr;
}

bool OMExpressionSequence::growInPlaceDirect(const std::shared_ptr<Task>& task,
                                             const std::shared_ptr<OMScope>& scope,
                                             const std::shared_ptr<IOMNode>& target,
                                             std::shared_ptr<IOMNode>& result) {
    constexpr size_t MAX_OPERANDS = 4;
    std::shared_ptr<IOMNode> values[MAX_OPERANDS];
    const size_t count = fDirectNodes.size();
    if (getDirectShape() != DIRECT_PURE || fBinOp != ADD || count < 2 || count > MAX_OPERANDS + 1) {
        return false;
    }
    // Every operand is read before the node changes, as the long way reads them all before it adds.
    for (size_t index = 1; index < count; ++index) {
        if (! evalPureOperand(task, (*fNodes)[index], fDirectNodes[index], scope, values[index - 1])) {
            return false;
        }
    }
    // Held by the scope and the caller only: nobody else can see the node change.
    const OMType type = target->getType();
    if ((type != OMType::String && type != OMType::Int && type != OMType::Float) || target.use_count() != 2) {
        return false;
    }
    std::shared_ptr<IOMNode> accumulated = target;
    for (size_t index = 1; index < count && accumulated; ++index) {
        accumulated =
            OMNode::binaryOperation(fBinOp, accumulated, REUSE_NODE, values[index - 1], KEEP_NODE, scope);
    }
    result = accumulated;
    return true;
}

bool OMExpressionSequence::evalStatementsDirect(const std::shared_ptr<Task>& task,
                                                const std::shared_ptr<OMScope>& scope, size_t& doneCount,
                                                std::shared_ptr<IOMNode>& result) {
    std::shared_ptr<IOMNode> value;
    for (; doneCount < fDirectNodes.size(); ++doneCount) {
        if (! evalDirectNode(task, (*fNodes)[doneCount], fDirectNodes[doneCount], scope, value)) {
            return false;
        }
        if (! value) {
            // An internal fault, reported where it happened; the block's value is missing, as it would be.
            result.reset();
            return true;
        }
        if (! value->isResolved(RUN)) {
            // Only a read gives such a value, and reading again changes nothing: the long way takes it.
            return false;
        }
        if (isReturnNode(value) || isBreakNode(value)) {
            break;
        }
    }
    if (! value) {
        // Nothing left to run from the start given.
        result = OMStored::undefinedFactory();
        return true;
    }
    result = statementListValue(value);
    return true;
}

std::shared_ptr<IOMNode> OMExpressionSequence::statementListValue(const std::shared_ptr<IOMNode>& last) {
    if (! last->isReturnValue()) {
        // A value that nothing else holds (the caller's reference aside) needs no copy: nobody can tell.
        return last.use_count() <= 1 ? last : last->clone(0);
    }
    std::shared_ptr<IOMNode> unwrapped = last->unwrapReturnValue();
    if (unwrapped && unwrapped.use_count() <= 2) {
        // Held by its wrapper alone: a fresh value, which needs neither a copy nor a new wrapper.
        return last;
    }
    std::shared_ptr<IOMNode> copy = unwrapped ? unwrapped->clone(0) : nullptr;
    return copy ? copy->wrapReturnValue() : nullptr;
}

void OMExpressionSequence::set_yielding(const std::shared_ptr<Task>&, bool& success,
                                        std::shared_ptr<IOMNode>&, const std::shared_ptr<OMScope>&,
                                        ScriptPhase) {
    success = false;
    LOG_ERROR("setting value on sequence");
}

bool OMExpressionSequence::scanForLocalVariables(const std::shared_ptr<FunctionSignature>& signature,
                                                 bool isStartOfStatement) {
    bool allOK = true;
    bool inLocalSequence = isStartOfStatement;
    for (const auto& node : *fNodes) {
        if (! node || node->getType() != OMType::Expression || ! node->getExpression()) {
            continue;
        }
        if (node->isKeyword(_var)) {
            // The assignments after `var` in this sequence declare locals.
            inLocalSequence = true;
            continue;
        }
        allOK = node->getExpression()->scanForLocalVariables(signature, inLocalSequence) && allOK;
    }
    return allOK;
}

uint64_t OMExpressionSequence::hash() const {
    if (fHash == 0) {
        uint64_t sum = 0;
        for (const auto& node : *fNodes) {
            if (! SANITY_CHECKED(node)) {
                return 0;
            }
            sum += node->hash();
        }
        const int32_t product = static_cast<int32_t>(static_cast<uint32_t>(fBinOp) * 938561u);
        fHash = static_cast<uint64_t>(static_cast<int64_t>(product)) + sum + 11873;
    }
    return fHash;
}

std::string OMExpressionSequence::toString() const {
    std::string text = binOpToPrefixStr(fBinOp);
    for (size_t i = 0; i < fNodes->size(); ++i) {
        const std::shared_ptr<IOMNode>& node = (*fNodes)[i];
        if (! SANITY_CHECKED(node)) {
            break;
        }
        if (i > 0) {
            text += (*fNodes)[i - 1]->isKeyword(_var) ? " " : binOpToInfixStr(fBinOp);
        }
        text += node->toString();
    }
    text += binOpToSuffixStr(fBinOp);
    if (fNodes->size() >= 2 && fBinOp != ASSIGN && fBinOp != COMMA && fBinOp != SEMICOLON) {
        text = "(" + text + ")";
    }
    return text;
}

bool OMExpressionSequence::operator==(const OMExpression& other) const {
    if (other.getExpressionKind() != SEQUENCE) {
        return false;
    }
    const auto& otherSequence = dynamic_cast<const OMExpressionSequence&>(other);
    if (fBinOp != otherSequence.fBinOp || fNodes->size() != otherSequence.fNodes->size()) {
        return false;
    }
    for (size_t i = 0; i < fNodes->size(); ++i) {
        if (! nodesEqual((*fNodes)[i], (*otherSequence.fNodes)[i])) {
            return false;
        }
    }
    return true;
}

bool OMExpressionSequence::operator<(const OMExpression& other) const {
    if (getExpressionKind() != other.getExpressionKind()) {
        return getExpressionKind() < other.getExpressionKind();
    }
    const auto& otherSequence = dynamic_cast<const OMExpressionSequence&>(other);
    if (fBinOp != otherSequence.fBinOp) {
        return fBinOp < otherSequence.fBinOp;
    }
    if (fNodes->size() != otherSequence.fNodes->size()) {
        return fNodes->size() < otherSequence.fNodes->size();
    }
    for (size_t i = 0; i < fNodes->size(); ++i) {
        if (nodesLess((*fNodes)[i], (*otherSequence.fNodes)[i])) {
            return true;
        }
        if (nodesLess((*otherSequence.fNodes)[i], (*fNodes)[i])) {
            return false;
        }
    }
    return false;
}

} // namespace Brw
