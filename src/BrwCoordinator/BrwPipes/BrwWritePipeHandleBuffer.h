#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "BrwCoordinator/BrwPipes/BrwPipePacket.h"
#include "BrwUtils/BrwFileDescriptor.h"

namespace Brw {

class WritePipe;

// Disconnected: no connection to the reader. Connected: a connection, no packet under way. Writing: the
// socket took part of a packet or none of it; the rest goes when it takes data again.
enum class WritePipeHandleState { Error = -1, Disconnected = 0, Connected = 1, Writing = 2 };

// The sending end of a write pipe: the queue of strings handed to it, cut into packets one at a time,
// and the connection they go out on. Nothing waits: a reader that isn't there is tried again after
// sleepWaitForPipeMicroseconds, a full socket when it can take data or after that interval.
class WritePipeHandleBuffer {
public:
    static constexpr const char* TYPENAME = "WritePipeHandleBuffer";

    explicit WritePipeHandleBuffer(const std::shared_ptr<WritePipe>& writePipe);
    static std::shared_ptr<WritePipeHandleBuffer> factory(const std::shared_ptr<WritePipe>& writePipe);

    // Queues a copy of the string.
    void write(const std::string& outputStr);
    // Sends what can go now, one packet at most unless a packet under way was finished first; true when
    // a packet went out whole.
    bool poll();
    bool isIdle() const { return fQueue.empty() && ! fIsPacketPending; }
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
    // Sends a packet just built; true when it went out whole.
    bool rawWrite();
    // Sends what is left of the packet under way.
    SendResult sendPending();
    // Cuts the next packet from the head of the queue; false when there is no string left.
    bool buildPacket();
    // The packet under way has gone; so has the head of the queue when it was its last.
    void finishPacket();
    // The reader has gone with the connection, and with the packets of the string under way: that string
    // starts over on the next connection.
    void loseConnection();
    std::string describe() const;

    uint64_t fCharsRemaining = 0;   // characters of the head of the queue not in a packet yet
    size_t fNextCharIndex = 0;      // the first of them
    uint64_t fPacketNumber = 0;     // of the next packet within its string
    uint64_t fStringNumber = 0;     // of the string last begun; the first is 1
    FileDescriptor fHandle;         // the connection, when there is one
    bool fIsPacketPending = false;  // a packet is built and not all of it sent
    PipePacket fPacket;             // that packet
    size_t fPacketSize = 0;         // header and data of it
    size_t fBytesSent = 0;          // of it so far
    std::deque<std::string> fQueue; // strings to send, head first
    WritePipeHandleState fState = WritePipeHandleState::Disconnected;
    int64_t fNextOpenTime = 0;           // no connection attempt before, Clock time point
    int64_t fNextWriteTime = 0;          // no send before, Clock time point
    std::weak_ptr<WritePipe> fWritePipe; // owner
};

} // namespace Brw
