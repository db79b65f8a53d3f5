#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "BrwCoordinator/BrwPipes/BrwPipePacket.h"
#include "BrwUtils/BrwFileDescriptor.h"

namespace Brw {

class ReadPipe;

// The states of one instance. Disconnected: no writer, the next poll takes one. ConnectionPending: waits
// for a writer. Connected: between packets. ReadingPacketHeader, ReadingPacketBody: part of the header or
// the data has come. ProcessPacketHeader, ProcessPacket: a header or a whole packet is in, to be looked
// at. DisconnectRequested: the writer is dropped. DestroyRequested, Destroyed: the instance ends, has ended.
enum class ReadPipeHandleState {
    Error = -1,
    Disconnected = 0,
    ConnectionPending = 1,
    Connected = 2,
    ReadingPacketHeader = 3,
    ProcessPacketHeader = 4,
    ReadingPacketBody = 5,
    ProcessPacket = 6,
    DisconnectRequested = 7,
    DestroyRequested = 8,
    Destroyed = 9,
};

// One instance of a read pipe: a slot that takes one accepted connection, reads it packet by packet into
// its own buffer, and hands each whole packet to the pipe. Only connections of this user are kept. A
// receive takes as much as the socket holds into a buffer of its own, from which the packets are cut:
// one call for many packets, where a header and a body each would cost one.
class ReadPipeHandleBuffer {
public:
    static constexpr const char* TYPENAME = "ReadPipeHandleBuffer";
    // State handlers run at most this often in one poll, so that a writer that never pauses can't keep
    // the loop from the others; a packet takes four.
    static constexpr int MAX_STEPS_PER_POLL = 256;
    // The most that one receive takes.
    static constexpr size_t READ_AHEAD_SIZE = 1 << 16;

    explicit ReadPipeHandleBuffer(const std::shared_ptr<ReadPipe>& readPipe);
    ~ReadPipeHandleBuffer() = default;
    ReadPipeHandleBuffer(const ReadPipeHandleBuffer&) = delete;
    ReadPipeHandleBuffer& operator=(const ReadPipeHandleBuffer&) = delete;

    static std::shared_ptr<ReadPipeHandleBuffer> factory(const std::shared_ptr<ReadPipe>& readPipe);

    // Runs the handler of the state, and the next ones while they get on without waiting; true once the
    // instance is Destroyed.
    bool poll();
    // Ends an instance without a writer.
    [[nodiscard]] bool closeHandle();
    // Drops the writer, if any, and ends the instance.
    [[nodiscard]] bool forceFinalState();
    void switchToState(ReadPipeHandleState state);
    static const char* getStateName(ReadPipeHandleState state);
    const char* getStateName() const { return getStateName(fState); }
    ReadPipeHandleState getState() const { return fState; }
    // True while part of a packet is in.
    bool isBusy() const;
    // True when the last poll stopped at its budget with work that needs no waiting.
    bool isWorkLeft() const { return fIsWorkLeft; }
    // The connection's descriptor, when there is one to wait on for data.
    int getReadDescriptor() const;
    uint32_t getPeerProcessId() const { return fPeerProcessId; }

private:
    // Each handler does its state's work; true when the next state can be handled at once.
    bool handleErrorState();
    bool handleDisconnectedState();
    bool handleConnectionPendingState();
    bool handleConnectedState();
    bool handleReadingPacketHeaderState();
    bool handleProcessPacketHeaderState();
    bool handleReadingPacketBodyState();
    bool handleProcessPacketState();
    bool handleDisconnectRequestedState();
    bool handleDestroyRequestedState();
    bool handleDestroyedState();
    bool handleState();

    // Takes a waiting connection, when there is one of this user; the state follows.
    bool acceptWriter(ReadPipeHandleState stateWhenNone);
    // Moves what was read ahead into the packet, up to `wanted` bytes of it.
    void takeReadAhead(size_t wanted);
    // Reads on towards `wanted` bytes of the packet; the state follows what came.
    bool readPacketPart(size_t wanted, ReadPipeHandleState stateWhenComplete,
                        ReadPipeHandleState stateWhenPartial);
    // Closes the connection, if any, and forgets the string it was in the middle of.
    void dropConnection();
    std::string describe() const;

    FileDescriptor fHandle;            // the accepted connection, when there is one
    PipePacket fPacket;                // the packet coming in
    size_t fPacketSize = 0;            // header and data of it, 0 before its header
    size_t fBytesRead = 0;             // of the packet so far
    std::weak_ptr<ReadPipe> fReadPipe; // owner
    ReadPipeHandleState fState = ReadPipeHandleState::Disconnected;
    uint64_t fStreamKey = 0;               // the connection's own, for its partial string
    uint32_t fPeerProcessId = 0;           // the writer, as the kernel knows it
    bool fIsWorkLeft = false;              // see isWorkLeft
    std::unique_ptr<uint8_t[]> fReadAhead; // received and not in a packet yet, while connected
    size_t fReadAheadStart = 0;            // the first byte of it not taken
    size_t fReadAheadEnd = 0;              // behind the last byte received
};

} // namespace Brw
