#include "BrwLogger/BrwLogger.h"

#include <cstdio>

#include "BrwLogger/BrwCheck.h"
#include "BrwUtils/BrwUtils.h"

namespace Brw {

namespace {

// The slot outlives static destruction, so that a destructor logging late at exit finds it empty or
// alive, never destroyed.
std::shared_ptr<ILogger>& loggerSlot() {
    static auto* slot = new std::shared_ptr<ILogger>();
    return *slot;
}
bool gIsLoggerCreated = false; // one-shot: once destroyed, the logger never comes back

// Opens the file at `path`, or standard error for an empty path. Null when the file can't be opened.
FILE* openLogOutput(const std::string& path) {
    return path.empty() ? stderr : fopen(path.c_str(), "a");
}

void closeLogOutput(FILE* output) {
    if (output != nullptr && output != stderr) {
        fclose(output);
    }
}

// Ten columns, right-aligned; a negative number leaves them blank, a longer one keeps its low digits.
std::string timingColumn(int32_t number) {
    static const std::string tenBlanks = "          ";
    std::string column = tenBlanks;
    if (number >= 0) {
        column += std::to_string(number);
    }
    return column.substr(column.size() - 10);
}

} // namespace

void LoggerCore::addLineObserver(LogLineObserver observer) {
    if (observer != nullptr) {
        fLineObservers.push_back(observer);
    }
}

void LoggerCore::logEntry(const char* file, int32_t line, const char* function) {
    if (fIsLogEntryExit) {
        logLine("ENTRY >>>", file, line, function, "");
    }
}

void LoggerCore::logExit(const char* file, int32_t line, const char* function) {
    if (fIsLogEntryExit) {
        logLine("<<<  EXIT", file, line, function, "");
    }
}

void LoggerCore::logError(const char* file, int32_t line, const char* function, const char* message) {
    if (fLogLevel >= 1) {
        logLine("ERROR", file, line, function, message);
    }
}

void LoggerCore::logWarning(const char* file, int32_t line, const char* function, const char* message) {
    if (fLogLevel >= 2) {
        logLine("WARN ", file, line, function, message);
    }
}

void LoggerCore::logNote(const char* file, int32_t line, const char* function, const char* message) {
    if (fLogLevel >= 3) {
        logLine("NOTE ", file, line, function, message);
    }
}

void LoggerCore::logTrace(const char* file, int32_t line, const char* function, const char* message) {
    if (fLogLevel >= 4) {
        logLine("TRACE", file, line, function, message);
    }
}

void LoggerCore::logLine(const char* label, const char*, int32_t, const char* function, const char* message) {
    std::string composed = Utils::getTimeStamp();
    composed += ' ';
    composed += label;
    composed += ": in ";
    composed += function;
    composed += ' ';
    composed += message;
    FILE* output = openLogOutput(fLogFile);
    for (LogLineObserver observer : fLineObservers) {
        observer(composed);
    }
    if (output != nullptr) {
        fwrite(composed.data(), 1, composed.size(), output);
        fputc('\n', output);
    }
    closeLogOutput(output);
}

void LoggerCore::logTiming(const char* file, int32_t line, const char* function, const char* message,
                           int32_t elapsed, int32_t total) {
    if (fIsLogTiming) {
        logTimingLine(file, line, function, message, elapsed, total);
    }
}

void LoggerCore::logTimingLine(const char*, int32_t, const char* function, const char* message,
                               int32_t elapsed, int32_t total) {
    std::string timeStamp = Utils::getTimeStamp();
    FILE* output = openLogOutput(fTimingLogFile);
    if (output != nullptr) {
        const char* format =
            elapsed < 0 ? "%s %s %s: in %s: start (%s)\n" : "%s %s %s: in %s: elapsed (%s)\n";
        fprintf(output, format, timingColumn(total).c_str(), timingColumn(elapsed).c_str(), timeStamp.c_str(),
                function, message);
    }
    closeLogOutput(output);
}

void LoggerCore::setIsLogEntryExit(bool isLogEntryExit) {
    if (isLogEntryExit) {
        logError(
            __FILE__, __LINE__, __PRETTY_FUNCTION__,
            "code is not instrumented with entry/exit code. Change ADD_LOG_ENTRY_EXIT_CODE and recompile.");
    }
}

void LoggerCore::setIsLogTiming(bool isLogTiming) {
    // NOTE: warns but stores the flag all the same, unlike setIsLogEntryExit.
    EXPECTED(! isLogTiming);
    fIsLogTiming = isLogTiming;
}

std::shared_ptr<ILogger> Logger::instance() {
    if (! gIsLoggerCreated) {
        gIsLoggerCreated = true;
        loggerSlot() = std::make_shared<LoggerCore>();
    }
    return loggerSlot();
}

void Logger::destroyInstance() {
    gIsLoggerCreated = true;
    std::shared_ptr<ILogger> logger;
    logger.swap(loggerSlot());
}

void Logger::addLineObserver(LogLineObserver observer) {
    if (auto logger = instance()) {
        logger->addLineObserver(observer);
    }
}

int32_t Logger::getLogLevel() {
    auto logger = instance();
    return logger ? logger->getLogLevel() : 0;
}

bool Logger::getIsLogIPC() {
    auto logger = instance();
    return logger && logger->getIsLogIPC();
}

bool Logger::getIsLogScriptError() {
    auto logger = instance();
    return logger && logger->getIsLogScriptError();
}

bool Logger::getIsLogTiming() {
    auto logger = instance();
    return logger && logger->getIsLogTiming();
}

std::string Logger::getLogFile() {
    auto logger = instance();
    return logger ? logger->getLogFile() : std::string();
}

std::string Logger::getTimingLogFile() {
    auto logger = instance();
    return logger ? logger->getTimingLogFile() : std::string();
}

void Logger::logError(const char* file, int32_t line, const char* function, const char* message) {
    if (auto logger = instance()) {
        logger->logError(file, line, function, message);
    }
}

void Logger::logWarning(const char* file, int32_t line, const char* function, const char* message) {
    if (auto logger = instance()) {
        logger->logWarning(file, line, function, message);
    }
}

void Logger::logNote(const char* file, int32_t line, const char* function, const char* message) {
    if (auto logger = instance()) {
        logger->logNote(file, line, function, message);
    }
}

void Logger::logTrace(const char* file, int32_t line, const char* function, const char* message) {
    if (auto logger = instance()) {
        logger->logTrace(file, line, function, message);
    }
}

void Logger::logError(const char* file, int32_t line, const char* function, const std::string& message) {
    logError(file, line, function, message.c_str());
}

void Logger::logWarning(const char* file, int32_t line, const char* function, const std::string& message) {
    logWarning(file, line, function, message.c_str());
}

void Logger::logNote(const char* file, int32_t line, const char* function, const std::string& message) {
    logNote(file, line, function, message.c_str());
}

void Logger::logTrace(const char* file, int32_t line, const char* function, const std::string& message) {
    logTrace(file, line, function, message.c_str());
}

void Logger::setLogFile(const std::string& path) {
    if (auto logger = instance()) {
        logger->setLogFile(path);
    }
}

void Logger::setLogLevel(int32_t level) {
    if (auto logger = instance()) {
        logger->setLogLevel(level);
    }
}

void Logger::setIsLogEntryExit(bool isLogEntryExit) {
    if (auto logger = instance()) {
        logger->setIsLogEntryExit(isLogEntryExit);
    }
}

void Logger::setIsLogIPC(bool isLogIPC) {
    if (auto logger = instance()) {
        logger->setIsLogIPC(isLogIPC);
    }
}

void Logger::setIsLogScriptError(bool isLogScriptError) {
    if (auto logger = instance()) {
        logger->setIsLogScriptError(isLogScriptError);
    }
}

void Logger::setIsLogTiming(bool isLogTiming) {
    if (auto logger = instance()) {
        logger->setIsLogTiming(isLogTiming);
    }
}

void Logger::setTimingLogFile(const std::string& path) {
    if (auto logger = instance()) {
        logger->setTimingLogFile(path);
    }
}

} // namespace Brw
