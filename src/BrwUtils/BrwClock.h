#pragma once

#include <chrono>
#include <cstdint>

namespace Brw {

// The one monotonic clock of the program, in nanoseconds. Tests may put a source of their own in its
// place, so that timing logic is checked without real waiting. The time point 0 means "none".
class Clock {
public:
    using Source = int64_t (*)();

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
