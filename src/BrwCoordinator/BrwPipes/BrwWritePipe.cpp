#include "BrwCoordinator/BrwPipes/BrwWritePipe.h"

#include <algorithm>
#include <unordered_map>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwCoordinator/BrwPipes/BrwPipes.h"
#include "BrwCoordinator/BrwPipes/BrwWritePipeHandleBuffer.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwUtils/BrwDirs.h"

namespace Brw {

WritePipe::WritePipe(const std::string& namedPipePath) : Pipe(namedPipePath) {}

WritePipe::~WritePipe() = default;

std::shared_ptr<WritePipe> WritePipe::factory(const std::string& namedPipePath) {
    std::shared_ptr<WritePipe> retVal = getPipe(namedPipePath);
    if (! retVal) {
        retVal = std::make_shared<WritePipe>(namedPipePath);
        fWritePipes.add(retVal);
    }
    return retVal;
}

std::shared_ptr<WritePipe> WritePipe::getPipe(const std::string& namedPipePath) {
    return fWritePipes.get(namedPipePath);
}

std::shared_ptr<WritePipe> WritePipe::getPipe(int handle) {
    return fWritePipes.get(handle);
}

bool WritePipe::isAllIdle() {
    return std::all_of(fWritePipes.byHandle().begin(), fWritePipes.byHandle().end(), [](const auto& entry) {
        return entry.second->getOpenCount() == 0 && entry.second->isIdle();
    });
}

void WritePipe::timeslice() {
    std::vector<std::shared_ptr<WritePipe>> collected;
    for (const std::shared_ptr<WritePipe>& writePipe : fWritePipes.snapshot()) {
        if (writePipe->fState == WritePipeState::Error) {
            LOG_TRACE("WritePipeState::Error, writePipe goes into to close pipes");
            collected.push_back(writePipe);
            continue;
        }
        for (int sends = 0; sends < MAX_SENDS_PER_TIMESLICE && writePipe->poll(); ++sends) {
        }
        if (writePipe->fOpenCount == 0 && writePipe->isIdle()) {
            collected.push_back(writePipe);
        }
    }
    for (const std::shared_ptr<WritePipe>& writePipe : collected) {
        const bool isClosed =
            writePipe->fState == WritePipeState::Error ? writePipe->closeForced() : writePipe->finishClose();
        if (! isClosed) {
            LOG_ERROR("failed to close writePipe in error or flushing state");
        }
    }
}

void WritePipe::closeAll() {
    for (const std::shared_ptr<WritePipe>& writePipe : fWritePipes.snapshot()) {
        VERIFY(writePipe->closeForced());
    }
}

void WritePipe::appendPollDescriptors(std::vector<pollfd>& descriptors) {
    for (const auto& [handle, writePipe] : fWritePipes.byHandle()) {
        const int fd = writePipe->fWritePipeHandleBuffer
                           ? writePipe->fWritePipeHandleBuffer->getWriteDescriptor()
                           : FileDescriptor::NONE;
        if (fd != FileDescriptor::NONE) {
            descriptors.push_back({fd, POLLOUT, 0});
        }
    }
}

int64_t WritePipe::getNextRetryTime() {
    int64_t retVal = 0;
    for (const auto& [handle, writePipe] : fWritePipes.byHandle()) {
        const int64_t retryTime =
            writePipe->fWritePipeHandleBuffer ? writePipe->fWritePipeHandleBuffer->getNextRetryTime() : 0;
        if (retryTime != 0 && (retVal == 0 || retryTime < retVal)) {
            retVal = retryTime;
        }
    }
    return retVal;
}

void WritePipe::noteWritable(const std::vector<pollfd>& descriptors) {
    std::unordered_map<int, WritePipeHandleBuffer*> waiting;
    for (const auto& [handle, writePipe] : fWritePipes.byHandle()) {
        WritePipeHandleBuffer* buffer = writePipe->fWritePipeHandleBuffer.get();
        if (buffer != nullptr && buffer->getWriteDescriptor() != FileDescriptor::NONE) {
            waiting[buffer->getWriteDescriptor()] = buffer;
        }
    }
    for (const pollfd& descriptor : descriptors) {
        const auto iter = waiting.find(descriptor.fd);
        if (iter != waiting.end() && (descriptor.revents & (POLLOUT | POLLERR | POLLHUP)) != 0) {
            iter->second->noteWritable();
        }
    }
}

bool WritePipe::write(const std::string& outputStr) {
    bool retVal = false;
    do {
        if (fState != WritePipeState::Open) {
            VERIFY(open());
        }
        SANITY_CHECK(fState == WritePipeState::Open);
        SANITY_CHECK(fWritePipeHandleBuffer);
        fWritePipeHandleBuffer->write(outputStr);
        poll();
        retVal = true;
    } while (false);
    return retVal;
}

bool WritePipe::open() {
    bool retVal = false;
    do {
        SANITY_CHECK(! fNamedPipePath.empty());
        SANITY_CHECK(fState != WritePipeState::Open);
        const std::string parentDir = Dirs::getParentPath(fNamedPipePath);
        if (! Dirs::dirExists(parentDir)) {
            LOG_ERROR("parentDir does not exist");
            break;
        }
        VERIFY(Pipes::namedPipeExists(fNamedPipePath));
        // A pipe opened again while it flushes keeps what it still has to send.
        if (fState != WritePipeState::Closing) {
            VERIFY(! fWritePipeHandleBuffer);
        }
        if (! fWritePipeHandleBuffer) {
            fWritePipeHandleBuffer =
                WritePipeHandleBuffer::factory(std::static_pointer_cast<WritePipe>(shared_from_this()));
        }
        fRawNamedPipePath = Pipes::readSocketPath(fNamedPipePath);
        switchToState(WritePipeState::Open);
        retVal = true;
    } while (false);
    return retVal;
}

bool WritePipe::poll() {
    bool retVal = false;
    do {
        SANITY_CHECK(fState != WritePipeState::Error);
        if (fState == WritePipeState::Closed || ! fWritePipeHandleBuffer) {
            break;
        }
        retVal = fWritePipeHandleBuffer->poll();
        if (fState == WritePipeState::Closing && fWritePipeHandleBuffer->isIdle()) {
            VERIFY(fWritePipeHandleBuffer->rawClose());
            fWritePipeHandleBuffer.reset();
            switchToState(WritePipeState::Closed);
        }
    } while (false);
    return retVal;
}

bool WritePipe::isIdle() const {
    return ! fWritePipeHandleBuffer || fWritePipeHandleBuffer->isIdle();
}

bool WritePipe::close() {
    bool retVal = false;
    do {
        SANITY_CHECK(openCountDecrement());
        if (fOpenCount > 0) {
            retVal = true;
            break;
        }
        retVal = finishClose();
    } while (false);
    return retVal;
}

bool WritePipe::finishClose() {
    bool retVal = false;
    do {
        if (! isIdle()) {
            // Flushing: timeslice() ends the pipe once all has gone.
            switchToState(WritePipeState::Closing);
            break;
        }
        if (fWritePipeHandleBuffer) {
            SANITY_CHECK(fWritePipeHandleBuffer->rawClose());
            fWritePipeHandleBuffer.reset();
        }
        switchToState(WritePipeState::Closed);
        removeFromTables();
        retVal = true;
    } while (false);
    return retVal;
}

bool WritePipe::closeForced() {
    bool retVal = false;
    do {
        const std::shared_ptr<Pipe> self = shared_from_this();
        if (fWritePipeHandleBuffer) {
            fWritePipeHandleBuffer->forceCloseState();
        }
        while (fOpenCount > 0) {
            SANITY_CHECK(openCountDecrement());
        }
        SANITY_CHECK(finishClose());
        retVal = true;
    } while (false);
    return retVal;
}

void WritePipe::removeFromTables() {
    const std::shared_ptr<Pipe> self = shared_from_this();
    fWritePipes.remove(*this, {"removing write pipe by handle %d", "cannot find write pipe by handle %d",
                               "removing write pipe by path %s", "cannot find write pipe by path %s"});
}

void WritePipe::switchToState(WritePipeState state) {
    if (state != fState) {
        const std::string from = getStateName();
        fState = state;
        logStateSwitch("WritePipeState", from);
    }
}

std::string WritePipe::getStateName() const {
    switch (fState) {
    case WritePipeState::Error:
        return "Error";
    case WritePipeState::Unknown:
        return "Unknown";
    case WritePipeState::NonExistent:
        return "NonExistent";
    case WritePipeState::Closed:
        return "Closed";
    case WritePipeState::Closing:
        return "Closing";
    case WritePipeState::Open:
        return "Open";
    }
    return "unexpected state";
}

} // namespace Brw
