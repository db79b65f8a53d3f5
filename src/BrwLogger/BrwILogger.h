#pragma once

#include <string>

namespace Brw {

using LogLineObserver = void (*)(const std::string& line);

// The one logging interface. Levels: 0 none, 1 ERROR, 2 WARN, 3 NOTE, 4 TRACE.
class ILogger {
public:
    virtual ~ILogger() = default;
    virtual void addLineObserver(LogLineObserver observer) = 0;
    virtual int32_t getLogLevel() const = 0;
    virtual bool getIsLogIPC() const = 0;
    virtual bool getIsLogScriptError() const = 0;
    virtual bool getIsLogTiming() const = 0;
    virtual const std::string& getLogFile() const = 0;
    virtual const std::string& getTimingLogFile() const = 0;
    virtual void logEntry(const char* file, int32_t line, const char* function) = 0;
    virtual void logError(const char* file, int32_t line, const char* function, const char* message) = 0;
    virtual void logExit(const char* file, int32_t line, const char* function) = 0;
    virtual void logLine(const char* label, const char* file, int32_t line, const char* function,
                         const char* message) = 0;
    virtual void logNote(const char* file, int32_t line, const char* function, const char* message) = 0;
    virtual void logTiming(const char* file, int32_t line, const char* function, const char* message,
                           int32_t elapsed, int32_t total) = 0;
    virtual void logTimingLine(const char* file, int32_t line, const char* function, const char* message,
                               int32_t elapsed, int32_t total) = 0;
    virtual void logTrace(const char* file, int32_t line, const char* function, const char* message) = 0;
    virtual void logWarning(const char* file, int32_t line, const char* function, const char* message) = 0;
    virtual void setLogFile(const std::string& path) = 0;
    virtual void setLogLevel(int32_t level) = 0;
    virtual void setIsLogEntryExit(bool isLogEntryExit) = 0;
    virtual void setIsLogIPC(bool isLogIPC) = 0;
    virtual void setIsLogScriptError(bool isLogScriptError) = 0;
    virtual void setIsLogTiming(bool isLogTiming) = 0;
    virtual void setTimingLogFile(const std::string& path) = 0;
};

} // namespace Brw
