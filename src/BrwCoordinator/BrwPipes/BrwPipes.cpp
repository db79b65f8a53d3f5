#include "BrwCoordinator/BrwPipes/BrwPipes.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwCoordinator/BrwPipes/BrwLocalSocket.h"
#include "BrwCoordinator/BrwPipes/BrwReadPipe.h"
#include "BrwCoordinator/BrwPipes/BrwWritePipe.h"
#include "BrwData/BrwIni.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwUtils/BrwClock.h"
#include "BrwUtils/BrwHash.h"
#include "BrwUtils/BrwProcess.h"

namespace Brw {

namespace {

constexpr const char* RUNTIME_FOLDER_VARIABLE = "XDG_RUNTIME_DIR";
constexpr const char* SOCKET_EXTENSION = ".sock";
// Permission bits that the socket folder must not have: anybody's but the owner's.
constexpr mode_t NOT_OWNER_MODE_BITS = 077;
constexpr int64_t NANOSECONDS_PER_SECOND = 1000000000;
// The sleep of waitForActivity in nanoseconds that lasts until something is ready.
constexpr int64_t SLEEP_WITHOUT_LIMIT = -1;
// The proxy file is a few lines: anything longer isn't one.
constexpr uint64_t PROXY_FILE_BYTE_LIMIT = 1 << 16;

int gLastExternalHandle = Pipe::NO_EXTERNAL_HANDLE;

// Makes `folderPath` if missing; true when it is a folder of this user that nobody else may enter.
bool isPrivateFolder(const std::string& folderPath) {
    if (::mkdir(folderPath.c_str(), Dirs::PRIVATE_FOLDER_MODE) != 0 && errno != EEXIST) {
        return false;
    }
    struct stat info {};
    if (::lstat(folderPath.c_str(), &info) != 0) {
        return false;
    }
    const bool isPrivate =
        S_ISDIR(info.st_mode) && info.st_uid == ::geteuid() && (info.st_mode & NOT_OWNER_MODE_BITS) == 0;
    if (! isPrivate) {
        LOG_ERROR_F("socket folder %s refused: not a folder of this user's alone", folderPath.c_str());
    }
    return isPrivate;
}

std::string toHex(uint64_t value) {
    return Utils::format("%016llx", static_cast<unsigned long long>(value));
}

} // namespace

int Pipes::nextExternalHandle() {
    return ++gLastExternalHandle;
}

uint32_t Pipes::getOwnProcessId() {
    static const uint32_t processId = Process::getCurrentProcessId();
    return processId;
}

bool Pipes::checkPath(const std::string& namedPipePath, TrailingPathCharHandling trailingPathCharHandling) {
    bool retVal = false;
    do {
        SANITY_CHECK(! namedPipePath.empty());
        EXPECTED(trailingPathCharHandling == TrailingPathCharHandling::Ignore ||
                 *(namedPipePath.rbegin()) != Dirs::PLATFORM_SEPARATOR);
        retVal = true;
    } while (false);
    return retVal;
}

bool Pipes::namedPipeExists(const std::string& namedPipePath,
                            TrailingPathCharHandling trailingPathCharHandling) {
    return checkPath(namedPipePath, trailingPathCharHandling) &&
           Dirs::fileExists(namedPipePath, TrailingPathCharHandling::Ignore);
}

bool Pipes::namedPipeIsActive(const std::string& namedPipePath,
                              TrailingPathCharHandling trailingPathCharHandling) {
    bool retVal = false;
    do {
        if (! namedPipeExists(namedPipePath, trailingPathCharHandling)) {
            break;
        }
        std::string text;
        if (Dirs::readFile(namedPipePath, text, PROXY_FILE_BYTE_LIMIT) != FileReadResult::READ) {
            break;
        }
        const std::string processIdText = Ini(text).getEntry(PROXY_SECTION, PROXY_PROCESS_ID_KEY);
        retVal = Utils::isNumberUpTo(processIdText, UINT32_MAX) &&
                 Process::isRunning(static_cast<uint32_t>(Utils::toUInt64(processIdText)));
    } while (false);
    return retVal;
}

std::string Pipes::readSocketPath(const std::string& namedPipePath) {
    std::string text;
    if (Dirs::readFile(namedPipePath, text, PROXY_FILE_BYTE_LIMIT) != FileReadResult::READ) {
        return std::string();
    }
    return Ini(text).getEntry(PROXY_SECTION, PROXY_SOCKET_PATH_KEY);
}

bool Pipes::deleteNamedPipe(const std::string& namedPipePath,
                            TrailingPathCharHandling trailingPathCharHandling) {
    bool retVal = false;
    do {
        SANITY_CHECK(checkPath(namedPipePath, trailingPathCharHandling));
        if (const std::shared_ptr<ReadPipe> readPipe = ReadPipe::getPipe(namedPipePath)) {
            VERIFY(readPipe->closeForced());
        }
        if (const std::shared_ptr<WritePipe> writePipe = WritePipe::getPipe(namedPipePath)) {
            VERIFY(writePipe->closeForced());
        }
        if (Dirs::fileExists(namedPipePath)) {
            VERIFY(remove(namedPipePath.c_str()) == 0);
        }
        SANITY_CHECK(! Dirs::fileExists(namedPipePath));
        retVal = true;
    } while (false);
    return retVal;
}

int Pipes::openReadNamedPipe(const std::string& namedPipePath,
                             TrailingPathCharHandling trailingPathCharHandling) {
    int retVal = Pipe::NO_EXTERNAL_HANDLE;
    do {
        LOG_TRACE_F("namedPipePath = %s", namedPipePath.c_str());
        SANITY_CHECK(checkPath(namedPipePath, trailingPathCharHandling));
        const std::shared_ptr<ReadPipe> readPipe = ReadPipe::factory(namedPipePath);
        SANITY_CHECK(readPipe);
        SANITY_CHECK(readPipe->openCountIncrement());
        retVal = readPipe->getPipeExternalHandle();
    } while (false);
    return retVal;
}

int Pipes::openWriteNamedPipe(const std::string& namedPipePath,
                              TrailingPathCharHandling trailingPathCharHandling) {
    int retVal = Pipe::NO_EXTERNAL_HANDLE;
    do {
        LOG_TRACE_F("namedPipePath = %s", namedPipePath.c_str());
        const bool isExisting = namedPipeExists(namedPipePath, trailingPathCharHandling);
        LOG_TRACE_F("namedPipePath exists = %s", Utils::toString(isExisting).c_str());
        if (! isExisting) {
            break;
        }
        const std::shared_ptr<WritePipe> writePipe = WritePipe::factory(namedPipePath);
        SANITY_CHECK(writePipe);
        SANITY_CHECK(writePipe->openCountIncrement());
        retVal = writePipe->getPipeExternalHandle();
    } while (false);
    return retVal;
}

bool Pipes::readFromNamedPipe(std::string& str, int handle, bool& readComplete, char separator) {
    const std::shared_ptr<ReadPipe> readPipe = ReadPipe::getPipe(handle);
    if (! readPipe) {
        // A pipe that timeslice closed for its error: the coordinator opens a new one.
        str.clear();
        readComplete = false;
        return false;
    }
    return readPipe->read(str, readComplete, separator);
}

bool Pipes::writeToNamedPipe(int handle, const std::string& str) {
    bool retVal = false;
    do {
        const std::shared_ptr<WritePipe> writePipe = WritePipe::getPipe(handle);
        SANITY_CHECK(writePipe);
        SANITY_CHECK(writePipe->write(str));
        retVal = true;
    } while (false);
    return retVal;
}

bool Pipes::closeNamedPipe(int handle) {
    int closeCount = 0;
    if (const std::shared_ptr<ReadPipe> readPipe = ReadPipe::getPipe(handle)) {
        ++closeCount;
        VERIFY(readPipe->close());
    }
    if (const std::shared_ptr<WritePipe> writePipe = WritePipe::getPipe(handle)) {
        ++closeCount;
        // False while it flushes, which is no failure: the strings still go.
        (void)writePipe->close();
    }
    EXPECTED(closeCount == 1);
    return closeCount == 1;
}

void Pipes::closeAll() {
    ReadPipe::closeAll();
    WritePipe::closeAll();
}

void Pipes::appendPollDescriptors(std::vector<pollfd>& descriptors) {
    ReadPipe::appendPollDescriptors(descriptors);
    WritePipe::appendPollDescriptors(descriptors);
}

bool Pipes::waitForActivity(int64_t timeoutMicroseconds, const std::vector<int>& extraReadDescriptors) {
    std::vector<pollfd> descriptors;
    appendPollDescriptors(descriptors);
    for (const int fd : extraReadDescriptors) {
        descriptors.push_back({fd, POLLIN, 0});
    }
    int64_t waitNanoseconds = SLEEP_WITHOUT_LIMIT;
    if (timeoutMicroseconds >= 0) {
        waitNanoseconds = Clock::fromMicroseconds(timeoutMicroseconds);
    } else if (timeoutMicroseconds != WAIT_WITHOUT_LIMIT) {
        waitNanoseconds = Clock::fromMicroseconds(InternalCoordinator::fDefaultTimeoutMicroseconds);
    }
    if (ReadPipe::isWorkWaiting()) {
        waitNanoseconds = 0;
    }
    const int64_t retryTime = WritePipe::getNextRetryTime();
    if (retryTime != 0) {
        const int64_t untilRetry = std::max<int64_t>(retryTime - Clock::now(), 0);
        waitNanoseconds =
            waitNanoseconds == SLEEP_WITHOUT_LIMIT ? untilRetry : std::min(waitNanoseconds, untilRetry);
    }
    timespec timeout{};
    timeout.tv_sec = static_cast<time_t>(waitNanoseconds / NANOSECONDS_PER_SECOND);
    timeout.tv_nsec = static_cast<long>(waitNanoseconds % NANOSECONDS_PER_SECOND);
    const int readyCount = ::ppoll(descriptors.data(), descriptors.size(),
                                   waitNanoseconds == SLEEP_WITHOUT_LIMIT ? nullptr : &timeout, nullptr);
    if (readyCount >= 0) {
        ReadPipe::noteListeners(descriptors);
    }
    if (readyCount > 0) {
        WritePipe::noteWritable(descriptors);
    }
    return readyCount > 0;
}

std::string Pipes::getSocketFolderPath() {
    const char* runtimeFolder = std::getenv(RUNTIME_FOLDER_VARIABLE);
    if (runtimeFolder != nullptr && runtimeFolder[0] != 0 &&
        Dirs::dirExists(runtimeFolder, TrailingPathCharHandling::Ignore)) {
        const std::string folderPath = Dirs::addTrailingSeparator(runtimeFolder) + Dirs::PROGRAM_FOLDER_NAME;
        return isPrivateFolder(folderPath) ? folderPath + Dirs::PLATFORM_SEPARATOR : std::string();
    }
    const std::string& tmpPath = Dirs::getTmpPath();
    if (tmpPath.empty()) {
        return std::string();
    }
    // The temporary folder is everybody's: the user's folder in it has the user's number in its name.
    const std::string folderPath = tmpPath + Dirs::PROGRAM_FOLDER_NAME + "-" + std::to_string(::geteuid());
    return isPrivateFolder(folderPath) ? folderPath + Dirs::PLATFORM_SEPARATOR : std::string();
}

std::string Pipes::makeSocketPath(const std::string& namedPipePath) {
    std::string retVal;
    do {
        const std::string folderPath = getSocketFolderPath();
        SANITY_CHECK(! folderPath.empty());
        // The hash keeps apart the pipes of one name in different data folders.
        const std::string hash = toHex(FNV1aHash::hashBytes(namedPipePath));
        retVal = folderPath + Dirs::getPathSegmentFromRight(namedPipePath, 0) + "." + hash + SOCKET_EXTENSION;
        if (retVal.size() > LocalSocket::MAX_PATH_LENGTH) {
            retVal = folderPath + hash + SOCKET_EXTENSION;
        }
        if (retVal.size() > LocalSocket::MAX_PATH_LENGTH) {
            LOG_ERROR_F("socket folder path too long: %s", folderPath.c_str());
            retVal.clear();
        }
    } while (false);
    return retVal;
}

} // namespace Brw
