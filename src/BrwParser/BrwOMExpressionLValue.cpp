#include "BrwParser/BrwOMExpressionLValue.h"

#include <array>

#include "BrwLogger/BrwCheck.h"
#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwYielding.h"

namespace Brw {

namespace {

using NodePtr = std::shared_ptr<IOMNode>;

constexpr size_t TOKEN_COUNT = 68;

struct BuiltinEntry {
    OMExpressionLValueToken::Builtin builtin = nullptr;
    OMExpressionLValueToken::Builtin_yielding builtin_yielding = nullptr;
};

std::array<BuiltinEntry, TOKEN_COUNT>& builtinTable() {
    static std::array<BuiltinEntry, TOKEN_COUNT> table{};
    // The built-ins enter themselves on the first look-up, whatever the order of start-up. The flag is
    // raised before they do, because each entry comes back here.
    static bool isFilled = false;
    if (! isFilled) {
        isFilled = true;
        OMExpressionLValueToken::registerBuiltins();
    }
    return table;
}

} // namespace

// ---- resolution ----

NodePtr OMExpressionLValueResolution::getArgument(size_t index) const {
    const bool parentIsArgument = fThisNode && ! fThisIsNoArgument;
    if (parentIsArgument) {
        if (index == 0) {
            return fThisNode;
        }
        --index;
    }
    if (fResolvedArgumentList && index < fResolvedArgumentList->size() && (*fResolvedArgumentList)[index]) {
        return (*fResolvedArgumentList)[index];
    }
    return OMStored::undefinedFactory();
}

size_t OMExpressionLValueResolution::getArgumentCount() const {
    const size_t written = fResolvedArgumentList ? fResolvedArgumentList->size() : 0;
    return written + (fThisNode && ! fThisIsNoArgument ? 1 : 0);
}

bool OMExpressionLValueResolution::setThisNode(const NodePtr& thisNode) {
    bool retVal = false;
    do {
        SANITY_CHECK(thisNode);
        if (thisNode->getType() == OMType::Expression) {
            SANITY_CHECK(thisNode->getExpression());
        }
        fThisNode = thisNode;
        retVal = true;
    } while (false);
    return retVal;
}

// ---- base ----

std::shared_ptr<OMExpressionLValue> OMExpressionLValue::factory(const NodePtr& parent,
                                                                const NodePtr& indexExpression,
                                                                const OMArgs& argumentList) {
    std::shared_ptr<OMExpressionLValue> retVal;
    do {
        SANITY_CHECK(indexExpression);
        retVal = std::make_shared<OMExpressionLValueIndexByExpression>(parent, indexExpression, argumentList);
    } while (false);
    return retVal;
}

void OMExpressionLValue::get_yielding(const std::shared_ptr<Task>& task, NodePtr& result,
                                      AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                      ScriptPhase phase) {
    // Reading: nothing to write. The long form only reads this, so one empty pointer serves every call, and
    // forwarding as the last act needs no frame of its own.
    static NodePtr noNewValue;
    get_yielding(task, result, accessType, scope, phase, noNewValue);
}

void OMExpressionLValue::set_yielding(const std::shared_ptr<Task>& task, bool& success, NodePtr& value,
                                      const std::shared_ptr<OMScope>& scope, ScriptPhase phase) {
    struct LocalVariableState : OMFunctionState {
        NodePtr targetedNode;
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    YIELDING_CALL(get_yielding(task, frame->targetedNode, SET, scope, phase, value));
    YIELDING_CHECK(frame->targetedNode);
    value = frame->targetedNode;
    success = true;
    YIELDING_END;
}

void OMExpressionLValue::resolve_yielding(const std::shared_ptr<Task>& task, bool& resolved,
                                          AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                          ScriptPhase phase, OMExpressionLValueResolution& resolution) {
    struct LocalVariableState : OMFunctionState {
        bool argumentsFound = false;
        NodePtr parent;
    };
    if (! fParent && ! fUnresolvedArgumentList && ! task->hasPendingFunctionState() && scope &&
        scope->getType() == OMType::Map) {
        // A plain name has nothing to evaluate: no frame.
        resolution = OMExpressionLValueResolution();
        resolved = phase == RUN;
        return;
    }
    YIELDING_BEGIN(LocalVariableState, frame, resolved = false);
    resolution = OMExpressionLValueResolution();
    if (phase == PARSE) {
        // A left value is never resolved while the tree is built.
        YIELDING_FINISH;
    }
    YIELDING_CHECK(prepareScope(scope));
    if (! fParent && ! fUnresolvedArgumentList && isResolvableWithoutParentAndArguments()) {
        resolved = true;
        YIELDING_FINISH;
    }
    if (fUnresolvedArgumentList) {
        YIELDING_CALL(OMNode::resolveArgumentList_yielding(task, resolution.fResolvedArgumentList, GET,
                                                           fUnresolvedArgumentList, frame->argumentsFound,
                                                           scope, phase));
        for (const NodePtr& argument : *resolution.fResolvedArgumentList) {
            if (! argument || ! argument->isResolved(phase)) {
                YIELDING_FINISH;
            }
        }
    }
    if (! fParent) {
        resolved = true;
        YIELDING_FINISH;
    }
    YIELDING_CALL(OMNode::getResolvedNode_yielding(task, frame->parent, accessType, fParent, scope, phase,
                                                   UNWRAP_RETURN_VALUE));
    YIELDING_CHECK(frame->parent);
    if (! frame->parent->isResolved(phase)) {
        YIELDING_FINISH;
    }
    YIELDING_CHECK(resolution.setThisNode(frame->parent));
    if (fUnresolvedArgumentList && frame->parent->getType() == OMType::Map) {
        // A function member of a map is its method: the map is `this`, not argument 0.
        const std::string memberName = getMemberName();
        if (! memberName.empty() && frame->parent->getType(memberName) == OMType::Function) {
            resolution.setThisIsNoArgument(true);
        }
    }
    resolved = true;
    YIELDING_END;
}

bool OMExpressionLValue::setArgumentList(const OMArgs& unresolvedArgumentList) {
    bool retVal = false;
    do {
        SANITY_CHECK(unresolvedArgumentList);
        fUnresolvedArgumentList = unresolvedArgumentList;
        fHash = 0;
        retVal = true;
    } while (false);
    return retVal;
}

bool OMExpressionLValue::compareArgumentListEqual(const OMExpressionLValue& other) const {
    if (! nodesEqual(fParent, other.fParent)) {
        return false;
    }
    if (! fUnresolvedArgumentList || ! other.fUnresolvedArgumentList) {
        return ! fUnresolvedArgumentList && ! other.fUnresolvedArgumentList;
    }
    if (fUnresolvedArgumentList->size() != other.fUnresolvedArgumentList->size()) {
        return false;
    }
    for (size_t i = 0; i < fUnresolvedArgumentList->size(); ++i) {
        if (! nodesEqual((*fUnresolvedArgumentList)[i], (*other.fUnresolvedArgumentList)[i])) {
            return false;
        }
    }
    return true;
}

bool OMExpressionLValue::compareArgumentListLess(const OMExpressionLValue& other) const {
    if (nodesLess(fParent, other.fParent)) {
        return true;
    }
    if (nodesLess(other.fParent, fParent)) {
        return false;
    }
    if (! fUnresolvedArgumentList || ! other.fUnresolvedArgumentList) {
        // A missing list sorts before any list.
        return ! fUnresolvedArgumentList && other.fUnresolvedArgumentList;
    }
    const size_t count = std::min(fUnresolvedArgumentList->size(), other.fUnresolvedArgumentList->size());
    for (size_t i = 0; i < count; ++i) {
        if (nodesLess((*fUnresolvedArgumentList)[i], (*other.fUnresolvedArgumentList)[i])) {
            return true;
        }
        if (nodesLess((*other.fUnresolvedArgumentList)[i], (*fUnresolvedArgumentList)[i])) {
            return false;
        }
    }
    return fUnresolvedArgumentList->size() < other.fUnresolvedArgumentList->size();
}

bool OMExpressionLValue::operator==(const OMExpression& other) const {
    if (getExpressionKind() != other.getExpressionKind()) {
        return false;
    }
    const auto& otherLValue = dynamic_cast<const OMExpressionLValue&>(other);
    return ownFieldEqual(otherLValue) && compareArgumentListEqual(otherLValue);
}

bool OMExpressionLValue::operator<(const OMExpression& other) const {
    if (getExpressionKind() != other.getExpressionKind()) {
        return getExpressionKind() < other.getExpressionKind();
    }
    const auto& otherLValue = dynamic_cast<const OMExpressionLValue&>(other);
    if (ownFieldLess(otherLValue)) {
        return true;
    }
    if (otherLValue.ownFieldLess(*this)) {
        return false;
    }
    return compareArgumentListLess(otherLValue);
}

uint64_t OMExpressionLValue::parentAndArgumentHash() const {
    uint64_t sum = fParent ? fParent->hash() : 0;
    if (fUnresolvedArgumentList) {
        for (const NodePtr& argument : *fUnresolvedArgumentList) {
            sum += argument ? argument->hash() : 0;
        }
    }
    return sum;
}

std::string OMExpressionLValue::parentText() const {
    return fParent ? fParent->toString() : std::string();
}

std::string OMExpressionLValue::argumentListText() const {
    if (! fUnresolvedArgumentList) {
        return std::string();
    }
    std::string text = "(";
    for (size_t i = 0; i < fUnresolvedArgumentList->size(); ++i) {
        text += (i > 0 ? ", " : "") + nodeText((*fUnresolvedArgumentList)[i]);
    }
    return text + ")";
}

NodePtr OMExpressionLValue::reportUnreachable(const char* scriptError) {
    ScriptErrorLog::report(scriptError);
    NodePtr retVal = OMStored::undefinedFactory();
    VERIFY(retVal->setError());
    return retVal;
}

// ---- call ----

void OMExpressionLValueCall::get_yielding(const std::shared_ptr<Task>& task, NodePtr& result,
                                          AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                          ScriptPhase phase, NodePtr& optionalNewValue) {
    struct LocalVariableState : OMFunctionState {
        OMExpressionLValueResolution resolution;
        bool resolved = false;
        bool success = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    YIELDING_CHECK(fParent);
    YIELDING_CHECK(fUnresolvedArgumentList);
    if (phase == PARSE) {
        YIELDING_FINISH;
    }
    YIELDING_CALL(resolve_yielding(task, frame->resolved, accessType, scope, phase, frame->resolution));
    if (! frame->resolved) {
        YIELDING_FINISH;
    }
    if (frame->resolution.getThisNode()->getType() != OMType::Function) {
        // Calling something that is no function gives it unchanged.
        result = frame->resolution.getThisNode();
    } else {
        YIELDING_CHECK(frame->resolution.fResolvedArgumentList);
        YIELDING_CHECK(frame->resolution.getThisNode()->getOMStoredPtr());
        // NOTE: the callee itself is not handed in as a this-node: it would become the first parameter.
        YIELDING_CALL(frame->resolution.getThisNode()->getOMStoredPtr()->callNodeAsFunction_yielding(
            task, result, false, nullptr, frame->resolution.fResolvedArgumentList, scope));
    }
    if (optionalNewValue && result) {
        // `f(x) = y` writes to the node that f(x) returned.
        YIELDING_CALL(result->setAndAccess_yielding(task, frame->success, optionalNewValue));
        YIELDING_CHECK(frame->success);
    }
    YIELDING_END;
}

uint64_t OMExpressionLValueCall::hash() const {
    if (fHash == 0) {
        fHash = 1632612 + parentAndArgumentHash() + 1112222233;
    }
    return fHash;
}

std::string OMExpressionLValueCall::toString() const {
    if (! SANITY_CHECKED(fParent)) {
        return std::string();
    }
    return parentText() + (fUnresolvedArgumentList ? argumentListText() : std::string("()"));
}

// ---- element access ----

namespace {

// Reads or writes one element of `parent`: by number or by name, as the access asks.
template <class Key>
void accessElement_yielding(const std::shared_ptr<Task>& task, NodePtr& result, AccessType accessType,
                            const std::shared_ptr<OMScope>& scope, ScriptPhase phase, const NodePtr& parent,
                            const Key& key, NodePtr& optionalNewValue) {
    struct LocalVariableState : OMFunctionState {
        bool found = false;
        bool success = false;
        NodePtr element;
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    if (accessType == GET) {
        YIELDING_CALL(parent->accessOMNodeReadOnlyResolved_yielding(task, frame->found, scope, nullptr, key,
                                                                    frame->element));
    } else {
        YIELDING_CALL(parent->accessOMNodeResolved_yielding(task, frame->found, scope, nullptr, accessType,
                                                            key, frame->element));
    }
    if (! frame->found || ! frame->element) {
        result = phase == RUN ? OMExpressionLValue::unreachable("cannot access index") : nullptr;
        YIELDING_FINISH;
    }
    result = frame->element;
    if (optionalNewValue) {
        frame->element = optionalNewValue;
        YIELDING_CALL(result->setAndAccess_yielding(task, frame->success, frame->element));
        YIELDING_CHECK(frame->success);
    }
    YIELDING_END;
}

} // namespace

NodePtr OMExpressionLValue::unreachable(const char* scriptError) {
    return reportUnreachable(scriptError);
}

void OMExpressionLValueIndex::get_yielding(const std::shared_ptr<Task>& task, NodePtr& result,
                                           AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                           ScriptPhase phase, NodePtr& optionalNewValue) {
    struct LocalVariableState : OMFunctionState {
        OMExpressionLValueResolution resolution;
        bool resolved = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    YIELDING_CHECK(fParent);
    YIELDING_CHECK(prepareScope(scope));
    if (phase == PARSE) {
        YIELDING_FINISH;
    }
    YIELDING_CALL(resolve_yielding(task, frame->resolved, accessType, scope, phase, frame->resolution));
    if (! frame->resolved) {
        YIELDING_FINISH;
    }
    YIELDING_CALL(accessElement_yielding(task, result, accessType, scope, phase,
                                         frame->resolution.getThisNode(), fIndex, optionalNewValue));
    YIELDING_END;
}

uint64_t OMExpressionLValueIndex::hash() const {
    if (fHash == 0) {
        fHash = fIndex * 7 + parentAndArgumentHash() + 1112222233;
    }
    return fHash;
}

std::string OMExpressionLValueIndex::toString() const {
    return parentText() + "[" + std::to_string(fIndex) + "]" + argumentListText();
}

bool OMExpressionLValueIndex::ownFieldEqual(const OMExpressionLValue& other) const {
    return fIndex == dynamic_cast<const OMExpressionLValueIndex&>(other).fIndex;
}

bool OMExpressionLValueIndex::ownFieldLess(const OMExpressionLValue& other) const {
    return fIndex < dynamic_cast<const OMExpressionLValueIndex&>(other).fIndex;
}

void OMExpressionLValueIndexByExpression::get_yielding(const std::shared_ptr<Task>& task, NodePtr& result,
                                                       AccessType accessType,
                                                       const std::shared_ptr<OMScope>& scope,
                                                       ScriptPhase phase, NodePtr& optionalNewValue) {
    struct LocalVariableState : OMFunctionState {
        NodePtr index;
        OMExpressionLValueResolution resolution;
        bool resolved = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    YIELDING_CHECK(fParent);
    YIELDING_CHECK(prepareScope(scope));
    if (phase == PARSE) {
        YIELDING_FINISH;
    }
    YIELDING_CALL(OMNode::getResolvedNode_yielding(task, frame->index, GET, fIndexExpression, scope, phase,
                                                   UNWRAP_RETURN_VALUE));
    if (! frame->index) {
        YIELDING_FINISH;
    }
    YIELDING_CALL(resolve_yielding(task, frame->resolved, accessType, scope, phase, frame->resolution));
    if (! frame->resolved) {
        YIELDING_FINISH;
    }
    if (frame->index->getType() == OMType::Int && frame->index->getInt() >= 0) {
        YIELDING_CALL(
            accessElement_yielding(task, result, accessType, scope, phase, frame->resolution.getThisNode(),
                                   static_cast<uint64_t>(frame->index->getInt()), optionalNewValue));
    } else {
        // NOTE: anything but a whole number names a member by its text: a[-1] is the member "-1".
        YIELDING_CALL(accessElement_yielding(task, result, accessType, scope, phase,
                                             frame->resolution.getThisNode(), frame->index->getAsString(),
                                             optionalNewValue));
    }
    YIELDING_END;
}

OMExpression::DirectShape OMExpressionLValueIndexByExpression::computeDirectShape() {
    return ! fUnresolvedArgumentList && isPureOperand(fParent, fDirectParent) &&
                   isPureOperand(fIndexExpression, fDirectIndex)
               ? DIRECT_PURE
               : DIRECT_NONE;
}

bool OMExpressionLValueIndexByExpression::evalDirectShape(const std::shared_ptr<Task>& task,
                                                          const std::shared_ptr<OMScope>& scope,
                                                          NodePtr& result) {
    NodePtr index;
    NodePtr parent;
    if (! evalPureOperand(task, fIndexExpression, fDirectIndex, scope, index) ||
        ! evalPureOperand(task, fParent, fDirectParent, scope, parent) ||
        parent->getOMStoredRaw() == nullptr) {
        return false;
    }
    // A stored container answers at once; a missing element is reported by the long way.
    NodePtr element;
    if (! accessElementDirect(scope, parent, index, GET, element) || ! element) {
        return false;
    }
    result = element;
    return true;
}

bool OMExpressionLValueIndexByExpression::isDirectElementTarget() {
    fParentName = asPlainName(fParent);
    return fParentName != nullptr && ! fUnresolvedArgumentList &&
           isPureOperand(fIndexExpression, fDirectIndex);
}

bool OMExpressionLValueIndexByExpression::findElementDirect(const std::shared_ptr<Task>& task,
                                                            const std::shared_ptr<OMScope>& scope,
                                                            NodePtr& element) {
    NodePtr index;
    NodePtr parent;
    if (! evalPureOperand(task, fIndexExpression, fDirectIndex, scope, index) ||
        ! fParentName->findTargetDirect(scope, parent) || parent->getOMStoredRaw() == nullptr ||
        (parent->getType() != OMType::Map && parent->getType() != OMType::Array)) {
        return false;
    }
    // An element of a data structure is written through its parent as well, and a write past the element
    // limit is reported: the long way does both.
    const OMStored* stored = parent->getOMStoredRaw();
    const bool isWithinLimit = index->getType() == OMType::Int && index->getInt() >= 0
                                   ? stored->isStoreWithinLimit(static_cast<uint64_t>(index->getInt()))
                                   : stored->isStoreWithinLimit(index->getAsString());
    return isWithinLimit && accessElementDirect(scope, parent, index, SET, element) && element &&
           ! element->getDataStructureParent();
}

bool OMExpressionLValueIndexByExpression::accessElementDirect(const std::shared_ptr<OMScope>& scope,
                                                              const NodePtr& parent, const NodePtr& index,
                                                              AccessType accessType, NodePtr& element) {
    // As get_yielding picks it: a whole number an element, anything else a member by its text.
    return index->getType() == OMType::Int && index->getInt() >= 0
               ? parent->accessOMNodeResolved(scope, nullptr, accessType,
                                              static_cast<uint64_t>(index->getInt()), element)
               : parent->accessOMNodeResolved(scope, nullptr, accessType, index->getAsString(), element);
}

uint64_t OMExpressionLValueIndexByExpression::hash() const {
    if (fHash == 0) {
        fHash = (fIndexExpression ? fIndexExpression->hash() : 0) * 11 + parentAndArgumentHash() + 3443422;
    }
    return fHash;
}

std::string OMExpressionLValueIndexByExpression::toString() const {
    if (! SANITY_CHECKED(fParent && fIndexExpression)) {
        return std::string();
    }
    return parentText() + "[" + fIndexExpression->toString() + "]" + argumentListText();
}

bool OMExpressionLValueIndexByExpression::ownFieldEqual(const OMExpressionLValue& other) const {
    return nodesEqual(fIndexExpression,
                      dynamic_cast<const OMExpressionLValueIndexByExpression&>(other).fIndexExpression);
}

bool OMExpressionLValueIndexByExpression::ownFieldLess(const OMExpressionLValue& other) const {
    return nodesLess(fIndexExpression,
                     dynamic_cast<const OMExpressionLValueIndexByExpression&>(other).fIndexExpression);
}

// ---- built-ins ----

void OMExpressionLValueToken::registerBuiltin(Token token, Builtin builtin,
                                              Builtin_yielding builtin_yielding) {
    if (token >= 0 && static_cast<size_t>(token) < TOKEN_COUNT) {
        builtinTable()[static_cast<size_t>(token)] = BuiltinEntry{builtin, builtin_yielding};
    }
}

void OMExpressionLValueToken::get_yielding(const std::shared_ptr<Task>& task, NodePtr& result,
                                           AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                           ScriptPhase phase, NodePtr& optionalNewValue) {
    struct LocalVariableState : OMFunctionState {
        OMExpressionLValueResolution resolution;
        bool resolved = false;
        bool success = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    if (phase == PARSE) {
        YIELDING_FINISH;
    }
    if (! fParent && ! fUnresolvedArgumentList) {
        // A built-in named without a call is a value: `f = toUpperCase; f("a")` calls it later.
        result = OMStored::factory(shared_from_this());
        YIELDING_FINISH;
    }
    YIELDING_CALL(resolve_yielding(task, frame->resolved, accessType, scope, phase, frame->resolution));
    if (! frame->resolved) {
        YIELDING_FINISH;
    }
    if (frame->resolution.fThisIsNoArgument) {
        // The parent map has a method of this name: it wins over the built-in.
        YIELDING_CALL(OMStored::functionOperation_yielding(task, result, getMemberName(), true,
                                                           frame->resolution.getThisNode(),
                                                           frame->resolution.fResolvedArgumentList, scope));
        YIELDING_FINISH;
    }
    if (fToken >= 0 && static_cast<size_t>(fToken) < TOKEN_COUNT &&
        builtinTable()[static_cast<size_t>(fToken)].builtin_yielding != nullptr) {
        YIELDING_CALL(builtinTable()[static_cast<size_t>(fToken)].builtin_yielding(task, result, accessType,
                                                                                   scope, frame->resolution));
    } else if (fToken >= 0 && static_cast<size_t>(fToken) < TOKEN_COUNT &&
               builtinTable()[static_cast<size_t>(fToken)].builtin != nullptr) {
        result = builtinTable()[static_cast<size_t>(fToken)].builtin(accessType, scope, frame->resolution);
    } else {
        LOG_ERROR("unexpected token");
        result = OMStored::errorFactory();
        YIELDING_FINISH;
    }
    if (optionalNewValue && result) {
        YIELDING_CALL(result->setAndAccess_yielding(task, frame->success, optionalNewValue));
        YIELDING_CHECK(frame->success);
    }
    YIELDING_END;
}

std::string OMExpressionLValueToken::getMemberName() const {
    return OMStored::getTokenStr(fToken);
}

std::string OMExpressionLValueToken::getIdentifier() const {
    return fParent || fUnresolvedArgumentList ? std::string() : OMStored::getTokenStr(fToken);
}

uint64_t OMExpressionLValueToken::hash() const {
    if (fHash == 0) {
        if (! SANITY_CHECKED(fToken != _NO_TOKEN)) {
            return 0;
        }
        fHash =
            static_cast<uint64_t>(static_cast<int64_t>(fToken)) * 52441 + parentAndArgumentHash() + 112118899;
    }
    return fHash;
}

std::string OMExpressionLValueToken::toString() const {
    return parentText() + (fParent ? "." : "") + OMStored::getTokenStr(fToken) + argumentListText();
}

bool OMExpressionLValueToken::ownFieldEqual(const OMExpressionLValue& other) const {
    return fToken == dynamic_cast<const OMExpressionLValueToken&>(other).fToken;
}

bool OMExpressionLValueToken::ownFieldLess(const OMExpressionLValue& other) const {
    return fToken < dynamic_cast<const OMExpressionLValueToken&>(other).fToken;
}

// ---- names ----

void OMExpressionLValueStr::get_yielding(const std::shared_ptr<Task>& task, NodePtr& result,
                                         AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                         ScriptPhase phase, NodePtr& optionalNewValue) {
    struct LocalVariableState : OMFunctionState {
        OMExpressionLValueResolution resolution;
        bool resolved = false;
        bool found = false;
        NodePtr base; // what the name is looked up in
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    if (phase == PARSE) {
        YIELDING_FINISH;
    }
    YIELDING_CHECK(scope);
    YIELDING_CALL(resolve_yielding(task, frame->resolved, accessType, scope, phase, frame->resolution));
    if (! frame->resolved) {
        YIELDING_FINISH;
    }
    frame->base = frame->resolution.getThisNode();
    if (! frame->base && ! fParent) {
        frame->base = scope;
    }
    YIELDING_CHECK(frame->base);
    if (fUnresolvedArgumentList) {
        YIELDING_CALL(call_yielding(task, result, accessType, scope, phase, frame->base, frame->resolution));
        YIELDING_FINISH;
    }
    if (accessType == GET) {
        YIELDING_CHECK(! optionalNewValue);
        // NOTE: a name is looked up as a name, not as a reference path: `$x` is a plain variable.
        YIELDING_CALL(frame->base->accessOMNodeReadOnlyResolved_yielding(task, frame->found, scope, nullptr,
                                                                         fIdentifier, result));
        if ((! frame->found || ! result || result->getType() == OMType::Error) && ! fParent &&
            frame->base != scope) {
            result = scope->getOMNode(fIdentifier);
        }
        if (! frame->found || ! result) {
            result = reportUnreachable("cannot access identifier");
        }
        YIELDING_FINISH;
    }
    // Writing or creating: with a new value, that very node is stored under the name.
    result = optionalNewValue;
    YIELDING_CALL(frame->base->accessOMNodeResolved_yielding(task, frame->found, scope, nullptr, accessType,
                                                             fIdentifier, result));
    if (! frame->found || ! result) {
        result = reportUnreachable("cannot access identifier");
    }
    YIELDING_END;
}

OMExpression::DirectShape OMExpressionLValueStr::computeDirectShape() {
    if (fParent) {
        return DIRECT_NONE;
    }
    fDirectArguments.clear();
    if (fUnresolvedArgumentList) {
        fDirectArguments.resize(fUnresolvedArgumentList->size());
        for (size_t index = 0; index < fDirectArguments.size(); ++index) {
            if (! isPureOperand((*fUnresolvedArgumentList)[index], fDirectArguments[index])) {
                return DIRECT_NONE;
            }
        }
    }
    return DIRECT_PURE;
}

bool OMExpressionLValueStr::evalDirectShape(const std::shared_ptr<Task>& task,
                                            const std::shared_ptr<OMScope>& scope, NodePtr& result) {
    // A missing name is reported by the resumable path.
    NodePtr value;
    if (! scope->accessOMNodeReadOnlyResolved(scope, nullptr, fIdentifier, value) || ! value) {
        return false;
    }
    if (! fUnresolvedArgumentList) {
        result = std::move(value);
        return true;
    }
    // A call: only of a function that reads and nothing else, so that giving up half-way changes nothing.
    const OMStored* function = value->getType() == OMType::Function ? value->getOMStoredRaw() : nullptr;
    if (function == nullptr) {
        return false;
    }
    auto arguments = std::make_shared<OMArray>();
    arguments->resize(fDirectArguments.size());
    for (size_t index = 0; index < fDirectArguments.size(); ++index) {
        if (! evalPureOperand(task, (*fUnresolvedArgumentList)[index], fDirectArguments[index], scope,
                              (*arguments)[index])) {
            return false;
        }
    }
    return function->callReadOnlyDirect(task, scope, arguments, result);
}

bool OMExpressionLValueStr::findTargetDirect(const std::shared_ptr<OMScope>& scope, NodePtr& target) {
    // A variable of the scope's own, which may be written and needn't be adopted by a data structure: the
    // write access would give it back as it is.
    if (! scope->isDataStructure() &&
        (scope->getPermissions(fIdentifier) & OMStored::PERMISSION_WRITE) != 0 &&
        scope->OMStored::accessOMNodeReadOnlyResolved(nullptr, nullptr, fIdentifier, target) && target) {
        return true;
    }
    target.reset();
    return scope->accessOMNodeResolved(scope, nullptr, SET, fIdentifier, target) && target;
}

NodePtr OMExpressionLValueStr::storeDirect(const std::shared_ptr<OMScope>& scope, const NodePtr& value) {
    NodePtr result = value;
    if (! scope->accessOMNodeResolved(scope, nullptr, SET, fIdentifier, result) || ! result) {
        result = reportUnreachable("cannot access identifier");
    }
    return result;
}

void OMExpressionLValueStr::call_yielding(const std::shared_ptr<Task>& task, NodePtr& result,
                                          AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                          ScriptPhase phase, const NodePtr& base,
                                          OMExpressionLValueResolution& resolution) {
    struct LocalVariableState : OMFunctionState {
        bool found = false;
        NodePtr callee;
        NodePtr noNewValue;
        std::shared_ptr<OMExpressionLValueToken> builtin;
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    YIELDING_CALL(base->accessOMNodeReadOnlyResolved_yielding(task, frame->found, scope, nullptr, fIdentifier,
                                                              frame->callee));
    if (frame->found && frame->callee && frame->callee->getType() != OMType::Function &&
        frame->callee->getType() != OMType::Error && frame->callee->getType() != OMType::Expression) {
        // Calling a plain value gives the value.
        result = frame->callee;
        YIELDING_FINISH;
    }
    if (frame->found && frame->callee && frame->callee->getType() == OMType::Expression &&
        frame->callee->getExpression() &&
        frame->callee->getExpression()->getExpressionKind() == LVALUE_TOKEN) {
        // The variable holds a built-in: `f = toUpperCase; f("a")`.
        frame->builtin = std::make_shared<OMExpressionLValueToken>(
            fParent, static_cast<Token>(frame->callee->getExpression()->getToken()), fUnresolvedArgumentList);
        YIELDING_CALL(
            frame->builtin->get_yielding(task, result, accessType, scope, phase, frame->noNewValue));
        YIELDING_FINISH;
    }
    YIELDING_CALL(OMStored::functionOperation_yielding(task, result, fIdentifier,
                                                       resolution.fThisIsNoArgument, resolution.getThisNode(),
                                                       resolution.fResolvedArgumentList, scope));
    if (! result) {
        result = reportUnreachable("cannot access identifier");
    }
    YIELDING_END;
}

std::string OMExpressionLValueStr::getIdentifier() const {
    return fParent || fUnresolvedArgumentList ? std::string() : fIdentifier;
}

uint64_t OMExpressionLValueStr::hash() const {
    if (fHash == 0) {
        if (! SANITY_CHECKED(! fIdentifier.empty())) {
            return 0;
        }
        fHash = FNV1aHash::hashBytes(fIdentifier) + parentAndArgumentHash() + 2123112;
    }
    return fHash;
}

std::string OMExpressionLValueStr::toString() const {
    return parentText() + (fParent ? "." : "") + fIdentifier + argumentListText();
}

bool OMExpressionLValueStr::ownFieldEqual(const OMExpressionLValue& other) const {
    return fIdentifier == dynamic_cast<const OMExpressionLValueStr&>(other).fIdentifier;
}

bool OMExpressionLValueStr::ownFieldLess(const OMExpressionLValue& other) const {
    return fIdentifier < dynamic_cast<const OMExpressionLValueStr&>(other).fIdentifier;
}

} // namespace Brw
