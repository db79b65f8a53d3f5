#include "BrwTask/BrwTaskTest.h"

#include <algorithm>
#include <vector>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwTask/BrwYielding.h"
#include "BrwUtils/BrwClock.h"

namespace Brw {

namespace {

int64_t gTestNow = 0; // the test clock, in nanoseconds

int64_t testNow() {
    return gTestNow;
}

void advanceMicroseconds(int64_t microseconds) {
    gTestNow += microseconds * 1000;
}

// A task that runs one round per slice: it records the budget it was given and when it ran, spends its
// round's cost on the test clock, and yields; after the last round its body ends.
class ScriptedTask : public Task {
public:
    ScriptedTask(const char* name, int64_t timeoutMicroseconds, std::vector<int64_t> costs,
                 std::vector<std::string>* runLog)
        : Task(name, timeoutMicroseconds, nullptr), fCosts(std::move(costs)), fRunLog(runLog) {}

    static std::shared_ptr<ScriptedTask> factory(const char* name, std::vector<int64_t> costs,
                                                 std::vector<std::string>* runLog = nullptr,
                                                 int64_t timeoutMicroseconds = -2) {
        auto task = std::make_shared<ScriptedTask>(name, timeoutMicroseconds, std::move(costs), runLog);
        Task::registerTask(task);
        return task;
    }

    void timeslice() override { run_yielding(shared_from_this(), fSuccess); }

    void run_yielding(const std::shared_ptr<Task>& task, bool& success) {
        struct LocalVariableState : OMFunctionState {
            size_t round = 0;
        };
        YIELDING_BEGIN(LocalVariableState, frame, success = false);
        while (frame->round < fCosts.size()) {
            fBudgets.push_back(fTimesliceEnd == 0 ? -1 : (fTimesliceEnd - Clock::now()) / 1000);
            if (fRunLog != nullptr) {
                fRunLog->push_back(getName());
            }
            advanceMicroseconds(fCosts[frame->round]);
            ++frame->round;
            YIELDING_WAIT(task->yield());
        }
        success = true;
        YIELDING_END;
    }

    std::vector<int64_t> fBudgets; // budget of each round, in microseconds; -1 without a limit
    bool fSuccess = false;         // the body ran to its end

private:
    std::vector<int64_t> fCosts;       // microseconds spent by each round
    std::vector<std::string>* fRunLog; // names of the tasks in the order they ran
};

// A task whose body runs a nested pass of the scheduler, as a synchronous call inside a task does.
class NestingTask : public Task {
public:
    using Body = void (*)(NestingTask& self);

    explicit NestingTask(Body body) : Task("NestingTask", -2, nullptr), fBody(body) {}

    static std::shared_ptr<NestingTask> factory(Body body) {
        auto task = std::make_shared<NestingTask>(body);
        Task::registerTask(task);
        return task;
    }

    void timeslice() override { fBody(*this); }

    std::vector<bool> fObservations; // what the body saw
    std::shared_ptr<ScriptedTask> fOther;

private:
    Body fBody;
};

bool isActive(const std::shared_ptr<Task>& task) {
    const auto& active = Task::getActiveTasks();
    return std::find(active.begin(), active.end(), task) != active.end();
}

// Runs passes until every started task has ended and been swept.
bool drainActiveTasks() {
    for (int pass = 0; pass < 100 && ! Task::getActiveTasks().empty(); ++pass) {
        int64_t budget = 10000;
        if (! Task::runActiveTasks(budget)) {
            return false;
        }
    }
    return Task::getActiveTasks().empty();
}

} // namespace

bool TaskTest::setup() {
    gTestNow = 1000000000000;
    Clock::setSource(testNow);
    return Task::getActiveTasks().empty();
}

bool TaskTest::teardown() {
    bool drained = drainActiveTasks();
    Clock::setSource(nullptr);
    return drained;
}

bool TaskTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = true;
    allOK = testEmptyListAndNegativeBudget() && allOK;
    allOK = testBudgetSharingLastStartedFirst() && allOK;
    allOK = testOverrunCostsNothingButTheRest() && allOK;
    allOK = testTimeouts() && allOK;
    allOK = testSweepOnlyAtDepthZero() && allOK;
    allOK = testNestedRunSkipsRecentAndHoldingTasks() && allOK;
    allOK = testRunToCompletionServesOthers() && allOK;
    allOK = testChildrenAndNames() && allOK;
    allOK = testInteractionLevelsAndNestLevel() && allOK;
    return allOK;
}

