#include "BrwCoordinator/BrwPipes/BrwWritePipeHandleBuffer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwCoordinator/BrwPipes/BrwLocalSocket.h"
#include "BrwCoordinator/BrwPipes/BrwPipes.h"
#include "BrwCoordinator/BrwPipes/BrwWritePipe.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwUtils/BrwClock.h"

namespace Brw {

namespace {

int64_t retryInterval() {
    return Clock::fromMicroseconds(InternalCoordinator::fSleepWaitForPipeMicroseconds);
}

} // namespace

WritePipeHandleBuffer::WritePipeHandleBuffer(const std::shared_ptr<WritePipe>& writePipe)
    : fWritePipe(writePipe) {}

std::shared_ptr<WritePipeHandleBuffer>
WritePipeHandleBuffer::factory(const std::shared_ptr<WritePipe>& writePipe) {
    return std::make_shared<WritePipeHandleBuffer>(writePipe);
}

std::string WritePipeHandleBuffer::describe() const {
    const std::shared_ptr<WritePipe> writePipe = fWritePipe.lock();
    return Utils::format("%s (%d)", InternalCoordinator::getCoordinatorName().c_str(),
                         writePipe ? writePipe->getPipeExternalHandle() : Pipe::NO_EXTERNAL_HANDLE);
}

const char* WritePipeHandleBuffer::getStateName(WritePipeHandleState state) {
    switch (state) {
    case WritePipeHandleState::Error:
        return "Error";
    case WritePipeHandleState::Disconnected:
        return "Disconnected";
    case WritePipeHandleState::Connected:
        return "Connected";
    case WritePipeHandleState::Writing:
        return "Writing";
    }
    return "unexpected state";
}

void WritePipeHandleBuffer::switchToState(WritePipeHandleState state) {
    if (state == fState) {
        return;
    }
    const std::shared_ptr<WritePipe> writePipe = fWritePipe.lock();
    LOG_TRACE_F("%s (%d - 0x%.16llX): switch from WritePipeHandleState::%s to WritePipeHandleState::%s",
                InternalCoordinator::getCoordinatorName().c_str(),
                writePipe ? writePipe->getPipeExternalHandle() : Pipe::NO_EXTERNAL_HANDLE,
                static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(this)), getStateName(fState),
                getStateName(state));
    fState = state;
}

void WritePipeHandleBuffer::write(const std::string& outputStr) {
    LOG_TRACE_F("queueing outputStr = %s", outputStr.c_str());
    fQueue.push_back(outputStr);
}

int WritePipeHandleBuffer::getWriteDescriptor() const {
    return fState == WritePipeHandleState::Writing ? fHandle.get() : FileDescriptor::NONE;
}

int64_t WritePipeHandleBuffer::getNextRetryTime() const {
    if (isIdle()) {
        return 0;
    }
    if (! fHandle.isOpen()) {
        return std::max<int64_t>(fNextOpenTime, 1);
    }
    // A packet under way waits for the socket or the interval; anything else can go at the next turn.
    return fState == WritePipeHandleState::Writing ? std::max<int64_t>(fNextWriteTime, 1) : 1;
}

bool WritePipeHandleBuffer::poll() {
    bool retVal = false;
    do {
        SANITY_CHECK(fState != WritePipeHandleState::Error);
        if (isIdle()) {
            break;
        }
        if (fState == WritePipeHandleState::Writing) {
            if (Clock::now() < fNextWriteTime) {
                break;
            }
            if (sendPending() != SendResult::Sent) {
                break;
            }
            retVal = true;
        }
        if (fQueue.empty()) {
            break;
        }
        InternalCoordinator::reportMessagingActivity();
        if (fOutgoing.empty() && ! buildPackets()) {
            break;
        }
        const int64_t now = Clock::now();
        if (! fHandle.isOpen()) {
            if (now < fNextOpenTime) {
                break;
            }
            if (! rawOpen()) {
                LOG_TRACE("did not open - waiting for sleepWaitForPipe interval");
                fNextOpenTime = now + retryInterval();
                break;
            }
            LOG_TRACE("rawOpen succeeded");
        }
        if (now < fNextWriteTime) {
            break;
        }
        fNextWriteTime = now;
        LOG_TRACE("writing packet");
        retVal = rawWrite();
    } while (false);
    return retVal;
}

