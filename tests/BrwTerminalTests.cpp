// The console stream must leave a terminal as it found it. A child process holds console streams with the
// slave side of a pseudo-terminal as its standard input, while this process watches the slave's mode:
// before, during, and after the streams end, the process exits, or a signal ends it.

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwParser/BrwInputStreamConsole.h"

namespace {

using Brw::InputStreamConsole;

InputStreamConsole* gHeldStream = nullptr; // a child's stream that lives until the process ends

// Polls the stream as the coordinator does, for at most five seconds.
int awaitKey(InputStreamConsole& stream) {
    int c = InputStreamConsole::NOTHING_YET;
    for (int i = 0; i < 500 && c == InputStreamConsole::NOTHING_YET; ++i) {
        c = stream.getChar();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return c;
}

bool isSameMode(const termios& a, const termios& b) {
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag &&
           a.c_lflag == b.c_lflag && memcmp(a.c_cc, b.c_cc, sizeof(a.c_cc)) == 0;
}

// Keys one by one, no echo, and Ctrl-C still a signal.
bool isRawInput(const termios& mode) {
    return (mode.c_lflag & ICANON) == 0 && (mode.c_lflag & ECHO) == 0 && (mode.c_lflag & ISIG) != 0;
}

class TerminalTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(openpty(&fMaster, &fSlave, nullptr, nullptr, nullptr), 0);
        ASSERT_EQ(pipe(fToParent), 0);
        ASSERT_EQ(pipe(fToChild), 0);
        ASSERT_EQ(tcgetattr(fSlave, &fInitialMode), 0);
        ASSERT_FALSE(isRawInput(fInitialMode));
    }

    void TearDown() override {
        if (fChild > 0) {
            kill(fChild, SIGKILL);
            waitpid(fChild, nullptr, 0);
        }
        for (int fd : {fMaster, fSlave, fToParent[0], fToParent[1], fToChild[0], fToChild[1]}) {
            if (fd >= 0) {
                close(fd);
            }
        }
    }

    // Runs `body` in a child whose standard input is the slave; the child ends when the body returns.
    template <class Body>
    void startChild(Body body) {
        fChild = fork();
        ASSERT_GE(fChild, 0);
        if (fChild == 0) {
            dup2(fSlave, STDIN_FILENO);
            close(fMaster);
            close(fSlave);
            close(fToParent[0]);
            close(fToChild[1]);
            body();
            _exit(0);
        }
        close(fToParent[1]);
        close(fToChild[0]);
        fToParent[1] = fToChild[0] = -1;
    }

    // The child's side of the conversation.
    void report(char c) { (void)! write(fToParent[1], &c, 1); }
    void awaitParent() {
        char c = 0;
        (void)! read(fToChild[0], &c, 1);
    }

    // The parent's side: the child's next word, 0 when none came in time.
    char awaitChild() {
        pollfd descriptor{fToParent[0], POLLIN, 0};
        char c = 0;
        if (poll(&descriptor, 1, 5000) != 1 || read(fToParent[0], &c, 1) != 1) {
            return 0;
        }
        return c;
    }
    void tell() { (void)! write(fToChild[1], "g", 1); }

    termios slaveMode() const {
        termios mode{};
        tcgetattr(fSlave, &mode);
        return mode;
    }

