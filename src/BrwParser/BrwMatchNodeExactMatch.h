#pragma once

#include <string>

#include "BrwParser/BrwMatchNode.h"

namespace Brw {

// A segment that names one child: an attribute of a map, or an index of an array when the name is all
// digits. It reaches the child directly instead of iterating, which is why it alone can create: for SET
// and GET_CREATE a missing child is made, and an Undefined or Null node on the way becomes the map or
// array that the name asks for.
class MatchNodeExactMatch : public MatchNode {
public:
    explicit MatchNodeExactMatch(std::string indexOrAttrName)
        : MatchNode(1, 1), fIndexOrAttrName(std::move(indexOrAttrName)) {}

    static std::shared_ptr<MatchNodeExactMatch> factory(const std::string& indexOrAttrName);

    const std::string& getIndexOrAttrName() const { return fIndexOrAttrName; }

    void traverse_yielding(const TaskPtr& task, bool& done, const ScopePtr& scope, IOMNode& omNode,
                           AccessType accessType, const NodePtr& setOMNode) override;

private:
    // Makes `omNode` the container the name needs when the access may create; false when it can't.
    [[nodiscard]] bool prepareContainer(IOMNode& omNode, AccessType accessType, bool isNumeric) const;

    std::string fIndexOrAttrName; // the attribute, or the index in decimal digits
};

} // namespace Brw
