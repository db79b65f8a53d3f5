#pragma once

#include <string>
#include <vector>

namespace BrwTests {

// Points HOME, TMPDIR and the XDG folders at a fresh temporary folder of this process, removed at exit, so
// that tests never touch a real user's files or coordinators and may run in parallel.
void isolateHome();
const std::string& isolatedHome();

// A name no other test process uses, for coordinators and files.
std::string uniqueName(const std::string& stem);

// Brings the coordinator up in this process, under a name of its own: the programs a test starts may be
// the main coordinator of the test's home.
bool initCoordinator(const std::string& programName);

struct ProcessResult {
    int exitCode = -1;     // -1 when the process was killed or did not end in time
    bool timedOut = false; // killed after the time limit
    std::string standardOutput;
    std::string standardError;
};

// Runs a program with `args` (the program path first), feeding `input` to its standard input, and
// kills it after `timeoutMilliseconds`.
ProcessResult runProcess(const std::vector<std::string>& args, const std::string& input = "",
                         int timeoutMilliseconds = 20000);

} // namespace BrwTests
