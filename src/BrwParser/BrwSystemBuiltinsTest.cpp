#include "BrwParser/BrwSystemBuiltinsTest.h"

#include <cstdlib>
#include <vector>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwMain/BrwLogRecorder.h"
#include "BrwParser/BrwOMExpressionLValue.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwParser/BrwOutputStream.h"
#include "BrwTask/BrwCallTask.h"
#include "BrwTask/BrwSessionEvaluator.h"
#include "BrwUtils/BrwClock.h"

namespace Brw {

namespace {

constexpr const char* SET_VARIABLE = "BRW_SYSTEM_BUILTINS_TEST_SET";
constexpr const char* EMPTY_VARIABLE = "BRW_SYSTEM_BUILTINS_TEST_EMPTY";

// The echo of a session over `text`.
std::string runScript(const std::string& text) {
    return SessionEvaluator::evaluate(text, OMScope::factory(nullptr, OMScope::READS_PARENT));
}

// The same, with the time it took in milliseconds.
std::string runTimedScript(const std::string& text, int64_t& elapsedMilliseconds) {
    const int64_t start = Clock::now();
    std::string output = runScript(text);
    elapsedMilliseconds = (Clock::now() - start) / Clock::NANOSECONDS_PER_MILLISECOND;
    return output;
}

// True when a line of the log has the level's label, the function that wrote it, and the message at its end.
bool hasLogLine(const std::vector<std::string>& lines, const std::string& label, const std::string& function,
                const std::string& message) {
    for (const std::string& line : lines) {
        if (line.find(label + ": in ") != std::string::npos &&
            line.find(function + "(") != std::string::npos && line.ends_with(" " + message)) {
            return true;
        }
    }
    return false;
}

// Refuses each text `stallsPerWrite` times before it takes it, and makes the writing task yield at each
// refusal: the writer has to come back in a later slice.
class StallingOutputStream : public OutputStream {
public:
    explicit StallingOutputStream(int stallsPerWrite) : fStallsPerWrite(stallsPerWrite) {}

    bool write(const std::string& text) override {
        if (fStalls < fStallsPerWrite) {
            ++fStalls;
            fTask->yield();
            return false;
        }
        fStalls = 0;
        fText += text;
        return true;
    }

    std::shared_ptr<Task> fTask; // yields at each refusal
    std::string fText;           // what was taken
    int fStallsPerWrite;         // refusals before each text is taken
    int fStalls = 0;             // refusals of the text under way
};

} // namespace

bool SystemBuiltinsTest::setup() {
    fScriptErrors = std::make_unique<ScriptErrorCapture>();
    return fScriptErrors->isCapturing();
}

bool SystemBuiltinsTest::teardown() {
    fScriptErrors.reset();
    unsetenv(SET_VARIABLE);
    unsetenv(EMPTY_VARIABLE);
    return true;
}

bool SystemBuiltinsTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = testSysInfoAndGetEnv();
    allOK = testYield() && allOK;
    allOK = testExitAndStdIn() && allOK;
    allOK = testOutputToAStreamThatStalls() && allOK;
    allOK = testLogLevels() && allOK;
    return allOK;
}

bool SystemBuiltinsTest::testSysInfoAndGetEnv() {
    bool retVal = false;
    const std::string savedScriptFilePath = InternalCoordinator::fScriptFilePath;
    do {
        InternalCoordinator::fScriptFilePath = "/scripts/first.bwq";
        CHECK_EQUAL(runScript("[sysInfo(\"scriptFilePath\"), sysInfo(\"pid\") == sysInfo().pid]\n"),
                    "[\"/scripts/first.bwq\", true]\n");
        // Taken at each call: a map changed by a script is its own, and a changed setting shows.
        InternalCoordinator::fScriptFilePath = "/scripts/second.bwq";
        CHECK_EQUAL(runScript("s = sysInfo(); s.version = \"changed\";\n"
                              "[s.version, sysInfo(\"version\"), sysInfo(\"scriptFilePath\")]\n"),
                    "[\"changed\", \"0.1.1\", \"/scripts/second.bwq\"]\n");
        SANITY_CHECK(setenv(SET_VARIABLE, "a b=c", 1) == 0);
        SANITY_CHECK(setenv(EMPTY_VARIABLE, "", 1) == 0);
        const uint64_t before = ScriptErrorLog::getReportCount();
        // A variable set to nothing is an empty text, not undefined.
        CHECK_EQUAL(runScript(std::string("[getEnv(\"") + SET_VARIABLE + "\"), \"" + SET_VARIABLE +
                              "\".getEnv(), getEnv(\"" + EMPTY_VARIABLE + "\"), getEnv()]\n"),
                    "[\"a b=c\", \"a b=c\", \"\", undefined]\n");
        CHECK_EQUAL(fScriptErrors->errorsSince(before), "insufficient arguments");
        retVal = true;
    } while (false);
    InternalCoordinator::fScriptFilePath = savedScriptFilePath;
    return retVal;
}

