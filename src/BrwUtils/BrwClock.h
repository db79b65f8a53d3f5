#pragma once

#include <chrono>
#include <cstdint>

namespace Brw {

// The one monotonic clock of the program, in nanoseconds. Tests may put a source of their own in its
// place, so that timing logic is checked without real waiting. The time point 0 means "none".
class Clock {
public:
    using Source = int64_t (*)();

    // Settings and budgets are microseconds, time points nanoseconds.
    static constexpr int64_t NANOSECONDS_PER_MICROSECOND = 1000;
    static constexpr int64_t MICROSECONDS_PER_MILLISECOND = 1000;
    static constexpr int64_t NANOSECONDS_PER_MILLISECOND =
        NANOSECONDS_PER_MICROSECOND * MICROSECONDS_PER_MILLISECOND;
    static constexpr int64_t MILLISECONDS_PER_SECOND = 1000;
    static constexpr int64_t NANOSECONDS_PER_SECOND = NANOSECONDS_PER_MILLISECOND * MILLISECONDS_PER_SECOND;

    // The longest time a setting or a script may ask for: a century, so that a deadline in nanoseconds
    // can't overflow.
    static constexpr int64_t LONGEST_MILLISECONDS = 1000LL * 60 * 60 * 24 * 365 * 100;

    static constexpr int64_t fromMicroseconds(int64_t microseconds) {
        return microseconds * NANOSECONDS_PER_MICROSECOND;
    }
    static constexpr int64_t toMicroseconds(int64_t nanoseconds) {
        return nanoseconds / NANOSECONDS_PER_MICROSECOND;
    }

    static int64_t now() {
        if (fSource != nullptr) {
            return fSource();
        }
        return std::chrono::duration_cast<std::chrono::nanoseconds>(
                   std::chrono::steady_clock::now().time_since_epoch())
            .count();
    }

    // Null restores the real clock.
    static void setSource(Source source) { fSource = source; }

private:
    static inline Source fSource = nullptr; // test clock, or null for the steady clock
};

} // namespace Brw