    // The child's wait status; -1 when it did not end in time.
    int awaitExit() {
        int status = -1;
        for (int i = 0; i < 500; ++i) {
            if (waitpid(fChild, &status, WNOHANG) == fChild) {
                fChild = -1;
                return status;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return -1;
    }

    int fMaster = -1;
    int fSlave = -1;
    int fToParent[2] = {-1, -1};
    int fToChild[2] = {-1, -1};
    pid_t fChild = -1;
    termios fInitialMode{};
};

TEST_F(TerminalTest, RawInputLastsUntilTheLastStreamEnds) {
    startChild([this] {
        auto* first = new InputStreamConsole(1);
        auto* second = new InputStreamConsole(1);
        report('r');
        awaitParent();
        delete first;
        report('1');
        awaitParent();
        delete second;
        report('2');
        awaitParent();
    });
    ASSERT_EQ(awaitChild(), 'r');
    EXPECT_TRUE(isRawInput(slaveMode()));
    tell();
    ASSERT_EQ(awaitChild(), '1');
    EXPECT_TRUE(isRawInput(slaveMode()));
    tell();
    ASSERT_EQ(awaitChild(), '2');
    EXPECT_TRUE(isSameMode(slaveMode(), fInitialMode));
    tell();
    int status = awaitExit();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST_F(TerminalTest, KeysArriveWithoutALineEndAndCtrlDEnds) {
    startChild([this] {
        InputStreamConsole stream(0);
        report('r');
        const int key = awaitKey(stream);
        report(key >= 0 ? static_cast<char>(key) : '?');
        stream.next();
        report(awaitKey(stream) == InputStreamConsole::AT_END ? 'e' : '?');
    });
    ASSERT_EQ(awaitChild(), 'r');
    ASSERT_EQ(write(fMaster, "x", 1), 1);
    EXPECT_EQ(awaitChild(), 'x');
    ASSERT_EQ(write(fMaster, "\x04", 1), 1);
    EXPECT_EQ(awaitChild(), 'e');
    awaitExit();
    EXPECT_TRUE(isSameMode(slaveMode(), fInitialMode));
}

TEST_F(TerminalTest, TerminatingCoordinatorEndsTheInput) {
    startChild([this] {
        InputStreamConsole stream(0);
        report('r');
        awaitParent();
        auto coordinator =
            std::dynamic_pointer_cast<Brw::InternalCoordinator>(Brw::InternalCoordinator::factory());
        if (coordinator) {
            coordinator->terminate();
        }
        // A key is waiting, but the coordinator's end comes first.
        report(stream.getChar() == InputStreamConsole::AT_END && stream.atEOF() ? 'e' : '?');
    });
    ASSERT_EQ(awaitChild(), 'r');
    ASSERT_EQ(write(fMaster, "y", 1), 1);
    tell();
    EXPECT_EQ(awaitChild(), 'e');
    awaitExit();
}

TEST_F(TerminalTest, ExitWithTheStreamAliveRestoresTheMode) {
    startChild([this] {
        gHeldStream = new InputStreamConsole(1);
        report('r');
        awaitParent();
        exit(0);
    });
    ASSERT_EQ(awaitChild(), 'r');
    EXPECT_TRUE(isRawInput(slaveMode()));
    tell();
    int status = awaitExit();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_TRUE(isSameMode(slaveMode(), fInitialMode));
}

struct EndingSignal {
    int signalNumber; // what ends the child
    bool isOwnCrash;  // the child raises it itself, else it comes from outside
};

// How a test's parameter reads in the test's name and in the listings.
void PrintTo(const EndingSignal& ending, std::ostream* out) {
    *out << "SIG" << sigabbrev_np(ending.signalNumber)
         << (ending.isOwnCrash ? " raised by the child" : " sent");
}

class TerminalSignalTest : public TerminalTest, public testing::WithParamInterface<EndingSignal> {};

// With a sanitizer's handler in place a crash may end the process through it rather than by the signal;
// either way the process must not end normally.
TEST_P(TerminalSignalTest, SignalRestoresTheModeAndStillEndsTheProcess) {
    const EndingSignal ending = GetParam();
    startChild([this, ending] {
        gHeldStream = new InputStreamConsole(1);
        report('r');
        awaitParent();
        if (ending.signalNumber == SIGABRT) {
            abort();
        }
        raise(ending.signalNumber);
    });
    ASSERT_EQ(awaitChild(), 'r');
    EXPECT_TRUE(isRawInput(slaveMode()));
    if (ending.isOwnCrash) {
        tell();
    } else {
        kill(fChild, ending.signalNumber);
    }
    const int status = awaitExit();
    if (ending.isOwnCrash) {
        EXPECT_TRUE(status != -1 && ! (WIFEXITED(status) && WEXITSTATUS(status) == 0));
    } else {
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == ending.signalNumber);
    }
    EXPECT_TRUE(isSameMode(slaveMode(), fInitialMode));
}

INSTANTIATE_TEST_SUITE_P(Signals, TerminalSignalTest,
                         testing::Values(EndingSignal{SIGINT, false}, EndingSignal{SIGTERM, false},
                                         EndingSignal{SIGABRT, true}, EndingSignal{SIGSEGV, true}),
                         [](const testing::TestParamInfo<EndingSignal>& info) {
                             return std::string(sigabbrev_np(info.param.signalNumber));
                         });

} // namespace
