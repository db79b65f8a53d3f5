#include "BrwParser/BrwMatchNodeCompareMatch.h"

#include "BrwLogger/BrwCheck.h"

namespace Brw {

std::shared_ptr<MatchNodeCompareMatch> MatchNodeCompareMatch::factory(BinOp binOp, const std::string& text,
                                                                      uint64_t minCount, uint64_t maxCount) {
    std::shared_ptr<MatchNodeCompareMatch> retVal;
    do {
        if (binOp < COMPARE_LT || binOp > COMPARE_NE) {
            LOG_ERROR("unexpected comparison");
            break;
        }
        retVal = std::make_shared<MatchNodeCompareMatch>(binOp, text, minCount, maxCount);
    } while (false);
    return retVal;
}

bool MatchNodeCompareMatch::isIterMatch(const IOMNodeIterator& iterator) {
    // std::string orders by char_traits<char>, which compares the bytes as unsigned.
    const std::string key = iterator.getKey();
    switch (fBinOp) {
    case COMPARE_LT:
        return key < fText;
    case COMPARE_LE:
        return ! (fText < key);
    case COMPARE_GT:
        return fText < key;
    case COMPARE_GE:
        return ! (key < fText);
    case COMPARE_EQ:
        return key == fText;
    case COMPARE_NOT_IDENTICAL:
    case COMPARE_NE:
        return key != fText;
    default:
        LOG_ERROR("unexpected comparison");
        return false;
    }
}

} // namespace Brw
