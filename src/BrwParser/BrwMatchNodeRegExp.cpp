#include "BrwParser/BrwMatchNodeRegExp.h"

#include <exception>

#include "BrwLogger/BrwCheck.h"

namespace Brw {

namespace {

std::regex::flag_type compileFlags() {
#if defined(__GLIBCXX__)
    // The breadth-first matcher: polynomial in time, and its recursion doesn't grow with the key.
    return std::regex::ECMAScript | std::regex_constants::__polynomial;
#else
    return std::regex::ECMAScript;
#endif
}

} // namespace

std::shared_ptr<MatchNodeRegExp> MatchNodeRegExp::factory(bool isInverted, const std::string& regExpStr,
                                                          uint64_t minCount, uint64_t maxCount) {
    std::shared_ptr<MatchNodeRegExp> retVal;
    do {
        auto node = std::make_shared<MatchNodeRegExp>(isInverted, regExpStr, minCount, maxCount);
        if (! node->compile()) {
            break;
        }
        retVal = node;
    } while (false);
    return retVal;
}

bool MatchNodeRegExp::compile() {
    bool retVal = false;
    try {
        // The expression must stand on its own: the wrapper could otherwise balance a stray parenthesis.
        const std::regex asWritten(fRegExpStr, compileFlags());
        // Anchored at the start, "[\s\S]*" lets one pass find a match that begins anywhere; "^" still
        // holds only at the start of the key, since nothing lies before it then.
        fRegExp = std::regex("[\\s\\S]*(?:" + fRegExpStr + ")", compileFlags());
        retVal = true;
    } catch (const std::exception& e) {
        LOG_ERROR_F("invalid regular expression '%s': %s", fRegExpStr.c_str(), e.what());
    } catch (...) {
        LOG_ERROR_F("invalid regular expression '%s'", fRegExpStr.c_str());
    }
    return retVal;
}

bool MatchNodeRegExp::search(const std::string& subject, bool& isFailed) const {
    bool retVal = false;
    isFailed = true;
    try {
        if (subject.size() > MAX_SUBJECT_LENGTH) {
            LOG_ERROR_F(
                "a key of %zu bytes is too long to match the regular expression '%s' against (at most %zu)",
                subject.size(), fRegExpStr.c_str(), MAX_SUBJECT_LENGTH);
        } else {
            retVal = std::regex_search(subject, fRegExp, std::regex_constants::match_continuous);
            isFailed = false;
        }
    } catch (const std::exception& e) {
        LOG_ERROR_F("matching the regular expression '%s' failed: %s", fRegExpStr.c_str(), e.what());
    } catch (...) {
        LOG_ERROR_F("matching the regular expression '%s' failed", fRegExpStr.c_str());
    }
    return retVal;
}

bool MatchNodeRegExp::isIterMatch(const IOMNodeIterator& iterator) {
    bool isFailed = false;
    const bool isMatch = search(iterator.getKey(), isFailed);
    if (isFailed) {
        markChainFailed();
        return false;
    }
    return isMatch != fIsInverted;
}

} // namespace Brw
