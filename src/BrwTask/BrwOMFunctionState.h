#pragma once

#include <cstdint>

namespace Brw {

// The saved frame of a resumable function: its step and, in each function's own LocalVariableState
// derived from this, the locals that must survive a yield.
struct OMFunctionState {
    virtual ~OMFunctionState() = default;
    int32_t fStep = 0; // 0 not begun, -1 finished, N waiting in step N, 1000000 + N continuing after step N
};

} // namespace Brw
