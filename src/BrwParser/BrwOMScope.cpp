#include "BrwParser/BrwOMScope.h"

#include "BrwLogger/BrwCheck.h"

namespace Brw {

namespace {

std::shared_ptr<OMScope>& rootScopeSlot() {
    static auto* slot = new std::shared_ptr<OMScope>();
    return *slot;
}

} // namespace

OMScope::OMScope(const std::shared_ptr<OMScope>& parent, Kind kind) : fParent(parent), fKind(kind) {}

OMScope::~OMScope() = default;

std::shared_ptr<OMScope> OMScope::plainFactory(const std::shared_ptr<OMScope>& parent, Kind kind) {
    auto scope = std::make_shared<OMScope>(parent, kind);
    scope->fIsPlain = true;
    if (! scope->setEmptyMap()) {
        scope.reset();
    }
    return scope;
}

std::shared_ptr<OMScope> OMScope::factory(const std::shared_ptr<OMScope>& parent, Kind kind) {
    const std::shared_ptr<OMScope>& actualParent = parent ? parent : getRootScope();
    return fFactory != nullptr ? fFactory(actualParent, kind) : plainFactory(actualParent, kind);
}

std::shared_ptr<OMScope> OMScope::factory() {
    return plainFactory(nullptr, ISOLATED);
}

void OMScope::setFactory(FactoryFunction factoryFunction) {
    fFactory = factoryFunction;
}

const std::shared_ptr<OMScope>& OMScope::getRootScope() {
    std::shared_ptr<OMScope>& root = rootScopeSlot();
    if (! root) {
        root = plainFactory(nullptr, ISOLATED);
    }
    return root;
}

void OMScope::releaseRootScope() {
    std::shared_ptr<OMScope> root;
    root.swap(rootScopeSlot());
}

bool OMScope::popScriptFilePath() {
    bool retVal = false;
    do {
        SANITY_CHECK(! fScriptFileStack.empty());
        fScriptFileStack.pop_back();
        retVal = true;
    } while (false);
    return retVal;
}

std::string OMScope::getScriptFilePath() const {
    for (const OMScope* scope = this; scope != nullptr; scope = scope->fParent.get()) {
        if (! scope->fScriptFileStack.empty()) {
            return scope->fScriptFileStack.back();
        }
    }
    return std::string();
}

bool OMScope::findInChain(const std::string& attr, NodePtr& out) const {
    if (OMStored::accessOMNodeReadOnlyResolved(nullptr, nullptr, attr, out)) {
        return true;
    }
    for (const OMScope* scope = this; scope->fParent && scope->fKind != ISOLATED;
         scope = scope->fParent.get()) {
        NodePtr found;
        if (scope->fParent->OMStored::accessOMNodeReadOnlyResolved(nullptr, nullptr, attr, found) && found) {
            out = found;
            return true;
        }
    }
    out.reset();
    return false;
}

bool OMScope::accessOMNodeReadOnlyResolved(const ScopePtr&, const OMArgs&, const std::string& attr,
                                           NodePtr& out) const {
    return findInChain(attr, out);
}

void OMScope::accessOMNodeReadOnlyResolved_yielding(const TaskPtr&, bool& found, const ScopePtr&,
                                                    const OMArgs&, const std::string& attr,
                                                    NodePtr& out) const {
    found = findInChain(attr, out);
}

bool OMScope::accessOMNodeResolved(const ScopePtr& scope, const OMArgs& args, AccessType accessType,
                                   const std::string& attr, NodePtr& out) {
    if (accessType == GET) {
        return findInChain(attr, out);
    }
    NodePtr own;
    if (! OMStored::accessOMNodeReadOnlyResolved(nullptr, nullptr, attr, own)) {
        // A function frame writes to a variable that one of its callers already has.
        Kind kind = fKind;
        for (std::shared_ptr<OMScope> parent = fParent; parent && kind == FUNCTION_FRAME;
             parent = parent->fParent) {
            NodePtr existing;
            if (parent->findInChain(attr, existing)) {
                if (accessType == SET) {
                    return parent->accessOMNodeResolved(scope, args, SET, attr, out);
                }
                out = existing ? existing : undefinedFactory();
                return true;
            }
            kind = parent->fKind;
        }
    }
    return OMStored::accessOMNodeResolved(scope, args, accessType, attr, out);
}

void OMScope::accessOMNodeResolved_yielding(const TaskPtr&, bool& found, const ScopePtr& scope,
                                            const OMArgs& args, AccessType accessType,
                                            const std::string& attr, NodePtr& out) {
    found = accessOMNodeResolved(scope, args, accessType, attr, out);
}

} // namespace Brw
