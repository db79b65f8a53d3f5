// The coordinator's files below the user's data folder: its folders, the published process identifier
// that makes it the one coordinator of its name, and the session data.

#include <cerrno>
#include <cstdio>
#include <unistd.h>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwParser/BrwOMAccessor.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwUtils/BrwClock.h"
#include "BrwUtils/BrwDirs.h"
#include "BrwUtils/BrwProcess.h"

namespace Brw {

namespace {

constexpr const char* PIPE_FOLDER_NAME = "NamedPipes";
constexpr const char* SESSION_DATA_FOLDER_NAME = "SessionData";
constexpr const char* SYS_CONFIG_FOLDER_NAME = "SysConfig";
constexpr const char* PID_FILE_EXTENSION = ".pid";
constexpr const char* SESSION_DATA_FILE_EXTENSION = ".json";

// A folder path that failed to be made is forgotten, so that callers see "" and the next request tries
// again.
void keepIfMade(std::string& folderPath, bool isMade, bool isThere) {
    if (! isMade || ! isThere) {
        folderPath.clear();
    }
}

} // namespace

std::string InternalCoordinator::programFolderPath(const char* name) {
    const std::string& userDataPath = Dirs::getUserDataPath();
    if (userDataPath.empty()) {
        return std::string();
    }
    return userDataPath + Dirs::PROGRAM_FOLDER_NAME + Dirs::PLATFORM_SEPARATOR + name +
           Dirs::PLATFORM_SEPARATOR;
}

const std::string& InternalCoordinator::getPipeFolderPath() {
    if (fPipeFolderPath.empty()) {
        fPipeFolderPath = programFolderPath(PIPE_FOLDER_NAME);
        const bool isMade = SANITY_CHECKED(Dirs::mkDir(fPipeFolderPath, DirRecurse::RECURSE));
        keepIfMade(fPipeFolderPath, isMade, SANITY_CHECKED(Dirs::dirExists(fPipeFolderPath)));
    }
    return fPipeFolderPath;
}

const std::string& InternalCoordinator::getSessionDataFolderPath() {
    if (fSessionDataFolderPath.empty()) {
        fSessionDataFolderPath = programFolderPath(SESSION_DATA_FOLDER_NAME);
        const bool isMade = SANITY_CHECKED(Dirs::mkDir(fSessionDataFolderPath, DirRecurse::RECURSE));
        keepIfMade(fSessionDataFolderPath, isMade, SANITY_CHECKED(Dirs::dirExists(fSessionDataFolderPath)));
    }
    return fSessionDataFolderPath;
}

const std::string& InternalCoordinator::getSysConfigFolderPath() {
    if (fSysConfigFolderPath.empty()) {
        fSysConfigFolderPath = programFolderPath(SYS_CONFIG_FOLDER_NAME);
        const bool isMade = SANITY_CHECKED(Dirs::mkDir(fSysConfigFolderPath, DirRecurse::RECURSE));
        keepIfMade(fSysConfigFolderPath, isMade, SANITY_CHECKED(Dirs::dirExists(fSysConfigFolderPath)));
    }
    return fSysConfigFolderPath;
}

std::string InternalCoordinator::getPidFilePath() {
    const std::string& folderPath = getSessionDataFolderPath();
    return folderPath.empty() ? folderPath : folderPath + fCoordinatorName + PID_FILE_EXTENSION;
}

std::string InternalCoordinator::getSessionDataPath() {
    const std::string& folderPath = getSessionDataFolderPath();
    return folderPath.empty() ? folderPath : folderPath + fCoordinatorName + SESSION_DATA_FILE_EXTENSION;
}

uint32_t InternalCoordinator::readPublishedProcessId() {
    const std::string path = getPidFilePath();
    return path.empty() ? 0 : PidFile::readPublished(path);
}

bool InternalCoordinator::publishProcessId() {
    bool retVal = false;
    do {
        const std::string path = getPidFilePath();
        SANITY_CHECK(! path.empty());
        SANITY_CHECK(fPidFile.publish(path, Process::getCurrentProcessId()));
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::isFileCheckDue(int64_t& nextCheckTime) {
    const int64_t now = Clock::now();
    if (now < nextCheckTime) {
        return false;
    }
    nextCheckTime = now + Clock::fromMicroseconds(FILE_CHECK_INTERVAL_MICROSECONDS);
    return true;
}

bool InternalCoordinator::checkPublishedProcessId() {
    bool retVal = false;
    do {
        if (! fPidFile.isPublished() || ! isFileCheckDue(fNextPidFileCheckTime)) {
            retVal = true;
            break;
        }
        const PidFile::Standing standing = fPidFile.getStanding();
        if (standing == PidFile::Standing::GONE) {
            LOG_NOTE("the .pid file has gone; publishing it again");
            SANITY_CHECK(fPidFile.republish(Process::getCurrentProcessId()));
        } else if (standing == PidFile::Standing::REPLACED && fCoordinatorName == MAIN_COORDINATOR_NAME &&
                   readPublishedProcessId() != Process::getCurrentProcessId()) {
            LOG_ERROR("published pid has changed; another coordinator node has taken over. Terminating");
            terminate();
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::claimCoordinatorName() {
    bool retVal = false;
    do {
        // A look at the version claims no name: it mustn't stop, nor be stopped by, a running coordinator.
        if (fIsVersionRequested) {
            retVal = true;
            break;
        }
        const uint32_t processId = readPublishedProcessId();
        LOG_TRACE_F("processId = %u", processId);
        if (! SANITY_CHECKED(processId == 0 || ! Process::isRunning(processId)) ||
            ! SANITY_CHECKED(publishProcessId())) {
            // The check went to the log, which is off by default: say it where a person looks.
            fprintf(stderr, "a coordinator named %s is running already\n", fCoordinatorName.c_str());
            break;
        }
        retVal = ! fUpdateSessionData || writeSessionData();
    } while (false);
    return retVal;
}

bool InternalCoordinator::writeSessionData() {
    bool retVal = false;
    do {
        SANITY_CHECK(fCoordinatorScope);
        const std::string text = OMAccessor(fCoordinatorScope).stringify();
        if (text == fLastSessionData) {
            retVal = true;
            break;
        }
        const std::string path = getSessionDataPath();
        SANITY_CHECK(! path.empty());
        SANITY_CHECK(Dirs::writeFileWhole(path, text));
        fLastSessionData = text;
        retVal = true;
    } while (false);
    return retVal;
}

bool InternalCoordinator::destroySessionData() {
    bool retVal = false;
    do {
        // The files of another process of this name are not ours to remove.
        if (! fPidFile.isPublished()) {
            retVal = true;
            break;
        }
        const std::string sessionDataPath = getSessionDataPath();
        SANITY_CHECK(::unlink(sessionDataPath.c_str()) == 0 || errno == ENOENT);
        SANITY_CHECK(fPidFile.remove());
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
