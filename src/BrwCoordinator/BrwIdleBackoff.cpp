#include "BrwCoordinator/BrwIdleBackoff.h"

#include "BrwUtils/BrwClock.h"

namespace Brw {

int64_t IdleBackoff::nextSleepMicroseconds(int64_t now, int64_t baseMicroseconds) {
    constexpr int64_t MILLISECOND = Clock::NANOSECONDS_PER_MILLISECOND;
    constexpr int64_t SECOND = 1000 * MILLISECOND;
    if (fActivityCounter != 0) {
        fActivityCounter = 0;
        fLastActiveTurn = fTurnCounter;
        fWasActive = true;
        return 0;
    }
    if (fTurnCounter - fLastActiveTurn < 2) {
        return 0;
    }
    if (fWasActive) {
        fWasActive = false;
        fShortInstant = now + MILLISECOND;
        fMediumInstant = now + 5 * SECOND;
        fLongInstant = now + 30 * SECOND;
    }
    if (now > fLongInstant) {
        return 10 * baseMicroseconds;
    }
    if (now > fMediumInstant) {
        return 5 * baseMicroseconds;
    }
    if (now > fShortInstant) {
        return baseMicroseconds;
    }
    return 0;
}

} // namespace Brw
