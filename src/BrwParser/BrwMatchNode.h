#pragma once

#include <cstdint>
#include <memory>
#include <unordered_set>

#include "BrwParser/BrwIOMNode.h"

namespace Brw {

// Hashes a node pointer by its address: a node reached over two ways counts once.
struct NodeAddressHash {
    size_t operator()(const std::shared_ptr<IOMNode>& node) const;
};

// One segment of a compiled reference path. The segments form a chain that the head owns; a traversal
// walks the tree with the chain, and what the last segment reaches collects at the head, or at the nearest
// path function above it, which turns it into one value.
//
// A segment may span a range of tree levels (`*` spans any number, none included). It tries the deeper
// levels first, then its own, and the zero-level case last, so matches are found depth first.
class MatchNode : public std::enable_shared_from_this<MatchNode> {
public:
    using NodePtr = std::shared_ptr<IOMNode>;
    using ScopePtr = std::shared_ptr<OMScope>;
    using TaskPtr = std::shared_ptr<Task>;
    using MatchSet = std::unordered_set<NodePtr, NodeAddressHash>;

    static constexpr uint64_t NO_LIMIT = ~uint64_t(0);

    MatchNode(uint64_t minCount, uint64_t maxCount) : fMinCount(minCount), fMaxCount(maxCount) {}

    // Whether the iterator's current child matches this segment.
    virtual bool isIterMatch(const IOMNodeIterator& iterator);
    virtual ~MatchNode() = default;
    virtual std::shared_ptr<MatchNode> getNext() const { return fNext; }
    // What this segment collected, in the order of finding; empty before the first match.
    virtual std::shared_ptr<OMArray> getMatches() const { return fMatches; }
    // Hands a found node up the chain to where matches collect.
    [[nodiscard]] virtual bool registerMatch(const NodePtr& omNode);
    // Walks below `omNode` with this segment and those behind it. `done` is set when this level finished
    // properly; a child where the rest of the path leads nowhere is a non-match, not a failure. For SET every
    // match receives the value of `setOMNode`.
    virtual void traverse_yielding(const TaskPtr& task, bool& done, const ScopePtr& scope, IOMNode& omNode,
                                   AccessType accessType, const NodePtr& setOMNode);

    // Links `thisNode` behind `parent`.
    [[nodiscard]] static bool setParent(const std::shared_ptr<MatchNode>& parent,
                                        const std::shared_ptr<MatchNode>& thisNode);
    // A node a path may descend into: Undefined, Null, Array or Map.
    static bool isDescendable(OMType type);

    // The chain met something it couldn't decide (a key too long for a regular expression, say): the
    // whole access fails rather than give a partial answer.
    bool isChainFailed() const;
    uint64_t getMinCount() const { return fMinCount; }
    uint64_t getMaxCount() const { return fMaxCount; }

protected:
    // Adds to this segment's own matches unless the node is there already.
    [[nodiscard]] bool addMatch(const NodePtr& omNode);
    void resetMatches();
    void markChainFailed();
    // The last segment's part of a match: the value for SET, then the registration.
    [[nodiscard]] bool acceptMatch(const NodePtr& childOMNode, AccessType accessType,
                                   const NodePtr& setOMNode);
    const MatchNode& getHead() const;

    std::weak_ptr<MatchNode> fParent;    // the previous segment; empty at the head
    std::shared_ptr<MatchNode> fNext;    // the next segment; empty at the end
    std::shared_ptr<OMArray> fMatches;   // found nodes in the order of finding; made on first use
    std::shared_ptr<MatchSet> fMatchSet; // what fMatches holds, for rejecting duplicates
    uint64_t fMinCount = 1;              // tree levels this segment must span
    uint64_t fMaxCount = 1;              // tree levels this segment may span
    uint64_t fCount = 0;                 // levels matched so far on the current way down
    bool fIsChainFailed = false;         // kept at the head: see isChainFailed
};

} // namespace Brw
