#pragma once

#include <cstddef>
#include <cstdint>

// What every fuzz target shares: the runtime started and torn down as the program does it, and the
// checks that an input left nothing behind.
namespace BrwFuzz {

// Starts the runtime once per process (the class table, the coordinator, its main task) with HOME and the
// XDG folders in a private temporary folder and logging off; at exit it tears everything down and fails
// when a runtime object is left.
void startRuntime(const char* programName);

// Ends the run with `why` on standard error; the fuzzer keeps the input that led here.
[[noreturn]] void fail(const char* why);

// Watches one input: when it ends, every runtime object and task that the input made must be gone. Values
// that a script made hold themselves are broken first, as the program does it at exit: they stay otherwise.
class InputScope {
public:
    InputScope();
    ~InputScope();
    InputScope(const InputScope&) = delete;
    InputScope& operator=(const InputScope&) = delete;

private:
    uint64_t fContainerMark; // the containers made before the input
    uint64_t fObjectCount;   // runtime objects before the input
    size_t fTaskCount;       // registered tasks before the input
};

} // namespace BrwFuzz
