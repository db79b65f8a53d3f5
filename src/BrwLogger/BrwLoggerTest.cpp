#include "BrwLogger/BrwLoggerTest.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace Brw {

namespace {

// The logger can't forget an observer, so this one is added once and records only while the test runs.
bool gIsRecording = false;
std::vector<std::string> gRecordedLines;

void recordLine(const std::string& line) {
    if (gIsRecording) {
        gRecordedLines.push_back(line);
        // The test's own failed checks would otherwise end up in a log file that teardown removes.
        if (line.find("Brw::LoggerTest::") != std::string::npos && ! Logger::getLogFile().empty()) {
            fprintf(stderr, "%s\n", line.c_str());
        }
    }
}

// The lines recorded since the last call.
std::vector<std::string> takeRecordedLines() {
    std::vector<std::string> lines;
    lines.swap(gRecordedLines);
    return lines;
}

// The lines of a file, without their line feeds; none when it can't be read.
std::vector<std::string> readLines(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

void removeFile(const std::string& path) {
    std::error_code error;
    std::filesystem::remove(path, error);
}

// True when `text` at `pos` has the shape of a time stamp, "31-12-2024 23:59:59".
bool isTimeStampAt(const std::string& text, size_t pos) {
    static const std::string shape = "00-00-0000 00:00:00";
    bool isStamp = text.size() >= pos + shape.size();
    for (size_t i = 0; isStamp && i < shape.size(); ++i) {
        const char c = text[pos + i];
        isStamp = shape[i] == '0' ? (c >= '0' && c <= '9') : c == shape[i];
    }
    return isStamp;
}

// The text from `pos` on; empty for a shorter text, where substr would throw.
std::string textFrom(const std::string& text, size_t pos) {
    return pos < text.size() ? text.substr(pos) : std::string();
}

// True when `line` is a time stamp followed by exactly `rest`.
bool isStampedLine(const std::string& line, const std::string& rest) {
    return isTimeStampAt(line, 0) && textFrom(line, 19) == rest;
}

// Runs `write` with standard error going into the file at `path`.
template <class Function>
void redirectStandardError(const std::string& path, Function write) {
    fflush(stderr);
    const int savedError = dup(STDERR_FILENO);
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (savedError >= 0 && file >= 0 && dup2(file, STDERR_FILENO) >= 0) {
        write();
        fflush(stderr);
        dup2(savedError, STDERR_FILENO);
    }
    if (file >= 0) {
        close(file);
    }
    if (savedError >= 0) {
        close(savedError);
    }
}

// Types for a cast that fails.
struct Shape {
    virtual ~Shape() = default;
};
struct Circle : Shape {};
struct Square : Shape {};

const char* gCheckFunction = ""; // signature of the last function below that ran

// Each of these fails one check on purpose and says whether control went on behind it.
bool failSanityCheck() {
    gCheckFunction = __PRETTY_FUNCTION__;
    bool isPastCheck = false;
    do {
        const bool x = true;
        SANITY_CHECK(! x);
        isPastCheck = true;
    } while (false);
    return isPastCheck;
}

bool failAssign() {
    gCheckFunction = __PRETTY_FUNCTION__;
    bool isPastCheck = false;
    do {
        std::shared_ptr<Test> test;
        ASSIGN(test, Test::getTest("no such test"));
        isPastCheck = true;
    } while (false);
    return isPastCheck;
}

bool failAssignTyped() {
    gCheckFunction = __PRETTY_FUNCTION__;
    bool isPastCheck = false;
    do {
        std::shared_ptr<Shape> square = std::make_shared<Square>();
        ASSIGN_TYPED(Circle, circle, square);
        isPastCheck = true;
    } while (false);
    return isPastCheck;
}

bool failAssignConstTyped() {
    gCheckFunction = __PRETTY_FUNCTION__;
    bool isPastCheck = false;
    do {
        std::shared_ptr<const Shape> square = std::make_shared<const Square>();
        ASSIGN_CONST_TYPED(Circle, circle, square);
        isPastCheck = true;
    } while (false);
    return isPastCheck;
}

// VERIFY's condition runs once, also when it holds.
bool failVerify(int& calls) {
    gCheckFunction = __PRETTY_FUNCTION__;
    bool isPastCheck = false;
    do {
        VERIFY(++calls > 1);
        isPastCheck = true;
    } while (false);
    return isPastCheck;
}

bool failExpected() {
    gCheckFunction = __PRETTY_FUNCTION__;
    bool isPastCheck = false;
    do {
        const bool x = true;
        EXPECTED(! x);
        isPastCheck = true;
    } while (false);
    return isPastCheck;
}

// Checks that hold go on and log nothing.
bool passAllChecks() {
    bool isPastChecks = false;
    do {
        const bool x = true;
        std::shared_ptr<Shape> circle = std::make_shared<Circle>();
        std::shared_ptr<Shape> assigned;
        SANITY_CHECK(x);
        ASSIGN(assigned, circle);
        ASSIGN_TYPED(Circle, typed, circle);
        VERIFY(x);
        EXPECTED(x);
        isPastChecks = typed.get() == assigned.get();
    } while (false);
    return isPastChecks;
}

// True when `lines` is one line of `label` from the last failing function above, ending in `message`.
bool isOneCheckLine(const std::vector<std::string>& lines, const char* label, const std::string& message) {
    return lines.size() == 1 &&
           isStampedLine(lines[0], std::string(" ") + label + ": in " + gCheckFunction + " " + message);
}

} // namespace

bool LoggerTest::setup() {
    bool retVal = false;
    do {
        static bool isObserverAdded = false;
        if (! isObserverAdded) {
            Logger::addLineObserver(recordLine);
            isObserverAdded = true;
        }
        const char* home = getenv("HOME");
        SANITY_CHECK(home != nullptr);
        std::string pattern = std::string(home) + "/LoggerTest-XXXXXX";
        SANITY_CHECK(mkdtemp(pattern.data()) != nullptr);
        fFolder = pattern;
        fSavedLogLevel = Logger::getLogLevel();
        fSavedLogFile = Logger::getLogFile();
        fSavedIsLogIPC = Logger::getIsLogIPC();
        fSavedIsLogScriptError = Logger::getIsLogScriptError();
        fSavedIsLogTiming = Logger::getIsLogTiming();
        fSavedTimingLogFile = Logger::getTimingLogFile();
        takeRecordedLines();
        gIsRecording = true;
        retVal = true;
    } while (false);
    return retVal;
}

bool LoggerTest::teardown() {
    gIsRecording = false;
    takeRecordedLines();
    // Silent while the flags go back: switching timing on warns.
    Logger::setLogLevel(0);
    Logger::setIsLogTiming(fSavedIsLogTiming);
    Logger::setIsLogIPC(fSavedIsLogIPC);
    Logger::setIsLogScriptError(fSavedIsLogScriptError);
    Logger::setTimingLogFile(fSavedTimingLogFile);
    Logger::setLogFile(fSavedLogFile);
    Logger::setLogLevel(fSavedLogLevel);
    std::error_code error;
    std::filesystem::remove_all(fFolder, error);
    return true;
}

bool LoggerTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = testLineFormat();
    allOK = testLevelGates() && allOK;
    allOK = testObservers() && allOK;
    allOK = testInstrumentationSetters() && allOK;
    allOK = testTimingLines() && allOK;
    allOK = testCheckTexts() && allOK;
    return allOK;
}

