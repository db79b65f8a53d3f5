#pragma once

// The check macros. Every function that uses them has one result variable that starts at its failing
// value, its body in one `do { ... } while (false)` block and one return behind it. A failed check logs the
// source text of its argument with the enclosing function's signature; SANITY_CHECK and the ASSIGN family
// then leave the block by `break`, VERIFY and EXPECTED go on, and SANITY_CHECKED is the check as a value,
// for the places that must do something of their own when it fails.
//
// A `break` leaves only the innermost loop, so a resumable function (BrwTask/BrwYielding.h) can't use the
// leaving forms: they don't compile there, and its YIELDING_CHECK and YIELDING_ASSIGN forms end the whole
// function from wherever they stand.

#include <memory>

#include "BrwLogger/BrwLogger.h"
#include "BrwUtils/BrwUtils.h"

// Found by name lookup: YIELDING_BEGIN declares a local of this name that is true.
inline constexpr bool brwIsResumableBody_ = false;

#define BRW_CHECK_LEAVE_                                                                                     \
    {                                                                                                        \
        static_assert(! brwIsResumableBody_, "a resumable function checks with the YIELDING_ forms");        \
        break;                                                                                               \
    }

#define BRW_LOG_ERROR_(text) ::Brw::Logger::logError(__FILE__, __LINE__, __PRETTY_FUNCTION__, text)

// The reports of the checks, shared by the leaving forms here and the resumable forms.
#define BRW_REPORT_SANITY_CHECK_(condition)                                                                  \
    BRW_LOG_ERROR_("SANITY_CHECK failed: '" #condition "' evaluates to false")
#define BRW_REPORT_ASSIGN_(variable, value) BRW_LOG_ERROR_("ASSIGN failed: '" #variable " = " #value ";'")
#define BRW_REPORT_ASSIGN_TYPED_(type, variable, value)                                                      \
    BRW_LOG_ERROR_("ASSIGN_TYPED failed: '" #type " " #variable " = " #value ";'")
#define BRW_REPORT_ASSIGN_CONST_TYPED_(type, variable, value)                                                \
    BRW_LOG_ERROR_("ASSIGN_CONST_TYPED failed: '" #type " " #variable " = " #value ";'")

#define SANITY_CHECK(condition)                                                                              \
    if (! (condition)) {                                                                                     \
        BRW_REPORT_SANITY_CHECK_(condition);                                                                 \
        BRW_CHECK_LEAVE_                                                                                     \
    } else                                                                                                   \
        ((void)0)

// The check as a value: true when `condition` holds; otherwise the report of SANITY_CHECK, and false.
#define SANITY_CHECKED(condition) ((condition) ? true : (BRW_REPORT_SANITY_CHECK_(condition), false))

#define ASSIGN(variable, value)                                                                              \
    if (! ((variable) = (value))) {                                                                          \
        BRW_REPORT_ASSIGN_(variable, value);                                                                 \
        BRW_CHECK_LEAVE_                                                                                     \
    } else                                                                                                   \
        ((void)0)

#define ASSIGN_TYPED(type, variable, value)                                                                  \
    std::shared_ptr<type> variable = std::dynamic_pointer_cast<type>(value);                                 \
    if (! variable) {                                                                                        \
        BRW_REPORT_ASSIGN_TYPED_(type, variable, value);                                                     \
        BRW_CHECK_LEAVE_                                                                                     \
    } else                                                                                                   \
        ((void)0)

#define ASSIGN_CONST_TYPED(type, variable, value)                                                            \
    std::shared_ptr<const type> variable = std::dynamic_pointer_cast<const type>(value);                     \
    if (! variable) {                                                                                        \
        BRW_REPORT_ASSIGN_CONST_TYPED_(type, variable, value);                                               \
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
