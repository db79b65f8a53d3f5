#pragma once

// Resumable functions, in the manner of protothreads.
//
// A function named `..._yielding` takes `const std::shared_ptr<Task>& task` first and an out parameter
// second. It keeps everything that must survive a wait in a frame struct declared inside the function,
// and its body is a run of steps between YIELDING_BEGIN and YIELDING_END:
//
//     void Foo::bar_yielding(const std::shared_ptr<Task>& task, bool& success, int n) {
//         struct LocalVariableState : OMFunctionState { int i = 0; bool ok = false; };
//         YIELDING_BEGIN(LocalVariableState, frame, success = false);
//         while (frame->i < n) {
//             YIELDING_CALL(baz_yielding(task, frame->ok, frame->i));
//             YIELDING_CHECK(frame->ok);
//             ++frame->i;
//         }
//         success = true;
//         YIELDING_END;
//     }
//
// When a callee or the function itself has to wait, the function returns with its frame left in the task;
// the next slice calls the same chain again with the same arguments, and each function jumps to its step.
// A step is the source line of its macro; the code after a finished callee runs as step
// OMFunctionState::CONTINUATION_STEP_OFFSET + line, so a frame's step says where it waits.
//
// Restrictions, as of every switch-based coroutine:
// - The macros expand to `case` labels of one switch: no step macro inside a `switch` of your own, and
//   none inside a lambda.
// - Nothing that must survive a step macro may live in an automatic variable: use frame fields. The
//   compiler refuses a jump past an initialised local, which catches most slips.
// - Code before YIELDING_BEGIN runs on every entry; code between YIELDING_BEGIN and the first step macro
//   only on the first.
// - A function may return before YIELDING_BEGIN only when no frame of its own can be pending: when
//   `! task->hasPendingFunctionState()`, or when the arguments alone decide it, the same on every entry
//   (a call forwarded to a callee as the last act). A return on a re-entry would strand its saved frame,
//   and the next function to enter at that depth would be handed it.
// - Parameters are not saved: whatever the caller hands in (references included) must outlive the wait,
//   so it lives in the caller's frame or longer.
// - A callee's out parameter may be read only after its YIELDING_CALL.
// - Checks are YIELDING_CHECK and the YIELDING_ASSIGN family: a failed one ends the function through its
//   one exit wherever it stands, inside loops too. The leaving forms of BrwCheck.h, which would leave only
//   the innermost loop, don't compile in a resumable body; VERIFY, EXPECTED and SANITY_CHECKED may be used.
// - One step macro per source line.

#include "BrwLogger/BrwCheck.h"
#include "BrwTask/BrwTask.h"

#define BRW_CONTINUATION_STEP_(step) (::Brw::OMFunctionState::CONTINUATION_STEP_OFFSET + (step))
#define BRW_FINISHED_STEP_ ::Brw::OMFunctionState::FINISHED_STEP

