#pragma once

#include <string>

#include "BrwParser/BrwMatchNode.h"

namespace Brw {

// A segment that compares each child's key, always as text and bytewise, with a fixed text: `<v2`,
// `>=v2`, `!=xxx`. An array index compares as its decimal digits, so element 10 reads "10".
class MatchNodeCompareMatch : public MatchNode {
public:
    MatchNodeCompareMatch(BinOp binOp, std::string text, uint64_t minCount, uint64_t maxCount)
        : MatchNode(minCount, maxCount), fBinOp(binOp), fText(std::move(text)) {}

    // Null, with "unexpected comparison" logged, for a code that is no comparison.
    static std::shared_ptr<MatchNodeCompareMatch> factory(BinOp binOp, const std::string& text,
                                                          uint64_t minCount, uint64_t maxCount);

    bool isIterMatch(const IOMNodeIterator& iterator) override;

    BinOp getBinOp() const { return fBinOp; }
    const std::string& getText() const { return fText; }

private:
    BinOp fBinOp;      // COMPARE_LT to COMPARE_NE
    std::string fText; // what the keys are compared with
};

} // namespace Brw
