#include "BrwCoordinator/BrwInternalCoordinatorTest.h"

#include "BrwCoordinator/BrwIdleBackoff.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwTask/BrwYielding.h"

namespace Brw {

namespace {

// Counts its slices and ends after `rounds` of them.
class CountingTask : public Task {
public:
    explicit CountingTask(int rounds) : Task("CountingTask", -2, nullptr), fRounds(rounds) {}

    void timeslice() override { count_yielding(shared_from_this(), fSuccess); }

    void count_yielding(const std::shared_ptr<Task>& task, bool& success) {
        struct LocalVariableState : OMFunctionState {};
        YIELDING_BEGIN(LocalVariableState, frame, success = false);
        while (fSlices < fRounds) {
            ++fSlices;
            YIELDING_WAIT(task->yield());
        }
        success = true;
        YIELDING_END;
    }

    int fSlices = 0;
    bool fSuccess = false;

private:
    int fRounds;
};

} // namespace

bool InternalCoordinatorTest::classTest() {
    bool retVal = false;
    do {
        SANITY_CHECK(ObjectTest_abstract::classTest());
        bool allOK = testIdleBackoff();
        allOK = testEventLoopServesStartedTasks() && allOK;
        allOK = testCommandLine() && allOK;
        SANITY_CHECK(allOK);
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinatorTest::testIdleBackoff() {
    bool retVal = false;
    do {
        constexpr int64_t MS = 1000000;
        IdleBackoff backoff;
        int64_t now = 1000 * MS;
        backoff.reportActivity();
        CHECK_EQUAL(backoff.nextSleepMicroseconds(now, 500), 0);
        // Two turns after the traffic the loop still doesn't sleep.
        backoff.countTurn();
        CHECK_EQUAL(backoff.nextSleepMicroseconds(now, 500), 0);
        backoff.countTurn();
        CHECK_EQUAL(backoff.nextSleepMicroseconds(now, 500), 0);
        CHECK_EQUAL(backoff.nextSleepMicroseconds(now + 1 * MS, 500), 0);
        CHECK_EQUAL(backoff.nextSleepMicroseconds(now + 2 * MS, 500), 500);
        CHECK_EQUAL(backoff.nextSleepMicroseconds(now + 5000 * MS, 500), 500);
        CHECK_EQUAL(backoff.nextSleepMicroseconds(now + 5001 * MS, 500), 2500);
        CHECK_EQUAL(backoff.nextSleepMicroseconds(now + 30001 * MS, 500), 5000);
        // One report brings the sleep back to 0 for at least two turns, and the steps start anew.
        now += 40000 * MS;
        backoff.reportActivity();
        CHECK_EQUAL(backoff.nextSleepMicroseconds(now, 500), 0);
        backoff.countTurn();
        CHECK_EQUAL(backoff.nextSleepMicroseconds(now + 100 * MS, 500), 0);
        backoff.countTurn();
        CHECK_EQUAL(backoff.nextSleepMicroseconds(now + 100 * MS, 500), 0);
        CHECK_EQUAL(backoff.nextSleepMicroseconds(now + 102 * MS, 500), 500);
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinatorTest::testEventLoopServesStartedTasks() {
    bool retVal = false;
    do {
        ASSIGN_TYPED(InternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        auto task = std::make_shared<CountingTask>(5);
        Task::registerTask(task);
        SANITY_CHECK(Task::startTask(task));
        const uint64_t roundsBefore = internalCoordinator->getRoundCounter();
        for (int turn = 0; turn < 200 && ! task->isTaskCompleted(); ++turn) {
            SANITY_CHECK(internalCoordinator->runEventLoop(InternalCoordinator::getEventLoopMicroseconds()));
        }
        SANITY_CHECK(task->isTaskCompleted() && task->fSuccess);
        CHECK_EQUAL(task->fSlices, 5);
        SANITY_CHECK(internalCoordinator->getRoundCounter() > roundsBefore);
        // A loop with no time at all comes back at once, with the main task still running.
        SANITY_CHECK(internalCoordinator->runEventLoop(0));
        SANITY_CHECK(! internalCoordinator->getMainTask()->isTaskCompleted());
        SANITY_CHECK(! internalCoordinator->isTerminatingAndIdle());
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinatorTest::testCommandLine() {
    bool retVal = false;
    const int64_t savedDelay = InternalCoordinator::fDelayQuitMicroseconds;
    const std::string savedShortName = InternalCoordinator::fCoordinatorShortName;
    do {
        LogLevelScope quiet(0);
        SANITY_CHECK(InternalCoordinator::processCmdLineArg('w', {"250"}));
        CHECK_EQUAL(InternalCoordinator::fDelayQuitMicroseconds, 250000);
        SANITY_CHECK(! InternalCoordinator::processCmdLineArg('w', {"2.5"}));
        SANITY_CHECK(! InternalCoordinator::processCmdLineArg('w', {}));
        // A number too large for its switch counts as no number: the setting stays as it was.
        SANITY_CHECK(! InternalCoordinator::processCmdLineArg('w', {"99999999999999999999"}));
        SANITY_CHECK(! InternalCoordinator::processCmdLineArg('w', {"9223372036854775807"}));
        CHECK_EQUAL(InternalCoordinator::fDelayQuitMicroseconds, 250000);
        const int32_t savedEcho = InternalCoordinator::fConsoleEcho;
        SANITY_CHECK(! InternalCoordinator::processCmdLineArg('e', {"4294967297"}));
        CHECK_EQUAL(InternalCoordinator::fConsoleEcho, savedEcho);
        // An echo mode above 3 is 0.
        SANITY_CHECK(InternalCoordinator::processCmdLineArg('e', {"7"}));
        CHECK_EQUAL(InternalCoordinator::fConsoleEcho, 0);
        InternalCoordinator::fConsoleEcho = savedEcho;
        CHECK_EQUAL(InternalCoordinator::urlMapCoordinatorName("reflector"),
                    "net.braidwell.coordinator.reflector");
        CHECK_EQUAL(InternalCoordinator::urlMapCoordinatorName("net.braidwell.coordinator.x"),
                    "net.braidwell.coordinator.x");
        SANITY_CHECK(! InternalCoordinator::processCmdLineArg('N', {}));
        SANITY_CHECK(! InternalCoordinator::processCmdLineArg('y', {}));
        // A stray word behind a switch voids its argument, so the switch is refused and changes nothing.
        char program[] = "braidwell";
        char w[] = "-w";
        char value[] = "100";
        char stray[] = "stray";
        char* argv[] = {program, w, value, stray, nullptr};
        SANITY_CHECK(InternalCoordinator::parseCommandLineArgs(4, argv));
        CHECK_EQUAL(InternalCoordinator::fDelayQuitMicroseconds, 250000);
        char* argvGood[] = {program, w, value, nullptr};
        SANITY_CHECK(InternalCoordinator::parseCommandLineArgs(3, argvGood));
        CHECK_EQUAL(InternalCoordinator::fDelayQuitMicroseconds, 100000);
        retVal = true;
    } while (false);
    InternalCoordinator::fDelayQuitMicroseconds = savedDelay;
    InternalCoordinator::fCoordinatorShortName = savedShortName;
    return retVal;
}

} // namespace Brw
