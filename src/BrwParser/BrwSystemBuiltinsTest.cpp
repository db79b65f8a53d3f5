#include "BrwParser/BrwSystemBuiltinsTest.h"

#include <cstdlib>
#include <unistd.h>
#include <vector>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwMain/BrwLogRecorder.h"
#include "BrwParser/BrwOMAccessor.h"
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
constexpr const char* UNSET_VARIABLE = "BRW_SYSTEM_BUILTINS_TEST_UNSET";

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

// True when one line holds both texts: a level's label and a message.
bool hasLineWithBoth(const std::vector<std::string>& lines, const std::string& first,
                     const std::string& second) {
    for (const std::string& line : lines) {
        if (line.find(first) != std::string::npos && line.find(second) != std::string::npos) {
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
            if (fTask) {
                fTask->yield();
            }
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
    bool allOK = testSysInfo();
    allOK = testSysInfoIsTakenAtEachCall() && allOK;
    allOK = testGetEnv() && allOK;
    allOK = testYieldWaits() && allOK;
    allOK = testYieldCallBack() && allOK;
    allOK = testExit() && allOK;
    allOK = testOutput() && allOK;
    allOK = testOutputToAStreamThatStalls() && allOK;
    allOK = testStdIn() && allOK;
    allOK = testLogLevels() && allOK;
    return allOK;
}

bool SystemBuiltinsTest::testSysInfo() {
    bool retVal = false;
    do {
        CHECK_EQUAL(
            runScript("sysInfo(\"platform\")\n"
                      "sysInfo().isLinux\n"
                      "[sysInfo(\"isWindows\"), sysInfo(\"isMac\"), sysInfo(\"isEmbedded\")]\n"
                      "[sysInfo(\"version\"), sysInfo(\"buildNumber\"), \"pathSeparator\".sysInfo()]\n"
                      "keys(sysInfo())\n"
                      "sysInfo(\"noSuchKey\")\n"),
            "\"linux\"\ntrue\n[false, false, false]\n[\"0.1.1\", 1, \"/\"]\n"
            "[\"buildDate\", \"buildNumber\", \"buildTime\", \"isEmbedded\", \"isLinux\", \"isMac\", "
            "\"isWindows\", \"pathSeparator\", \"pid\", \"pipeFolderPath\", \"platform\", "
            "\"remoteCoordinatorURL\", \"scriptFilePath\", \"sessionDataFolderPath\", "
            "\"sessionDataPath\", \"version\"]\n"
            "undefined\n");
        std::shared_ptr<InternalCoordinator> internalCoordinator;
        ASSIGN(internalCoordinator,
               std::dynamic_pointer_cast<Brw::InternalCoordinator>(Brw::InternalCoordinator::factory()));
        const OMAccessor sysInfo(internalCoordinator->buildSysInfo());
        CHECK_EQUAL(sysInfo.getInt("pid"), static_cast<OMInt>(getpid()));
        CHECK_EQUAL(sysInfo.getString("pipeFolderPath"), InternalCoordinator::getPipeFolderPath());
        CHECK_EQUAL(sysInfo.getString("sessionDataFolderPath"),
                    InternalCoordinator::getSessionDataFolderPath());
        CHECK_EQUAL(sysInfo.getString("sessionDataPath"), InternalCoordinator::getSessionDataPath());
        // The compiler's forms: "Oct 29 2023" and "23:58:42".
        CHECK_EQUAL(sysInfo.getString("buildDate").size(), size_t{11});
        CHECK_EQUAL(sysInfo.getString("buildTime").size(), size_t{8});
        retVal = true;
    } while (false);
    return retVal;
}

bool SystemBuiltinsTest::testSysInfoIsTakenAtEachCall() {
    bool retVal = false;
    const std::string savedScriptFilePath = InternalCoordinator::fScriptFilePath;
    const std::string savedRemoteCoordinatorURL = InternalCoordinator::fRemoteCoordinatorURL;
    do {
        InternalCoordinator::fScriptFilePath = "/scripts/first.bwq";
        InternalCoordinator::fRemoteCoordinatorURL = "brw:////first";
        CHECK_EQUAL(runScript("[sysInfo(\"scriptFilePath\"), sysInfo().remoteCoordinatorURL]\n"),
                    "[\"/scripts/first.bwq\", \"brw:////first\"]\n");
        InternalCoordinator::fScriptFilePath = "/scripts/second.bwq";
        // A map changed by a script is its own: the next call builds a new one.
        CHECK_EQUAL(runScript("s = sysInfo(); s.version = \"changed\"; s.version\n"
                              "[sysInfo(\"version\"), sysInfo(\"scriptFilePath\")]\n"),
                    "\"changed\"\n[\"0.1.1\", \"/scripts/second.bwq\"]\n");
        retVal = true;
    } while (false);
    InternalCoordinator::fScriptFilePath = savedScriptFilePath;
    InternalCoordinator::fRemoteCoordinatorURL = savedRemoteCoordinatorURL;
    return retVal;
}

bool SystemBuiltinsTest::testGetEnv() {
    bool retVal = false;
    do {
        SANITY_CHECK(setenv(SET_VARIABLE, "a b=c", 1) == 0);
        SANITY_CHECK(setenv(EMPTY_VARIABLE, "", 1) == 0);
        SANITY_CHECK(unsetenv(UNSET_VARIABLE) == 0);
        const uint64_t before = ScriptErrorLog::getReportCount();
        CHECK_EQUAL(runScript(std::string("getEnv(\"") + SET_VARIABLE + "\")\n" + "\"" + SET_VARIABLE +
                              "\".getEnv()\n" + "getEnv(\"" + EMPTY_VARIABLE + "\")\n" + "getEnv(\"" +
                              UNSET_VARIABLE + "\")\n" + "getEnv()\n"),
                    "\"a b=c\"\n\"a b=c\"\n\"\"\nundefined\nundefined\n");
        CHECK_EQUAL(fScriptErrors->errorsSince(before), "insufficient arguments");
        retVal = true;
    } while (false);
    return retVal;
}

bool SystemBuiltinsTest::testYieldWaits() {
    bool retVal = false;
    do {
        int64_t elapsedMilliseconds = 0;
        // No time, a time below 1 and one that is no number all wait the shortest time.
        for (const char* script : {"yield(0)\n", "yield()\n", "yield(-5, 7)\n", "yield(\"x\")\n"}) {
            CHECK_EQUAL(runTimedScript(script, elapsedMilliseconds), "undefined\n");
            SANITY_CHECK(elapsedMilliseconds >= 1);
        }
        CHECK_EQUAL(runTimedScript("yield(30); \"after\"\n", elapsedMilliseconds), "\"after\"\n");
        SANITY_CHECK(elapsedMilliseconds >= 30);
        const std::vector<std::string> lines = LogRecorder::record(3, [] { (void)runScript("yield(1)\n"); });
        SANITY_CHECK(LogRecorder::hasLineWith(lines, "init: yieldUntil = "));
        SANITY_CHECK(LogRecorder::hasLineWith(lines, "now = "));
        retVal = true;
    } while (false);
    return retVal;
}

bool SystemBuiltinsTest::testYieldCallBack() {
    bool retVal = false;
    do {
        int64_t elapsedMilliseconds = 0;
        // A true result ends the wait at once, long before its time.
        CHECK_EQUAL(runTimedScript("calls = 0; yield(1000, function() { calls++; return true; }); calls\n",
                                   elapsedMilliseconds),
                    "1\n");
        SANITY_CHECK(elapsedMilliseconds < 1000);
        // The callback is asked once a turn until it agrees; any true value counts.
        CHECK_EQUAL(
            runTimedScript("calls = 0; yield(60000, function() { calls++; return calls >= 3 ? 1 : 0; }); "
                           "calls\n",
                           elapsedMilliseconds),
            "3\n");
        SANITY_CHECK(elapsedMilliseconds < 60000);
        // A callback that never agrees doesn't hold the wait beyond its time.
        CHECK_EQUAL(runTimedScript("calls = 0; yield(20, function() { calls++; return false; }); calls > 0\n",
                                   elapsedMilliseconds),
                    "true\n");
        SANITY_CHECK(elapsedMilliseconds >= 20);
        retVal = true;
    } while (false);
    return retVal;
}

bool SystemBuiltinsTest::testExit() {
    bool retVal = false;
    do {
        CHECK_EQUAL(runScript("output(\"a\"); exit(); output(\"b\")\noutput(\"c\")\n"), "a");
        // From inside a function the whole task ends, not only the call.
        CHECK_EQUAL(
            runScript("function f() { output(\"in\"); exit(); output(\"x\"); }; f(); output(\"y\")\n"), "in");
        retVal = true;
    } while (false);
    return retVal;
}

bool SystemBuiltinsTest::testOutput() {
    bool retVal = false;
    do {
        // Each argument's string form, nothing between them and no line end; the value is undefined.
        CHECK_EQUAL(runScript("output(\"a\", 1, 2.5, [1, 2], {k: true}, undefined, null, \"\\n\");\n"
                              "output()\n"
                              "x = 4; \"v=\".output(x * 2); output(\"\\n\")\n"),
                    "a12.5000001,2{ \"k\": true }undefinednull\nundefined\nv=8\nundefined\n");
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

bool SystemBuiltinsTest::testStdIn() {
    bool retVal = false;
    do {
        // The session's own input: the lines behind the statement are read, the rest of the statement's
        // line still runs, and a carriage return with a line feed ends one line.
        CHECK_EQUAL(runScript("a = stdIn(); b = stdIn()\n"
                              "first line\r\n"
                              "\n"
                              "[a, b]\n"
                              "c = stdIn(); typeof c\n"),
                    "\"\"\n[\"first line\", \"\"]\n\"undefined\"\n");
        CHECK_EQUAL(runScript("last = stdIn()\nno line end"), "\"no line end\"\n");
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
        SANITY_CHECK(hasLineWithBoth(lines, "ERROR: in ", "e-text"));
        SANITY_CHECK(hasLineWithBoth(lines, "WARN : in ", "w-text"));
        SANITY_CHECK(! LogRecorder::hasLineWith(lines, "n-text"));
        SANITY_CHECK(! LogRecorder::hasLineWith(lines, "t-text"));
        lines = LogRecorder::record(4, [&] { output = runScript(script); });
        SANITY_CHECK(hasLineWithBoth(lines, "NOTE : in ", "n-text"));
        SANITY_CHECK(hasLineWithBoth(lines, "TRACE: in ", "t-text"));
        // The line names the built-in that wrote it.
        SANITY_CHECK(hasLineWithBoth(lines, "ftn_logTrace", "t-text"));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
