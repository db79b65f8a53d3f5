#include "BrwTestEnvironment.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "BrwCoordinator/BrwInternalCoordinator.h"

namespace BrwTests {

namespace {

std::string gHome;

void removeHome() {
    if (! gHome.empty()) {
        std::error_code error;
        std::filesystem::remove_all(gHome, error);
    }
}

void setFolder(const char* variable, const std::string& path) {
    std::filesystem::create_directories(path);
    setenv(variable, path.c_str(), 1);
}

} // namespace

void isolateHome() {
    if (! gHome.empty()) {
        return;
    }
    std::string pattern = (std::filesystem::temp_directory_path() / "braidwell-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        perror("mkdtemp");
        std::abort();
    }
    gHome = pattern;
    setFolder("HOME", gHome);
    setFolder("XDG_CONFIG_HOME", gHome + "/.config");
    setFolder("XDG_DATA_HOME", gHome + "/.local/share");
    setFolder("XDG_STATE_HOME", gHome + "/.local/state");
    setFolder("XDG_CACHE_HOME", gHome + "/.cache");
    setFolder("XDG_RUNTIME_DIR", gHome + "/.run");
    setFolder("TMPDIR", gHome + "/tmp");
    std::atexit(removeHome);
}

const std::string& isolatedHome() {
    return gHome;
}

std::string uniqueName(const std::string& stem) {
    static int counter = 0;
    return stem + "." + std::to_string(getpid()) + "." + std::to_string(++counter);
}

bool initCoordinator(const std::string& programName) {
    std::string program = programName;
    std::string nameSwitch = "-n";
    std::string coordinatorName = uniqueName("net.braidwell.coordinator.test");
    char* args[] = {program.data(), nameSwitch.data(), coordinatorName.data(), nullptr};
    return Brw::InternalCoordinator::init(3, args);
}

Background::Background(const std::vector<std::string>& args) {
    fPid = fork();
    if (fPid == 0) {
        std::vector<char*> argv;
        for (const auto& arg : args) {
            argv.push_back(const_cast<char*>(arg.c_str()));
        }
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
}

void Background::kill(int signalNumber) {
    if (fPid > 0) {
        ::kill(fPid, signalNumber);
        waitpid(fPid, nullptr, 0);
        fPid = -1;
    }
}

bool Background::hasExited(int& exitCode) {
    int status = 0;
    if (fPid <= 0 || waitpid(fPid, &status, WNOHANG) != fPid) {
        return false;
    }
    fPid = -1;
    exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return true;
}

ProcessResult runProcess(const std::vector<std::string>& args, const std::string& input,
                         int timeoutMilliseconds) {
    ProcessResult result;
    int inPipe[2], outPipe[2], errPipe[2];
    if (pipe(inPipe) != 0 || pipe(outPipe) != 0 || pipe(errPipe) != 0) {
        return result;
    }
    pid_t pid = fork();
    if (pid == 0) {
        dup2(inPipe[0], 0);
        dup2(outPipe[1], 1);
        dup2(errPipe[1], 2);
        for (int fd : {inPipe[0], inPipe[1], outPipe[0], outPipe[1], errPipe[0], errPipe[1]}) {
            close(fd);
        }
        std::vector<char*> argv;
        for (const auto& arg : args) {
            argv.push_back(const_cast<char*>(arg.c_str()));
        }
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(inPipe[0]);
    close(outPipe[1]);
    close(errPipe[1]);
    signal(SIGPIPE, SIG_IGN);
    size_t written = 0;
    if (input.empty()) {
        close(inPipe[1]);
        inPipe[1] = -1;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMilliseconds);
    bool outOpen = true, errOpen = true;
    while (outOpen || errOpen) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline -
                                                                          std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            kill(pid, SIGKILL);
            result.timedOut = true;
            break;
        }
        pollfd fds[3] = {{outOpen ? outPipe[0] : -1, POLLIN, 0},
                         {errOpen ? errPipe[0] : -1, POLLIN, 0},
                         {inPipe[1], POLLOUT, 0}};
        if (poll(fds, 3, static_cast<int>(left.count())) < 0) {
            continue;
        }
        char buffer[4096];
        for (int i = 0; i < 2; ++i) {
            if (fds[i].revents & (POLLIN | POLLHUP)) {
                ssize_t n = read(fds[i].fd, buffer, sizeof(buffer));
                if (n <= 0) {
                    (i == 0 ? outOpen : errOpen) = false;
                } else {
                    (i == 0 ? result.standardOutput : result.standardError)
                        .append(buffer, static_cast<size_t>(n));
                }
            }
        }
        if (inPipe[1] >= 0 && (fds[2].revents & (POLLOUT | POLLERR | POLLHUP))) {
            ssize_t n = write(inPipe[1], input.data() + written, input.size() - written);
            written += n > 0 ? static_cast<size_t>(n) : 0;
            if (n < 0 || written == input.size()) {
                close(inPipe[1]);
                inPipe[1] = -1;
            }
        }
    }
    if (inPipe[1] >= 0) {
        close(inPipe[1]);
    }
    close(outPipe[0]);
    close(errPipe[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (! result.timedOut && WIFEXITED(status)) {
        result.exitCode = WEXITSTATUS(status);
    }
    return result;
}

} // namespace BrwTests