// Only bounds that a working wait can't miss: at least its time, and well below the time it was spared.
bool SystemBuiltinsTest::testYield() {
    bool retVal = false;
    do {
        int64_t elapsedMilliseconds = 0;
        CHECK_EQUAL(runTimedScript("yield(0)\n", elapsedMilliseconds), "undefined\n");
        SANITY_CHECK(elapsedMilliseconds >= 1);
        // A true result ends the wait at the first call; the callback is asked once a turn until then.
        CHECK_EQUAL(
            runTimedScript("calls = 0; yield(60000, function() { calls++; return calls >= 3; }); calls\n",
                           elapsedMilliseconds),
            "3\n");
        SANITY_CHECK(elapsedMilliseconds < 60000);
        // A callback that never agrees doesn't hold the wait beyond its time, nor cut it short.
        CHECK_EQUAL(runTimedScript("calls = 0; yield(20, function() { calls++; return false; }); calls > 1\n",
                                   elapsedMilliseconds),
                    "true\n");
        SANITY_CHECK(elapsedMilliseconds >= 20);
        const std::vector<std::string> lines = LogRecorder::record(3, [] { (void)runScript("yield(1)\n"); });
        SANITY_CHECK(LogRecorder::hasLineWith(lines, "init: yieldUntil = "));
        SANITY_CHECK(LogRecorder::hasLineWith(lines, "now = "));
        retVal = true;
    } while (false);
    return retVal;
}

bool SystemBuiltinsTest::testExitAndStdIn() {
    bool retVal = false;
    do {
        // From inside a function the whole task ends: the rest of the line and the next line too.
        CHECK_EQUAL(runScript("function f() { output(\"in\"); exit(); output(\"x\"); }; f(); output(\"y\")\n"
                              "output(\"z\")\n"),
                    "in");
        // The session's own input: the lines behind the statement are read, the rest of the statement's
        // line still runs, a carriage return with a line feed ends one line, and the end gives undefined.
        CHECK_EQUAL(runScript("a = stdIn(); b = stdIn(); c = stdIn(); [a, b, typeof c]\n"
                              "first line\r\n"
                              "\n"),
                    "[\"first line\", \"\", \"undefined\"]\n");
        retVal = true;
    } while (false);
    return retVal;
}

bool SystemBuiltinsTest::testOutputToAStreamThatStalls() {
    bool retVal = false;
    do {
        auto stream = std::make_shared<StallingOutputStream>(2);
        OMExpressionLValueResolution resolution;
        resolution.fResolvedArgumentList =
            std::make_shared<std::vector<std::shared_ptr<IOMNode>>>(std::vector<std::shared_ptr<IOMNode>>{
                OMStored::factory("one "), OMStored::factory(static_cast<OMInt>(2)),
                OMStored::factory(" three")});
        std::shared_ptr<IOMNode> result;
        int entries = 0;
        const std::shared_ptr<OutputStream> outputStream = stream;
        SANITY_CHECK(CallTask::call("test", [&](const std::shared_ptr<Task>& task) {
            ++entries;
            stream->fTask = task;
            OMExpressionLValueToken::ftn_output_yielding(task, result, GET, OMScope::factory(), resolution,
                                                         outputStream);
        }));
        stream->fTask.reset();
        // Every refusal was a slice of its own, and each argument went out once, in order.
        CHECK_EQUAL(stream->fText, "one 2 three");
        CHECK_EQUAL(entries, 7);
        SANITY_CHECK(result && result->getType() == OMType::Undefined);
        retVal = true;
    } while (false);
    return retVal;
}

bool SystemBuiltinsTest::testLogLevels() {
    bool retVal = false;
    do {
        const std::string script = "logError(\"e-text\"); logWarning(\"w-text\"); logNote(\"n-text\"); "
                                   "typeof logTrace(\"t-text\")\n";
        std::string output;
        std::vector<std::string> lines = LogRecorder::record(2, [&] { output = runScript(script); });
        CHECK_EQUAL(output, "\"undefined\"\n");
        // Each line names its level and the built-in that wrote it.
        SANITY_CHECK(hasLogLine(lines, "ERROR", "ftn_logError", "e-text"));
        SANITY_CHECK(hasLogLine(lines, "WARN ", "ftn_logWarning", "w-text"));
        SANITY_CHECK(! LogRecorder::hasLineWith(lines, "n-text"));
        SANITY_CHECK(! LogRecorder::hasLineWith(lines, "t-text"));
        lines = LogRecorder::record(4, [&] { output = runScript(script); });
        SANITY_CHECK(hasLogLine(lines, "NOTE ", "ftn_logNote", "n-text"));
        SANITY_CHECK(hasLogLine(lines, "TRACE", "ftn_logTrace", "t-text"));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
