#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// The logger and the check macros: the line format in a log file, level gates, observers, the two
// instrumentation setters, timing lines and the exact text of each check. The logger is the process's
// one instance, shared with all other tests, so setup saves its settings and teardown puts them back.
class LoggerTest : public Test {
public:
    LoggerTest() : Test("LoggerTest") {}

    std::string getClassTypeName() const override { return Logger::TYPENAME; }
    // Saves the settings and makes a temporary folder under $HOME for the log files.
    bool setup() override;
    // Restores the settings and removes the folder.
    bool teardown() override;
    bool test() override;

private:
    bool testLineFormat();
    bool testLevelGates();
    bool testObservers();
    bool testInstrumentationSetters();
    bool testTimingLines();
    bool testCheckTexts();

    std::string fFolder;                 // temporary folder of this run's log files
    int32_t fSavedLogLevel = 0;          // the level found at setup
    std::string fSavedLogFile;           // the log file found at setup
    bool fSavedIsLogIPC = false;         // the IPC flag found at setup
    bool fSavedIsLogScriptError = false; // the script error flag found at setup
    bool fSavedIsLogTiming = false;      // the timing flag found at setup
    std::string fSavedTimingLogFile;     // the timing log found at setup
};

} // namespace Brw
