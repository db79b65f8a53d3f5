#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Brw {

// Records the log lines of a stretch of test code that provokes failures on purpose, and keeps them and
// its script errors off the output.
class LogRecorder {
public:
    // Runs `provoke` with lines up to `level` recorded rather than written; gives the lines.
    template <class Function>
    static std::vector<std::string> record(int32_t level, Function provoke) {
        start(level);
        provoke();
        return stop();
    }

    // True when one of `lines` holds `text`.
    static bool hasLineWith(const std::vector<std::string>& lines, const std::string& text);

    // True when `call` gives false (or null) and logs a line, up to `level`, that holds `text`.
    template <class Call>
    static bool failsWith(Call call, const std::string& text, int32_t level = 1) {
        bool isFailed = false;
        const std::vector<std::string> lines = record(level, [&] { isFailed = ! call(); });
        return isFailed && hasLineWith(lines, text);
    }

private:
    static void start(int32_t level);
    static std::vector<std::string> stop();
};

} // namespace Brw
