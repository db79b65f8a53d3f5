// Script text through the entry of the standard-input mode: a session of an instrumenter and an
// evaluator, as ParseScriptTask runs it. A script may legitimately run for ever, so the session gets a
// deadline and is then stopped, together with every task it started; what must hold is that nothing
// crashes, leaks or outlives its stop.

#include <mutex>
#include <string>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwFuzzRuntime.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwScriptLimits.h"
#include "BrwTask/BrwParseScriptTask.h"
#include "BrwUtils/BrwClock.h"

namespace {

// Longer scripts add little that shorter ones don't reach, and cost time.
constexpr size_t MAX_SCRIPT_BYTES = 1 << 13;
constexpr int64_t NANOSECONDS_PER_MILLISECOND = 1000000;
// The call depth of scripts here; see LLVMFuzzerInitialize.
constexpr int64_t FUZZ_CALL_DEPTH = 100;
// A session still running then is stopped. Short, so that the endless scripts that mutation makes so often
// don't take most of the fuzzer's time; every statement that runs at all has had its first turns by then.
constexpr int64_t SESSION_MILLISECONDS = 1;
// A stopped task ends at the end of its slice: one that has not ended by then never will.
constexpr int64_t STOP_MILLISECONDS = 5000;
// Each turn of the started tasks.
constexpr int64_t TURN_MICROSECONDS = 1000;

// Gives the started tasks turns until `isDone` holds or `milliseconds` have passed; true when it holds.
template <class Predicate>
bool runTasksUntil(Predicate isDone, int64_t milliseconds) {
    const int64_t deadline = Brw::Clock::now() + milliseconds * NANOSECONDS_PER_MILLISECOND;
    while (! isDone() && Brw::Clock::now() < deadline) {
        int64_t budget = TURN_MICROSECONDS;
        if (! Brw::Task::runActiveTasks(budget)) {
            BrwFuzz::fail("runActiveTasks failed");
        }
    }
    return isDone();
}

// Stops the session and whatever it started: a session that is told to wait for nothing may start sessions
// that outlive it, and a task in its last slice may still start one, which is then stopped in turn.
void stopStartedTasks() {
    const auto stopAll = [] {
        for (const std::shared_ptr<Brw::Task>& task : Brw::Task::getActiveTasks()) {
            if (! task->isExitRequested()) {
                task->exit();
            }
        }
        return Brw::Task::getActiveTasks().empty();
    };
    if (! runTasksUntil(stopAll, STOP_MILLISECONDS)) {
        BrwFuzz::fail("a stopped task did not end");
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    BrwFuzz::startRuntime("fuzz_script");
    // Mutation makes endless recursion often, and each call level looks its names up through the levels
    // below it: under the sanitizers a recursion to the full limit takes seconds, a shallower one the same
    // paths in a fraction of the time.
    Brw::ScriptLimits::fCallDepth = FUZZ_CALL_DEPTH;
    if (! Brw::Task::getActiveTasks().empty()) {
        BrwFuzz::fail("tasks run before the first input");
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > MAX_SCRIPT_BYTES) {
        return -1;
    }
    const BrwFuzz::InputScope inputScope;
    // Held while tasks run, as by the program's event loop: a task that sleeps lets go of it meanwhile.
    const std::lock_guard<std::recursive_mutex> processLock(Brw::InternalCoordinator::getProcessLock());
    const std::string script(reinterpret_cast<const char*>(data), size);
    // A scope of its own for each input, so that no input sees what an earlier one defined.
    const auto callerScope = Brw::OMScope::factory(nullptr, Brw::OMScope::READS_PARENT);
    const auto session = Brw::ParseScriptTask::factory(script, "", callerScope);
    if (! session || ! session->start()) {
        BrwFuzz::fail("the session did not start");
    }
    runTasksUntil([&] { return session->isTaskCompleted(); }, SESSION_MILLISECONDS);
    stopStartedTasks();
    // What the script sent or asked of other coordinators goes nowhere here.
    auto internalCoordinator =
        std::dynamic_pointer_cast<Brw::InternalCoordinator>(Brw::InternalCoordinator::factory());
    if (! internalCoordinator || ! internalCoordinator->discardMessaging()) {
        BrwFuzz::fail("the messaging state could not be discarded");
    }
    session->getOutput();
    return 0;
}