bool LoggerTest::testLineFormat() {
    bool retVal = false;
    do {
        const std::string logFile = fFolder + "/format.log";
        Logger::setLogFile(logFile);
        Logger::setLogLevel(4);
        CHECK_EQUAL(Logger::getLogFile(), logFile);
        Logger::logError("file.cpp", 1, "void f(int)", "boom");
        Logger::logWarning("file.cpp", 2, "int g()", "careful");
        Logger::logNote("file.cpp", 3, "h", "");
        Logger::logTrace("file.cpp", 4, "void Brw::A::k(const std::string&) const", "step 'a'");
        const std::vector<std::string> lines = readLines(logFile);
        CHECK_EQUAL(lines.size(), 4u);
        SANITY_CHECK(isStampedLine(lines[0], " ERROR: in void f(int) boom"));
        SANITY_CHECK(isStampedLine(lines[1], " WARN : in int g() careful"));
        SANITY_CHECK(isStampedLine(lines[2], " NOTE : in h "));
        SANITY_CHECK(isStampedLine(lines[3], " TRACE: in void Brw::A::k(const std::string&) const step 'a'"));
        // The observers get the same lines, without the line feed.
        SANITY_CHECK(takeRecordedLines() == lines);
        // Each line opens the file anew: one moved away doesn't swallow the next line.
        removeFile(logFile);
        Logger::logError("file.cpp", 5, "f", "again");
        CHECK_EQUAL(readLines(logFile).size(), 1u);
        takeRecordedLines();
        retVal = true;
    } while (false);
    return retVal;
}

