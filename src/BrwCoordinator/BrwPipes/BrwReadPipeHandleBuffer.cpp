#include "BrwCoordinator/BrwPipes/BrwReadPipeHandleBuffer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwCoordinator/BrwPipes/BrwLocalSocket.h"
#include "BrwCoordinator/BrwPipes/BrwReadPipe.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwUtils/BrwProcess.h"

namespace Brw {

namespace {

// The log level of trace lines: whether a writer still runs is asked only for such a line.
constexpr int32_t TRACE_LEVEL = 4;
// Connections of other users refused in one go: a flood of them mustn't hold up the loop.
constexpr int MAX_REFUSALS_PER_ACCEPT = 16;

// The process or the system is out of descriptors or memory for a moment: the listener is sound.
bool isOutOfResources(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

// Each accepted connection's own key for its partial string, unique in the process.
uint64_t gLastStreamKey = 0;

} // namespace

ReadPipeHandleBuffer::ReadPipeHandleBuffer(const std::shared_ptr<ReadPipe>& readPipe) : fReadPipe(readPipe) {}

std::shared_ptr<ReadPipeHandleBuffer>
ReadPipeHandleBuffer::factory(const std::shared_ptr<ReadPipe>& readPipe) {
    return std::make_shared<ReadPipeHandleBuffer>(readPipe);
}

std::string ReadPipeHandleBuffer::describe() const {
    const std::shared_ptr<ReadPipe> readPipe = fReadPipe.lock();
    return Utils::format("%s (%d)", InternalCoordinator::getCoordinatorName().c_str(),
                         readPipe ? readPipe->getPipeExternalHandle() : Pipe::NO_EXTERNAL_HANDLE);
}

const char* ReadPipeHandleBuffer::getStateName(ReadPipeHandleState state) {
    switch (state) {
    case ReadPipeHandleState::Error:
        return "Error";
    case ReadPipeHandleState::Disconnected:
        return "Disconnected";
    case ReadPipeHandleState::ConnectionPending:
        return "ConnectionPending";
    case ReadPipeHandleState::Connected:
        return "Connected";
    case ReadPipeHandleState::ReadingPacketHeader:
        return "ReadingPacketHeader";
    case ReadPipeHandleState::ProcessPacketHeader:
        return "ProcessPacketHeader";
    case ReadPipeHandleState::ReadingPacketBody:
        return "ReadingPacketBody";
    case ReadPipeHandleState::ProcessPacket:
        return "ProcessPacket";
    case ReadPipeHandleState::DisconnectRequested:
        return "DisconnectRequested";
    case ReadPipeHandleState::DestroyRequested:
        return "DestroyRequested";
    case ReadPipeHandleState::Destroyed:
        return "Destroyed";
    }
    return "unexpected state";
}

void ReadPipeHandleBuffer::switchToState(ReadPipeHandleState state) {
    if (state == fState) {
        return;
    }
    const std::shared_ptr<ReadPipe> readPipe = fReadPipe.lock();
    LOG_TRACE_F("%s (%d - 0x%.16llX): switch from ReadPipeHandleState::%s to ReadPipeHandleState::%s",
                InternalCoordinator::getCoordinatorName().c_str(),
                readPipe ? readPipe->getPipeExternalHandle() : Pipe::NO_EXTERNAL_HANDLE,
                static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(this)), getStateName(fState),
                getStateName(state));
    fState = state;
}

bool ReadPipeHandleBuffer::isBusy() const {
    if (fReadAheadStart < fReadAheadEnd) {
        // Bytes of the next packets are in.
        return true;
    }
    switch (fState) {
    case ReadPipeHandleState::ProcessPacketHeader:
    case ReadPipeHandleState::ReadingPacketBody:
    case ReadPipeHandleState::ProcessPacket:
        return true;
    case ReadPipeHandleState::ReadingPacketHeader:
        // A stream socket may hand over part of a header.
        return fBytesRead > 0;
    default:
        return false;
    }
}

int ReadPipeHandleBuffer::getReadDescriptor() const {
    const bool isReading = fState == ReadPipeHandleState::Connected ||
                           fState == ReadPipeHandleState::ReadingPacketHeader ||
                           fState == ReadPipeHandleState::ReadingPacketBody;
    return isReading ? fHandle.get() : FileDescriptor::NONE;
}

bool ReadPipeHandleBuffer::poll() {
    fIsWorkLeft = false;
    int steps = 0;
    while (handleState()) {
        if (++steps >= MAX_STEPS_PER_POLL) {
            // Cut short where it could go on: the loop must come back without sleeping.
            fIsWorkLeft = true;
            break;
        }
    }
    return fState == ReadPipeHandleState::Destroyed;
}

bool ReadPipeHandleBuffer::handleState() {
    switch (fState) {
    case ReadPipeHandleState::Error:
        return handleErrorState();
    case ReadPipeHandleState::Disconnected:
        return handleDisconnectedState();
    case ReadPipeHandleState::ConnectionPending:
        return handleConnectionPendingState();
    case ReadPipeHandleState::Connected:
        return handleConnectedState();
    case ReadPipeHandleState::ReadingPacketHeader:
        return handleReadingPacketHeaderState();
    case ReadPipeHandleState::ProcessPacketHeader:
        return handleProcessPacketHeaderState();
    case ReadPipeHandleState::ReadingPacketBody:
        return handleReadingPacketBodyState();
    case ReadPipeHandleState::ProcessPacket:
        return handleProcessPacketState();
    case ReadPipeHandleState::DisconnectRequested:
        return handleDisconnectRequestedState();
    case ReadPipeHandleState::DestroyRequested:
        return handleDestroyRequestedState();
    case ReadPipeHandleState::Destroyed:
        return handleDestroyedState();
    }
    LOG_ERROR("Unexpected case");
    return false;
}

bool ReadPipeHandleBuffer::acceptWriter(ReadPipeHandleState stateWhenNone) {
    const std::shared_ptr<ReadPipe> readPipe = fReadPipe.lock();
    if (! readPipe || readPipe->getListenDescriptor() == FileDescriptor::NONE) {
        switchToState(ReadPipeHandleState::DestroyRequested);
        return true;
    }
    for (int refusals = 0; ! readPipe->isAcceptExhausted() && refusals < MAX_REFUSALS_PER_ACCEPT;
         ++refusals) {
        FileDescriptor connection;
        int connectError = 0;
        const SocketOutcome outcome =
            LocalSocket::acceptConnection(readPipe->getListenDescriptor(), connection, connectError);
        LOG_TRACE_F("%s: connectError %d", describe().c_str(), connectError);
        if (outcome == SocketOutcome::WouldBlock) {
            readPipe->setAcceptExhausted();
            break;
        }
        if (outcome != SocketOutcome::Done) {
            LOG_ERROR_F("%s: Unexpected connectError %d", describe().c_str(), connectError);
            readPipe->setAcceptExhausted();
            if (! isOutOfResources(connectError)) {
                // The listener itself is broken: the pipe is opened anew.
                readPipe->switchToState(ReadPipeState::Error);
            }
            switchToState(ReadPipeHandleState::DestroyRequested);
            return true;
        }
        // The kernel's credentials, not the packets' process identifiers, say who is at the other end.
        PeerCredentials peer;
        if (! LocalSocket::getPeerCredentials(connection.get(), peer) || peer.fUserId != ::geteuid()) {
            LOG_ERROR_F("%s: refused the connection of user %u (process %u)", describe().c_str(),
                        peer.fUserId, peer.fProcessId);
            continue;
        }
        fHandle = std::move(connection);
        fPeerProcessId = peer.fProcessId;
        fStreamKey = ++gLastStreamKey;
        fPacketSize = 0;
        fBytesRead = 0;
        switchToState(ReadPipeHandleState::Connected);
        return true;
    }
    switchToState(stateWhenNone);
    return false;
}

void ReadPipeHandleBuffer::takeReadAhead(size_t wanted) {
    const size_t count = std::min(wanted - fBytesRead, fReadAheadEnd - fReadAheadStart);
    if (count > 0) {
        std::memcpy(fPacket.bytes() + fBytesRead, fReadAhead.get() + fReadAheadStart, count);
        fBytesRead += count;
        fReadAheadStart += count;
    }
}

bool ReadPipeHandleBuffer::readPacketPart(size_t wanted, ReadPipeHandleState stateWhenComplete,
                                          ReadPipeHandleState stateWhenPartial) {
    const std::shared_ptr<ReadPipe> readPipe = fReadPipe.lock();
    if (! readPipe || readPipe->isUnreadFull()) {
        // Nobody reads what came: the writer waits, in the socket's buffer.
        return false;
    }
    takeReadAhead(wanted);
    SocketOutcome outcome = SocketOutcome::Done;
    int readError = 0;
    if (fBytesRead < wanted) {
        // What was read ahead is used up: one receive takes all the socket holds, up to the buffer.
        if (! fReadAhead) {
            fReadAhead = std::make_unique<uint8_t[]>(READ_AHEAD_SIZE);
        }
        size_t moved = 0;
        outcome =
            LocalSocket::receiveSome(fHandle.get(), fReadAhead.get(), READ_AHEAD_SIZE, moved, readError);
        fReadAheadStart = 0;
        fReadAheadEnd = moved;
        takeReadAhead(wanted);
    }
    switch (outcome) {
    case SocketOutcome::Done:
        if (fBytesRead == wanted) {
            switchToState(stateWhenComplete);
            return true;
        }
        switchToState(stateWhenPartial);
        return false;
    case SocketOutcome::WouldBlock:
        switchToState(stateWhenPartial);
        return false;
    case SocketOutcome::PeerGone:
    case SocketOutcome::NoListener:
        switchToState(ReadPipeHandleState::DisconnectRequested);
        return true;
    case SocketOutcome::Failed:
        break;
    }
    LOG_ERROR_F("%s: readError %d", describe().c_str(), readError);
    switchToState(ReadPipeHandleState::DestroyRequested);
    return true;
}

bool ReadPipeHandleBuffer::handleErrorState() {
    do {
        SANITY_CHECK(forceFinalState());
    } while (false);
    return false;
}

bool ReadPipeHandleBuffer::handleDisconnectedState() {
    return acceptWriter(ReadPipeHandleState::ConnectionPending);
}

bool ReadPipeHandleBuffer::handleConnectionPendingState() {
    return acceptWriter(ReadPipeHandleState::ConnectionPending);
}

bool ReadPipeHandleBuffer::handleConnectedState() {
    fPacketSize = 0;
    fBytesRead = 0;
    return readPacketPart(PipePacket::HEADER_SIZE, ReadPipeHandleState::ProcessPacketHeader,
                          ReadPipeHandleState::ReadingPacketHeader);
}

bool ReadPipeHandleBuffer::handleReadingPacketHeaderState() {
    return readPacketPart(PipePacket::HEADER_SIZE, ReadPipeHandleState::ProcessPacketHeader,
                          ReadPipeHandleState::ReadingPacketHeader);
}

bool ReadPipeHandleBuffer::handleProcessPacketHeaderState() {
    bool retVal = true;
    do {
        // Only a trace line hangs on it, and asking costs a look into /proc for each packet.
        if (Logger::getLogLevel() >= TRACE_LEVEL && ! Process::isRunning(fPeerProcessId)) {
            LOG_TRACE("flushing data from dead process");
        }
        fPacketSize = fPacket.getDataSize() + PipePacket::HEADER_SIZE;
        // The check's text names the format's limit, which is this constant.
        static_assert(PipePacket::MAX_PACKET_SIZE == 4096);
        if (! SANITY_CHECKED(fPacketSize <= 4096)) {
            // No packet of the format is that long: the connection is no writer of ours.
            switchToState(ReadPipeHandleState::DisconnectRequested);
            break;
        }
        if (fPacketSize == fBytesRead) {
            switchToState(ReadPipeHandleState::ProcessPacket);
            break;
        }
        retVal = readPacketPart(fPacketSize, ReadPipeHandleState::ProcessPacket,
                                ReadPipeHandleState::ReadingPacketBody);
    } while (false);
    return retVal;
}

bool ReadPipeHandleBuffer::handleReadingPacketBodyState() {
    return readPacketPart(fPacketSize, ReadPipeHandleState::ProcessPacket,
                          ReadPipeHandleState::ReadingPacketBody);
}

bool ReadPipeHandleBuffer::handleProcessPacketState() {
    const std::shared_ptr<ReadPipe> readPipe = fReadPipe.lock();
    if (! readPipe || ! readPipe->processPacket(fPacket, fStreamKey)) {
        // Poisoned: this connection is dropped, the pipe serves the others on.
        switchToState(ReadPipeHandleState::DisconnectRequested);
        return true;
    }
    fPacketSize = 0;
    fBytesRead = 0;
    switchToState(ReadPipeHandleState::Connected);
    return true;
}

void ReadPipeHandleBuffer::dropConnection() {
    if (const std::shared_ptr<ReadPipe> readPipe = fReadPipe.lock()) {
        readPipe->dropStream(fStreamKey);
    }
    fHandle.reset();
    fPacketSize = 0;
    fBytesRead = 0;
    fPeerProcessId = 0;
    fReadAhead.reset();
    fReadAheadStart = 0;
    fReadAheadEnd = 0;
}

bool ReadPipeHandleBuffer::handleDisconnectRequestedState() {
    dropConnection();
    switchToState(ReadPipeHandleState::Disconnected);
    // The pool decides whether this instance waits for the next writer.
    return false;
}

bool ReadPipeHandleBuffer::handleDestroyRequestedState() {
    dropConnection();
    switchToState(ReadPipeHandleState::Destroyed);
    return false;
}

bool ReadPipeHandleBuffer::handleDestroyedState() {
    return false;
}

bool ReadPipeHandleBuffer::forceFinalState() {
    const bool isBetween =
        fState != ReadPipeHandleState::Disconnected && fState != ReadPipeHandleState::Error &&
        fState != ReadPipeHandleState::DestroyRequested && fState != ReadPipeHandleState::Destroyed;
    if (isBetween) {
        switchToState(ReadPipeHandleState::DisconnectRequested);
        handleDisconnectRequestedState();
    }
    if (fState == ReadPipeHandleState::Disconnected || fState == ReadPipeHandleState::Error) {
        switchToState(ReadPipeHandleState::DestroyRequested);
    }
    if (fState == ReadPipeHandleState::DestroyRequested) {
        handleDestroyRequestedState();
    }
    EXPECTED(fState == ReadPipeHandleState::Destroyed);
    return fState == ReadPipeHandleState::Destroyed;
}

bool ReadPipeHandleBuffer::closeHandle() {
    bool retVal = false;
    do {
        SANITY_CHECK(fState == ReadPipeHandleState::Disconnected);
        fHandle.reset();
        switchToState(ReadPipeHandleState::Destroyed);
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
