#include "BrwCoordinator/BrwPipes/BrwPipesTest.h"

#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwCoordinator/BrwPipes/BrwLocalSocket.h"
#include "BrwCoordinator/BrwPipes/BrwPipePacket.h"
#include "BrwCoordinator/BrwPipes/BrwPipes.h"
#include "BrwCoordinator/BrwPipes/BrwReadPipe.h"
#include "BrwCoordinator/BrwPipes/BrwReadPipeHandleBuffer.h"
#include "BrwCoordinator/BrwPipes/BrwWritePipe.h"
#include "BrwCoordinator/BrwPipes/BrwWritePipeHandleBuffer.h"
#include "BrwData/BrwIni.h"
#include "BrwMain/BrwLogRecorder.h"
#include "BrwUtils/BrwClock.h"

namespace Brw {

namespace {

// How long the pipes may take to move what a test waits for.
constexpr std::chrono::seconds DEADLINE{20};
// The longest sleep of one turn of the test's loop.
constexpr int64_t TURN_MICROSECONDS = 2000;
constexpr int32_t TRACE_LEVEL = 4;

std::string newPipePath(const std::string& stem) {
    static int counter = 0;
    return InternalCoordinator::getPipeFolderPath() + stem + "." + std::to_string(Pipes::getOwnProcessId()) +
           "." + std::to_string(++counter);
}

// One turn of an event loop that serves nothing but the pipes.
void turn() {
    WritePipe::timeslice();
    ReadPipe::timeslice();
    Pipes::waitForActivity(TURN_MICROSECONDS, {});
}

// Turns the loop until `condition` holds; false when the deadline passes first.
bool turnUntil(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + DEADLINE;
    while (! condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        turn();
    }
    return true;
}

// Reads every whole line there is into `lines`.
void readLines(int handle, std::vector<std::string>& lines) {
    std::string line;
    bool readComplete = false;
    while (Pipes::readFromNamedPipe(line, handle, readComplete, '\n') && readComplete) {
        lines.push_back(line);
    }
}

// Turns the loop until `lines` has `count` lines, those read before included.
bool receiveLines(int handle, std::vector<std::string>& lines, size_t count) {
    return turnUntil([&] {
        readLines(handle, lines);
        return lines.size() >= count;
    });
}

// A packet as a writer that keeps to the format, or one that doesn't, would send it.
std::string packetBytes(uint64_t stringNumber, uint64_t packetNumber, const std::string& data,
                        size_t dataSize = SIZE_MAX) {
    PipePacket packet;
    packet.setStringNumber(stringNumber);
    packet.setPacketNumber(packetNumber);
    packet.setProcessId(Pipes::getOwnProcessId());
    packet.setDataSize(static_cast<uint16_t>(dataSize == SIZE_MAX ? data.size() : dataSize));
    std::memcpy(packet.data(), data.data(), std::min(data.size(), PipePacket::MAX_DATA_SIZE));
    return std::string(reinterpret_cast<const char*>(packet.bytes()), PipePacket::HEADER_SIZE + data.size());
}

// Packet 0's data: the length, then the characters.
std::string firstData(uint64_t length, const std::string& characters) {
    PipePacket packet;
    packet.setStringLength(length);
    return std::string(reinterpret_cast<const char*>(packet.data()), PipePacket::STRING_LENGTH_SIZE) +
           characters;
}

// A client of a read pipe that writes bytes of the test's choosing.
class RawWriter {
public:
    explicit RawWriter(const std::string& namedPipePath) {
        int error = 0;
        (void)LocalSocket::connectTo(Pipes::readSocketPath(namedPipePath), fConnection, error);
    }
    bool isConnected() const { return fConnection.isOpen(); }
    bool send(const std::string& bytes) {
        size_t moved = 0;
        int error = 0;
        return LocalSocket::sendSome(fConnection.get(), reinterpret_cast<const uint8_t*>(bytes.data()),
                                     bytes.size(), moved, error) == SocketOutcome::Done &&
               moved == bytes.size();
    }
    // True once the reader has dropped the connection.
    bool isDropped() {
        uint8_t byte = 0;
        size_t moved = 0;
        int error = 0;
        return LocalSocket::receiveSome(fConnection.get(), &byte, 1, moved, error) == SocketOutcome::PeerGone;
    }

private:
    FileDescriptor fConnection;
};

// A reader made by hand, at the socket that a proxy file names: it shows the bytes a write pipe sends.
class RawReader {
public:
    explicit RawReader(const std::string& namedPipePath) {
        const std::string socketPath = Pipes::makeSocketPath(namedPipePath);
        int error = 0;
        fListener = LocalSocket::listenAt(socketPath, error);
        Ini proxy;
        proxy.setEntry(Pipes::PROXY_SECTION, Pipes::PROXY_SOCKET_PATH_KEY, socketPath);
        fIsReady = fListener.isOpen() && Dirs::writeFileWhole(namedPipePath, proxy.toString());
    }
    bool isReady() const { return fIsReady; }
    // Takes in what has come; true when there is something.
    bool receive() {
        int error = 0;
        if (! fConnection.isOpen()) {
            (void)LocalSocket::acceptConnection(fListener.get(), fConnection, error);
        }
        uint8_t buffer[PipePacket::MAX_PACKET_SIZE];
        size_t moved = 0;
        while (fConnection.isOpen() && LocalSocket::receiveSome(fConnection.get(), buffer, sizeof(buffer),
                                                                moved, error) == SocketOutcome::Done) {
            fBytes.append(reinterpret_cast<const char*>(buffer), moved);
        }
        return ! fBytes.empty();
    }
    const std::string& bytes() const { return fBytes; }

private:
    FileDescriptor fListener;
    FileDescriptor fConnection;
    std::string fBytes;
    bool fIsReady = false;
};

// The packet that starts at `offset` of `bytes`, and the offset of the next one.
PipePacket packetAt(const std::string& bytes, size_t& offset) {
    PipePacket packet;
    const size_t headerEnd = std::min(bytes.size(), offset + PipePacket::HEADER_SIZE);
    std::memcpy(packet.bytes(), bytes.data() + offset, headerEnd - offset);
    const size_t size =
        std::min<size_t>(PipePacket::HEADER_SIZE + packet.getDataSize(), bytes.size() - offset);
    std::memcpy(packet.bytes(), bytes.data() + offset, size);
    offset += size;
    return packet;
}

int64_t gTestNow = 0; // the test clock's time
int64_t testClock() {
    return gTestNow;
}

} // namespace

bool PipesTest::test() {
    REPORT_OTHER_TEST;
    bool allOK = testPacketsOnTheWire();
    allOK = testStringsArriveWhole() && allOK;
    allOK = testPoolOfInstances() && allOK;
    allOK = testProtocolErrorsPoisonOneConnection() && allOK;
    allOK = testWriterRetriesMissingReader() && allOK;
    allOK = testFlushingAndReconnecting() && allOK;
    Pipes::closeAll();
    return allOK;
}

bool PipesTest::testPacketsOnTheWire() {
    bool retVal = false;
    do {
        const std::string path = newPipePath("wire");
        RawReader reader(path);
        SANITY_CHECK(reader.isReady());
        const int handle = Pipes::openWriteNamedPipe(path);
        SANITY_CHECK(handle != 0);
        std::vector<std::string> lines = LogRecorder::record(TRACE_LEVEL, [&] {
            (void)Pipes::writeToNamedPipe(handle, "");
            (void)Pipes::writeToNamedPipe(handle, std::string(4064, 'a'));
            (void)Pipes::writeToNamedPipe(handle, std::string(4065, 'b'));
            (void)Pipes::writeToNamedPipe(handle, "c");
        });
        SANITY_CHECK(LogRecorder::hasLineWith(lines, "empty string in queue"));
        const size_t expectedBytes = 4096 + 4096 + 25 + 33;
        SANITY_CHECK(turnUntil([&] { return reader.receive() && reader.bytes().size() >= expectedBytes; }));
        const std::string& bytes = reader.bytes();
        CHECK_EQUAL(bytes.size(), expectedBytes);
        // Little-endian whatever the machine: string number 1, data size 4072 = 0x0FE8.
        CHECK_EQUAL(bytes.substr(0, 8), std::string("\x01\0\0\0\0\0\0\0", 8));
        CHECK_EQUAL(bytes.substr(20, 2), std::string("\xE8\x0F", 2));
        size_t offset = 0;
        // The empty string took no number; the 4065 characters a second packet of one.
        const uint64_t expected[][4] = {{1, 0, 4072, 4064}, {2, 0, 4072, 4065}, {2, 1, 1, 0}, {3, 0, 9, 1}};
        for (const auto& [stringNumber, packetNumber, dataSize, length] : expected) {
            const PipePacket packet = packetAt(bytes, offset);
            CHECK_EQUAL(packet.getStringNumber(), stringNumber);
            CHECK_EQUAL(packet.getPacketNumber(), packetNumber);
            CHECK_EQUAL(packet.getDataSize(), dataSize);
            CHECK_EQUAL(packet.getProcessId(), Pipes::getOwnProcessId());
            CHECK_EQUAL(packetNumber == 0 ? packet.getStringLength() : 0, length);
        }
        CHECK_EQUAL(offset, expectedBytes);
        SANITY_CHECK(Pipes::closeNamedPipe(handle));
        SANITY_CHECK(Pipes::deleteNamedPipe(path));
        retVal = true;
    } while (false);
    return retVal;
}

bool PipesTest::testStringsArriveWhole() {
    bool retVal = false;
    do {
        const std::string path = newPipePath("whole");
        const int readHandle = Pipes::openReadNamedPipe(path);
        SANITY_CHECK(readHandle != 0);
        SANITY_CHECK(Pipes::namedPipeIsActive(path));
        const int writeHandle = Pipes::openWriteNamedPipe(path);
        SANITY_CHECK(writeHandle != 0);
        const std::vector<std::string> sent = {"\n", std::string(4063, 'a') + "\n",
                                               std::string(4064, 'b') + "\n",
                                               std::string(100000, 'c') + "\n"};
        for (const std::string& str : sent) {
            SANITY_CHECK(Pipes::writeToNamedPipe(writeHandle, str));
        }
        // Text is cut at the separator, not where strings end.
        SANITY_CHECK(Pipes::writeToNamedPipe(writeHandle, "d\ne"));
        SANITY_CHECK(Pipes::writeToNamedPipe(writeHandle, "f\n"));
        std::vector<std::string> lines;
        SANITY_CHECK(receiveLines(readHandle, lines, sent.size() + 2));
        std::vector<std::string> expected = sent;
        expected.insert(expected.end(), {"d\n", "ef\n"});
        SANITY_CHECK(lines == expected);
        SANITY_CHECK(Pipes::closeNamedPipe(writeHandle));
        SANITY_CHECK(Pipes::closeNamedPipe(readHandle));
        // The proxy file and the socket go with the reader.
        SANITY_CHECK(! Pipes::namedPipeExists(path));
        SANITY_CHECK(! Dirs::exists(Pipes::makeSocketPath(path)));
        SANITY_CHECK(turnUntil([] { return WritePipe::isAllIdle(); }));
        retVal = true;
    } while (false);
    return retVal;
}

bool PipesTest::testPoolOfInstances() {
    bool retVal = false;
    do {
        const std::string path = newPipePath("pool");
        const int readHandle = Pipes::openReadNamedPipe(path);
        const std::shared_ptr<ReadPipe> readPipe = ReadPipe::getPipe(readHandle);
        SANITY_CHECK(readPipe);
        const auto countIn = [&](ReadPipeHandleState state) {
            size_t count = 0;
            for (const auto& instance : readPipe->getInstances()) {
                count += instance->getState() == state ? 1 : 0;
            }
            return count;
        };
        ReadPipe::timeslice();
        ReadPipe::timeslice();
        CHECK_EQUAL(countIn(ReadPipeHandleState::ConnectionPending), ReadPipe::WAITING_INSTANCE_COUNT);
        CHECK_EQUAL(readPipe->getInstances().size(), ReadPipe::WAITING_INSTANCE_COUNT);
        RawWriter writer(path);
        SANITY_CHECK(writer.isConnected());
        SANITY_CHECK(turnUntil([&] { return countIn(ReadPipeHandleState::ReadingPacketHeader) == 1; }));
        // One more waits in place of the one that took the writer.
        CHECK_EQUAL(readPipe->getInstances().size(), ReadPipe::WAITING_INSTANCE_COUNT + 1);
        SANITY_CHECK(ReadPipe::isAllIdle());
        // Between the header and the data a packet is half in.
        const std::string packet = packetBytes(1, 0, firstData(2, "x\n"));
        SANITY_CHECK(writer.send(packet.substr(0, PipePacket::HEADER_SIZE)));
        SANITY_CHECK(turnUntil([&] { return countIn(ReadPipeHandleState::ReadingPacketBody) == 1; }));
        SANITY_CHECK(! ReadPipe::isAllIdle());
        SANITY_CHECK(writer.send(packet.substr(PipePacket::HEADER_SIZE)));
        std::vector<std::string> lines;
        SANITY_CHECK(receiveLines(readHandle, lines, 1));
        SANITY_CHECK(ReadPipe::isAllIdle());
        CHECK_EQUAL(lines.front(), "x\n");
        SANITY_CHECK(Pipes::closeNamedPipe(readHandle));
        SANITY_CHECK(writer.isDropped());
        retVal = true;
    } while (false);
    return retVal;
}

bool PipesTest::testProtocolErrorsPoisonOneConnection() {
    bool retVal = false;
    do {
        const std::string path = newPipePath("poison");
        const int readHandle = Pipes::openReadNamedPipe(path);
        SANITY_CHECK(readHandle != 0);
        RawWriter good(path);
        // Each breaks the format its own way; the reader logs why and drops that connection alone.
        const std::vector<std::pair<std::string, std::string>> offences = {
            {packetBytes(1, 1, "x"), "was expecting a packet #0 at start of buffer"},
            {packetBytes(1, 0, firstData(10, "ab")) + packetBytes(2, 1, "cd"), "string sequence error"},
            {packetBytes(1, 0, firstData(10, "ab")) + packetBytes(1, 2, "cd"), "packet sequence error"},
            {packetBytes(1, 0, "", 4073), "SANITY_CHECK failed: 'fPacketSize <= 4096' evaluates to false"},
            {packetBytes(1, 0, firstData(2, "abc")), "More data received than expected"},
            {packetBytes(1, 0, "abc"), "No room for string length in packet"},
            {packetBytes(1, 0, firstData(ReadPipe::MAX_STRING_LENGTH + 1, "")), "string too long"},
        };
        std::vector<std::string> lines;
        int count = 0;
        for (const auto& [offendingBytes, logText] : offences) {
            // A copy: a lambda may not capture a structured binding under every compiler.
            const std::string bytes = offendingBytes;
            RawWriter hostile(path);
            const std::string goodLine = "good " + std::to_string(++count) + "\n";
            const std::vector<std::string> logLines = LogRecorder::record(1, [&] {
                (void)hostile.send(bytes);
                (void)turnUntil([&] { return hostile.isDropped(); });
            });
            SANITY_CHECK(LogRecorder::hasLineWith(logLines, logText));
            SANITY_CHECK(good.send(packetBytes(count, 0, firstData(goodLine.size(), goodLine))));
            SANITY_CHECK(turnUntil([&] {
                readLines(readHandle, lines);
                return ! lines.empty() && lines.back() == goodLine;
            }));
        }
        // Two writers' packets interleave: each string is whole, in the order they were completed.
        RawWriter first(path);
        RawWriter second(path);
        SANITY_CHECK(first.send(packetBytes(1, 0, firstData(4, "AA"))));
        SANITY_CHECK(second.send(packetBytes(7, 0, firstData(4, "BB"))));
        SANITY_CHECK(second.send(packetBytes(7, 1, "B\n")));
        lines.clear();
        SANITY_CHECK(receiveLines(readHandle, lines, 1));
        SANITY_CHECK(first.send(packetBytes(1, 1, "A\n")));
        SANITY_CHECK(receiveLines(readHandle, lines, 2));
        // A new packet 0 in the middle of a string starts it over, without an error.
        SANITY_CHECK(good.send(packetBytes(20, 0, firstData(9000, "lost"))));
        const std::vector<std::string> logLines = LogRecorder::record(1, [&] {
            (void)good.send(packetBytes(21, 0, firstData(6, "again\n")));
            (void)receiveLines(readHandle, lines, 3);
        });
        SANITY_CHECK(logLines.empty());
        SANITY_CHECK(lines == std::vector<std::string>({"BBB\n", "AAA\n", "again\n"}));
        // Nothing half received is kept for connections that have gone.
        const std::shared_ptr<ReadPipe> readPipe = ReadPipe::getPipe(readHandle);
        SANITY_CHECK(readPipe && readPipe->getState() == ReadPipeState::Open);
        CHECK_EQUAL(readPipe->getStreamCount(), 0u);
        SANITY_CHECK(Pipes::closeNamedPipe(readHandle));
        retVal = true;
    } while (false);
    return retVal;
}

bool PipesTest::testWriterRetriesMissingReader() {
    bool retVal = false;
    do {
        const std::string path = newPipePath("retry");
        // A proxy file with nobody at its socket: a reader on its way, or one that has gone.
        Ini proxy;
        proxy.setEntry(Pipes::PROXY_SECTION, Pipes::PROXY_SOCKET_PATH_KEY, Pipes::makeSocketPath(path));
        SANITY_CHECK(Dirs::writeFileWhole(path, proxy.toString()));
        const int writeHandle = Pipes::openWriteNamedPipe(path);
        SANITY_CHECK(writeHandle != 0);
        const int64_t interval = Clock::fromMicroseconds(InternalCoordinator::fSleepWaitForPipeMicroseconds);
        const auto attempts = [](const std::function<void()>& action) {
            size_t count = 0;
            for (const std::string& line : LogRecorder::record(TRACE_LEVEL, action)) {
                count += line.find("failed to CreateFile") != std::string::npos ? 1 : 0;
            }
            return count;
        };
        gTestNow = Clock::now();
        Clock::setSource(testClock);
        const size_t atWrite = attempts([&] { (void)Pipes::writeToNamedPipe(writeHandle, "late\n"); });
        gTestNow += interval - 1;
        const size_t beforeInterval = attempts(WritePipe::timeslice);
        gTestNow += 1;
        const size_t afterInterval = attempts(WritePipe::timeslice);
        Clock::setSource(nullptr);
        CHECK_EQUAL(atWrite, 1u);
        CHECK_EQUAL(beforeInterval, 0u);
        CHECK_EQUAL(afterInterval, 1u);
        // The reader comes, and the string that waited arrives.
        const int readHandle = Pipes::openReadNamedPipe(path);
        SANITY_CHECK(readHandle != 0);
        std::vector<std::string> lines;
        SANITY_CHECK(receiveLines(readHandle, lines, 1));
        SANITY_CHECK(lines == std::vector<std::string>({"late\n"}));
        SANITY_CHECK(Pipes::closeNamedPipe(writeHandle));
        SANITY_CHECK(Pipes::closeNamedPipe(readHandle));
        retVal = true;
    } while (false);
    Clock::setSource(nullptr);
    return retVal;
}

bool PipesTest::testFlushingAndReconnecting() {
    bool retVal = false;
    do {
        const std::string path = newPipePath("flush");
        int readHandle = Pipes::openReadNamedPipe(path);
        const int writeHandle = Pipes::openWriteNamedPipe(path);
        SANITY_CHECK(readHandle != 0 && writeHandle != 0);
        const std::vector<std::string> sent = {std::string(500000, 'a') + "\n",
                                               std::string(500000, 'b') + "\n",
                                               std::string(500000, 'c') + "\n"};
        for (const std::string& str : sent) {
            SANITY_CHECK(Pipes::writeToNamedPipe(writeHandle, str));
        }
        // Closed with strings queued, more than a socket holds: the pipe stays until they have gone, then
        // leaves by itself.
        SANITY_CHECK(Pipes::closeNamedPipe(writeHandle));
        const std::shared_ptr<WritePipe> flushing = WritePipe::getPipe(writeHandle);
        SANITY_CHECK(flushing && flushing->getState() == WritePipeState::Closing);
        std::vector<std::string> lines;
        SANITY_CHECK(turnUntil([&] {
            readLines(readHandle, lines);
            return lines.size() == sent.size() && ! WritePipe::getPipe(writeHandle);
        }));
        SANITY_CHECK(lines == sent);
        // The reader goes and comes back: the writer connects anew, and the string under way starts over.
        const int secondWriteHandle = Pipes::openWriteNamedPipe(path);
        SANITY_CHECK(Pipes::writeToNamedPipe(secondWriteHandle, "one\n"));
        lines.clear();
        SANITY_CHECK(receiveLines(readHandle, lines, 1));
        SANITY_CHECK(Pipes::closeNamedPipe(readHandle));
        readHandle = Pipes::openReadNamedPipe(path);
        SANITY_CHECK(readHandle != 0);
        const std::string longLine = std::string(20000, 'd') + "\n";
        SANITY_CHECK(Pipes::writeToNamedPipe(secondWriteHandle, longLine));
        SANITY_CHECK(Pipes::writeToNamedPipe(secondWriteHandle, "two\n"));
        SANITY_CHECK(receiveLines(readHandle, lines, 3));
        SANITY_CHECK(lines == std::vector<std::string>({"one\n", longLine, "two\n"}));
        SANITY_CHECK(Pipes::closeNamedPipe(secondWriteHandle));
        SANITY_CHECK(Pipes::closeNamedPipe(readHandle));
        SANITY_CHECK(turnUntil([] { return WritePipe::isAllIdle(); }));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