bool TaskTest::testEmptyListAndNegativeBudget() {
    bool retVal = false;
    do {
        int64_t available = 1234;
        SANITY_CHECK(Task::runActiveTasks(available));
        CHECK_EQUAL(available, 1234);

        auto task = ScriptedTask::factory("negative", {0});
        SANITY_CHECK(Task::startTask(task));
        int64_t negative = -1;
        bool accepted = true;
        {
            LogLevelScope quiet(0);
            accepted = Task::runActiveTasks(negative);
        }
        SANITY_CHECK(! accepted);
        CHECK_EQUAL(task->fBudgets.size(), 0u);
        // The refused call left the depth at 0: the next pass sweeps what completes.
        SANITY_CHECK(drainActiveTasks());
        retVal = true;
    } while (false);
    return retVal;
}

bool TaskTest::testBudgetSharingLastStartedFirst() {
    bool retVal = false;
    do {
        std::vector<std::string> runLog;
        auto first = ScriptedTask::factory("first", {1000}, &runLog);
        auto second = ScriptedTask::factory("second", {1000}, &runLog);
        auto third = ScriptedTask::factory("third", {1000}, &runLog);
        for (const auto& task : {first, second, third}) {
            SANITY_CHECK(Task::startTask(task));
        }
        int64_t available = 9000;
        SANITY_CHECK(Task::runActiveTasks(available));
        CHECK_EQUAL(runLog.size(), 3u);
        CHECK_EQUAL(runLog[0], "third");
        CHECK_EQUAL(runLog[2], "first");
        CHECK_EQUAL(third->fBudgets.at(0), 3000);
        CHECK_EQUAL(second->fBudgets.at(0), 5000);
        CHECK_EQUAL(first->fBudgets.at(0), 7000);
        CHECK_EQUAL(available, 6000);
        SANITY_CHECK(drainActiveTasks());
        SANITY_CHECK(first->fSuccess && second->fSuccess && third->fSuccess);
        SANITY_CHECK(first->isTaskCompleted() && ! Task::getTaskById(first->getTaskId()));
        retVal = true;
    } while (false);
    return retVal;
}

bool TaskTest::testOverrunCostsNothingButTheRest() {
    bool retVal = false;
    do {
        auto patient = ScriptedTask::factory("patient", {100});
        auto greedy = ScriptedTask::factory("greedy", {10000});
        SANITY_CHECK(Task::startTask(patient));
        SANITY_CHECK(Task::startTask(greedy));
        int64_t available = 4000;
        SANITY_CHECK(Task::runActiveTasks(available));
        CHECK_EQUAL(greedy->fBudgets.at(0), 2000);
        CHECK_EQUAL(patient->fBudgets.at(0), 2000);
        CHECK_EQUAL(available, 1900);
        SANITY_CHECK(drainActiveTasks());
        retVal = true;
    } while (false);
    return retVal;
}

