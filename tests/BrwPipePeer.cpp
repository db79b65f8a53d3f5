// brw_pipe_peer: the other process of the pipe tests, on the pipes of the library.
//
//   brw_pipe_peer read PATH                           reads lines, says "WRITER SEQUENCE" or "BAD SIZE" for
//   each brw_pipe_peer write PATH WRITER COUNT SEED LARGEST writes COUNT lines of up to LARGEST bytes, says
//   "done" brw_pipe_peer echo IN_PATH OUT_PATH               sends each line read from IN_PATH back to
//   OUT_PATH brw_pipe_peer raw SOCKET_PATH                     sends one string on a bare connection, says
//   whether
//                                                     the reader "dropped" it or "kept" it
//
// PATH is a pipe's proxy file. The readers say "ready" once open and stop at the end of standard input.

#include <chrono>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <string>
#include <thread>
#include <unistd.h>

#include "BrwCoordinator/BrwPipes/BrwLocalSocket.h"
#include "BrwCoordinator/BrwPipes/BrwPipePacket.h"
#include "BrwCoordinator/BrwPipes/BrwPipes.h"
#include "BrwCoordinator/BrwPipes/BrwReadPipe.h"
#include "BrwCoordinator/BrwPipes/BrwWritePipe.h"
#include "BrwLogger/BrwLogger.h"
#include "BrwPipeLines.h"

namespace {

using namespace Brw;

constexpr int64_t TURN_MICROSECONDS = 5000;
constexpr auto DEADLINE = std::chrono::seconds(300);
constexpr int RAW_WAIT_MILLISECONDS = 10000;

void say(const std::string& text) {
    size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = ::write(STDOUT_FILENO, text.data() + written, text.size() - written);
        if (count <= 0) {
            return;
        }
        written += static_cast<size_t>(count);
    }
}

// One turn of the loop; false once standard input has ended.
bool turn() {
    WritePipe::timeslice();
    ReadPipe::timeslice();
    if (Pipes::waitForActivity(TURN_MICROSECONDS, {STDIN_FILENO})) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        char byte = 0;
        if (::poll(&input, 1, 0) == 1 && ::read(STDIN_FILENO, &byte, 1) <= 0) {
            return false;
        }
    }
    return true;
}

bool waitForPipe(const std::string& path) {
    const auto deadline = std::chrono::steady_clock::now() + DEADLINE;
    while (! Pipes::namedPipeExists(path)) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

int readLines(const std::string& path) {
    const int handle = Pipes::openReadNamedPipe(path);
    if (handle == 0) {
        say("cannot open\n");
        return 1;
    }
    say("ready\n");
    std::string line;
    bool readComplete = false;
    do {
        std::string verdicts;
        while (Pipes::readFromNamedPipe(line, handle, readComplete, '\n') && readComplete) {
            uint32_t writer = 0;
            uint64_t sequence = 0;
            verdicts += BrwTests::checkLine(line, writer, sequence)
                            ? std::to_string(writer) + " " + std::to_string(sequence) + "\n"
                            : "BAD " + std::to_string(line.size()) + "\n";
        }
        say(verdicts);
    } while (turn());
    return Pipes::closeNamedPipe(handle) ? 0 : 1;
}

int writeLines(const std::string& path, uint32_t writer, uint64_t count, uint64_t seed, size_t largest) {
    if (! waitForPipe(path)) {
        say("no pipe\n");
        return 1;
    }
    const int handle = Pipes::openWriteNamedPipe(path);
    uint64_t state = seed;
    for (uint64_t sequence = 1; sequence <= count; ++sequence) {
        if (! Pipes::writeToNamedPipe(
                handle, BrwTests::makeLine(writer, sequence, BrwTests::lineSize(state, largest)))) {
            say("write failed\n");
            return 1;
        }
    }
    say("queued\n");
    if (! Pipes::closeNamedPipe(handle)) {
        return 1;
    }
    const auto deadline = std::chrono::steady_clock::now() + DEADLINE;
    while (! WritePipe::isAllIdle()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            say("not flushed\n");
            return 1;
        }
        turn();
    }
    say("done\n");
    return 0;
}

int echoLines(const std::string& inPath, const std::string& outPath) {
    const int readHandle = Pipes::openReadNamedPipe(inPath);
    if (readHandle == 0 || ! waitForPipe(outPath)) {
        say("cannot open\n");
        return 1;
    }
    const int writeHandle = Pipes::openWriteNamedPipe(outPath);
    say("ready\n");
    std::string line;
    bool readComplete = false;
    do {
        while (Pipes::readFromNamedPipe(line, readHandle, readComplete, '\n') && readComplete) {
            if (! Pipes::writeToNamedPipe(writeHandle, "echo: " + line)) {
                return 1;
            }
        }
    } while (turn());
    return Pipes::closeNamedPipe(readHandle) && Pipes::closeNamedPipe(writeHandle) ? 0 : 1;
}

int sendRaw(const std::string& socketPath) {
    FileDescriptor connection;
    int error = 0;
    if (LocalSocket::connectTo(socketPath, connection, error) != SocketOutcome::Done) {
        say("noconnect " + std::to_string(error) + "\n");
        return 0;
    }
    const std::string text = "intruder\n";
    PipePacket packet;
    packet.setStringNumber(1);
    packet.setDataSize(static_cast<uint16_t>(PipePacket::STRING_LENGTH_SIZE + text.size()));
    packet.setStringLength(text.size());
    std::memcpy(packet.data() + PipePacket::STRING_LENGTH_SIZE, text.data(), text.size());
    size_t moved = 0;
    (void)LocalSocket::sendSome(connection.get(), packet.bytes(),
                                PipePacket::HEADER_SIZE + packet.getDataSize(), moved, error);
    pollfd end{connection.get(), POLLIN, 0};
    uint8_t byte = 0;
    const bool isDropped =
        ::poll(&end, 1, RAW_WAIT_MILLISECONDS) == 1 &&
        LocalSocket::receiveSome(connection.get(), &byte, 1, moved, error) == SocketOutcome::PeerGone;
    say(isDropped ? "dropped\n" : "kept\n");
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    Brw::Logger::setLogLevel(1);
    const std::string mode = argc > 1 ? argv[1] : "";
    int result = 2;
    if (mode == "read" && argc == 3) {
        result = readLines(argv[2]);
    } else if (mode == "write" && argc == 7) {
        result = writeLines(argv[2], static_cast<uint32_t>(std::stoul(argv[3])), std::stoull(argv[4]),
                            std::stoull(argv[5]), std::stoull(argv[6]));
    } else if (mode == "echo" && argc == 4) {
        result = echoLines(argv[2], argv[3]);
    } else if (mode == "raw" && argc == 3) {
        result = sendRaw(argv[2]);
    } else {
        fprintf(stderr, "usage: brw_pipe_peer read PATH | write PATH WRITER COUNT SEED LARGEST | echo "
                        "IN_PATH OUT_PATH | raw SOCKET_PATH\n");
    }
    Brw::Pipes::closeAll();
    return result;
}
