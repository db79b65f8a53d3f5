#pragma once

#include <chrono>
#include <csignal>
#include <string>
#include <sys/types.h>
#include <thread>
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

// True once `condition` holds, false when the deadline passes first.
template <class Condition>
bool waitFor(Condition condition, int timeoutMilliseconds = 10000) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMilliseconds);
    while (! condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

// A program started in the background, killed and reaped at the end whatever happens.
class Background {
public:
    explicit Background(const std::vector<std::string>& args);
    ~Background() { kill(SIGKILL); }
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

    pid_t pid() const { return fPid; }
    // Sends the signal and reaps the process.
    void kill(int signalNumber);
    // True once the process has ended by itself, its exit status in `exitCode` (-1 for a signal).
    bool hasExited(int& exitCode);

private:
    pid_t fPid = -1;
};

} // namespace BrwTests
