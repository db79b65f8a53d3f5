#pragma once

#include <memory>
#include <poll.h>
#include <string>
#include <vector>

#include "BrwCoordinator/BrwPipes/BrwPipe.h"
#include "BrwCoordinator/BrwPipes/BrwPipeTable.h"

namespace Brw {

class WritePipeHandleBuffer;

enum class WritePipeState { Error = -1, Unknown = 0, NonExistent = 1, Closed = 2, Closing = 3, Open = 4 };

// The writing end of another coordinator's input: whole strings go in and leave as the reader takes
// them. A pipe closed with strings still queued stays, Closing, until they have gone ("flushing"), and
// then leaves the tables by itself.
class WritePipe : public Pipe {
public:
    static constexpr const char* TYPENAME = "WritePipe";
    // Sends one pipe may make in one timeslice while its socket takes all it is offered: one for each
    // turn of the loop would leave a burst to crawl, and no limit would starve the other pipes.
    static constexpr int MAX_SENDS_PER_TIMESLICE = 16;

    explicit WritePipe(const std::string& namedPipePath);
    ~WritePipe() override;

    // The pipe of the path, made (not opened) when there is none.
    static std::shared_ptr<WritePipe> factory(const std::string& namedPipePath);
    static std::shared_ptr<WritePipe> getPipe(const std::string& namedPipePath);
    static std::shared_ptr<WritePipe> getPipe(int handle);
    // False while any pipe is open or has something to send.
    static bool isAllIdle();
    // One turn of every write pipe; flushed and broken pipes are closed.
    static void timeslice();
    // Ends every write pipe, and drops what they hold.
    static void closeAll();
    static void appendPollDescriptors(std::vector<pollfd>& descriptors);
    // The earliest retry time of all pipes, 0 for none; see WritePipeHandleBuffer::getNextRetryTime.
    static int64_t getNextRetryTime();
    // Tells the pipes whose sockets poll found ready again.
    static void noteWritable(const std::vector<pollfd>& descriptors);

    [[nodiscard]] bool write(const std::string& outputStr);
    [[nodiscard]] bool open();
    bool poll() override;
    bool isIdle() const;
    [[nodiscard]] bool close() override;
    [[nodiscard]] bool closeForced();
    void switchToState(WritePipeState state);
    std::string getStateName() const override;
    WritePipeState getState() const { return fState; }
    const std::shared_ptr<WritePipeHandleBuffer>& getHandleBuffer() const { return fWritePipeHandleBuffer; }

private:
    // The end of a close once the open count is 0: false while something is left to send.
    bool finishClose();
    void removeFromTables();

    WritePipeState fState = WritePipeState::Unknown;
    std::shared_ptr<WritePipeHandleBuffer> fWritePipeHandleBuffer; // while open or flushing

    static inline PipeTable<WritePipe> fWritePipes; // every write pipe of the process
};

} // namespace Brw
