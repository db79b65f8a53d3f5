// The pipes between real processes: strings there and back, clients that break the format or flood the
// reader, a client of another user, eight writers at once, and a reader that stops for a while.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <mutex>
#include <random>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwCoordinator/BrwPipes/BrwLocalSocket.h"
#include "BrwCoordinator/BrwPipes/BrwPipePacket.h"
#include "BrwCoordinator/BrwPipes/BrwPipes.h"
#include "BrwCoordinator/BrwPipes/BrwReadPipe.h"
#include "BrwCoordinator/BrwPipes/BrwWritePipe.h"
#include "BrwMain/BrwLogRecorder.h"
#include "BrwPipeLines.h"
#include "BrwTestEnvironment.h"

namespace {

using namespace Brw;
using Clock = std::chrono::steady_clock;

const std::string kPeer = BRW_PIPE_PEER_PATH;
constexpr int64_t TURN_MICROSECONDS = 5000;
constexpr auto DEADLINE = std::chrono::seconds(120);
constexpr size_t LARGEST_LINE = 20480;

// A peer program started in the background, with its standard input held open and its standard output
// collected; killed and reaped at the end whatever happens.
class Peer {
public:
    explicit Peer(const std::vector<std::string>& args) {
        int input[2];
        int output[2];
        if (::pipe(input) != 0 || ::pipe(output) != 0) {
            return;
        }
        fPid = ::fork();
        if (fPid == 0) {
            ::dup2(input[0], STDIN_FILENO);
            ::dup2(output[1], STDOUT_FILENO);
            for (int fd : {input[0], input[1], output[0], output[1]}) {
                ::close(fd);
            }
            std::vector<char*> argv;
            for (const std::string& arg : args) {
                argv.push_back(const_cast<char*>(arg.c_str()));
            }
            argv.push_back(nullptr);
            ::execv(argv[0], argv.data());
            ::_exit(127);
        }
        ::close(input[0]);
        ::close(output[1]);
        fInput = input[1];
        fOutput = output[0];
        fCollector = std::thread([this] { collect(); });
    }
    ~Peer() {
        if (fPid > 0) {
            ::kill(fPid, SIGKILL);
            ::kill(fPid, SIGCONT);
            ::waitpid(fPid, nullptr, 0);
        }
        closeInput();
        if (fCollector.joinable()) {
            fCollector.join();
        }
        ::close(fOutput);
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    pid_t pid() const { return fPid; }
    void closeInput() {
        if (fInput >= 0) {
            ::close(fInput);
            fInput = -1;
        }
    }
    std::string output() {
        std::lock_guard<std::mutex> lock(fMutex);
        return fText;
    }
    // The lines written so far, from line `first` on.
    std::vector<std::string> lines(size_t first = 0) {
        std::lock_guard<std::mutex> lock(fMutex);
        std::vector<std::string> result;
        size_t start = 0;
        for (size_t index = 0, end = fText.find('\n'); end != std::string::npos;
             ++index, end = fText.find('\n', start)) {
            if (index >= first) {
                result.push_back(fText.substr(start, end - start));
            }
            start = end + 1;
        }
        return result;
    }
    bool hasLine(const std::string& line) {
        const std::string text = output();
        return text.rfind(line + "\n", 0) == 0 || text.find("\n" + line + "\n") != std::string::npos;
    }
    // The exit status once the program has ended by itself, -1 when it didn't in time.
    int waitForExit(std::chrono::seconds limit = DEADLINE) {
        const auto deadline = Clock::now() + limit;
        while (Clock::now() < deadline) {
            int status = 0;
            if (::waitpid(fPid, &status, WNOHANG) == fPid) {
                fPid = -1;
                return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return -1;
    }

private:
    void collect() {
        char buffer[4096];
        for (;;) {
            const ssize_t count = ::read(fOutput, buffer, sizeof(buffer));
            if (count <= 0) {
                return;
            }
            std::lock_guard<std::mutex> lock(fMutex);
            fText.append(buffer, static_cast<size_t>(count));
        }
    }

    pid_t fPid = -1;
    int fInput = -1;
    int fOutput = -1;
    std::thread fCollector;
    std::mutex fMutex;
    std::string fText;
};

// True once `condition` holds, false when the deadline passes first; the pipes of this process get their
// turns meanwhile.
bool turnUntil(const std::function<bool()>& condition, std::chrono::seconds limit = DEADLINE) {
    const auto deadline = Clock::now() + limit;
    while (! condition()) {
        if (Clock::now() >= deadline) {
            return false;
        }
        WritePipe::timeslice();
        ReadPipe::timeslice();
        Pipes::waitForActivity(TURN_MICROSECONDS, {});
    }
    return true;
}

// Sleeps without serving the pipes of this process, which a peer serves.
bool waitUntil(const std::function<bool()>& condition, std::chrono::seconds limit = DEADLINE) {
    const auto deadline = Clock::now() + limit;
    while (! condition()) {
        if (Clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

std::vector<std::string> readLines(int handle) {
    std::vector<std::string> lines;
    std::string line;
    bool readComplete = false;
    while (Pipes::readFromNamedPipe(line, handle, readComplete, '\n') && readComplete) {
        lines.push_back(line);
    }
    return lines;
}

// Counts the lines of each writer and what was wrong with them: every line whole, each writer's in its
// order, none twice.
struct LineLedger {
    explicit LineLedger(size_t writerCount) : fNext(writerCount, 1) {}
    void add(uint32_t writer, uint64_t sequence) {
        if (writer >= fNext.size() || sequence != fNext[writer]) {
            ++fFaults;
            return;
        }
        ++fNext[writer];
        ++fCount;
    }
    void add(const std::string& line) {
        uint32_t writer = 0;
        uint64_t sequence = 0;
        if (BrwTests::checkLine(line, writer, sequence)) {
            add(writer, sequence);
        } else {
            ++fFaults;
        }
    }
    std::vector<uint64_t> fNext; // each writer's next sequence number
    size_t fCount = 0;           // lines in order
    size_t fFaults = 0;          // lines cut, out of order or repeated
};

// The CPU time of a process so far, user and system, in clock ticks.
long cpuTicks(pid_t pid) {
    FILE* file = std::fopen(("/proc/" + std::to_string(pid) + "/stat").c_str(), "r");
    if (file == nullptr) {
        return -1;
    }
    char buffer[1024] = {};
    const size_t size = std::fread(buffer, 1, sizeof(buffer) - 1, file);
    std::fclose(file);
    const char* fields = std::strrchr(buffer, ')');
    long user = 0;
    long system = 0;
    if (size == 0 || fields == nullptr ||
        std::sscanf(fields + 2, "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %ld %ld", &user, &system) != 2) {
        return -1;
    }
    return user + system;
}

class PipeTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        BrwTests::isolateHome();
        std::signal(SIGPIPE, SIG_IGN);
    }
    void TearDown() override { Pipes::closeAll(); }

    static std::string pipePath(const std::string& stem) {
        return InternalCoordinator::getPipeFolderPath() + BrwTests::uniqueName(stem);
    }
};

TEST_F(PipeTest, TwoProcessesExchangeStrings) {
    const std::string toPeer = pipePath("to-peer");
    const std::string fromPeer = pipePath("from-peer");
    const int readHandle = Pipes::openReadNamedPipe(fromPeer);
    ASSERT_NE(readHandle, 0);
    Peer peer({kPeer, "echo", toPeer, fromPeer});
    ASSERT_TRUE(waitUntil([&] { return peer.hasLine("ready"); })) << peer.output();
    const int writeHandle = Pipes::openWriteNamedPipe(toPeer);
    ASSERT_NE(writeHandle, 0);
    std::vector<std::string> sent;
    uint64_t state = 1;
    for (uint64_t sequence = 1; sequence <= 300; ++sequence) {
        sent.push_back(BrwTests::makeLine(0, sequence, BrwTests::lineSize(state, 60000)));
        ASSERT_TRUE(Pipes::writeToNamedPipe(writeHandle, sent.back()));
    }
    std::vector<std::string> received;
    ASSERT_TRUE(turnUntil([&] {
        for (const std::string& line : readLines(readHandle)) {
            received.push_back(line);
        }
        return received.size() >= sent.size();
    }));
    ASSERT_EQ(received.size(), sent.size());
    for (size_t index = 0; index < sent.size(); ++index) {
        ASSERT_EQ(received[index], "echo: " + sent[index]) << "line " << index;
    }
    peer.closeInput();
    EXPECT_EQ(peer.waitForExit(), 0);
}

TEST_F(PipeTest, HostileClientsDropOnlyTheirOwnConnections) {
    const std::string path = pipePath("hostile");
    const int readHandle = Pipes::openReadNamedPipe(path);
    ASSERT_NE(readHandle, 0);
    const std::string socketPath = Pipes::readSocketPath(path);
    constexpr uint64_t lineCount = 3000;
    Peer writer({kPeer, "write", path, "0", std::to_string(lineCount), "7", std::to_string(LARGEST_LINE)});
    LineLedger ledger(1);
    std::mt19937_64 random(42);
    // Each hostile client sends its bytes and goes, or stays silent; the reader goes on with the writer.
    const auto hostileBytes = [&](int kind) {
        PipePacket packet;
        std::string bytes;
        switch (kind % 6) {
        case 0: // random bytes
            for (int index = 0; index < 9000; ++index) {
                bytes += static_cast<char>(random());
            }
            return bytes;
        case 1: // a packet 1 without a packet 0
            packet.setPacketNumber(1);
            packet.setDataSize(10);
            return std::string(reinterpret_cast<const char*>(packet.bytes()), PipePacket::HEADER_SIZE + 10);
        case 2: // more data than a packet holds
            packet.setDataSize(PipePacket::MAX_DATA_SIZE + 1);
            return std::string(reinterpret_cast<const char*>(packet.bytes()), PipePacket::MAX_PACKET_SIZE);
        case 3: // a length larger than what follows, then the end
            packet.setDataSize(PipePacket::MAX_DATA_SIZE);
            packet.setStringLength(uint64_t{1} << 27);
            return std::string(reinterpret_cast<const char*>(packet.bytes()), PipePacket::MAX_PACKET_SIZE);
        case 4: // the end in the middle of a packet
            packet.setDataSize(100);
            packet.setStringLength(92);
            return std::string(reinterpret_cast<const char*>(packet.bytes()), PipePacket::HEADER_SIZE + 40);
        default: // nothing at all
            return bytes;
        }
    };
    int hostileCount = 0;
    std::vector<std::string> logLines = LogRecorder::record(1, [&] {
        (void)turnUntil([&] {
            // Thousands of connections opened and dropped while the writer writes.
            for (int burst = 0; burst < 20 && hostileCount < 3000; ++burst, ++hostileCount) {
                FileDescriptor connection;
                int error = 0;
                if (LocalSocket::connectTo(socketPath, connection, error) == SocketOutcome::Done) {
                    const std::string bytes = hostileBytes(hostileCount);
                    size_t moved = 0;
                    (void)LocalSocket::sendSome(connection.get(),
                                                reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(),
                                                moved, error);
                }
            }
            for (const std::string& line : readLines(readHandle)) {
                ledger.add(line);
            }
            return ledger.fCount + ledger.fFaults >= lineCount && hostileCount >= 3000;
        });
    });
    EXPECT_EQ(ledger.fCount, lineCount);
    EXPECT_EQ(ledger.fFaults, 0u);
    EXPECT_TRUE(LogRecorder::hasLineWith(logLines, "was expecting a packet #0 at start of buffer"));
    EXPECT_TRUE(LogRecorder::hasLineWith(logLines, "'fPacketSize <= 4096'"));
    EXPECT_EQ(writer.waitForExit(), 0);
    // Nothing is kept of the clients that have gone, and the pool is back to its waiting instances.
    const std::shared_ptr<ReadPipe> readPipe = ReadPipe::getPipe(readHandle);
    ASSERT_TRUE(readPipe);
    EXPECT_EQ(readPipe->getState(), ReadPipeState::Open);
    ASSERT_TRUE(turnUntil([&] {
        return readPipe->getInstances().size() == ReadPipe::WAITING_INSTANCE_COUNT;
    })) << readPipe->getInstances().size();
    EXPECT_EQ(readPipe->getStreamCount(), 0u);
}

TEST_F(PipeTest, ConnectionOfAnotherUserIsRefused) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root to connect as another user";
    }
    const std::string path = pipePath("other-user");
    const int readHandle = Pipes::openReadNamedPipe(path);
    ASSERT_NE(readHandle, 0);
    // The other user may pass the private folder, as only a process of this user could: what is left
    // to refuse it is the check of its credentials.
    Peer intruder({"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                   "--inh-caps=+dac_override", "--ambient-caps=+dac_override", kPeer, "raw",
                   Pipes::readSocketPath(path)});
    std::vector<std::string> received;
    const std::vector<std::string> logLines = LogRecorder::record(1, [&] {
        (void)turnUntil([&] {
            for (const std::string& line : readLines(readHandle)) {
                received.push_back(line);
            }
            return ! intruder.lines().empty();
        });
    });
    const int exitCode = intruder.waitForExit();
    if (exitCode != 0 && intruder.lines().empty()) {
        GTEST_SKIP() << "setpriv could not run the peer as another user here (exit status " << exitCode
                     << ")";
    }
    ASSERT_EQ(exitCode, 0);
    const std::string verdict = intruder.lines().empty() ? std::string() : intruder.lines().front();
    if (verdict.rfind("noconnect", 0) == 0) {
        GTEST_SKIP() << "this system doesn't let another user past the private folder: " << verdict;
    }
    EXPECT_EQ(verdict, "dropped");
    EXPECT_TRUE(received.empty());
    EXPECT_TRUE(LogRecorder::hasLineWith(logLines, "refused the connection of user 65534"));
}

TEST_F(PipeTest, EightWritersOfTenThousandStringsEachIntoOneReader) {
    constexpr uint32_t writerCount = 8;
    constexpr uint64_t lineCount = 10000;
    const std::string path = pipePath("load");
    const int readHandle = Pipes::openReadNamedPipe(path);
    ASSERT_NE(readHandle, 0);
    std::vector<std::unique_ptr<Peer>> writers;
    for (uint32_t writer = 0; writer < writerCount; ++writer) {
        writers.push_back(std::make_unique<Peer>(
            std::vector<std::string>{kPeer, "write", path, std::to_string(writer), std::to_string(lineCount),
                                     std::to_string(writer + 100), std::to_string(LARGEST_LINE)}));
    }
    LineLedger ledger(writerCount);
    ASSERT_TRUE(turnUntil([&] {
        for (const std::string& line : readLines(readHandle)) {
            ledger.add(line);
        }
        return ledger.fCount + ledger.fFaults >= writerCount * lineCount;
    })) << ledger.fCount
        << " lines arrived";
    EXPECT_EQ(ledger.fFaults, 0u);
    for (uint32_t writer = 0; writer < writerCount; ++writer) {
        EXPECT_EQ(ledger.fNext[writer], lineCount + 1) << "writer " << writer;
        EXPECT_EQ(writers[writer]->waitForExit(), 0) << "writer " << writer;
    }
}

TEST_F(PipeTest, StoppedReaderMakesWritersWaitWithoutSpinning) {
    constexpr uint32_t writerCount = 2;
    constexpr uint64_t lineCount = 4000;
    const std::string path = pipePath("paused");
    Peer reader({kPeer, "read", path});
    ASSERT_TRUE(waitUntil([&] { return reader.hasLine("ready"); })) << reader.output();
    std::vector<std::unique_ptr<Peer>> writers;
    for (uint32_t writer = 0; writer < writerCount; ++writer) {
        writers.push_back(std::make_unique<Peer>(
            std::vector<std::string>{kPeer, "write", path, std::to_string(writer), std::to_string(lineCount),
                                     std::to_string(writer + 1), std::to_string(LARGEST_LINE)}));
    }
    ASSERT_TRUE(waitUntil([&] { return reader.lines().size() > 100; }));
    ::kill(reader.pid(), SIGSTOP);
    // Once the writers have all their lines queued, they have nothing to do but wait: measure a second
    // of that, after a moment to fill what the sockets hold.
    ASSERT_TRUE(waitUntil([&] {
        return std::all_of(writers.begin(), writers.end(),
                           [](const auto& writer) { return writer->hasLine("queued"); });
    }));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    std::vector<long> ticksBefore;
    for (const auto& writer : writers) {
        ticksBefore.push_back(cpuTicks(writer->pid()));
    }
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const long ticksPerSecond = ::sysconf(_SC_CLK_TCK);
    for (size_t index = 0; index < writers.size(); ++index) {
        const long spent = cpuTicks(writers[index]->pid()) - ticksBefore[index];
        // A writer that spins burns the whole second; one that waits, a small part of it.
        EXPECT_LT(spent, ticksPerSecond / 4) << "writer " << index << " spent " << spent << " ticks";
    }
    EXPECT_LT(reader.lines().size(), writerCount * lineCount);
    ::kill(reader.pid(), SIGCONT);
    ASSERT_TRUE(waitUntil([&] { return reader.lines().size() >= writerCount * lineCount; }))
        << reader.lines().size() << " lines arrived";
    LineLedger ledger(writerCount);
    for (const std::string& verdict : reader.lines(1)) {
        uint64_t writer = 0;
        uint64_t sequence = 0;
        const size_t blank = verdict.find(' ');
        if (blank == std::string::npos || ! BrwTests::parseNumber(verdict.substr(0, blank), writer) ||
            ! BrwTests::parseNumber(verdict.substr(blank + 1), sequence)) {
            ++ledger.fFaults;
            continue;
        }
        ledger.add(static_cast<uint32_t>(writer), sequence);
    }
    EXPECT_EQ(ledger.fFaults, 0u);
    EXPECT_EQ(ledger.fCount, writerCount * lineCount);
    for (const auto& writer : writers) {
        EXPECT_EQ(writer->waitForExit(), 0);
    }
    reader.closeInput();
    EXPECT_EQ(reader.waitForExit(), 0);
}

} // namespace
