#include "BrwTask/BrwTask.h"

#include <algorithm>
#include <cstdlib>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwParser/BrwIOStreamPrompted.h"
#include "BrwUtils/BrwClock.h"

namespace Brw {

Task::TaskMap Task::fTasksById{8};
std::vector<std::shared_ptr<Task>> Task::fActiveTasks;
std::unordered_map<std::string, uint64_t, FNV1aHash> Task::fTaskIdsByName;
uint64_t Task::fNextTaskId = 1;
int Task::fRunActiveTasksDepth = 0;

Task::Task(const char* name, int64_t timeoutMicroseconds, const std::shared_ptr<InputStream>& stream)
    : fIOStream(stream), fName(name != nullptr ? name : ""), fTaskId(fNextTaskId++),
      fTimeoutMicroseconds(timeoutMicroseconds) {
    fChildTasks.max_load_factor(1.0f);
}

Task::~Task() = default;

void Task::reportFrameMismatch() {
    LOG_ERROR("resumable function resumed with a frame of another function");
    std::abort();
}

int64_t Task::computeDeadline(int64_t now) const {
    int64_t timeout = fTimeoutMicroseconds;
    if (timeout == NO_TIMEOUT) {
        return 0;
    }
    if (timeout < 0) {
        timeout = InternalCoordinator::fDefaultTimeoutMicroseconds;
        if (timeout < 0) {
            return 0;
        }
    }
    return now + Clock::fromMicroseconds(timeout);
}

bool Task::runTimeslice_(int64_t timesliceMicroseconds) {
    bool retVal = false;
    do {
        SANITY_CHECK(! fIsTaskCompleted);
        ASSIGN_TYPED(InternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        const bool isRunToCompletion = timesliceMicroseconds == RUN_TO_COMPLETION;
        int64_t now = Clock::now();
        if (! fIsStarted) {
            fDeadline = computeDeadline(now);
        }
        fTimesliceEnd = timesliceMicroseconds < 0 ? 0 : now + Clock::fromMicroseconds(timesliceMicroseconds);
        fIsTimesliceOver = false;
        fIsSleepRequested = false;
        for (;;) {
            if (fIsStarted && fFunctionStates.empty()) {
                fIsTimesliceOver = true;
            } else {
                fFunctionStateIndex = 0;
                timeslice();
                fIsStarted = true;
            }
            if (isRunToCompletion) {
                int64_t budget = InternalCoordinator::fInternalCoordinatorTimesliceMicroseconds;
                if (! runActiveTasks(budget) && ! fChildTasks.empty()) {
                    const size_t childCount = fChildTasks.size();
                    std::vector<std::shared_ptr<Task>> children;
                    for (const auto& [id, child] : fChildTasks) {
                        children.push_back(child);
                    }
                    for (const auto& child : children) {
                        if (fChildTasks.size() != childCount) {
                            break;
                        }
                        if (! child->isTaskCompleted() && ! child->isInTimeslice()) {
                            child->runTimeslice(budget / static_cast<int64_t>(childCount));
                        }
                    }
                }
            }
            if (fDeadline != 0 && Clock::now() >= fDeadline) {
                fIsTimedOut = true;
            }
            if (fIsSleepRequested) {
                internalCoordinator->waitForActivity(InternalCoordinator::fEventLoopSleepMicroseconds);
                fIsSleepRequested = false;
            }
            const bool idle = isIdle();
            if (fIsTimedOut || fIsExitRequested) {
                fIsTaskCompleted = true;
            }
            if (idle &&
                ((! fIsKeptAlive && fChildTasks.empty()) || (fIsEndWithChildren && fChildTasks.empty()))) {
                fIsTaskCompleted = true;
            }
            if (fIsTaskCompleted) {
                fIsTimesliceOver = true;
            } else if (isRunToCompletion) {
                fIsTimesliceOver = idle;
            } else if (idle) {
                fIsTimesliceOver = true;
            }
            if (fIsTimesliceOver) {
                if (fIsEndWithChildren) {
                    for (const auto& [id, child] : fChildTasks) {
                        child->setEndWithChildren(true);
                    }
                }
                break;
            }
        }
        if (fIsTaskCompleted) {
            handleCompletion();
        }
        retVal = true;
    } while (false);
    return retVal;
}

void Task::exit() {
    setKeptAlive(false);
    setExitRequested(true);
}

void Task::yieldAndSleep() {
    yield();
    fIsSleepRequested = true;
}

std::shared_ptr<InputStream> Task::getIOStream() {
    std::shared_ptr<InputStream> retVal = fIOStream;
    do {
        if (retVal) {
            break;
        }
        if (auto parent = getParentTask()) {
            retVal = parent->getIOStream();
            break;
        }
        ASSIGN_TYPED(InternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        fIOStream = std::make_shared<IOStreamPrompted>(internalCoordinator->inputStreamFactory(),
                                                       internalCoordinator->outputStreamFactory());
        retVal = fIOStream;
    } while (false);
    return retVal;
}

std::shared_ptr<IOMNode> Task::getResult() {
    return fResult;
}

void Task::handleChildCompletion(const std::shared_ptr<Task>& childTask) {
    do {
        SANITY_CHECK(childTask);
        auto iter = fChildTasks.find(childTask->getTaskId());
        SANITY_CHECK(iter != fChildTasks.end());
        fChildTasks.erase(iter);
        childTask->setParentTask(nullptr);
    } while (false);
}

void Task::handleCompletion() {
    // Keeps this task alive while it deregisters itself from everything that holds it.
    std::shared_ptr<Task> self = shared_from_this();
    fIsTaskCompleted = true;
    while (! fChildTasks.empty()) {
        std::shared_ptr<Task> childTask = fChildTasks.begin()->second;
        if (! SANITY_CHECKED(childTask)) {
            break;
        }
        const size_t childCount = fChildTasks.size();
        childTask->handleCompletion();
        if (fChildTasks.size() == childCount) {
            // The child did not remove itself: drop it here rather than loop for ever.
            fChildTasks.erase(childTask->getTaskId());
        }
    }
    if (auto parent = fParentTask.lock()) {
        parent->handleChildCompletion(self);
    }
    setName("");
    deregisterTask(fTaskId);
}

std::shared_ptr<Task> Task::findRequestContext(RequestContext context) {
    const auto index = static_cast<size_t>(context);
    if (! fIsRequestContextSearched[index]) {
        fIsRequestContextSearched[index] = true;
        for (std::shared_ptr<Task> task = shared_from_this(); task; task = task->getParentTask()) {
            if (task->isRequestContext(context)) {
                fFoundRequestContexts[index] = task;
                break;
            }
        }
    }
    return fFoundRequestContexts[index].lock();
}

bool Task::isIdle() {
    return fIsTaskCompleted || (fIsStarted && fFunctionStates.empty() && fChildTasks.empty());
}

bool Task::isYieldDue() {
    if (fIsTimedOut || fIsTimesliceOver) {
        return true;
    }
    if (fDeadline == 0 && fTimesliceEnd == 0) {
        return false; // nothing to wait for: no need to read the clock
    }
    const int64_t now = Clock::now();
    if (fDeadline != 0 && fDeadline <= now) {
        fIsTimedOut = true;
        return true;
    }
    if (fTimesliceEnd != 0 && fTimesliceEnd <= now) {
        fIsTimesliceOver = true;
        return true;
    }
    return false;
}

bool Task::isPastDeadline() {
    if (! fIsTimedOut && fDeadline != 0 && fDeadline <= Clock::now()) {
        fIsTimedOut = true;
    }
    return fIsTimedOut;
}

AsyncIOType Task::popInteractionLevel() {
    AsyncIOType retVal = static_cast<AsyncIOType>(0);
    do {
        SANITY_CHECK(! fInteractionLevelStack.empty());
        retVal = fInteractionLevel;
        fInteractionLevel = static_cast<AsyncIOType>(fInteractionLevelStack.back());
        fInteractionLevelStack.pop_back();
    } while (false);
    return retVal;
}

bool Task::pushInteractionLevel(AsyncIOType level) {
    fInteractionLevelStack.push_back(fInteractionLevel);
    fInteractionLevel = level;
    return true;
}

bool Task::releaseFunctionState(const OMFunctionState* state) {
    bool retVal = false;
    do {
        SANITY_CHECK(state);
        --fFunctionStateIndex;
        if (! fIsTimedOut && fDeadline != 0 && Clock::now() >= fDeadline) {
            fIsTimedOut = true;
        }
        if (fIsTimedOut || state->fStep == OMFunctionState::FINISHED_STEP) {
            // Drops this frame and anything a failed callee may have left above it.
            fFunctionStates.resize(fFunctionStateIndex);
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool Task::runTimeslice(int64_t timesliceMicroseconds) {
    fIsInTimeslice = true;
    bool retVal = runTimeslice_(timesliceMicroseconds);
    fLastTimesliceEnd = Clock::now();
    fIsInTimeslice = false;
    return retVal;
}

void Task::registerChildTask(const std::shared_ptr<Task>& childTask) {
    do {
        SANITY_CHECK(childTask);
        fChildTasks.emplace(childTask->getTaskId(), childTask);
        childTask->setParentTask(shared_from_this());
    } while (false);
}

bool Task::setExitRequested(bool isExitRequested) {
    fIsExitRequested = isExitRequested;
    return true;
}

void Task::setName(const std::string& name) {
    if (! fName.empty()) {
        auto iter = fTaskIdsByName.find(fName);
        if (iter != fTaskIdsByName.end()) {
            fTaskIdsByName.erase(iter);
        }
    }
    fName = name;
    if (! fName.empty()) {
        fTaskIdsByName[fName] = fTaskId;
    }
}

bool Task::updateParsingNestLevel(int step) {
    bool retVal = false;
    do {
        SANITY_CHECK(step == 1 || step == -1);
        SANITY_CHECK(step == 1 || fParsingNestLevel > 0);
        fParsingNestLevel += static_cast<uint64_t>(static_cast<int64_t>(step));
        retVal = true;
    } while (false);
    return retVal;
}

bool Task::usesAsyncIO() {
    switch (fInteractionLevel) {
    case ASYNC_IO_OFF:
        return false;
    case ASYNC_IO_ON:
        return true;
    case ASYNC_IO_INHERIT:
        if (std::dynamic_pointer_cast<IOStreamPrompted>(fIOStream)) {
            return true;
        }
        if (auto parent = getParentTask()) {
            return parent->usesAsyncIO();
        }
        return false;
    }
    LOG_ERROR("unexpected fInteractionLevel");
    return false;
}

void Task::registerTask(const std::shared_ptr<Task>& task) {
    do {
        SANITY_CHECK(task);
        auto iter = fTasksById.find(task->getTaskId());
        SANITY_CHECK(iter == fTasksById.end());
        fTasksById.emplace(task->getTaskId(), task);
    } while (false);
}

void Task::deregisterTask(uint64_t taskId) {
    do {
        auto iter = fTasksById.find(taskId);
        SANITY_CHECK(iter != fTasksById.end());
        fTasksById.erase(iter);
    } while (false);
}

bool Task::startTask(const std::shared_ptr<Task>& task) {
    bool retVal = false;
    do {
        SANITY_CHECK(task);
        LOG_NOTE_F("starting task %s", task->getName().c_str());
        fActiveTasks.push_back(task);
        retVal = true;
    } while (false);
    return retVal;
}

bool Task::runActiveTasks(int64_t& availableMicroseconds) {
    bool retVal = false;
    do {
        if (fActiveTasks.empty()) {
            retVal = true;
            break;
        }
        SANITY_CHECK(availableMicroseconds >= 0);
        ++fRunActiveTasksDepth;
        const int64_t recentLimit =
            Clock::now() - Clock::fromMicroseconds(InternalCoordinator::fEventLoopMicroseconds +
                                                   InternalCoordinator::fEventLoopSleepMicroseconds);
        const int64_t taskCount = static_cast<int64_t>(fActiveTasks.size());
        const int64_t share = availableMicroseconds / taskCount;
        int64_t budget = 0;
        for (int64_t i = taskCount - 1; i >= 0; --i) {
            std::shared_ptr<Task> task = fActiveTasks[static_cast<size_t>(i)];
            const int64_t start = Clock::now();
            budget += share;
            if (! task->isTaskCompleted() && ! task->isInTimeslice() &&
                (fRunActiveTasksDepth <= 1 || task->getLastTimesliceEnd() < recentLimit)) {
                task->runTimeslice(budget);
            }
            const int64_t elapsed = Clock::toMicroseconds(Clock::now() - start);
            budget = std::max<int64_t>(budget - elapsed, 0);
        }
        availableMicroseconds = budget;
        if (--fRunActiveTasksDepth == 0) {
            std::erase_if(fActiveTasks,
                          [](const std::shared_ptr<Task>& task) { return task->isTaskCompleted(); });
        }
        retVal = true;
    } while (false);
    return retVal;
}

std::shared_ptr<Task> Task::getTaskById(uint64_t taskId) {
    auto iter = fTasksById.find(taskId);
    return iter == fTasksById.end() ? nullptr : iter->second;
}

std::shared_ptr<Task> Task::getTaskByName(const std::string& name) {
    auto iter = fTaskIdsByName.find(name);
    return iter == fTaskIdsByName.end() ? nullptr : getTaskById(iter->second);
}

void Task::deregisterAll() {
    // Moved out first, so that destructors running now find the tables empty rather than half-cleared.
    std::vector<std::shared_ptr<Task>> activeTasks;
    activeTasks.swap(fActiveTasks);
    TaskMap tasksById;
    tasksById.swap(fTasksById);
    fTaskIdsByName.clear();
    for (auto& [id, task] : tasksById) {
        task->fChildTasks.clear();
        task->fFunctionStates.clear();
    }
}

} // namespace Brw
