#pragma once

#include <string>

#include "BrwParser/BrwMatchNode.h"

namespace Brw {

// A path function: `count()`, `name()`, `select()` or a script function of the accessor's scope. It
// collects what the segments behind it find below the node it is visited at, turns that into one value
// and hands the value up. Every visit makes one value: `main/count()/val1` counts below `main`, and a
// function behind a wide segment gives one value per node it is reached at.
//
// With a scope, a script function of the same name is first asked whether to skip the subtree (phase
// "ignore", with the node's parent and key); a script function that is no built-in then makes the value
// (phase "process", with the array of matches).
class MatchNodeFunction : public MatchNode {
public:
    explicit MatchNodeFunction(std::string functionName)
        : MatchNode(1, 1), fFunctionName(std::move(functionName)) {}

    static std::shared_ptr<MatchNodeFunction> factory(const std::string& functionName);

    const std::string& getFunctionName() const { return fFunctionName; }

    // Matches stop here: they are the function's input.
    [[nodiscard]] bool registerMatch(const NodePtr& omNode) override;
    void traverse_yielding(const TaskPtr& task, bool& done, const ScopePtr& scope, IOMNode& omNode,
                           AccessType accessType, const NodePtr& setOMNode) override;

private:
    // The value of a built-in function over the matches; empty when there is none.
    NodePtr calculateBuiltIn(AccessType accessType, const NodePtr& setOMNode) const;
    bool isBuiltIn() const;
    // The arguments of the phase "ignore": the node's parent and its key.
    static OMArgs makeIgnoreArguments(const IOMNode& omNode);
    // Hands the calculated value up the chain, or keeps it when this is the head.
    [[nodiscard]] bool handUp(const NodePtr& calculatedNode);
    // Calls the script function of this segment's name in `scope`, with the phase node where a this-node
    // would go. `isFunctionFound` is false, and `out` stays empty, when the scope has no such function.
    void callScriptFunction_yielding(const TaskPtr& task, NodePtr& out, bool& isFunctionFound,
                                     const NodePtr& phaseNode, const OMArgs& arguments,
                                     const ScopePtr& scope);

    std::string fFunctionName; // "count", "name", "select" or a script function's name
};

} // namespace Brw