// Enter: take the frame saved at this depth or make a new one (then run `initialOut`, the out
// parameter's first value), and begin the steps.
#define YIELDING_BEGIN(FrameType, frame, initialOut)                                                         \
    bool brwIsFirstEntry_ = false;                                                                           \
    FrameType* const frame = task->template enterFunctionState<FrameType>(brwIsFirstEntry_);                 \
    if (brwIsFirstEntry_) {                                                                                  \
        initialOut;                                                                                          \
    }                                                                                                        \
    [[maybe_unused]] constexpr bool brwIsResumableBody_ = true;                                              \
    auto* const brwFrame_ = frame;                                                                           \
    for (;;) {                                                                                               \
        switch (brwFrame_->fStep) {                                                                          \
        case ::Brw::OMFunctionState::NOT_BEGUN_STEP:

// Call a resumable callee. When it left its frame behind (it waits), this function returns too and
// calls it again on the next entry; when it finished, the code after the macro runs.
#define YIELDING_CALL(callee)                                                                                \
    brwFrame_->fStep = __LINE__;                                                                             \
    [[fallthrough]];                                                                                         \
    case __LINE__:                                                                                           \
        callee;                                                                                              \
        if (task->hasPendingFunctionState()) {                                                               \
            goto brwYieldingCheck_;                                                                          \
        }                                                                                                    \
        brwFrame_->fStep = BRW_CONTINUATION_STEP_(__LINE__);                                                 \
        if (task->isYieldDue()) {                                                                            \
            goto brwYieldingLeave_;                                                                          \
        }                                                                                                    \
        [[fallthrough]];                                                                                     \
    case BRW_CONTINUATION_STEP_(__LINE__):

// Wait: `waitCall` is task->yield() or task->yieldAndSleep(); the code after the macro runs on the next
// entry.
#define YIELDING_WAIT(waitCall)                                                                              \
    waitCall;                                                                                                \
    brwFrame_->fStep = BRW_CONTINUATION_STEP_(__LINE__);                                                     \
    goto brwYieldingCheck_;                                                                                  \
    case BRW_CONTINUATION_STEP_(__LINE__):

// A step boundary without a callee: returns when the slice is used up, and goes on here on the next entry.
// Long loops put one in their body so that they share the thread.
#define YIELDING_STEP                                                                                        \
    brwFrame_->fStep = __LINE__;                                                                             \
    goto brwYieldingCheck_;                                                                                  \
    case __LINE__:

// Finish now: the rest of the steps are skipped and the frame is dropped.
#define YIELDING_FINISH                                                                                      \
    {                                                                                                        \
        brwFrame_->fStep = BRW_FINISHED_STEP_;                                                               \
        goto brwYieldingLeave_;                                                                              \
    }

// Leave: after the last step the function is finished; every path goes out through the one release.
#define YIELDING_END                                                                                         \
    brwFrame_->fStep = BRW_FINISHED_STEP_;                                                                   \
    break;                                                                                                   \
    default:                                                                                                 \
        ::Brw::Logger::logError(__FILE__, __LINE__, __PRETTY_FUNCTION__,                                     \
                                "unknown step of resumable function");                                       \
        brwFrame_->fStep = BRW_FINISHED_STEP_;                                                               \
        break;                                                                                               \
        }                                                                                                    \
    brwYieldingCheck_:                                                                                       \
        __attribute__((unused));                                                                             \
        if (brwFrame_->fStep == BRW_FINISHED_STEP_ || task->isYieldDue()) {                                  \
            break;                                                                                           \
        }                                                                                                    \
        }                                                                                                    \
    brwYieldingLeave_:                                                                                       \
        __attribute__((unused));                                                                             \
        task->releaseFunctionState(brwFrame_)

// The checks of a resumable body: the reports of BrwCheck.h, then the function finishes on the spot.

#define YIELDING_CHECK(condition)                                                                            \
    if (! (condition)) {                                                                                     \
        BRW_REPORT_SANITY_CHECK_(condition);                                                                 \
        YIELDING_FINISH                                                                                      \
    } else                                                                                                   \
        ((void)0)

#define YIELDING_ASSIGN(variable, value)                                                                     \
    if (! ((variable) = (value))) {                                                                          \
        BRW_REPORT_ASSIGN_(variable, value);                                                                 \
        YIELDING_FINISH                                                                                      \
    } else                                                                                                   \
        ((void)0)

#define YIELDING_ASSIGN_TYPED(type, variable, value)                                                         \
    std::shared_ptr<type> variable = std::dynamic_pointer_cast<type>(value);                                 \
    if (! variable) {                                                                                        \
        BRW_REPORT_ASSIGN_TYPED_(type, variable, value);                                                     \
        YIELDING_FINISH                                                                                      \
    } else                                                                                                   \
        ((void)0)

#define YIELDING_ASSIGN_CONST_TYPED(type, variable, value)                                                   \
    std::shared_ptr<const type> variable = std::dynamic_pointer_cast<const type>(value);                     \
    if (! variable) {                                                                                        \
        BRW_REPORT_ASSIGN_CONST_TYPED_(type, variable, value);                                               \
        YIELDING_FINISH                                                                                      \
    } else                                                                                                   \
        ((void)0)