bool LoggerTest::testLevelGates() {
    bool retVal = false;
    do {
        const std::string logFile = fFolder + "/levels.log";
        Logger::setLogFile(logFile);
        Logger::setLogLevel(2);
        CHECK_EQUAL(Logger::getLogLevel(), 2);
        Logger::logError("file.cpp", 1, "f", "1");
        Logger::logWarning("file.cpp", 2, "f", "2");
        Logger::logNote("file.cpp", 3, "f", "3");
        Logger::logTrace("file.cpp", 4, "f", "4");
        const std::vector<std::string> lines = readLines(logFile);
        CHECK_EQUAL(lines.size(), 2u);
        SANITY_CHECK(isStampedLine(lines[0], " ERROR: in f 1"));
        SANITY_CHECK(isStampedLine(lines[1], " WARN : in f 2"));
        // Level 0 writes nothing, not even a failed check, which leaves its block all the same.
        Logger::setLogLevel(0);
        takeRecordedLines();
        const bool isPastCheck = failSanityCheck();
        Logger::logError("file.cpp", 5, "f", "5");
        Logger::setLogLevel(1);
        SANITY_CHECK(! isPastCheck);
        SANITY_CHECK(takeRecordedLines().empty());
        CHECK_EQUAL(readLines(logFile).size(), 2u);
        retVal = true;
    } while (false);
    return retVal;
}

bool LoggerTest::testObservers() {
    bool retVal = false;
    do {
        Logger::setLogLevel(1);
        // A file that can't be opened loses the line, the observers still get it.
        Logger::setLogFile(fFolder + "/no/such/folder/lost.log");
        takeRecordedLines();
        Logger::logError("file.cpp", 1, "f", "lost");
        std::vector<std::string> lines = takeRecordedLines();
        CHECK_EQUAL(lines.size(), 1u);
        SANITY_CHECK(isStampedLine(lines[0], " ERROR: in f lost"));
        // A null observer is not added: the next line neither crashes nor reaches anyone twice.
        Logger::addLineObserver(nullptr);
        Logger::logError("file.cpp", 2, "f", "once");
        CHECK_EQUAL(takeRecordedLines().size(), 1u);
        // An empty path means standard error.
        const std::string errorFile = fFolder + "/stderr.txt";
        Logger::setLogFile("");
        redirectStandardError(errorFile, []() { Logger::logError("file.cpp", 3, "f", "to stderr"); });
        lines = readLines(errorFile);
        CHECK_EQUAL(lines.size(), 1u);
        SANITY_CHECK(isStampedLine(lines[0], " ERROR: in f to stderr"));
        takeRecordedLines();
        retVal = true;
    } while (false);
    return retVal;
}

bool LoggerTest::testInstrumentationSetters() {
    bool retVal = false;
    do {
        std::shared_ptr<ILogger> logger = Logger::instance();
        SANITY_CHECK(logger);
        const std::string logFile = fFolder + "/setters.log";
        Logger::setLogFile(logFile);
        Logger::setLogLevel(4);
        takeRecordedLines();
        // This build has no entry/exit calls: switching them on is an error and changes nothing.
        Logger::setIsLogEntryExit(true);
        std::vector<std::string> lines = takeRecordedLines();
        CHECK_EQUAL(lines.size(), 1u);
        SANITY_CHECK(isStampedLine(lines[0],
                                   " ERROR: in virtual void Brw::LoggerCore::setIsLogEntryExit(bool) code "
                                   "is not instrumented with entry/exit code. Change "
                                   "ADD_LOG_ENTRY_EXIT_CODE and recompile."));
        logger->logEntry("file.cpp", 1, "f");
        logger->logExit("file.cpp", 2, "f");
        Logger::setIsLogEntryExit(false);
        SANITY_CHECK(takeRecordedLines().empty());
        // Timing warns when switched on but is switched on all the same.
        Logger::setIsLogTiming(true);
        lines = takeRecordedLines();
        CHECK_EQUAL(lines.size(), 1u);
        SANITY_CHECK(isStampedLine(lines[0], " WARN : in virtual void Brw::LoggerCore::setIsLogTiming(bool) "
                                             "EXPECTED failed: '! isLogTiming' evaluates to false"));
        SANITY_CHECK(Logger::getIsLogTiming());
        Logger::setIsLogTiming(false);
        SANITY_CHECK(! Logger::getIsLogTiming());
        SANITY_CHECK(takeRecordedLines().empty());
        // The two flags of other layers are only stored.
        Logger::setIsLogIPC(true);
        Logger::setIsLogScriptError(true);
        SANITY_CHECK(Logger::getIsLogIPC() && Logger::getIsLogScriptError());
        Logger::setIsLogIPC(false);
        Logger::setIsLogScriptError(false);
        SANITY_CHECK(! Logger::getIsLogIPC() && ! Logger::getIsLogScriptError());
        CHECK_EQUAL(readLines(logFile).size(), 2u);
        retVal = true;
    } while (false);
    return retVal;
}

