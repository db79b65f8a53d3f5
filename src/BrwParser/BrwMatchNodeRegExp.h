#pragma once

#include <regex>
#include <string>

#include "BrwParser/BrwMatchNode.h"

namespace Brw {

// A segment that matches each child's key against an ECMAScript regular expression with search semantics:
// a match anywhere in the key is enough. `$v1` spans one level, `*.*` any number.
//
// This is the one place where regular expressions are compiled and run, and no exception of the library
// leaves it. The expression runs on the library's polynomial matcher, behind a leading match-anything, so
// that one pass over the key decides: no pattern takes exponential time or deep recursion. Back-references
// would need the backtracking matcher and are refused. Keys longer than MAX_SUBJECT_LENGTH are refused too,
// which bounds what lookaheads (quadratic) can cost.
class MatchNodeRegExp : public MatchNode {
public:
    static constexpr size_t MAX_SUBJECT_LENGTH = 1024;

    MatchNodeRegExp(bool isInverted, std::string regExpStr, uint64_t minCount, uint64_t maxCount)
        : MatchNode(minCount, maxCount), fIsInverted(isInverted), fRegExpStr(std::move(regExpStr)) {}

    // Null, with the library's complaint logged, when the expression doesn't compile.
    static std::shared_ptr<MatchNodeRegExp> factory(bool isInverted, const std::string& regExpStr,
                                                    uint64_t minCount, uint64_t maxCount);

    bool isIterMatch(const IOMNodeIterator& iterator) override;

    // Whether the expression matches anywhere in `subject`. When that can't be decided, the reason is
    // logged, `isFailed` is set and the result is false.
    bool search(const std::string& subject, bool& isFailed) const;

    bool isInverted() const { return fIsInverted; }
    const std::string& getRegExpStr() const { return fRegExpStr; }

private:
    [[nodiscard]] bool compile();

    bool fIsInverted;       // take the keys that don't match
    std::string fRegExpStr; // the expression as written
    std::regex fRegExp;     // the compiled expression, behind a leading match-anything
};

} // namespace Brw
