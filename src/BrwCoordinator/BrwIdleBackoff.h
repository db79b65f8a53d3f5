#pragma once

#include <cstdint>

namespace Brw {

// How long the event loop may sleep between turns. Any reported traffic keeps it awake for two turns;
// after that the sleep grows with the time since the last traffic: 0 for 1 ms, then the base, after 5 s
// five times the base, after 30 s ten times.
class IdleBackoff {
public:
    // One more turn of the event loop.
    void countTurn() { ++fTurnCounter; }
    // Something moved: don't sleep for the next turns.
    void reportActivity() { ++fActivityCounter; }
    // The sleep before the next turn, in microseconds; `now` is the clock in nanoseconds.
    int64_t nextSleepMicroseconds(int64_t now, int64_t baseMicroseconds);

private:
    uint64_t fTurnCounter = 0;     // turns of the event loop so far
    uint64_t fActivityCounter = 0; // traffic reported since the last question
    uint64_t fLastActiveTurn = 0;  // turn at which traffic was last seen
    bool fWasActive = false;       // traffic seen, instants not yet set
    int64_t fShortInstant = 0;     // 1 ms after the traffic ended
    int64_t fMediumInstant = 0;    // 5 s after
    int64_t fLongInstant = 0;      // 30 s after
};

} // namespace Brw
