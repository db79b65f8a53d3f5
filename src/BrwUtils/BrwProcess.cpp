#include "BrwUtils/BrwProcess.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "BrwLogger/BrwCheck.h"
#include "BrwUtils/BrwDirs.h"
#include "BrwUtils/BrwFileDescriptor.h"

namespace Brw {

namespace {

constexpr const char* PROC_FOLDER = "/proc/";
// The exit status of a launch helper that could not go on.
constexpr int LAUNCH_FAILED_STATUS = 127;

// What the helpers of a launch tell the launcher through the report pipe, one record at a time: writes
// of this size to a pipe arrive whole.
struct LaunchReport {
    enum Kind : int32_t { PROCESS_ID = 1, ERROR_NUMBER = 2 };
    int32_t fKind;  // which of the two
    int32_t fValue; // the identifier of the launched process, or the errno of a failed step
};

// Async-signal-safe: a record to the launcher.
void report(int fd, LaunchReport::Kind kind, int32_t value) {
    const LaunchReport record{kind, value};
    ssize_t written;
    do {
        written = ::write(fd, &record, sizeof(record));
    } while (written < 0 && errno == EINTR);
}

// The launched program's side, between fork and exec: only async-signal-safe calls. The program gets
// the default signal handling, no blocked signals, /dev/null as its standard streams and none of the
// launcher's other descriptors.
[[noreturn]] void execLaunched(char* const* argv, const char* workingDir, int reportFd) {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    struct sigaction defaultAction {};
    defaultAction.sa_handler = SIG_DFL;
    for (int signalNumber = 1; signalNumber < NSIG; ++signalNumber) {
        sigaction(signalNumber, &defaultAction, nullptr);
    }
    if (workingDir[0] != 0 && ::chdir(workingDir) != 0) {
        report(reportFd, LaunchReport::ERROR_NUMBER, errno);
        _exit(LAUNCH_FAILED_STATUS);
    }
    const int devNull = ::open("/dev/null", O_RDWR);
    for (int fd = 0; fd < 3 && devNull >= 0; ++fd) {
        ::dup2(devNull, fd);
    }
    // Everything else closes at the exec, the report pipe with it: its end tells the launcher that the
    // exec went through.
    ::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
    ::execv(argv[0], argv);
    report(reportFd, LaunchReport::ERROR_NUMBER, errno);
    _exit(LAUNCH_FAILED_STATUS);
}

// The helper between launcher and program: leaves the launcher's session, starts the program and ends
// at once, so that the program is nobody's child to reap but the system's.
[[noreturn]] void runLaunchHelper(char* const* argv, const char* workingDir, int reportFd) {
    if (::setsid() < 0) {
        report(reportFd, LaunchReport::ERROR_NUMBER, errno);
        _exit(LAUNCH_FAILED_STATUS);
    }
    const pid_t launched = ::fork();
    if (launched == 0) {
        execLaunched(argv, workingDir, reportFd);
    }
    if (launched < 0) {
        report(reportFd, LaunchReport::ERROR_NUMBER, errno);
        _exit(LAUNCH_FAILED_STATUS);
    }
    report(reportFd, LaunchReport::PROCESS_ID, launched);
    _exit(0);
}

// Reads the helpers' records until both have closed the pipe: the launched identifier, or 0 with the
// error that stopped the launch.
uint32_t readLaunchReports(int reportFd, int& errorNumber) {
    uint32_t processId = 0;
    LaunchReport record{};
    for (;;) {
        const ssize_t count = ::read(reportFd, &record, sizeof(record));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count != static_cast<ssize_t>(sizeof(record))) {
            break;
        }
        if (record.fKind == LaunchReport::PROCESS_ID) {
            processId = static_cast<uint32_t>(record.fValue);
        } else {
            errorNumber = record.fValue;
        }
    }
    return errorNumber == 0 ? processId : 0;
}

// The words a running process was started with, from its command line; empty when it can't be read.
std::vector<std::string> readCommandLine(const std::string& processFolder) {
    std::string text;
    std::vector<std::string> words;
    if (Dirs::readFile(processFolder + "cmdline", text) == FileReadResult::READ && ! text.empty()) {
        // Each word ends in a NUL byte.
        words = Utils::split(text.substr(0, text.size() - 1), '\0');
    }
    return words;
}

} // namespace

uint32_t Process::getCurrentProcessId() {
    return static_cast<uint32_t>(::getpid());
}

bool Process::isRunning(uint32_t processId) {
    if (processId == 0) {
        return false;
    }
    const std::string processFolder = PROC_FOLDER + std::to_string(processId) + "/";
    struct stat info {};
    if (::stat(PROC_FOLDER, &info) != 0 || ! S_ISDIR(info.st_mode)) {
        // Without the process file system the signal test is all there is.
        return ::kill(static_cast<pid_t>(processId), 0) == 0;
    }
    if (::stat(processFolder.c_str(), &info) != 0 || info.st_uid != ::geteuid()) {
        return false;
    }
    std::string stat;
    if (Dirs::readFile(processFolder + "stat", stat) != FileReadResult::READ) {
        return false;
    }
    // "pid (name) S ...": the state stands behind the name, which may itself hold ") ".
    const size_t nameEnd = stat.rfind(')');
    const char state = nameEnd != std::string::npos && nameEnd + 2 < stat.size() ? stat[nameEnd + 2] : 'X';
    return state != 'Z' && state != 'X' && state != 'x';
}

uint32_t Process::getProcessId(const std::vector<std::string>& launchArgs) {
    uint32_t retVal = 0;
    do {
        SANITY_CHECK(launchArgs.size() > 0);
        for (const std::string& name : Dirs::scanDir(PROC_FOLDER)) {
            if (! Utils::isNumeric(name) || ! Utils::isNumberUpTo(name, UINT32_MAX)) {
                continue;
            }
            const uint32_t processId = static_cast<uint32_t>(Utils::toUInt64(name));
            if (readCommandLine(PROC_FOLDER + name + "/") == launchArgs && isRunning(processId)) {
                retVal = processId;
                break;
            }
        }
    } while (false);
    return retVal;
}

uint32_t Process::launchProcess(const std::vector<std::string>& launchArgs, const std::string& workingDir) {
    uint32_t retVal = 0;
    do {
        SANITY_CHECK(! launchArgs.empty());
        const std::string& processPath = launchArgs[0];
        SANITY_CHECK(Dirs::fileExists(processPath));
        // Made before the fork: the child may not allocate.
        std::vector<char*> argv;
        for (const std::string& word : launchArgs) {
            argv.push_back(const_cast<char*>(word.c_str()));
        }
        argv.push_back(nullptr);
        int reportFds[2] = {FileDescriptor::NONE, FileDescriptor::NONE};
        SANITY_CHECK(::pipe2(reportFds, O_CLOEXEC) == 0);
        FileDescriptor reportReader(reportFds[0]);
        FileDescriptor reportWriter(reportFds[1]);
        const pid_t helper = ::fork();
        SANITY_CHECK(helper >= 0);
        if (helper == 0) {
            runLaunchHelper(argv.data(), workingDir.c_str(), reportWriter.get());
        }
        reportWriter.reset();
        int errorNumber = 0;
        const uint32_t processId = readLaunchReports(reportReader.get(), errorNumber);
        while (::waitpid(helper, nullptr, 0) < 0 && errno == EINTR) {
        }
        if (errorNumber != 0) {
            LOG_ERROR_F("cannot launch %s: %s", processPath.c_str(), strerror(errorNumber));
        }
        SANITY_CHECK(processId != 0);
        retVal = processId;
    } while (false);
    return retVal;
}

} // namespace Brw
