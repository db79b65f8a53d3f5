#include "BrwTask/BrwYieldingTest.h"

#include <functional>
#include <string>
#include <vector>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwTask/BrwYielding.h"
#include "BrwUtils/BrwClock.h"

namespace Brw {

namespace {

// A task whose body is whatever the test hands it.
class BodyTask : public Task {
public:
    using Body = std::function<void(const std::shared_ptr<Task>& task)>;

    explicit BodyTask(Body body) : Task("BodyTask", -2, nullptr), fBody(std::move(body)) {}

    static std::shared_ptr<BodyTask> factory(Body body) {
        auto task = std::make_shared<BodyTask>(std::move(body));
        Task::registerTask(task);
        return task;
    }

    void timeslice() override { fBody(shared_from_this()); }

private:
    Body fBody;
};

// A source of characters that has nothing to give now and then (-2), like a person typing.
struct SlowSource {
    std::string fText;       // what will arrive
    size_t fPos = 0;         // next character to hand out
    int fPollsUntilNext = 0; // polls that still find nothing
    int fGapPolls = 2;       // polls with nothing before each character

    int getChar() {
        if (fPos >= fText.size()) {
            return -1;
        }
        if (fPollsUntilNext > 0) {
            --fPollsUntilNext;
            return -2;
        }
        return static_cast<unsigned char>(fText[fPos]);
    }
    void next() {
        ++fPos;
        fPollsUntilNext = fGapPolls;
    }
};

// The character read of a stream: a missing character is a wait with a sleep, after which the reader
// is handed -2 and comes back later.
void getChar_yielding(const std::shared_ptr<Task>& task, int& c, SlowSource& source) {
    struct LocalVariableState : OMFunctionState {
        int ch = -2;
    };
    YIELDING_BEGIN(LocalVariableState, frame, c = -2);
    task->setWaitingForInput(true);
    frame->ch = source.getChar();
    task->setWaitingForInput(frame->ch == -2);
    if (frame->ch != -2) {
        c = frame->ch;
        YIELDING_FINISH;
    }
    YIELDING_WAIT(task->yieldAndSleep());
    c = -2;
    YIELDING_END;
}

// Reads the whole source into `line`, waiting as often as the source makes it.
void readAll_yielding(const std::shared_ptr<Task>& task, std::string& line, SlowSource& source) {
    struct LocalVariableState : OMFunctionState {
        int c = -2;
    };
    YIELDING_BEGIN(LocalVariableState, frame, line.clear());
    for (;;) {
        YIELDING_CALL(getChar_yielding(task, frame->c, source));
        if (frame->c == -1) {
            break;
        }
        if (frame->c >= 0) {
            line.push_back(static_cast<char>(frame->c));
            source.next();
        }
    }
    YIELDING_END;
}

// Three levels deep; the innermost waits `waits` times in its middle. Each level logs its steps.
void inner_yielding(const std::shared_ptr<Task>& task, int& result, int waits, std::vector<std::string>& log,
                    bool failAfterWait) {
    struct LocalVariableState : OMFunctionState {
        int waited = 0;
    };
    YIELDING_BEGIN(LocalVariableState, frame, result = 0);
    log.push_back("inner begin");
    while (frame->waited < waits) {
        ++frame->waited;
        YIELDING_WAIT(task->yield());
        log.push_back("inner resumed");
    }
    YIELDING_CHECK(! failAfterWait);
    log.push_back("inner end");
    result = 7;
    YIELDING_END;
}

void middle_yielding(const std::shared_ptr<Task>& task, int& result, int waits, std::vector<std::string>& log,
                     bool failAfterWait) {
    struct LocalVariableState : OMFunctionState {
        int innerResult = 0;
    };
    YIELDING_BEGIN(LocalVariableState, frame, result = 0);
    log.push_back("middle begin");
    YIELDING_CALL(inner_yielding(task, frame->innerResult, waits, log, failAfterWait));
    YIELDING_CHECK(frame->innerResult == 7);
    log.push_back("middle end");
    result = frame->innerResult * 10;
    YIELDING_END;
}

void outer_yielding(const std::shared_ptr<Task>& task, bool& success, int waits,
                    std::vector<std::string>& log, bool failAfterWait) {
    struct LocalVariableState : OMFunctionState {
        int middleResult = 0;
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    log.push_back("outer begin");
    YIELDING_CALL(middle_yielding(task, frame->middleResult, waits, log, failAfterWait));
    YIELDING_CHECK(frame->middleResult == 70);
    log.push_back("outer end");
    success = true;
    YIELDING_END;
}

// Runs slices until the task completes; the number of slices it took.
int slicesToComplete(const std::shared_ptr<Task>& task) {
    int slices = 0;
    while (! task->isTaskCompleted() && slices < 1000) {
        ++slices;
        if (! task->runTimeslice(1000000)) {
            break;
        }
    }
    return slices;
}

} // namespace

bool YieldingTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = true;
    allOK = testCharacterSourceExample() && allOK;
    allOK = testNestedCalleesResumeMidway() && allOK;
    allOK = testCalleeFinishingAtOnceCostsNoYield() && allOK;
    allOK = testCheckFailingThreeDeepMidSlice() && allOK;
    allOK = testCheckInsideLoopEndsTheFunction() && allOK;
    allOK = testSliceEndingBetweenStepsResumesThere() && allOK;
    return allOK;
}

bool YieldingTest::testCharacterSourceExample() {
    bool retVal = false;
    do {
        SlowSource source{"abc"};
        std::string line;
        int64_t savedSleep = InternalCoordinator::fEventLoopSleepMicroseconds;
        InternalCoordinator::fEventLoopSleepMicroseconds = 0;
        auto task = BodyTask::factory(
            [&](const std::shared_ptr<Task>& self) { readAll_yielding(self, line, source); });
        const int slices = slicesToComplete(task);
        InternalCoordinator::fEventLoopSleepMicroseconds = savedSleep;
        CHECK_EQUAL(line, "abc");
        // Two empty polls before each of the last two characters: one slice each, plus the final one.
        CHECK_EQUAL(slices, 5);
        CHECK_EQUAL(task->getFunctionStateCount(), 0u);
        retVal = true;
    } while (false);
    return retVal;
}

bool YieldingTest::testNestedCalleesResumeMidway() {
    bool retVal = false;
    do {
        std::vector<std::string> log;
        bool success = false;
        size_t framesWhileWaiting = 0;
        auto task = BodyTask::factory([&](const std::shared_ptr<Task>& self) {
            outer_yielding(self, success, 2, log, false);
            framesWhileWaiting = std::max(framesWhileWaiting, self->getFunctionStateCount());
        });
        SANITY_CHECK(task->runTimeslice(1000000));
        CHECK_EQUAL(task->getFunctionStateCount(), 3u);
        CHECK_EQUAL(log.size(), 3u);
        SANITY_CHECK(! success);
        CHECK_EQUAL(slicesToComplete(task), 2);
        SANITY_CHECK(success);
        const std::vector<std::string> expected = {"outer begin",   "middle begin",  "inner begin",
                                                   "inner resumed", "inner resumed", "inner end",
                                                   "middle end",    "outer end"};
        SANITY_CHECK(log == expected);
        CHECK_EQUAL(framesWhileWaiting, 3u);
        CHECK_EQUAL(task->getFunctionStateCount(), 0u);
        retVal = true;
    } while (false);
    return retVal;
}

bool YieldingTest::testCalleeFinishingAtOnceCostsNoYield() {
    bool retVal = false;
    do {
        std::vector<std::string> log;
        bool success = false;
        auto task = BodyTask::factory(
            [&](const std::shared_ptr<Task>& self) { outer_yielding(self, success, 0, log, false); });
        CHECK_EQUAL(slicesToComplete(task), 1);
        SANITY_CHECK(success);
        CHECK_EQUAL(log.size(), 6u);
        retVal = true;
    } while (false);
    return retVal;
}

bool YieldingTest::testCheckFailingThreeDeepMidSlice() {
    bool retVal = false;
    do {
        std::vector<std::string> log;
        bool success = true;
        auto task = BodyTask::factory(
            [&](const std::shared_ptr<Task>& self) { outer_yielding(self, success, 1, log, true); });
        SANITY_CHECK(task->runTimeslice(1000000));
        CHECK_EQUAL(task->getFunctionStateCount(), 3u);
        {
            LogLevelScope quiet(0);
            SANITY_CHECK(task->runTimeslice(1000000));
        }
        // Every level saw its callee fail: no "end" line ran, no frame is left, the task is done.
        SANITY_CHECK(! success);
        const std::vector<std::string> expected = {"outer begin", "middle begin", "inner begin",
                                                   "inner resumed"};
        SANITY_CHECK(log == expected);
        CHECK_EQUAL(task->getFunctionStateCount(), 0u);
        SANITY_CHECK(task->isTaskCompleted());
        retVal = true;
    } while (false);
    return retVal;
}

// The shape of the example at the top of BrwYielding.h: a check inside a loop, `success = true` behind
// the loop. A failed check must end the function there, in the slice where the callee was called and in
// the slice after a wait.
bool YieldingTest::testCheckInsideLoopEndsTheFunction() {
    bool retVal = false;
    do {
        for (const bool waitFirst : {false, true}) {
            std::vector<std::string> log;
            bool success = true;
            auto body = [&](const std::shared_ptr<Task>& task) {
                struct LocalVariableState : OMFunctionState {
                    int i = 0;
                    bool ok = false;
                };
                YIELDING_BEGIN(LocalVariableState, frame, success = false);
                while (frame->i < 3) {
                    if (waitFirst) {
                        YIELDING_WAIT(task->yield());
                    }
                    frame->ok = frame->i < 1;
                    YIELDING_CHECK(frame->ok);
                    log.push_back("looped");
                    ++frame->i;
                }
                log.push_back("after loop");
                success = true;
                YIELDING_END;
            };
            auto task = BodyTask::factory(body);
            {
                LogLevelScope quiet(0);
                CHECK_EQUAL(slicesToComplete(task), waitFirst ? 3 : 1);
            }
            SANITY_CHECK(! success);
            const std::vector<std::string> expected = {"looped"};
            SANITY_CHECK(log == expected);
            CHECK_EQUAL(task->getFunctionStateCount(), 0u);
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool YieldingTest::testSliceEndingBetweenStepsResumesThere() {
    bool retVal = false;
    do {
        std::vector<int> order;
        int64_t fakeNow = 1000000000;
        static int64_t* clock = nullptr;
        clock = &fakeNow;
        Clock::setSource([] { return *clock; });
        auto body = [&](const std::shared_ptr<Task>& task) {
            struct LocalVariableState : OMFunctionState {
                int i = 0;
            };
            YIELDING_BEGIN(LocalVariableState, frame, (void)0);
            for (frame->i = 0; frame->i < 6; ++frame->i) {
                order.push_back(frame->i);
                fakeNow += 400000; // 400 microseconds of work per step
                YIELDING_STEP;
            }
            YIELDING_END;
        };
        auto task = BodyTask::factory(body);
        int slices = 0;
        while (! task->isTaskCompleted() && slices < 100) {
            ++slices;
            (void)task->runTimeslice(1000);
        }
        Clock::setSource(nullptr);
        const std::vector<int> expected = {0, 1, 2, 3, 4, 5};
        SANITY_CHECK(order == expected);
        // Three steps of 400 microseconds fill a slice of 1000; the third slice only finds the loop's end.
        CHECK_EQUAL(slices, 3);
        retVal = true;
    } while (false);
    Clock::setSource(nullptr);
    return retVal;
}

} // namespace Brw
