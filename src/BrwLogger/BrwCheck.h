#pragma once

// The check macros. Every function that uses them has one result variable that starts at its failing
// value, its body in one `do { ... } while (false)` block and one return behind it. A failed check logs the
// source text of its argument with the enclosing function's signature; SANITY_CHECK and the ASSIGN family
// then leave the block by `break`, VERIFY and EXPECTED go on.
//
// NOTE: `break` leaves the innermost loop, switch or block. A check inside an inner loop leaves only that
// loop: test the result after it. Inside a resumable function (BrwTask/BrwYielding.h) a failed check also
// marks the frame finished, so the function ends at its next step boundary at the latest.

#include <memory>

#include "BrwLogger/BrwLogger.h"
#include "BrwUtils/BrwUtils.h"

// Found by name lookup: the step macros of resumable functions declare a local of this name that points
// at the frame's step; everywhere else this null constant is found and the test folds away.
inline constexpr int32_t* brwYieldingStep_ = nullptr;

#define BRW_CHECK_LEAVE_                                                                                     \
    {                                                                                                        \
        if (brwYieldingStep_ != nullptr) {                                                                   \
            *brwYieldingStep_ = -1;                                                                          \
        }                                                                                                    \
        break;                                                                                               \
    }

#define BRW_LOG_ERROR_(text) ::Brw::Logger::logError(__FILE__, __LINE__, __PRETTY_FUNCTION__, text)

#define SANITY_CHECK(condition)                                                                              \
    if (! (condition)) {                                                                                     \
        BRW_LOG_ERROR_("SANITY_CHECK failed: '" #condition "' evaluates to false");                          \
        BRW_CHECK_LEAVE_                                                                                     \
    } else                                                                                                   \
        ((void)0)

#define ASSIGN(variable, value)                                                                              \
    if (! ((variable) = (value))) {                                                                          \
        BRW_LOG_ERROR_("ASSIGN failed: '" #variable " = " #value ";'");                                      \
        BRW_CHECK_LEAVE_                                                                                     \
    } else                                                                                                   \
        ((void)0)

#define ASSIGN_TYPED(type, variable, value)                                                                  \
    std::shared_ptr<type> variable = std::dynamic_pointer_cast<type>(value);                                 \
    if (! variable) {                                                                                        \
        BRW_LOG_ERROR_("ASSIGN_TYPED failed: '" #type " " #variable " = " #value ";'");                      \
        BRW_CHECK_LEAVE_                                                                                     \
    } else                                                                                                   \
        ((void)0)

#define ASSIGN_CONST_TYPED(type, variable, value)                                                            \
    std::shared_ptr<const type> variable = std::dynamic_pointer_cast<const type>(value);                     \
    if (! variable) {                                                                                        \
        BRW_LOG_ERROR_("ASSIGN_CONST_TYPED failed: '" #type " " #variable " = " #value ";'");                \
        BRW_CHECK_LEAVE_                                                                                     \
    } else                                                                                                   \
        ((void)0)

#define VERIFY(condition)                                                                                    \
    if (! (condition)) {                                                                                     \
        BRW_LOG_ERROR_("VERIFY failed: '" #condition "' evaluates to false");                                \
    } else                                                                                                   \
        ((void)0)

#define EXPECTED(condition)                                                                                  \
    if (! (condition)) {                                                                                     \
        ::Brw::Logger::logWarning(__FILE__, __LINE__, __PRETTY_FUNCTION__,                                   \
                                  "EXPECTED failed: '" #condition "' evaluates to false");                   \
    } else                                                                                                   \
        ((void)0)

// Plain lines. The *_F forms compose their text with Utils::format only when the level lets it through.
#define LOG_ERROR(message) ::Brw::Logger::logError(__FILE__, __LINE__, __PRETTY_FUNCTION__, message)
#define LOG_WARNING(message) ::Brw::Logger::logWarning(__FILE__, __LINE__, __PRETTY_FUNCTION__, message)
#define LOG_NOTE(message) ::Brw::Logger::logNote(__FILE__, __LINE__, __PRETTY_FUNCTION__, message)
#define LOG_TRACE(message) ::Brw::Logger::logTrace(__FILE__, __LINE__, __PRETTY_FUNCTION__, message)

#define BRW_LOG_F_(level, logCall, ...)                                                                      \
    do {                                                                                                     \
        if (::Brw::Logger::getLogLevel() >= (level)) {                                                       \
            logCall(::Brw::Utils::format(__VA_ARGS__));                                                      \
        }                                                                                                    \
    } while (false)
#define LOG_ERROR_F(...) BRW_LOG_F_(1, LOG_ERROR, __VA_ARGS__)
#define LOG_WARNING_F(...) BRW_LOG_F_(2, LOG_WARNING, __VA_ARGS__)
#define LOG_NOTE_F(...) BRW_LOG_F_(3, LOG_NOTE, __VA_ARGS__)
#define LOG_TRACE_F(...) BRW_LOG_F_(4, LOG_TRACE, __VA_ARGS__)
