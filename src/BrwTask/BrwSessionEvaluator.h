#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace Brw {

class OMScope;

// For tests: runs script text statement by statement in a scope, as a standard-input session does, on a
// task of its own with a time-out, and gives what it echoed. The session's stream is the task's: what a
// script writes or reads goes there too.
class SessionEvaluator {
public:
    static constexpr int64_t DEFAULT_TIMEOUT_MICROSECONDS = 5000000;

    static std::string evaluate(const std::string& text, const std::shared_ptr<OMScope>& scope,
                                int64_t timeoutMicroseconds = DEFAULT_TIMEOUT_MICROSECONDS);
};

} // namespace Brw
