#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "BrwLogger/BrwILogger.h"

namespace Brw {

// The logger's state and its virtual operations. Lines are opened, written and closed one at a time, so
// that nothing is lost when the process dies and another process may move the file at any moment.
class LoggerCore : public virtual ILogger {
public:
    void addLineObserver(LogLineObserver observer) override;
    int32_t getLogLevel() const override { return fLogLevel; }
    bool getIsLogIPC() const override { return fIsLogIPC; }
    bool getIsLogScriptError() const override { return fIsLogScriptError; }
    bool getIsLogTiming() const override { return fIsLogTiming; }
    const std::string& getLogFile() const override { return fLogFile; }
    const std::string& getTimingLogFile() const override { return fTimingLogFile; }
    void logEntry(const char* file, int32_t line, const char* function) override;
    void logError(const char* file, int32_t line, const char* function, const char* message) override;
    void logExit(const char* file, int32_t line, const char* function) override;
    void logLine(const char* label, const char* file, int32_t line, const char* function,
                 const char* message) override;
    void logNote(const char* file, int32_t line, const char* function, const char* message) override;
    void logTiming(const char* file, int32_t line, const char* function, const char* message, int32_t elapsed,
                   int32_t total) override;
    void logTimingLine(const char* file, int32_t line, const char* function, const char* message,
                       int32_t elapsed, int32_t total) override;
    void logTrace(const char* file, int32_t line, const char* function, const char* message) override;
    void logWarning(const char* file, int32_t line, const char* function, const char* message) override;
    void setLogFile(const std::string& path) override { fLogFile = path; }
    void setLogLevel(int32_t level) override { fLogLevel = level; }
    void setIsLogEntryExit(bool isLogEntryExit) override;
    void setIsLogIPC(bool isLogIPC) override { fIsLogIPC = isLogIPC; }
    void setIsLogScriptError(bool isLogScriptError) override { fIsLogScriptError = isLogScriptError; }
    void setIsLogTiming(bool isLogTiming) override;
    void setTimingLogFile(const std::string& path) override { fTimingLogFile = path; }

private:
    int32_t fLogLevel = 0;                       // lines of this level and below are written
    bool fIsLogEntryExit = false;                // gate of logEntry/logExit; this build has no such calls
    std::string fLogFile;                        // empty: standard error
    bool fIsLogIPC = false;                      // stored for the message layer
    bool fIsLogScriptError = false;              // stored for the script layer
    bool fIsLogTiming = false;                   // gate of logTiming
    std::string fTimingLogFile;                  // empty: standard error
    std::vector<LogLineObserver> fLineObservers; // each composed line goes to these
};

// The process's one logger, reached through static twins of the operations (a class of its own, since a
// static member can't share a name with a virtual one). Each twin fetches the instance and does nothing
// once it is gone, so that logging late in shutdown is dropped, never a crash.
class Logger final {
public:
    static constexpr const char* TYPENAME = "Logger";

    // The instance, made on first request; null for good once it was destroyed.
    static std::shared_ptr<ILogger> instance();
    // Destroys the instance: the last act of a process, and of tests of the shutdown path.
    static void destroyInstance();

    static void addLineObserver(LogLineObserver observer);
    static int32_t getLogLevel();
    static bool getIsLogIPC();
    static bool getIsLogScriptError();
    static bool getIsLogTiming();
    static std::string getLogFile();
    static std::string getTimingLogFile();
    static void logError(const char* file, int32_t line, const char* function, const char* message);
    static void logWarning(const char* file, int32_t line, const char* function, const char* message);
    static void logNote(const char* file, int32_t line, const char* function, const char* message);
    static void logTrace(const char* file, int32_t line, const char* function, const char* message);
    static void setLogFile(const std::string& path);
    static void setLogLevel(int32_t level);
    static void setIsLogEntryExit(bool isLogEntryExit);
    static void setIsLogIPC(bool isLogIPC);
    static void setIsLogScriptError(bool isLogScriptError);
    static void setIsLogTiming(bool isLogTiming);
    static void setTimingLogFile(const std::string& path);

    // Composed messages: the text is built only when the level lets the line through.
    static void logError(const char* file, int32_t line, const char* function, const std::string& message);
    static void logWarning(const char* file, int32_t line, const char* function, const std::string& message);
    static void logNote(const char* file, int32_t line, const char* function, const std::string& message);
    static void logTrace(const char* file, int32_t line, const char* function, const std::string& message);
};

} // namespace Brw
