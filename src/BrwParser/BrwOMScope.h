#pragma once

#include <memory>
#include <string>
#include <vector>

#include "BrwParser/BrwOMStored.h"

namespace Brw {

// Where a script's variables live: a map with a link to an enclosing scope and a rule how far reads and
// writes travel up that link. There are no closures: a call sees the chain of its caller.
class OMScope : public virtual OMStored {
public:
    using IOMNode::set;

    enum Kind : uint32_t {
        ISOLATED = 0,       // sees nothing outside: folding at parse time
        READS_PARENT = 1,   // sees the outside read-only
        FUNCTION_FRAME = 2, // writes go to a variable that already exists outside
    };
    using FactoryFunction = std::shared_ptr<OMScope> (*)(const std::shared_ptr<OMScope>& parent, Kind kind);

    OMScope(const std::shared_ptr<OMScope>& parent, Kind kind);
    ~OMScope() override;

    // A new scope below `parent`, or below the root scope when `parent` is empty.
    static std::shared_ptr<OMScope> factory(const std::shared_ptr<OMScope>& parent, Kind kind);
    // An isolated scope.
    static std::shared_ptr<OMScope> factory();
    // Puts another factory in place, for tests of hosting services; null restores the plain one.
    static void setFactory(FactoryFunction factoryFunction);
    // The process's root scope, made on first use.
    static const std::shared_ptr<OMScope>& getRootScope();
    // Drops the root scope: part of the process's teardown.
    static void releaseRootScope();

    virtual std::shared_ptr<OMScope> getParent() const { return fParent; }
    // Made by the plain factory: its variables are reached at once, so expressions may skip frames here.
    bool isPlain() const { return fIsPlain; }
    virtual Kind getKind() const { return fKind; }
    [[nodiscard]] virtual bool popScriptFilePath();
    virtual void pushScriptFilePath(const std::string& path) { fScriptFileStack.push_back(path); }
    // The path of the script running here: the innermost of the nearest scope that has one.
    std::string getScriptFilePath() const;

    // Reads walk up the chain; writes reach an existing variable of a function's caller.
    bool accessOMNodeResolved(const ScopePtr& scope, const OMArgs& args, AccessType accessType,
                              const std::string& attr, NodePtr& out) override;
    void accessOMNodeResolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                       const OMArgs& args, AccessType accessType, const std::string& attr,
                                       NodePtr& out) override;
    bool accessOMNodeReadOnlyResolved(const ScopePtr& scope, const OMArgs& args, const std::string& attr,
                                      NodePtr& out) const override;
    void accessOMNodeReadOnlyResolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                               const OMArgs& args, const std::string& attr,
                                               NodePtr& out) const override;
    using OMStored::accessOMNodeReadOnlyResolved;
    using OMStored::accessOMNodeReadOnlyResolved_yielding;
    using OMStored::accessOMNodeResolved;
    using OMStored::accessOMNodeResolved_yielding;

private:
    static std::shared_ptr<OMScope> plainFactory(const std::shared_ptr<OMScope>& parent, Kind kind);
    // Looks in this scope and then up the chain as far as the kinds allow.
    bool findInChain(const std::string& attr, NodePtr& out) const;

    std::shared_ptr<OMScope> fParent;          // enclosing scope; empty for a root
    Kind fKind;                                // fixed at creation
    std::vector<std::string> fScriptFileStack; // script files running in this scope, innermost last
    bool fIsPlain = false;                     // made by plainFactory, not by a replacement

    static inline FactoryFunction fFactory = nullptr; // replacement factory, or null
};

} // namespace Brw
