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
//             SANITY_CHECK(frame->ok);
//             ++frame->i;
//         }
//         success = true;
//         YIELDING_END;
//     }
//
// When a callee or the function itself has to wait, the function returns with its frame left in the task;
// the next slice calls the same chain again with the same arguments, and each function jumps to its step.
// A step is the source line of its macro; the code after a finished callee runs as step 1000000 + line,
// so a frame's step says where it waits.
//
// Restrictions, as of every switch-based coroutine:
// - The macros expand to `case` labels of one switch: no step macro inside a `switch` of your own, and
//   none inside a lambda.
// - Nothing that must survive a step macro may live in an automatic variable: use frame fields. The
//   compiler refuses a jump past an initialised local, which catches most slips.
// - Code before YIELDING_BEGIN runs on every entry; code between YIELDING_BEGIN and the first step macro
//   only on the first.
// - Parameters are not saved: whatever the caller hands in (references included) must outlive the wait,
//   so it lives in the caller's frame or longer.
// - A callee's out parameter may be read only after its YIELDING_CALL.
// - A failed check (BrwCheck.h) marks the frame finished and leaves the innermost loop or switch; the
//   function then ends at the next step macro, or at once when the check stands at step level.
// - One step macro per source line.

#include "BrwLogger/BrwCheck.h"
#include "BrwTask/BrwTask.h"

#define BRW_CONTINUATION_STEP_(step) (1000000 + (step))

// Enter: take the frame saved at this depth or make a new one (then run `initialOut`, the out
// parameter's first value), and begin the steps.
#define YIELDING_BEGIN(FrameType, frame, initialOut)                                                         \
    bool brwIsFirstEntry_ = false;                                                                           \
    FrameType* const frame = task->template enterFunctionState<FrameType>(brwIsFirstEntry_);                 \
    if (brwIsFirstEntry_) {                                                                                  \
        initialOut;                                                                                          \
    }                                                                                                        \
    int32_t* const brwYieldingStep_ = &frame->fStep;                                                         \
    auto* const brwFrame_ = frame;                                                                           \
    for (;;) {                                                                                               \
        if (brwFrame_->fStep == -1) {                                                                        \
            goto brwYieldingLeave_;                                                                          \
        }                                                                                                    \
        switch (brwFrame_->fStep) {                                                                          \
        case 0:

// Call a resumable callee. When it left its frame behind (it waits), this function returns too and
// calls it again on the next entry; when it finished, the code after the macro runs.
#define YIELDING_CALL(callee)                                                                                \
    if (brwFrame_->fStep == -1) {                                                                            \
        goto brwYieldingLeave_;                                                                              \
    }                                                                                                        \
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
    if (brwFrame_->fStep == -1) {                                                                            \
        goto brwYieldingLeave_;                                                                              \
    }                                                                                                        \
    waitCall;                                                                                                \
    brwFrame_->fStep = BRW_CONTINUATION_STEP_(__LINE__);                                                     \
    goto brwYieldingCheck_;                                                                                  \
    case BRW_CONTINUATION_STEP_(__LINE__):

// A step boundary without a callee: returns when the slice is used up, and goes on here on the next entry.
// Long loops put one in their body so that they share the thread.
#define YIELDING_STEP                                                                                        \
    if (brwFrame_->fStep == -1) {                                                                            \
        goto brwYieldingLeave_;                                                                              \
    }                                                                                                        \
    brwFrame_->fStep = __LINE__;                                                                             \
    goto brwYieldingCheck_;                                                                                  \
    case __LINE__:

// Finish now: the rest of the steps are skipped and the frame is dropped.
#define YIELDING_FINISH                                                                                      \
    {                                                                                                        \
        brwFrame_->fStep = -1;                                                                               \
        goto brwYieldingLeave_;                                                                              \
    }

// Leave: after the last step the function is finished; every path goes out through the one release.
#define YIELDING_END                                                                                         \
    brwFrame_->fStep = -1;                                                                                   \
    break;                                                                                                   \
    default:                                                                                                 \
        ::Brw::Logger::logError(__FILE__, __LINE__, __PRETTY_FUNCTION__,                                     \
                                "unknown step of resumable function");                                       \
        brwFrame_->fStep = -1;                                                                               \
        break;                                                                                               \
        }                                                                                                    \
    brwYieldingCheck_:                                                                                       \
        __attribute__((unused));                                                                             \
        if (brwFrame_->fStep == -1 || task->isYieldDue()) {                                                  \
            break;                                                                                           \
        }                                                                                                    \
        }                                                                                                    \
    brwYieldingLeave_:                                                                                       \
        __attribute__((unused));                                                                             \
        (void)brwYieldingStep_;                                                                              \
        task->releaseFunctionState(brwFrame_)
