#pragma once

#include <cstddef>
#include <cstdint>

namespace Brw {

// The saved frame of a resumable function: its step and, in each function's own LocalVariableState
// derived from this, the locals that must survive a yield. Frames come and go with every call of a
// resumable function, so their memory is recycled by size instead of going back to the heap each time.
struct OMFunctionState {
    static constexpr int32_t NOT_BEGUN_STEP = 0;
    static constexpr int32_t FINISHED_STEP = -1;
    // The step of the code after a finished callee is its call's step plus this: a step tells where a
    // frame waits (the source line) and whether its callee is still running.
    static constexpr int32_t CONTINUATION_STEP_OFFSET = 1000000;

    virtual ~OMFunctionState() = default;
    int32_t fStep = NOT_BEGUN_STEP; // else FINISHED_STEP, a step N waiting, or N + CONTINUATION_STEP_OFFSET

    static void* operator new(std::size_t size);
    static void operator delete(void* memory, std::size_t size);
};

} // namespace Brw