bool TaskTest::testTimeouts() {
    bool retVal = false;
    const int64_t savedDefault = InternalCoordinator::fDefaultTimeoutMicroseconds;
    do {
        auto immediate = ScriptedTask::factory("immediate", {0, 0, 0}, nullptr, 0);
        SANITY_CHECK(immediate->runTimeslice(1000));
        SANITY_CHECK(immediate->isTimedOut());
        SANITY_CHECK(immediate->isTaskCompleted());
        CHECK_EQUAL(immediate->getFunctionStateCount(), 0u);
        CHECK_EQUAL(immediate->fBudgets.size(), 1u);
        SANITY_CHECK(! immediate->fSuccess);

        auto never = ScriptedTask::factory("never", {0}, nullptr, -2);
        SANITY_CHECK(never->runTimeslice(1000));
        CHECK_EQUAL(never->getDeadline(), 0);

        InternalCoordinator::fDefaultTimeoutMicroseconds = 5000;
        auto byDefault = ScriptedTask::factory("byDefault", {0}, nullptr, -1);
        const int64_t start = Clock::now();
        SANITY_CHECK(byDefault->runTimeslice(1000));
        CHECK_EQUAL(byDefault->getDeadline(), start + 5000 * 1000);

        InternalCoordinator::fDefaultTimeoutMicroseconds = -1;
        auto noDefault = ScriptedTask::factory("noDefault", {0}, nullptr, -1);
        SANITY_CHECK(noDefault->runTimeslice(1000));
        CHECK_EQUAL(noDefault->getDeadline(), 0);

        // A limit counts from the first slice; the task gives up in the slice that crosses it.
        InternalCoordinator::fDefaultTimeoutMicroseconds = savedDefault;
        auto limited = ScriptedTask::factory("limited", {400, 400, 400, 400}, nullptr, 1000);
        for (int slice = 0; slice < 4 && ! limited->isTaskCompleted(); ++slice) {
            SANITY_CHECK(limited->runTimeslice(10000));
        }
        SANITY_CHECK(limited->isTimedOut() && limited->isTaskCompleted());
        CHECK_EQUAL(limited->fBudgets.size(), 3u);
        SANITY_CHECK(! limited->fSuccess);
        for (const auto& task : {never, byDefault, noDefault}) {
            SANITY_CHECK(task->runToCompletion());
        }
        retVal = true;
    } while (false);
    InternalCoordinator::fDefaultTimeoutMicroseconds = savedDefault;
    return retVal;
}

bool TaskTest::testSweepOnlyAtDepthZero() {
    bool retVal = false;
    do {
        auto quick = ScriptedTask::factory("quick", {});
        auto nesting = NestingTask::factory([](NestingTask& self) {
            int64_t budget = 1000;
            (void)Task::runActiveTasks(budget);
            self.fObservations.push_back(self.fOther->isTaskCompleted());
            self.fObservations.push_back(isActive(self.fOther));
        });
        nesting->fOther = quick;
        SANITY_CHECK(Task::startTask(quick));
        SANITY_CHECK(Task::startTask(nesting));
        int64_t available = 4000;
        SANITY_CHECK(Task::runActiveTasks(available));
        CHECK_EQUAL(nesting->fObservations.size(), 2u);
        SANITY_CHECK(nesting->fObservations[0]);
        SANITY_CHECK(nesting->fObservations[1]);
        SANITY_CHECK(! isActive(quick));
        SANITY_CHECK(! isActive(nesting));
        retVal = true;
    } while (false);
    return retVal;
}

bool TaskTest::testNestedRunSkipsRecentAndHoldingTasks() {
    bool retVal = false;
    do {
        auto nesting = NestingTask::factory([](NestingTask& self) {
            const size_t before = self.fOther->fBudgets.size();
            int64_t budget = 1000;
            (void)Task::runActiveTasks(budget);
            self.fObservations.push_back(self.fOther->fBudgets.size() == before);
            // Longer ago than one turn of the loop plus its sleep: now it may run.
            advanceMicroseconds(6000);
            (void)Task::runActiveTasks(budget);
            self.fObservations.push_back(self.fOther->fBudgets.size() == before + 1);
        });
        auto other = ScriptedTask::factory("other", {0, 0, 0});
        nesting->fOther = other;
        SANITY_CHECK(Task::startTask(nesting));
        SANITY_CHECK(Task::startTask(other));
        int64_t available = 4000;
        SANITY_CHECK(Task::runActiveTasks(available));
        CHECK_EQUAL(nesting->fObservations.size(), 2u);
        SANITY_CHECK(nesting->fObservations[0]);
        SANITY_CHECK(nesting->fObservations[1]);
        SANITY_CHECK(drainActiveTasks());
        retVal = true;
    } while (false);
    return retVal;
}

