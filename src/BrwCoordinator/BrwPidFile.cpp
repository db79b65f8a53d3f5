#include "BrwCoordinator/BrwPidFile.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>

#include "BrwLogger/BrwCheck.h"
#include "BrwUtils/BrwDirs.h"

namespace Brw {

namespace {

// Tries of the exclusive lock while only readers hold the file for a moment, and the wait between them.
constexpr int LOCK_ATTEMPTS = 200;
constexpr std::chrono::milliseconds LOCK_RETRY_WAIT{1};
// Tries to lock the file that stands at the path, when it was replaced between the open and the lock.
constexpr int REPLACED_FILE_ATTEMPTS = 5;
constexpr mode_t PID_FILE_MODE = 0600;

// True when the open file is the one the path names now.
bool isSameFile(int fd, const std::string& path) {
    struct stat opened {};
    struct stat named {};
    return ::fstat(fd, &opened) == 0 && ::stat(path.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
           opened.st_ino == named.st_ino;
}

// The exclusive lock, without waiting for another publisher. Readers that test a file for staleness hold
// a shared lock for a moment; a refusal while a shared lock can still be had was theirs, and is tried
// again.
bool lockExclusive(int fd) {
    for (int attempt = 0; attempt < LOCK_ATTEMPTS; ++attempt) {
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
            return true;
        }
        if (errno != EWOULDBLOCK && errno != EINTR) {
            return false;
        }
        if (::flock(fd, LOCK_SH | LOCK_NB) != 0) {
            return false;
        }
        ::flock(fd, LOCK_UN);
        std::this_thread::sleep_for(LOCK_RETRY_WAIT);
    }
    return false;
}

} // namespace

uint32_t PidFile::readPublished(const std::string& filePath) {
    FileDescriptor file(::open(filePath.c_str(), O_RDONLY | O_CLOEXEC));
    if (! file.isOpen()) {
        return 0;
    }
    if (::flock(file.get(), LOCK_SH | LOCK_NB) == 0) {
        // Nobody holds it: whoever published it has ended.
        if (isSameFile(file.get(), filePath)) {
            ::unlink(filePath.c_str());
        }
        return 0;
    }
    std::string text;
    if (Dirs::readFile(filePath, text) != FileReadResult::READ) {
        return 0;
    }
    text = Utils::trim(text);
    return Utils::isNumberUpTo(text, UINT32_MAX) ? static_cast<uint32_t>(Utils::toUInt64(text)) : 0;
}

bool PidFile::lockCurrentFile(const std::string& filePath, FileDescriptor& lockedFile) {
    for (int attempt = 0; attempt < REPLACED_FILE_ATTEMPTS; ++attempt) {
        FileDescriptor file(::open(filePath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, PID_FILE_MODE));
        if (! file.isOpen() || ! lockExclusive(file.get())) {
            return false;
        }
        if (isSameFile(file.get(), filePath)) {
            lockedFile = std::move(file);
            return true;
        }
        // Replaced or removed between the open and the lock: the lock of an old file says nothing.
    }
    return false;
}

bool PidFile::replaceLocked(const std::string& filePath, uint32_t processId, FileDescriptor& newFile) {
    bool retVal = false;
    std::string temporaryPath = filePath + ".tmp-XXXXXX";
    FileDescriptor file(::mkostemp(temporaryPath.data(), O_CLOEXEC));
    do {
        SANITY_CHECK(file.isOpen());
        SANITY_CHECK(::flock(file.get(), LOCK_EX | LOCK_NB) == 0);
        SANITY_CHECK(file.writeAll(std::to_string(processId)));
        SANITY_CHECK(::fsync(file.get()) == 0);
        // Readers see the old text or the new one, never half of it; the lock comes along.
        SANITY_CHECK(::rename(temporaryPath.c_str(), filePath.c_str()) == 0);
        newFile = std::move(file);
        retVal = true;
    } while (false);
    if (! retVal && file.isOpen()) {
        ::unlink(temporaryPath.c_str());
    }
    return retVal;
}

bool PidFile::publish(const std::string& filePath, uint32_t processId) {
    bool retVal = false;
    do {
        SANITY_CHECK(! fLock.isOpen());
        // The lock of the file that stands there first: while it is held nobody else gets that far.
        FileDescriptor current;
        SANITY_CHECK(lockCurrentFile(filePath, current));
        FileDescriptor published;
        SANITY_CHECK(replaceLocked(filePath, processId, published));
        fLock = std::move(published);
        fFilePath = filePath;
        retVal = true;
    } while (false);
    return retVal;
}

PidFile::Standing PidFile::getStanding() const {
    if (isSameFile(fLock.get(), fFilePath)) {
        return Standing::OWN;
    }
    struct stat named {};
    return ::stat(fFilePath.c_str(), &named) != 0 && errno == ENOENT ? Standing::GONE : Standing::REPLACED;
}

bool PidFile::republish(uint32_t processId) {
    fLock.reset();
    return publish(fFilePath, processId);
}

bool PidFile::remove() {
    bool retVal = false;
    do {
        if (! fLock.isOpen()) {
            retVal = true;
            break;
        }
        // Removed only while it is still ours: after the lock goes, another coordinator may publish.
        if (isSameFile(fLock.get(), fFilePath)) {
            SANITY_CHECK(::unlink(fFilePath.c_str()) == 0);
        }
        fLock.reset();
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
