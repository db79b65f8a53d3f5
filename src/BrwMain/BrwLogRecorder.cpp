#include "BrwMain/BrwLogRecorder.h"

#include "BrwLogger/BrwLogger.h"
#include "BrwLogger/BrwScriptErrorLog.h"

namespace Brw {

namespace {

// What a recording changes, to be put back at its end.
struct RecordingState {
    std::vector<std::string> lines; // recorded so far
    int32_t savedLevel = 0;         // the log level before
    std::string savedLogFile;       // the log file before
    std::string savedErrorFile;     // the script error file before
};

RecordingState gRecording; // the recording under way, or the last one
bool gIsRecording = false; // lines go to gRecording

void recordLine(const std::string& line) {
    if (gIsRecording) {
        gRecording.lines.push_back(line);
    }
}

} // namespace

bool LogRecorder::hasLineWith(const std::vector<std::string>& lines, const std::string& text) {
    for (const std::string& line : lines) {
        if (line.find(text) != std::string::npos) {
            return true;
        }
    }
    return false;
}

void LogRecorder::start(int32_t level) {
    // The logger can't forget an observer: one is added once and records only during a recording.
    static bool isObserverAdded = false;
    if (! isObserverAdded) {
        Logger::addLineObserver(recordLine);
        isObserverAdded = true;
    }
    gRecording = {{}, Logger::getLogLevel(), Logger::getLogFile(), ScriptErrorLog::getFile()};
    gIsRecording = true;
    Logger::setLogLevel(level);
    Logger::setLogFile("/dev/null");
    ScriptErrorLog::setFile("/dev/null");
}

std::vector<std::string> LogRecorder::stop() {
    std::vector<std::string> lines;
    if (gIsRecording) {
        gIsRecording = false;
        lines.swap(gRecording.lines);
        Logger::setLogLevel(gRecording.savedLevel);
        Logger::setLogFile(gRecording.savedLogFile);
        ScriptErrorLog::setFile(gRecording.savedErrorFile);
    }
    return lines;
}

} // namespace Brw