bool LoggerTest::testTimingLines() {
    bool retVal = false;
    do {
        std::shared_ptr<ILogger> logger = Logger::instance();
        SANITY_CHECK(logger);
        const std::string timingFile = fFolder + "/timing.log";
        Logger::setTimingLogFile(timingFile);
        CHECK_EQUAL(Logger::getTimingLogFile(), timingFile);
        Logger::setLogLevel(0);
        Logger::setIsLogTiming(false);
        takeRecordedLines();
        logger->logTiming("file.cpp", 1, "void t()", "gated", 1, 2);
        logger->logTimingLine("file.cpp", 2, "void t()", "work", 5, 12);
        logger->logTimingLine("file.cpp", 3, "void t()", "begin", -1, -1);
        Logger::setIsLogTiming(true);
        logger->logTiming("file.cpp", 4, "void t()", "open", 2147483647, 0);
        Logger::setIsLogTiming(false);
        Logger::setLogLevel(1);
        const std::vector<std::string> lines = readLines(timingFile);
        CHECK_EQUAL(lines.size(), 3u);
        // Total, then elapsed, each right-aligned in ten columns; a negative one is blank.
        CHECK_EQUAL(lines[0].substr(0, 22), "        12          5 ");
        SANITY_CHECK(isTimeStampAt(lines[0], 22));
        CHECK_EQUAL(textFrom(lines[0], 41), ": in void t(): elapsed (work)");
        CHECK_EQUAL(lines[1].substr(0, 22), std::string(22, ' '));
        CHECK_EQUAL(textFrom(lines[1], 41), ": in void t(): start (begin)");
        CHECK_EQUAL(lines[2].substr(0, 22), "         0 2147483647 ");
        CHECK_EQUAL(textFrom(lines[2], 41), ": in void t(): elapsed (open)");
        // Timing lines pass no observer.
        SANITY_CHECK(takeRecordedLines().empty());
        retVal = true;
    } while (false);
    return retVal;
}

bool LoggerTest::testCheckTexts() {
    bool retVal = false;
    do {
        Logger::setLogFile(fFolder + "/checks.log");
        Logger::setLogLevel(2);
        takeRecordedLines();
        SANITY_CHECK(! failSanityCheck());
        SANITY_CHECK(
            isOneCheckLine(takeRecordedLines(), "ERROR", "SANITY_CHECK failed: '! x' evaluates to false"));
        SANITY_CHECK(! failAssign());
        SANITY_CHECK(isOneCheckLine(takeRecordedLines(), "ERROR",
                                    "ASSIGN failed: 'test = Test::getTest(\"no such test\");'"));
        SANITY_CHECK(! failAssignTyped());
        SANITY_CHECK(
            isOneCheckLine(takeRecordedLines(), "ERROR", "ASSIGN_TYPED failed: 'Circle circle = square;'"));
        SANITY_CHECK(! failAssignConstTyped());
        SANITY_CHECK(isOneCheckLine(takeRecordedLines(), "ERROR",
                                    "ASSIGN_CONST_TYPED failed: 'Circle circle = square;'"));
        int calls = 0;
        SANITY_CHECK(failVerify(calls));
        CHECK_EQUAL(calls, 1);
        SANITY_CHECK(
            isOneCheckLine(takeRecordedLines(), "ERROR", "VERIFY failed: '++calls > 1' evaluates to false"));
        SANITY_CHECK(failExpected());
        SANITY_CHECK(
            isOneCheckLine(takeRecordedLines(), "WARN ", "EXPECTED failed: '! x' evaluates to false"));
        // EXPECTED is a warning: level 1 drops it.
        Logger::setLogLevel(1);
        SANITY_CHECK(failExpected());
        SANITY_CHECK(takeRecordedLines().empty());
        SANITY_CHECK(passAllChecks());
        SANITY_CHECK(takeRecordedLines().empty());
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
