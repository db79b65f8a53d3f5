#include "BrwCoordinator/BrwPipes/BrwReadPipe.h"

#include <cstdio>
#include <unistd.h>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwCoordinator/BrwPipes/BrwLocalSocket.h"
#include "BrwCoordinator/BrwPipes/BrwPipePacket.h"
#include "BrwCoordinator/BrwPipes/BrwPipes.h"
#include "BrwCoordinator/BrwPipes/BrwReadPipeHandleBuffer.h"
#include "BrwData/BrwIni.h"
#include "BrwLogger/BrwCheck.h"

namespace Brw {

ReadPipe::ReadPipe(const std::string& namedPipePath) : Pipe(namedPipePath) {}

ReadPipe::~ReadPipe() {
    // A pipe that was never closed still takes its socket file along; the proxy file it leaves names a
    // process that has ended.
    removeSocketFile();
}

std::shared_ptr<ReadPipe> ReadPipe::factory(const std::string& namedPipePath) {
    std::shared_ptr<ReadPipe> retVal = getPipe(namedPipePath);
    do {
        if (retVal) {
            break;
        }
        retVal = std::make_shared<ReadPipe>(namedPipePath);
        if (! SANITY_CHECKED(retVal->open())) {
            retVal.reset();
            break;
        }
        fReadPipes.add(retVal);
    } while (false);
    return retVal;
}

std::shared_ptr<ReadPipe> ReadPipe::getPipe(const std::string& namedPipePath) {
    return fReadPipes.get(namedPipePath);
}

std::shared_ptr<ReadPipe> ReadPipe::getPipe(int handle) {
    return fReadPipes.get(handle);
}

bool ReadPipe::isAllIdle() {
    for (const auto& [handle, readPipe] : fReadPipes.byHandle()) {
        for (const std::shared_ptr<ReadPipeHandleBuffer>& instance : readPipe->fReadPipeHandleBufferPool) {
            if (instance->isBusy()) {
                return false;
            }
        }
    }
    return true;
}

bool ReadPipe::isWorkWaiting() {
    for (const auto& [handle, readPipe] : fReadPipes.byHandle()) {
        if (! readPipe->fCompletedStrings.empty()) {
            return true;
        }
        for (const std::shared_ptr<ReadPipeHandleBuffer>& instance : readPipe->fReadPipeHandleBufferPool) {
            if (instance->isWorkLeft()) {
                return true;
            }
        }
    }
    return false;
}

void ReadPipe::closeAll() {
    for (const std::shared_ptr<ReadPipe>& readPipe : fReadPipes.snapshot()) {
        VERIFY(readPipe->closeForced());
    }
}

void ReadPipe::timeslice() {
    std::vector<std::shared_ptr<ReadPipe>> errorPipes;
    for (const std::shared_ptr<ReadPipe>& readPipe : fReadPipes.snapshot()) {
        if (readPipe->fState == ReadPipeState::Error) {
            LOG_TRACE("error pipe goes into to close pipes");
            errorPipes.push_back(readPipe);
        } else {
            readPipe->poll();
        }
    }
    for (const std::shared_ptr<ReadPipe>& readPipe : errorPipes) {
        if (! readPipe->closeForced()) {
            LOG_ERROR("failed to close pipe in error state");
        }
    }
}

void ReadPipe::appendPollDescriptors(std::vector<pollfd>& descriptors) {
    for (const auto& [handle, readPipe] : fReadPipes.byHandle()) {
        if (readPipe->fState != ReadPipeState::Open) {
            continue;
        }
        bool isWaitingForWriter = false;
        for (const std::shared_ptr<ReadPipeHandleBuffer>& instance : readPipe->fReadPipeHandleBufferPool) {
            const ReadPipeHandleState state = instance->getState();
            isWaitingForWriter = isWaitingForWriter || state == ReadPipeHandleState::ConnectionPending ||
                                 state == ReadPipeHandleState::Disconnected;
            const int fd = instance->getReadDescriptor();
            if (fd != FileDescriptor::NONE && ! readPipe->isUnreadFull()) {
                descriptors.push_back({fd, POLLIN, 0});
            }
        }
        if (isWaitingForWriter) {
            descriptors.push_back({readPipe->fListenSocket.get(), POLLIN, 0});
        }
    }
}

void ReadPipe::noteListeners(const std::vector<pollfd>& descriptors) {
    for (const auto& [handle, readPipe] : fReadPipes.byHandle()) {
        for (const pollfd& descriptor : descriptors) {
            if (descriptor.fd == readPipe->fListenSocket.get()) {
                readPipe->fIsListenerQuiet = descriptor.revents == 0;
            }
        }
    }
}

bool ReadPipe::open() {
    bool retVal = false;
    do {
        SANITY_CHECK(! fNamedPipePath.empty());
        SANITY_CHECK(fState != ReadPipeState::Open);
        fRawNamedPipePath = Pipes::makeSocketPath(fNamedPipePath);
        SANITY_CHECK(! fRawNamedPipePath.empty());
        int listenError = 0;
        fListenSocket = LocalSocket::listenAt(fRawNamedPipePath, listenError);
        if (! fListenSocket.isOpen()) {
            LOG_ERROR_F("cannot listen at %s, error %d", fRawNamedPipePath.c_str(), listenError);
            break;
        }
        fSocketFileIdentity = LocalSocket::getFileIdentity(fRawNamedPipePath);
        SANITY_CHECK(refreshProxyIniFile());
        const auto self = std::static_pointer_cast<ReadPipe>(shared_from_this());
        std::shared_ptr<ReadPipeHandleBuffer> instance = ReadPipeHandleBuffer::factory(self);
        fReadPipeHandleBufferPool.push_back(instance);
        instance->poll();
        switchToState(ReadPipeState::Open);
        retVal = true;
    } while (false);
    if (! retVal) {
        fListenSocket.reset();
        removeSocketFile();
    }
    return retVal;
}

bool ReadPipe::refreshProxyIniFile() {
    bool retVal = false;
    do {
        if (! fProxyIniFile) {
            fProxyIniFile = std::make_shared<IniFile>(fNamedPipePath);
        }
        const std::pair<const char*, std::string> entries[] = {
            {Pipes::PROXY_PATH_KEY, fNamedPipePath},
            {Pipes::PROXY_PROCESS_ID_KEY, std::to_string(Pipes::getOwnProcessId())},
            {Pipes::PROXY_SOCKET_PATH_KEY, fRawNamedPipePath},
        };
        for (const auto& [key, value] : entries) {
            if (fProxyIniFile->getEntry(Pipes::PROXY_SECTION, key) != value) {
                fProxyIniFile->setEntry(Pipes::PROXY_SECTION, key, value);
            }
        }
        SANITY_CHECK(fProxyIniFile->save());
        retVal = true;
    } while (false);
    return retVal;
}

bool ReadPipe::poll() {
    bool retVal = false;
    do {
        if (fState == ReadPipeState::Error) {
            LOG_ERROR("pipe in error state");
            break;
        }
        if (fState == ReadPipeState::Unknown) {
            switchToState(Dirs::fileExists(fNamedPipePath) ? ReadPipeState::Closed
                                                           : ReadPipeState::NotCreated);
        }
        fIsAcceptExhausted = fIsListenerQuiet;
        fIsListenerQuiet = false;
        std::vector<std::shared_ptr<ReadPipeHandleBuffer>> live;
        std::vector<std::shared_ptr<ReadPipeHandleBuffer>> disconnected;
        size_t waitingCount = 0;
        for (const std::shared_ptr<ReadPipeHandleBuffer>& instance : fReadPipeHandleBufferPool) {
            instance->poll();
            switch (instance->getState()) {
            case ReadPipeHandleState::Destroyed:
                LOG_TRACE_F("releasing a destroyed pipe (%d)", fPipeExternalHandle);
                break;
            case ReadPipeHandleState::Disconnected:
                LOG_TRACE_F("adding a disconnected pipe (%d) to the list of disconnects",
                            fPipeExternalHandle);
                disconnected.push_back(instance);
                break;
            case ReadPipeHandleState::ConnectionPending:
                ++waitingCount;
                live.push_back(instance);
                break;
            default:
                live.push_back(instance);
                break;
            }
        }
        fReadPipeHandleBufferPool.swap(live);
        refillPool(waitingCount, disconnected);
        if (! fCompletedStrings.empty()) {
            InternalCoordinator::reportMessagingActivity();
        }
        retVal = true;
    } while (false);
    return retVal;
}

void ReadPipe::refillPool(size_t waitingCount,
                          std::vector<std::shared_ptr<ReadPipeHandleBuffer>>& disconnected) {
    while (waitingCount < WAITING_INSTANCE_COUNT && fReadPipeHandleBufferPool.size() < MAX_INSTANCE_COUNT) {
        if (! disconnected.empty()) {
            LOG_TRACE_F("reusing a disconnected pipe (%d) for the pool", fPipeExternalHandle);
            fReadPipeHandleBufferPool.push_back(disconnected.back());
            disconnected.pop_back();
        } else {
            LOG_TRACE_F("adding a new pipe (%d) to the pool", fPipeExternalHandle);
            fReadPipeHandleBufferPool.push_back(
                ReadPipeHandleBuffer::factory(std::static_pointer_cast<ReadPipe>(shared_from_this())));
        }
        ++waitingCount;
    }
    for (const std::shared_ptr<ReadPipeHandleBuffer>& instance : disconnected) {
        LOG_TRACE_F("discarding a disconnected pipe (%d) from the pool", fPipeExternalHandle);
        VERIFY(instance->closeHandle());
    }
}

bool ReadPipe::processPacket(const PipePacket& packet, uint64_t streamKey) {
    bool retVal = false;
    do {
        auto iter = fReadPipeBuffers.find(streamKey);
        const uint8_t* data = packet.data();
        uint64_t dataSize = packet.getDataSize();
        if (packet.getPacketNumber() == 0) {
            if (dataSize < PipePacket::STRING_LENGTH_SIZE) {
                LOG_ERROR("No room for string length in packet");
                break;
            }
            const uint64_t expectedLength = packet.getStringLength();
            if (expectedLength > MAX_STRING_LENGTH) {
                LOG_ERROR_F("string too long: %llu characters announced",
                            static_cast<unsigned long long>(expectedLength));
                break;
            }
            data += PipePacket::STRING_LENGTH_SIZE;
            dataSize -= PipePacket::STRING_LENGTH_SIZE;
            if (iter == fReadPipeBuffers.end()) {
                iter = fReadPipeBuffers.try_emplace(streamKey).first;
            }
            // A packet 0 in the middle of a string starts it over: the writer gave up on the first.
            iter->second.reset(expectedLength);
        } else {
            if (iter == fReadPipeBuffers.end()) {
                LOG_ERROR("was expecting a packet #0 at start of buffer");
                break;
            }
            ++iter->second.fNextPacketNumber;
        }
        ReadPipeBuffer& buffer = iter->second;
        if (packet.getPacketNumber() == 0 && buffer.fStringNumber == ReadPipeBuffer::STRING_NUMBER_NOT_SET) {
            buffer.fStringNumber = packet.getStringNumber();
        } else if (buffer.fStringNumber != packet.getStringNumber()) {
            LOG_ERROR("string sequence error");
            break;
        }
        if (buffer.fNextPacketNumber != packet.getPacketNumber()) {
            LOG_ERROR("packet sequence error");
            break;
        }
        // Checked before the data goes in, so that a lying writer can't make the string grow past it.
        if (buffer.fCharacters.size() + dataSize > buffer.fExpectedLength) {
            LOG_ERROR("More data received than expected");
            break;
        }
        buffer.fCharacters.append(reinterpret_cast<const char*>(data), dataSize);
        if (buffer.fCharacters.size() == buffer.fExpectedLength) {
            fUnreadBytes += buffer.fCharacters.size();
            fCompletedStrings.push_back(std::move(buffer.fCharacters));
            fReadPipeBuffers.erase(iter);
        }
        retVal = true;
    } while (false);
    if (! retVal) {
        dropStream(streamKey);
    }
    return retVal;
}

void ReadPipe::dropStream(uint64_t streamKey) {
    fReadPipeBuffers.erase(streamKey);
}

bool ReadPipe::read(std::string& out, bool& readComplete, char separator) {
    out.clear();
    readComplete = false;
    while (! fCompletedStrings.empty() && ! readComplete) {
        std::string& head = fCompletedStrings.front();
        const size_t separatorIndex = head.find(separator);
        if (separatorIndex == std::string::npos || separatorIndex + 1 == head.size()) {
            // The whole head goes.
            fUnreadBytes -= head.size();
            if (out.empty()) {
                out.swap(head);
            } else {
                out += head;
            }
            fCompletedStrings.pop_front();
            readComplete = separatorIndex != std::string::npos;
        } else {
            // What follows the separator stays at the head.
            out.append(head, 0, separatorIndex + 1);
            head.erase(0, separatorIndex + 1);
            fUnreadBytes -= separatorIndex + 1;
            readComplete = true;
        }
    }
    return true;
}

bool ReadPipe::close() {
    bool retVal = false;
    do {
        SANITY_CHECK(openCountDecrement());
        if (fOpenCount > 0) {
            LOG_TRACE("pipe remains open");
            retVal = true;
            break;
        }
        const bool forceFinalSuccess = destroyInstances();
        fReadPipeBuffers.clear();
        fCompletedStrings.clear();
        fUnreadBytes = 0;
        fListenSocket.reset();
        removeSocketFile();
        fProxyIniFile.reset();
        if (Dirs::fileExists(fNamedPipePath)) {
            VERIFY(::remove(fNamedPipePath.c_str()) == 0);
        }
        switchToState(ReadPipeState::Closed);
        removeFromTables();
        SANITY_CHECK(forceFinalSuccess);
        SANITY_CHECK(! Dirs::fileExists(fNamedPipePath));
        retVal = true;
    } while (false);
    return retVal;
}

bool ReadPipe::closeForced() {
    bool retVal = false;
    do {
        // Held here: the last close takes the pipe out of the tables that may be all that holds it.
        const std::shared_ptr<Pipe> self = shared_from_this();
        bool isClosed = true;
        if (fOpenCount == 0 && fState != ReadPipeState::Closed) {
            // Made but never opened through the Pipes layer.
            fOpenCount = 1;
        }
        while (fOpenCount > 0 && isClosed) {
            isClosed = close();
        }
        SANITY_CHECK(isClosed);
        SANITY_CHECK(fReadPipeHandleBufferPool.empty());
        retVal = true;
    } while (false);
    return retVal;
}

bool ReadPipe::destroyInstances() {
    bool forceFinalSuccess = true;
    for (const std::shared_ptr<ReadPipeHandleBuffer>& instance : fReadPipeHandleBufferPool) {
        forceFinalSuccess = instance->forceFinalState() && forceFinalSuccess;
    }
    fReadPipeHandleBufferPool.clear();
    return forceFinalSuccess;
}

void ReadPipe::removeFromTables() {
    const std::shared_ptr<Pipe> self = shared_from_this();
    fReadPipes.remove(*this, {"removing external handle %d", "cannot find read pipe by handle %d",
                              "removing pipe by path %s", "cannot find read pipe by path %s"});
}

void ReadPipe::removeSocketFile() {
    if (fSocketFileIdentity != 0 && LocalSocket::getFileIdentity(fRawNamedPipePath) == fSocketFileIdentity) {
        ::unlink(fRawNamedPipePath.c_str());
    }
    fSocketFileIdentity = 0;
}

void ReadPipe::switchToState(ReadPipeState state) {
    if (state != fState) {
        const std::string from = getStateName();
        fState = state;
        logStateSwitch("ReadPipeState", from);
    }
}

std::string ReadPipe::getStateName() const {
    switch (fState) {
    // NOTE: Error reads as "Unknown", as it always has; logs are matched on these names.
    case ReadPipeState::Error:
    case ReadPipeState::Unknown:
        return "Unknown";
    case ReadPipeState::NotCreated:
        return "NotCreated";
    case ReadPipeState::Closed:
        return "Closed";
    case ReadPipeState::Open:
        return "Open";
    }
    return "unexpected state";
}

} // namespace Brw
