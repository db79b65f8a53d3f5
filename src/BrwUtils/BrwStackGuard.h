#pragma once

#include <cstddef>
#include <cstdint>

namespace Brw {

// Script recursion runs on the native stack until a wait unwinds it: this tells when the stack of the
// running thread is nearly used up, so that a runaway recursion ends with a script error, not a crash.
class StackGuard {
public:
    // What must stay free below the deepest frame. Sanitizer builds use far bigger frames.
#if defined(__SANITIZE_ADDRESS__)
    static constexpr size_t RESERVE_BYTES = 2 * 1024 * 1024;
#else
    static constexpr size_t RESERVE_BYTES = 512 * 1024;
#endif

    // The stack that script recursion may use: some thirty thousand nested calls in a release build.
    static constexpr size_t STACK_BYTES = 64 * 1024 * 1024;

    // True when less than RESERVE_BYTES of the thread's stack are left below the caller.
    static bool isNearlyExhausted() {
        const char marker = 0;
        return reinterpret_cast<uintptr_t>(&marker) < lowestSafeAddress();
    }

private:
    // The address below which the reserve begins; found once per process.
    static uintptr_t lowestSafeAddress();
};

} // namespace Brw
