#pragma once

#include "BrwParser/BrwMatchNode.h"

namespace Brw {

// A segment that takes array elements by index, first to last inclusive: `[2-5]`, `[3-]`, `[]`. A map
// attribute has no index and never matches, inverted or not.
class MatchNodeRange : public MatchNode {
public:
    MatchNodeRange(bool isInverted, uint64_t first, uint64_t last)
        : MatchNode(1, 1), fIsInverted(isInverted), fFirst(first), fLast(last) {}

    static std::shared_ptr<MatchNodeRange> factory(bool isInverted, uint64_t first, uint64_t last) {
        return std::make_shared<MatchNodeRange>(isInverted, first, last);
    }

    bool isIterMatch(const IOMNodeIterator& iterator) override;

    bool isInverted() const { return fIsInverted; }
    uint64_t getFirst() const { return fFirst; }
    uint64_t getLast() const { return fLast; }

private:
    bool fIsInverted; // take the elements outside the range
    uint64_t fFirst;  // first index taken
    uint64_t fLast;   // last index taken; all ones for no limit
};

} // namespace Brw
