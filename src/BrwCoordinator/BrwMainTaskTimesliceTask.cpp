#include "BrwCoordinator/BrwMainTaskTimesliceTask.h"

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"

namespace Brw {

std::shared_ptr<Task> MainTaskTimesliceTask::factory() {
    std::shared_ptr<Task> retVal;
    do {
        auto wrapped_this = std::make_shared<MainTaskTimesliceTask>();
        SANITY_CHECK(wrapped_this);
        Task::registerTask(wrapped_this);
        retVal = wrapped_this;
    } while (false);
    return retVal;
}

void MainTaskTimesliceTask::timeslice() {
    do {
        std::shared_ptr<Task> self = shared_from_this();
        ASSIGN_TYPED(InternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        internalCoordinator->timeslice_yielding(self, fSuccess);
        if (internalCoordinator->isTerminating()) {
            fIsEndWithChildren = true;
        }
    } while (false);
    if (! InternalCoordinator::factory()) {
        fIsEndWithChildren = true;
    }
}

bool MainTaskTimesliceTask::isIdle() {
    bool retVal = false;
    do {
        if (! fIsTaskCompleted && ! (fIsStarted && fFunctionStates.empty() && fChildTasks.empty())) {
            break;
        }
        auto internalCoordinator =
            std::dynamic_pointer_cast<InternalCoordinator>(InternalCoordinator::factory());
        retVal = ! internalCoordinator || internalCoordinator->isIdle();
        if (fIsEndWithChildren) {
            // Polled for their own bookkeeping only: the answer stands.
            for (const auto& task : fActiveTasks) {
                if (task.get() != this && ! task->isIdle()) {
                    break;
                }
            }
        }
    } while (false);
    return retVal;
}

void MainTaskTimesliceTask::exit() {
    auto internalCoordinator = std::dynamic_pointer_cast<InternalCoordinator>(InternalCoordinator::factory());
    if (internalCoordinator) {
        internalCoordinator->terminate();
    }
}

} // namespace Brw
