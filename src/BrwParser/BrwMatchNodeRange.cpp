#include "BrwParser/BrwMatchNodeRange.h"

namespace Brw {

bool MatchNodeRange::isIterMatch(const IOMNodeIterator& iterator) {
    const uint64_t idx = iterator.getIdx();
    if (idx == ~uint64_t(0)) {
        return false;
    }
    const bool isInRange = fFirst <= idx && idx <= fLast;
    return isInRange != fIsInverted;
}

} // namespace Brw
