// The coordinator's configuration: the stack of ini files, the settings read from it in their fixed
// order, and the tables of names and hosts.

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <variant>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwCoordinator/BrwSiblingCoordinator.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwUtils/BrwDirs.h"

namespace Brw {

namespace {

using SettingTarget = std::variant<std::string*, int64_t*, int32_t*, bool*>;

struct SettingEntry {
    const char* key;      // the key in the section "config"
    SettingTarget target; // the setting it gives its value to
};

using IC = InternalCoordinator;

// Every setting but the two names, which come first and on their own, in the order they are read.
const SettingEntry kSettings[] = {
    {"defaultEngine", &IC::fDefaultEngine},
    {"delayQuitMicroseconds", &IC::fDelayQuitMicroseconds},
    {"eventLoopMicroseconds", &IC::fEventLoopMicroseconds},
    {"quitReflectorEventLoopForTestsMicroseconds", &IC::fQuitReflectorEventLoopForTestsMicroseconds},
    {"eventLoopSleepMicroseconds", &IC::fEventLoopSleepMicroseconds},
    {"interCoordinatorTestTimeMicroseconds", &IC::fInterCoordinatorTestTimeMicroseconds},
    {"interCoordinatorPipeWaitTimeMicroseconds", &IC::fInterCoordinatorPipeWaitTimeMicroseconds},
    {"ipcMessageLogFile", &IC::fIpcMessageLogFile},
    {"isInteractive", &IC::fIsInteractive},
    {"readStdIn", &IC::fReadStdIn},
    {"runTests", &IC::fRunTests},
    {"isServer", &IC::fIsServer},
    {"updateSessionData", &IC::fUpdateSessionData},
    {"logEntryExit", &IC::fLogEntryExit},
    {"logFile", &IC::fLogFile},
    {"logLevel", &IC::fLogLevel},
    {"logIPC", &IC::fLogIPC},
    {"logScriptError", &IC::fLogScriptError},
    {"logTiming", &IC::fLogTiming},
    {"maxWaitMessageDropMicroseconds", &IC::fMaxWaitMessageDropMicroseconds},
    {"maxWaitPipeReappearMicroseconds", &IC::fMaxWaitPipeReappearMicroseconds},
    {"remoteCoordinator", &IC::fRemoteCoordinatorURL},
    {"remoteTimeoutMicroseconds", &IC::fRemoteTimeoutMicroseconds},
    {"scanActiveSiblingsIntervalMicroseconds", &IC::fScanActiveSiblingsIntervalMicroseconds},
    {"scanConfigSiblingsIntervalMicroseconds", &IC::fScanConfigSiblingsIntervalMicroseconds},
    {"scanNamedPipeSiblingsIntervalMicroseconds", &IC::fScanNamedPipeSiblingsIntervalMicroseconds},
    {"scriptErrorLogFile", &IC::fScriptErrorLogFile},
    {"prompt", &IC::fPrompt},
    {"promptContinuation", &IC::fPromptContinuation},
    {"scriptFile", &IC::fScriptFilePath},
    {"startupScriptFile", &IC::fStartupScriptFilePath},
    {"sleepWaitForPipeMicroseconds", &IC::fSleepWaitForPipeMicroseconds},
    {"defaultTimeoutMicroseconds", &IC::fDefaultTimeoutMicroseconds},
    {"testTimeoutMicroseconds", &IC::fTestTimeoutMicroseconds},
    {"internalCoordinatorTimesliceMicroseconds", &IC::fInternalCoordinatorTimesliceMicroseconds},
    {"consoleEcho", &IC::fConsoleEcho},
    {"timingLogFile", &IC::fTimingLogFile},
};

// The largest echo mode; a larger one is 0, as with -e.
constexpr int32_t LARGEST_CONSOLE_ECHO = 3;

std::string settingText(const SettingTarget& target) {
    struct Text {
        std::string operator()(std::string* value) const { return *value; }
        std::string operator()(int64_t* value) const { return std::to_string(*value); }
        std::string operator()(int32_t* value) const { return std::to_string(*value); }
        std::string operator()(bool* value) const { return Utils::toString(*value); }
    };
    return std::visit(Text{}, target);
}

// A whole number of at most `largest`, with an optional minus sign.
bool readInteger(const std::string& text, int64_t largest, int64_t& value) {
    const bool isNegative = ! text.empty() && text[0] == '-';
    const std::string digits = isNegative ? text.substr(1) : text;
    if (! Utils::isNumberUpTo(digits, static_cast<uint64_t>(largest))) {
        return false;
    }
    value = static_cast<int64_t>(Utils::toUInt64(digits));
    value = isNegative ? -value : value;
    return true;
}

// Gives the setting its value; false, with the setting as it was, for a text its kind can't take.
bool setSetting(const SettingTarget& target, const std::string& text) {
    struct Set {
        const std::string& text;
        bool operator()(std::string* value) const {
            *value = text;
            return true;
        }
        bool operator()(int64_t* value) const {
            return readInteger(text, std::numeric_limits<int64_t>::max(), *value);
        }
        bool operator()(int32_t* value) const {
            int64_t number = 0;
            const bool isRead = readInteger(text, std::numeric_limits<int32_t>::max(), number);
            *value = isRead ? static_cast<int32_t>(number) : *value;
            return isRead;
        }
        bool operator()(bool* value) const {
            const bool isRead = text == "true" || text == "false";
            *value = isRead ? Utils::toBool(text) : *value;
            return isRead;
        }
    };
    return std::visit(Set{text}, target);
}

bool isScriptFileSetting(const std::string& key) {
    return key == "scriptFile" || key == "startupScriptFile";
}

// A script path of a configuration file: relative to that file's folder, made full; "-" stays.
std::string resolveScriptPath(const std::string& path, const std::string& sourceFilePath) {
    if (path.empty() || path == "-" || sourceFilePath.empty()) {
        return path;
    }
    return Dirs::fullPath(Dirs::resolveRelativePath(Dirs::getParentPath(sourceFilePath), path));
}

// The defaults of the log settings are the Logger's own.
void readLoggerSettings() {
    IC::fLogFile = Logger::getLogFile();
    IC::fLogLevel = Logger::getLogLevel();
    IC::fLogIPC = Logger::getIsLogIPC();
    IC::fLogScriptError = Logger::getIsLogScriptError();
    IC::fLogTiming = Logger::getIsLogTiming();
    IC::fTimingLogFile = Logger::getTimingLogFile();
    IC::fScriptErrorLogFile = ScriptErrorLog::getFile();
}

void handLogSettingsToLogger() {
    Logger::setIsLogEntryExit(IC::fLogEntryExit);
    Logger::setLogFile(IC::fLogFile);
    Logger::setLogLevel(IC::fLogLevel);
    Logger::setIsLogIPC(IC::fLogIPC);
    Logger::setIsLogScriptError(IC::fLogScriptError);
    Logger::setIsLogTiming(IC::fLogTiming);
    Logger::setTimingLogFile(IC::fTimingLogFile);
    ScriptErrorLog::setFile(IC::fScriptErrorLogFile);
}

} // namespace

std::string InternalCoordinator::getConfigValue(const std::string& section, const std::string& key,
                                                const std::string& defaultValue) {
    return fConfigStack.getValue(section, key, defaultValue, fCoordinatorName);
}

std::string InternalCoordinator::urlMapCoordinatorName(const std::string& name) {
    auto iter = fUrlMap.find(name);
    std::string mapped = iter != fUrlMap.end() && ! iter->second.empty() ? iter->second : name;
    if (! mapped.empty() && mapped.rfind(COORDINATOR_NAME_PREFIX, 0) != 0) {
        mapped = COORDINATOR_NAME_PREFIX + mapped;
    }
    return mapped;
}

bool InternalCoordinator::readNodeName() {
    bool retVal = false;
    do {
        fNodePrefix.clear();
        const char* value = std::getenv("BRAIDWELL_CONFIG_NODE_NAME");
        const std::string nodeName = Utils::toLower(value != nullptr ? value : "");
        if (! nodeName.empty() && nodeName != "localhost" && nodeName != "127.0.0.1" && nodeName != "::1") {
            fNodePrefix = nodeName + ".";
            SANITY_CHECK(registerLocalHostName(nodeName));
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::addConfigFiles(std::map<char, std::vector<std::string>>& switches) {
    bool retVal = false;
    do {
        fConfigStack.clear();
        const std::string& sysConfigFolderPath = getSysConfigFolderPath();
        const std::string mainFile = ! fConfigFilePath.empty()     ? fConfigFilePath
                                     : sysConfigFolderPath.empty() ? std::string()
                                                                   : sysConfigFolderPath + "config.ini";
        SANITY_CHECK(fConfigStack.addFile(mainFile));
        auto extraFile = switches.find('c');
        if (extraFile != switches.end()) {
            const std::vector<std::string> switchArgs = extraFile->second;
            switches.erase(extraFile);
            // Without its file the switch is reported and start-up goes on, as with any other switch.
            if (SANITY_CHECKED(switchArgs.size() == 1)) {
                SANITY_CHECK(fConfigStack.addFile(Dirs::fullPath(switchArgs[0])));
            }
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::processConfigStack() {
    bool retVal = false;
    do {
        SANITY_CHECK(registerLocalHostName("127.0.0.1"));
        SANITY_CHECK(registerLocalHostName("::1"));
        SANITY_CHECK(registerLocalHostName("localhost"));
        fUrlMap.clear();
        fCoordinatorMap.clear();
        for (const auto& [key, value] : fConfigStack.getTable("urlMap")) {
            if (! key.empty() && ! value.empty()) {
                fUrlMap[key] = value;
            }
        }
        for (const auto& [key, value] : fConfigStack.getTable("coordinatorMap")) {
            fCoordinatorMap[Utils::toLower(key)] = value;
        }
        for (const auto& [key, value] : fConfigStack.getTable("hosts")) {
            VERIFY(registerHostName(key, value));
        }
        const std::string name = getConfigValue(CONFIG_SECTION, "coordinatorName", fCoordinatorName);
        fCoordinatorName = urlMapCoordinatorName(name.empty() ? fCoordinatorName : name);
        const std::string shortName =
            getConfigValue(CONFIG_SECTION, "coordinatorShortName", fCoordinatorShortName);
        if (! shortName.empty()) {
            fCoordinatorShortName = shortName;
            fCoordinatorName = urlMapCoordinatorName(shortName);
        }
        readLoggerSettings();
        for (const SettingEntry& setting : kSettings) {
            std::string sourceFilePath;
            std::string value = fConfigStack.getValue(
                CONFIG_SECTION, setting.key, settingText(setting.target), fCoordinatorName, &sourceFilePath);
            if (isScriptFileSetting(setting.key)) {
                value = resolveScriptPath(value, sourceFilePath);
            }
            if (! setSetting(setting.target, value)) {
                LOG_WARNING_F("config: %s = %s is no value of its kind: kept %s", setting.key, value.c_str(),
                              settingText(setting.target).c_str());
            }
        }
        if (fConsoleEcho < 0 || fConsoleEcho > LARGEST_CONSOLE_ECHO) {
            fConsoleEcho = 0;
        }
        handLogSettingsToLogger();
        retVal = true;
    } while (false);
    return retVal;
}

const std::vector<std::string>& InternalCoordinator::getLaunchArgs(const std::string& coordinatorName) {
    static const std::vector<std::string> kNone;
    const std::vector<std::string>* retVal = &kNone;
    do {
        SANITY_CHECK(! coordinatorName.empty());
        if (coordinatorName == fCoordinatorName) {
            retVal = &fOwnLaunchArgs;
            break;
        }
        auto iter = fLaunchArgs.find(coordinatorName);
        if (iter == fLaunchArgs.end()) {
            const std::string appPath = getConfigValue(std::string(CONFIG_SECTION) + "." + coordinatorName,
                                                       SiblingCoordinator::APP_PATH_KEY, "");
            std::vector<std::string> words;
            if (! Utils::splitCommandWords(appPath, words)) {
                LOG_ERROR_F("cannot split appPath of %s: %s", coordinatorName.c_str(), appPath.c_str());
            }
            // The launched process must open the pipe of this name.
            if (! words.empty() && std::find(words.begin(), words.end(), "-n") == words.end() &&
                std::find(words.begin(), words.end(), "-N") == words.end()) {
                words.push_back("-n");
                words.push_back(coordinatorName);
            }
            iter = fLaunchArgs.emplace(coordinatorName, std::move(words)).first;
        }
        retVal = &iter->second;
    } while (false);
    return *retVal;
}

} // namespace Brw
