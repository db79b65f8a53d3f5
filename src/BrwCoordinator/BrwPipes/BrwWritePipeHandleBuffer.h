#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "BrwCoordinator/BrwPipes/BrwPipePacket.h"
#include "BrwUtils/BrwFileDescriptor.h"

namespace Brw {

class WritePipe;

// Disconnected: no connection to the reader. Connected: a connection, no packet under way. Writing: the
// socket took part of a packet or none of it; the rest goes when it takes data again.
enum class WritePipeHandleState { Error = -1, Disconnected = 0, Connected = 1, Writing = 2 };

// The sending end of a write pipe: the queue of strings handed to it, cut into packets, and the connection
// they go out on. The packets of what is queued go out together, up to MAX_SEND_SIZE in one send: a send
// costs far more than the bytes it moves. Nothing waits: a reader that isn't there is tried again after
// sleepWaitForPipeMicroseconds, a full socket when it can take data or after that interval.
class WritePipeHandleBuffer {
public:
    static constexpr const char* TYPENAME = "WritePipeHandleBuffer";
    // The most bytes of packets that one send offers the socket.
    static constexpr size_t MAX_SEND_SIZE = 16 * PipePacket::MAX_PACKET_SIZE;

    explicit WritePipeHandleBuffer(const std::shared_ptr<WritePipe>& writePipe);
    static std::shared_ptr<WritePipeHandleBuffer> factory(const std::shared_ptr<WritePipe>& writePipe);

    // Queues a copy of the string.
    void write(const std::string& outputStr);
    // Sends what can go now: the rest of the packets under way, or new ones; true when all that was
    // offered went out.
    bool poll();
    bool isIdle() const { return fQueue.empty() && fOutgoing.empty(); }
    // Forgets everything queued and drops the connection.
    void forceCloseState();
    [[nodiscard]] bool rawClose();
    void switchToState(WritePipeHandleState state);
    static const char* getStateName(WritePipeHandleState state);
    WritePipeHandleState getState() const { return fState; }

    // The descriptor to wait on until the socket takes data again, when a packet waits for that.
    int getWriteDescriptor() const;
    // When the next poll has work that waits for time alone: 0 for none, a time point of Clock (that may
    // have passed) otherwise.
    int64_t getNextRetryTime() const;
    // The socket takes data again: the packet under way needn't wait out the interval.
    void noteWritable() { fNextWriteTime = 0; }
    uint64_t getStringNumber() const { return fStringNumber; }

private:
    enum class SendResult { Sent, InFlight, Lost };

    // Connects to the reader that the proxy file names, unless it is too early to try again.
    bool rawOpen();
    // Sends packets just built; true when they went out whole.
    bool rawWrite();
    // Sends what is left of the packets under way.
    SendResult sendPending();
    // Cuts the next packet from the first string of the queue not all in packets yet, and adds it to the
    // packets under way; false when there is no string left.
    bool buildPacket();
    // Builds packets while there are strings and room; false when there was nothing to build.
    bool buildPackets();
    // Takes the strings whose packets have all been sent off the queue.
    void releaseSentStrings();
    // Forgets the packets under way and where the cutting stood: the queue's first string starts over.
    void forgetPackets();
    // The reader has gone with the connection, and with the packets of the string under way: that string
    // starts over on the next connection.
    void loseConnection();
    std::string describe() const;

    uint64_t fCharsRemaining = 0;   // characters of the string being cut not in a packet yet
    size_t fNextCharIndex = 0;      // the first of them
    uint64_t fPacketNumber = 0;     // of the next packet within its string
    uint64_t fStringNumber = 0;     // of the string last begun; the first is 1
    FileDescriptor fHandle;         // the connection, when there is one
    PipePacket fPacket;             // the packet being cut
    std::vector<uint8_t> fOutgoing; // packets under way: built, not all sent
    size_t fBytesSent = 0;          // of them so far
    std::deque<size_t> fStringEnds; // where in them each string cut whole ends, first string first
    size_t fBuiltCount = 0;         // strings at the head of the queue cut whole
    std::deque<std::string> fQueue; // strings to send, head first
    WritePipeHandleState fState = WritePipeHandleState::Disconnected;
    int64_t fNextOpenTime = 0;           // no connection attempt before, Clock time point
    int64_t fNextWriteTime = 0;          // no send before, Clock time point
    std::weak_ptr<WritePipe> fWritePipe; // owner
};

} // namespace Brw
