#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Brw {

// The few calls on operating-system processes: whether one runs, which one a launch started, and
// launching a program with its words as they are.
class Process {
public:
    static constexpr const char* TYPENAME = "Process";

    // True when the process runs and is one of this user's: an ended process (a zombie too) and one of
    // another user can't be a coordinator of ours.
    static bool isRunning(uint32_t processId);
    // The identifier of this process.
    static uint32_t getCurrentProcessId();
    // The identifier of a running process of this user whose words are these launch words, 0 when none.
    static uint32_t getProcessId(const std::vector<std::string>& launchArgs);
    // Starts the program `launchArgs[0]` with the words as its arguments, each one whole: no shell sees
    // them. It runs in `workingDir` (the current folder when empty), in a session of its own, with
    // standard streams on /dev/null, and outlives this process; nobody has to wait for it. Its
    // identifier, or 0 on failure.
    static uint32_t launchProcess(const std::vector<std::string>& launchArgs,
                                  const std::string& workingDir = std::string());
};

} // namespace Brw
