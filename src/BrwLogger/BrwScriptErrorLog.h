#pragma once

#include <cstdint>
#include <string>

namespace Brw {

// Where script errors go: one line each, in the script error file when one is configured, otherwise on
// standard error, so that a person sees why a statement failed. Opened, written and closed per line.
class ScriptErrorLog {
public:
    static void report(const std::string& text);
    // An empty path sends the lines to standard error.
    static void setFile(const std::string& path) { fFile = path; }
    static const std::string& getFile() { return fFile; }
    // Counts every report, for tests that check that an error was raised.
    static uint64_t getReportCount() { return fReportCount; }

private:
    static inline std::string fFile;         // the script error file, or empty
    static inline uint64_t fReportCount = 0; // reports so far
};

} // namespace Brw
