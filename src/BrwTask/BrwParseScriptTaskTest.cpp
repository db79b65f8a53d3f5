#include "BrwTask/BrwParseScriptTaskTest.h"

#include <vector>

#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwParser/BrwIOStreamPrompted.h"
#include "BrwParser/BrwInputStreamString.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwParser/BrwOutputStreamString.h"
#include "BrwTask/BrwCallTask.h"
#include "BrwTask/BrwParseScriptTask.h"
#include "BrwTask/BrwSessionEvaluator.h"
#include "BrwUtils/BrwClock.h"

namespace Brw {

namespace {

// Lines logged while a case watches. The logger can't forget an observer, so one is added once and
// records only while a case asks it to.
std::vector<std::string>* gRecordedLines = nullptr;

void recordLine(const std::string& line) {
    if (gRecordedLines != nullptr) {
        gRecordedLines->push_back(line);
    }
}

// Runs `provoke` with log lines of `level` and above recorded rather than shown, and script errors
// counted rather than shown; gives the lines.
template <class Function>
std::vector<std::string> recordLogLines(int32_t level, Function provoke) {
    static bool isObserverAdded = false;
    if (! isObserverAdded) {
        Logger::addLineObserver(recordLine);
        isObserverAdded = true;
    }
    const std::string savedLogFile = Logger::getLogFile();
    const std::string savedScriptErrorFile = ScriptErrorLog::getFile();
    std::vector<std::string> lines;
    {
        LogLevelScope logLevel(level);
        Logger::setLogFile("/dev/null");
        ScriptErrorLog::setFile("/dev/null");
        gRecordedLines = &lines;
        provoke();
        gRecordedLines = nullptr;
    }
    ScriptErrorLog::setFile(savedScriptErrorFile);
    Logger::setLogFile(savedLogFile);
    return lines;
}

bool hasLineWith(const std::vector<std::string>& lines, const std::string& text) {
    for (const std::string& line : lines) {
        if (line.find(text) != std::string::npos) {
            return true;
        }
    }
    return false;
}

// The sessions started and not ended yet.
size_t countRunningSessions() {
    size_t count = 0;
    for (const std::shared_ptr<Task>& task : Task::getActiveTasks()) {
        if (std::dynamic_pointer_cast<ParseScriptTask>(task) && ! task->isTaskCompleted()) {
            ++count;
        }
    }
    return count;
}

// Gives the started tasks turns of a millisecond each until `isDone` holds or `seconds` have passed; true
// when it holds.
template <class Predicate>
bool runTasksUntil(Predicate isDone, int64_t seconds) {
    const int64_t deadline = Clock::now() + seconds * 1000000000;
    bool isRunning = true;
    while (isRunning && ! isDone() && Clock::now() < deadline) {
        int64_t budget = 1000;
        isRunning = Task::runActiveTasks(budget);
    }
    return isDone();
}

} // namespace

bool ParseScriptTaskTest::test() {
    REPORT_CLASS_TEST;
    bool retVal = testEchoesAsTheStandardInputMode();
    retVal = testStopEndsTheSessionAndItsInstrumenter() && retVal;
    retVal = testSessionWithoutWaitingEndsAtItsDeadline() && retVal;
    retVal = testOptionsThatAreNoFunctionAreReported() && retVal;
    return retVal;
}

bool ParseScriptTaskTest::testEchoesAsTheStandardInputMode() {
    bool retVal = false;
    do {
        auto callerScope = OMScope::factory(nullptr, OMScope::READS_PARENT);
        SANITY_CHECK(callerScope);
        CHECK_EQUAL(SessionEvaluator::evaluate("base = 40;\n", callerScope), "");
        std::shared_ptr<ParseScriptTask> session;
        // What the standard-input mode prints for this text, byte for byte, after the initial text. Over
        // a string, a line end needs no standard input to be decided, and no check fails.
        const std::vector<std::string> errors = recordLogLines(1, [&] {
            session = ParseScriptTask::factory(
                "function f(a) {\n  return a + 1\n};\nf(1)\nbase + 2\nbase = 1;\nx = 1; y = 2\n"
                "\"a\nb\"\n1+1 // c\n/* z */ 3;\n[1,\n2]\n{a: 1}\n"
                "//@yieldon\n4; 5",
                "so far\n", callerScope);
            if (session && session->start()) {
                runTasksUntil([&] { return session->isTaskCompleted(); }, 5);
            }
        });
        SANITY_CHECK(session);
        SANITY_CHECK(session->isTaskCompleted());
        CHECK_EQUAL(session->getOutput(), "so far\n2\n42\n2\n\"a\nb\"\n2\n[1, 2]\n{ \"a\": 1 }\n4\n5\n");
        CHECK_EQUAL(errors.size(), size_t{0});
        // The session read the caller's variable, and its assignment stayed in its own scope.
        CHECK_EQUAL(SessionEvaluator::evaluate("base\n", callerScope), "40\n");
        retVal = true;
    } while (false);
    return retVal;
}

bool ParseScriptTaskTest::testStopEndsTheSessionAndItsInstrumenter() {
    bool retVal = false;
    do {
        auto callerScope = OMScope::factory(nullptr, OMScope::READS_PARENT);
        auto session = ParseScriptTask::factory("1\nwhile (true) {}\n2\n", "", callerScope);
        SANITY_CHECK(session);
        SANITY_CHECK(session->start());
        SANITY_CHECK(runTasksUntil([&] { return ! session->getOutput().empty(); }, 5));
        // The loop holds the session for as long as it is given turns.
        SANITY_CHECK(! runTasksUntil([&] { return session->isTaskCompleted(); }, 0));
        session->stop();
        SANITY_CHECK(runTasksUntil([&] { return session->isTaskCompleted(); }, 5));
        SANITY_CHECK(session->getInstrumenter()->isTaskCompleted());
        SANITY_CHECK(! Task::getTaskById(session->getTaskId()));
        CHECK_EQUAL(session->getOutput(), "1\n");
        retVal = true;
    } while (false);
    return retVal;
}

bool ParseScriptTaskTest::testSessionWithoutWaitingEndsAtItsDeadline() {
    bool retVal = false;
    do {
        const size_t tasksBefore = Task::getRegisteredTaskCount();
        const size_t sessionsBefore = countRunningSessions();
        const uint64_t reportsBefore = ScriptErrorLog::getReportCount();
        auto callerScope = OMScope::factory(nullptr, OMScope::READS_PARENT);
        std::string echoed;
        recordLogLines(1, [&] {
            echoed = SessionEvaluator::evaluate(
                "parseScript(\"while (true) {}\", undefined, \"noWait\", 300)\n\"after\"\n", callerScope);
        });
        // The caller went on and ended while the endless session ran.
        CHECK_EQUAL(echoed, "true\n\"after\"\n");
        CHECK_EQUAL(countRunningSessions(), sessionsBefore + 1);
        recordLogLines(
            1, [&] { runTasksUntil([&] { return Task::getRegisteredTaskCount() <= tasksBefore; }, 5); });
        CHECK_EQUAL(countRunningSessions(), sessionsBefore);
        SANITY_CHECK(Task::getRegisteredTaskCount() <= tasksBefore);
        CHECK_EQUAL(ScriptErrorLog::getReportCount(), reportsBefore + 1);
        retVal = true;
    } while (false);
    return retVal;
}

bool ParseScriptTaskTest::testOptionsThatAreNoFunctionAreReported() {
    bool retVal = false;
    do {
        auto callerScope = OMScope::factory(nullptr, OMScope::READS_PARENT);
        std::string echoed;
        const std::vector<std::string> lines = recordLogLines(2, [&] {
            echoed = SessionEvaluator::evaluate("parseScript(\"1\", undefined, 1.5, null)\n", callerScope);
        });
        // Neither option is a function, and the session runs all the same.
        CHECK_EQUAL(echoed, "\"1\n\"\n");
        SANITY_CHECK(hasLineWith(lines, "EXPECTED failed: 'callBackFunction' evaluates to false"));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