bool WritePipeHandleBuffer::buildPacket() {
    bool retVal = false;
    do {
        bool isNewString = false;
        if (fCharsRemaining == 0) {
            while (fBuiltCount < fQueue.size() && fQueue[fBuiltCount].empty()) {
                LOG_TRACE("empty string in queue");
                fQueue.erase(fQueue.begin() + static_cast<std::ptrdiff_t>(fBuiltCount));
            }
            if (fBuiltCount == fQueue.size()) {
                break;
            }
            fCharsRemaining = fQueue[fBuiltCount].size();
            fNextCharIndex = 0;
            ++fStringNumber;
            fPacketNumber = 0;
            LOG_TRACE("start to send head of queue");
            isNewString = true;
        }
        size_t dataSize = 0;
        if (isNewString) {
            fPacket.setStringLength(fCharsRemaining);
            dataSize = PipePacket::STRING_LENGTH_SIZE;
        } else {
            LOG_TRACE_F("fCharsRemaining = %llu", static_cast<unsigned long long>(fCharsRemaining));
        }
        const size_t count =
            static_cast<size_t>(std::min<uint64_t>(PipePacket::MAX_DATA_SIZE - dataSize, fCharsRemaining));
        std::memcpy(fPacket.data() + dataSize, fQueue[fBuiltCount].data() + fNextCharIndex, count);
        fNextCharIndex += count;
        fCharsRemaining -= count;
        dataSize += count;
        fPacket.setStringNumber(fStringNumber);
        fPacket.setPacketNumber(fPacketNumber);
        fPacket.setProcessId(Pipes::getOwnProcessId());
        fPacket.setDataSize(static_cast<uint16_t>(dataSize));
        ++fPacketNumber;
        fOutgoing.insert(fOutgoing.end(), fPacket.bytes(),
                         fPacket.bytes() + PipePacket::HEADER_SIZE + dataSize);
        if (fCharsRemaining == 0) {
            fStringEnds.push_back(fOutgoing.size());
            ++fBuiltCount;
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool WritePipeHandleBuffer::buildPackets() {
    fBytesSent = 0;
    while (fOutgoing.size() + PipePacket::MAX_PACKET_SIZE <= MAX_SEND_SIZE && buildPacket()) {
    }
    return ! fOutgoing.empty();
}

void WritePipeHandleBuffer::releaseSentStrings() {
    while (! fStringEnds.empty() && fStringEnds.front() <= fBytesSent) {
        LOG_TRACE("all characters sent - removing head of queue");
        fQueue.pop_front();
        fStringEnds.pop_front();
        --fBuiltCount;
    }
    if (fBytesSent == fOutgoing.size()) {
        fOutgoing.clear();
        fBytesSent = 0;
    }
}

bool WritePipeHandleBuffer::rawOpen() {
    bool retVal = false;
    do {
        const std::shared_ptr<WritePipe> writePipe = fWritePipe.lock();
        SANITY_CHECK(writePipe);
        SANITY_CHECK(! writePipe->getNamedPipePath().empty());
        SANITY_CHECK(fState != WritePipeHandleState::Connected);
        SANITY_CHECK(! fHandle.isOpen());
        const int64_t now = Clock::now();
        if (now < fNextOpenTime) {
            switchToState(WritePipeHandleState::Disconnected);
            break;
        }
        const std::string socketPath = Pipes::readSocketPath(writePipe->getNamedPipePath());
        FileDescriptor connection;
        int createFileError = 0;
        const SocketOutcome outcome = socketPath.empty()
                                          ? SocketOutcome::NoListener
                                          : LocalSocket::connectTo(socketPath, connection, createFileError);
        if (outcome == SocketOutcome::Done) {
            // Strings go only to a reader of this user, whatever a proxy file says.
            PeerCredentials peer;
            if (LocalSocket::getPeerCredentials(connection.get(), peer) && peer.fUserId == ::geteuid()) {
                fHandle = std::move(connection);
                switchToState(WritePipeHandleState::Connected);
                retVal = true;
                break;
            }
            LOG_ERROR_F("%s: the reader at %s is of user %u", describe().c_str(), socketPath.c_str(),
                        peer.fUserId);
        } else if (outcome == SocketOutcome::Failed) {
            // A socket path that the system can't take is a fault of ours, not the reader's absence.
            SANITY_CHECK(createFileError != EINVAL);
            LOG_ERROR_F("createFileError %u", static_cast<unsigned>(createFileError));
        }
        LOG_TRACE("failed to CreateFile - waiting for sleepWaitForPipe interval");
        fNextOpenTime = now + retryInterval();
        switchToState(WritePipeHandleState::Disconnected);
    } while (false);
    return retVal;
}

bool WritePipeHandleBuffer::rawWrite() {
    InternalCoordinator::reportMessagingActivity();
    return sendPending() == SendResult::Sent;
}

WritePipeHandleBuffer::SendResult WritePipeHandleBuffer::sendPending() {
    size_t moved = 0;
    int writeError = 0;
    const size_t packetSize = fOutgoing.size();
    const SocketOutcome outcome = LocalSocket::sendSome(fHandle.get(), fOutgoing.data() + fBytesSent,
                                                        packetSize - fBytesSent, moved, writeError);
    fBytesSent += moved;
    releaseSentStrings();
    switch (outcome) {
    case SocketOutcome::Done:
        if (fOutgoing.empty()) {
            switchToState(WritePipeHandleState::Connected);
            return SendResult::Sent;
        }
        [[fallthrough]];
    case SocketOutcome::WouldBlock:
        LOG_TRACE_F("buffer full - waiting for sleepWaitForPipe interval packetSize = %lu",
                    static_cast<unsigned long>(packetSize));
        fNextWriteTime = Clock::now() + retryInterval();
        switchToState(WritePipeHandleState::Writing);
        return SendResult::InFlight;
    case SocketOutcome::PeerGone:
    case SocketOutcome::NoListener:
        LOG_TRACE_F("%s: the reader has gone, writeError = %d", describe().c_str(), writeError);
        break;
    case SocketOutcome::Failed:
        LOG_ERROR_F("%s: WriteFile failed, writeError = %d", describe().c_str(), writeError);
        break;
    }
    loseConnection();
    return SendResult::Lost;
}

void WritePipeHandleBuffer::forgetPackets() {
    fOutgoing.clear();
    fBytesSent = 0;
    fStringEnds.clear();
    fBuiltCount = 0;
    fCharsRemaining = 0;
    fNextCharIndex = 0;
    fPacketNumber = 0;
}

void WritePipeHandleBuffer::loseConnection() {
    fHandle.reset();
    switchToState(WritePipeHandleState::Disconnected);
    forgetPackets();
    // A reader that has gone may be back at once: connecting again is what tells.
    fNextOpenTime = 0;
    fNextWriteTime = 0;
}

void WritePipeHandleBuffer::forceCloseState() {
    fQueue.clear();
    forgetPackets();
    if (fState != WritePipeHandleState::Disconnected && ! fHandle.isOpen()) {
        LOG_ERROR("fHandle should not be NO_RAW_PIPE_HANDLE");
    }
    switchToState(WritePipeHandleState::Disconnected);
    fHandle.reset();
}

bool WritePipeHandleBuffer::rawClose() {
    fHandle.reset();
    switchToState(WritePipeHandleState::Disconnected);
    return true;
}

} // namespace Brw
