#pragma once

#include <memory>

#include "BrwTask/BrwTask.h"

namespace Brw {

// The root of the task tree: runs the coordinator's rounds. When the coordinator stops, it ends with its
// children, so the whole tree winds down.
class MainTaskTimesliceTask : public Task {
public:
    static constexpr const char* TYPENAME = "MainTaskTimesliceTask";

    MainTaskTimesliceTask() : Task(TYPENAME, NO_TIMEOUT, nullptr) {}

    static std::shared_ptr<Task> factory();

    void timeslice() override;
    bool isIdle() override;
    // A script's exit stops the coordinator rather than this task.
    void exit() override;

private:
    bool fSuccess = false; // out value of the coordinator's round
};

} // namespace Brw
