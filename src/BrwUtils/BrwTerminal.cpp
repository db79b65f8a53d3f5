#include "BrwUtils/BrwTerminal.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include "BrwLogger/BrwCheck.h"

namespace Brw {

namespace {

// The signals whose default action ends the process, and with it the raw input mode's owner.
constexpr int kFatalSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};
constexpr size_t kFatalSignalCount = sizeof(kFatalSignals) / sizeof(kFatalSignals[0]);

// Read by the signal handler, so plain data only.
struct termios gSavedMode;                            // standard input's mode before raw input
volatile sig_atomic_t gIsModeSaved = 0;               // gSavedMode is to be restored
struct sigaction gPreviousActions[kFatalSignalCount]; // what each signal did before
volatile sig_atomic_t gIsHandlerInstalled[kFatalSignalCount] = {};
int gRawInputDepth = 0;      // nesting of enterRawInput
bool gIsExitHookSet = false; // the atexit hook is registered

// Async-signal-safe: tcsetattr is.
void restoreSavedMode() {
    if (gIsModeSaved != 0) {
        tcsetattr(STDIN_FILENO, TCSANOW, &gSavedMode);
        gIsModeSaved = 0;
    }
}

void restoreAtExit() {
    restoreSavedMode();
}

// Gives the terminal back, then lets the signal do what it did before: by default end the process, as
// it would have without us. A fault re-raised here is delivered when the handler returns.
void restoreAndResignal(int signalNumber) {
    restoreSavedMode();
    for (size_t i = 0; i < kFatalSignalCount; ++i) {
        if (kFatalSignals[i] == signalNumber && gIsHandlerInstalled[i] != 0) {
            sigaction(signalNumber, &gPreviousActions[i], nullptr);
            gIsHandlerInstalled[i] = 0;
        }
    }
    raise(signalNumber);
}

void installHandlers() {
    for (size_t i = 0; i < kFatalSignalCount; ++i) {
        struct sigaction previous {};
        if (sigaction(kFatalSignals[i], nullptr, &previous) != 0) {
            continue;
        }
        // An ignored signal stays ignored: the process that started us wants it so.
        if ((previous.sa_flags & SA_SIGINFO) == 0 && previous.sa_handler == SIG_IGN) {
            continue;
        }
        gPreviousActions[i] = previous;
        struct sigaction action {};
        action.sa_handler = restoreAndResignal;
        sigemptyset(&action.sa_mask);
        if (sigaction(kFatalSignals[i], &action, nullptr) == 0) {
            gIsHandlerInstalled[i] = 1;
        }
    }
}

// Puts the previous actions back, unless someone has replaced ours meanwhile.
void uninstallHandlers() {
    for (size_t i = 0; i < kFatalSignalCount; ++i) {
        if (gIsHandlerInstalled[i] == 0) {
            continue;
        }
        struct sigaction current {};
        if (sigaction(kFatalSignals[i], nullptr, &current) == 0 && (current.sa_flags & SA_SIGINFO) == 0 &&
            current.sa_handler == restoreAndResignal) {
            sigaction(kFatalSignals[i], &gPreviousActions[i], nullptr);
        }
        gIsHandlerInstalled[i] = 0;
    }
}

} // namespace

bool Terminal::isTerminal(int fd) {
    return isatty(fd) == 1;
}

bool Terminal::enterRawInput() {
    bool retVal = false;
    do {
        if (gRawInputDepth > 0) {
            ++gRawInputDepth;
            retVal = true;
            break;
        }
        struct termios mode {};
        SANITY_CHECK(tcgetattr(STDIN_FILENO, &mode) == 0);
        gSavedMode = mode;
        gIsModeSaved = 1;
        installHandlers();
        if (! gIsExitHookSet) {
            gIsExitHookSet = std::atexit(restoreAtExit) == 0;
        }
        // ISIG stays on: Ctrl-C is still a SIGINT, and the handler gives the terminal back.
        mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        mode.c_cc[VMIN] = 1;
        mode.c_cc[VTIME] = 0;
        const bool isRawModeSet = tcsetattr(STDIN_FILENO, TCSANOW, &mode) == 0;
        if (! isRawModeSet) {
            gIsModeSaved = 0;
            uninstallHandlers();
        }
        SANITY_CHECK(isRawModeSet);
        gRawInputDepth = 1;
        retVal = true;
    } while (false);
    return retVal;
}

void Terminal::leaveRawInput() {
    do {
        SANITY_CHECK(gRawInputDepth > 0);
        if (--gRawInputDepth > 0) {
            break;
        }
        restoreSavedMode();
        uninstallHandlers();
    } while (false);
}

bool Terminal::isRawInput() {
    return gRawInputDepth > 0;
}

int Terminal::pollReadable(int fd) {
    struct pollfd descriptor {
        fd, POLLIN, 0
    };
    const int ready = poll(&descriptor, 1, 0);
    if (ready < 0) {
        return errno == EINTR || errno == EAGAIN ? 0 : -1;
    }
    return ready == 0 ? 0 : 1;
}

long Terminal::readBytes(int fd, char* buffer, size_t size) {
    const ssize_t count = read(fd, buffer, size);
    if (count >= 0) {
        return static_cast<long>(count);
    }
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR ? READ_WOULD_BLOCK : -1;
}

} // namespace Brw
