#pragma once

#include <functional>
#include <memory>

#include "BrwTask/BrwTask.h"

namespace Brw {

// Runs one resumable operation to its end for a caller that can't wait: the body calls the operation
// with the task and the caller's variables, which live until `call` returns. Every synchronous companion
// of a `_yielding` operation is a `call` of this kind.
class CallTask : public Task {
public:
    using Body = std::function<void(const std::shared_ptr<Task>& task)>;

    CallTask(const char* name, Body body, int64_t timeoutMicroseconds = NO_TIMEOUT,
             const std::shared_ptr<InputStream>& stream = nullptr)
        : Task(name, timeoutMicroseconds, stream), fBody(std::move(body)) {}

    // `timeoutMicroseconds` as for any task. `stream` is the task's own, which the scripts it runs read
    // and write; without one they use the process's console.
    static std::shared_ptr<CallTask> factory(const char* name, Body body,
                                             int64_t timeoutMicroseconds = NO_TIMEOUT,
                                             const std::shared_ptr<InputStream>& stream = nullptr);
    // Runs `body` to completion (or its time-out); false (with the check logged) when the task refused to
    // run.
    static bool call(const char* name, Body body, int64_t timeoutMicroseconds = NO_TIMEOUT,
                     const std::shared_ptr<InputStream>& stream = nullptr);

    void timeslice() override { fBody(shared_from_this()); }

private:
    Body fBody; // calls the wrapped operation
};

} // namespace Brw