bool TaskTest::testRunToCompletionServesOthers() {
    bool retVal = false;
    do {
        auto background = ScriptedTask::factory("background", {0, 0, 0, 0, 0});
        SANITY_CHECK(Task::startTask(background));
        auto caller = ScriptedTask::factory("caller", {0, 0, 0});
        SANITY_CHECK(caller->runToCompletion());
        SANITY_CHECK(caller->isTaskCompleted() && caller->fSuccess);
        CHECK_EQUAL(caller->fBudgets.front(), -1);
        SANITY_CHECK(background->fBudgets.size() >= 3);
        SANITY_CHECK(! caller->isInTimeslice());
        SANITY_CHECK(drainActiveTasks());
        retVal = true;
    } while (false);
    return retVal;
}

bool TaskTest::testChildrenAndNames() {
    bool retVal = false;
    do {
        auto parent = ScriptedTask::factory("parent", {0, 0});
        auto child = ScriptedTask::factory("child", {0, 0, 0, 0});
        parent->registerChildTask(child);
        SANITY_CHECK(child->getParentTask() == parent);
        child->setName("namedChild");
        SANITY_CHECK(Task::getTaskByName("namedChild") == child);
        SANITY_CHECK(Task::startTask(parent));
        SANITY_CHECK(Task::startTask(child));
        // The parent's body ends first, but the parent waits for its child before it completes.
        SANITY_CHECK(drainActiveTasks());
        SANITY_CHECK(child->fSuccess && parent->fSuccess);
        SANITY_CHECK(! Task::getTaskByName("namedChild"));
        SANITY_CHECK(! child->getParentTask());
        CHECK_EQUAL(parent->getChildTaskCount(), 0u);

        // A parent that is told to exit takes its running children with it.
        auto exiting = ScriptedTask::factory("exiting", {0, 0, 0});
        auto orphan = ScriptedTask::factory("orphan", {0, 0, 0, 0, 0, 0});
        exiting->registerChildTask(orphan);
        SANITY_CHECK(exiting->runTimeslice(1000));
        exiting->exit();
        SANITY_CHECK(exiting->runTimeslice(1000));
        SANITY_CHECK(exiting->isTaskCompleted() && orphan->isTaskCompleted());
        SANITY_CHECK(! Task::getTaskById(orphan->getTaskId()));
        retVal = true;
    } while (false);
    return retVal;
}

bool TaskTest::testInteractionLevelsAndNestLevel() {
    bool retVal = false;
    do {
        auto parent = ScriptedTask::factory("levels", {});
        auto child = ScriptedTask::factory("levelsChild", {});
        parent->registerChildTask(child);
        LogLevelScope quiet(0);
        CHECK_EQUAL(static_cast<int>(child->popInteractionLevel()), 0);
        CHECK_EQUAL(child->getInteractionLevel(), ASYNC_IO_INHERIT);
        SANITY_CHECK(! child->usesAsyncIO());
        SANITY_CHECK(parent->pushInteractionLevel(ASYNC_IO_ON));
        SANITY_CHECK(child->usesAsyncIO());
        SANITY_CHECK(child->pushInteractionLevel(ASYNC_IO_OFF));
        SANITY_CHECK(! child->usesAsyncIO());
        CHECK_EQUAL(child->popInteractionLevel(), ASYNC_IO_OFF);
        CHECK_EQUAL(parent->popInteractionLevel(), ASYNC_IO_ON);

        SANITY_CHECK(! child->updateParsingNestLevel(2));
        SANITY_CHECK(! child->updateParsingNestLevel(0));
        SANITY_CHECK(! child->updateParsingNestLevel(-1));
        SANITY_CHECK(child->updateParsingNestLevel(1));
        SANITY_CHECK(child->updateParsingNestLevel(-1));
        CHECK_EQUAL(child->getParsingNestLevel(), 0u);
        SANITY_CHECK(Task::startTask(child));
        SANITY_CHECK(parent->runToCompletion());
        SANITY_CHECK(child->isTaskCompleted());
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
