#pragma once

#include <cstdint>
#include <string>

namespace Brw {

// For tests: while it lives, script errors go to a temporary file of its own instead of where they went,
// and the ones reported since a point can be read back.
class ScriptErrorCapture {
public:
    ScriptErrorCapture();
    ~ScriptErrorCapture();
    ScriptErrorCapture(const ScriptErrorCapture&) = delete;
    ScriptErrorCapture& operator=(const ScriptErrorCapture&) = delete;

    // False when no file could be made: the errors then go where they went before.
    bool isCapturing() const { return ! fFile.empty(); }
    // The errors reported since the report count was `before` (ScriptErrorLog::getReportCount), joined by
    // " | ".
    std::string errorsSince(uint64_t before) const;

private:
    std::string fSavedFile; // where script errors went before
    std::string fFile;      // where they go now; removed at the end
};

} // namespace Brw
