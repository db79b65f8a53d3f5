#pragma once

#include <cstddef>
#include <cstdint>

namespace Brw {

// The saved frame of a resumable function: its step and, in each function's own LocalVariableState
// derived from this, the locals that must survive a yield. Frames come and go with every call of a
// resumable function, so their memory is recycled by size instead of going back to the heap each time.
struct OMFunctionState {
    virtual ~OMFunctionState() = default;
    int32_t fStep = 0; // 0 not begun, -1 finished, N waiting in step N, 1000000 + N continuing after step N

    static void* operator new(std::size_t size);
    static void operator delete(void* memory, std::size_t size);
};

} // namespace Brw
