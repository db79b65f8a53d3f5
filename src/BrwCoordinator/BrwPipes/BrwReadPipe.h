#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <poll.h>
#include <string>
#include <unordered_map>
#include <vector>

#include "BrwCoordinator/BrwPipes/BrwPipe.h"
#include "BrwCoordinator/BrwPipes/BrwPipeTable.h"
#include "BrwCoordinator/BrwPipes/BrwReadPipeBuffer.h"
#include "BrwUtils/BrwFileDescriptor.h"

namespace Brw {

class IniFile;
class PipePacket;
class ReadPipeHandleBuffer;

enum class ReadPipeState { Error = -1, Unknown = 0, NotCreated = 1, Closed = 2, Open = 3 };

// A coordinator's input: the listening socket, its pool of instances (one for each connected writer,
// and a few waiting for the next), the strings half received from each connection, and the whole ones
// not read yet.
//
// NOTE: a protocol error poisons only the connection that sent the bad packet: its instance drops it,
// with the string it was in the middle of. Each writer has a connection of its own here, so one writer
// that breaks the format can't take down the endpoint of all the others. The pipe as a whole goes to
// Error only when its listening socket fails; timeslice() then closes it, and the coordinator opens it
// anew when it sees the proxy file gone.
class ReadPipe : public Pipe {
public:
    static constexpr const char* TYPENAME = "ReadPipe";
    // Instances kept waiting for a writer: a new writer always finds one.
    static constexpr size_t WAITING_INSTANCE_COUNT = 5;
    // Instances at most, connected and waiting: past it, writers wait in the listener's queue.
    static constexpr size_t MAX_INSTANCE_COUNT = 255;
    // The longest string a writer may announce: the limit of a text in a script.
    static constexpr uint64_t MAX_STRING_LENGTH = uint64_t{1} << 28;
    // Bytes of whole strings not read yet past which no connection is read: writers then wait.
    static constexpr uint64_t MAX_UNREAD_BYTES = uint64_t{64} << 20;

    explicit ReadPipe(const std::string& namedPipePath);
    ~ReadPipe() override;

    // The open pipe of the path, made and opened when there is none; null when it can't be opened.
    static std::shared_ptr<ReadPipe> factory(const std::string& namedPipePath);
    static std::shared_ptr<ReadPipe> getPipe(const std::string& namedPipePath);
    static std::shared_ptr<ReadPipe> getPipe(int handle);
    // False while any instance holds part of a packet.
    static bool isAllIdle();
    // Ends every read pipe, whatever it was in the middle of.
    static void closeAll();
    // One turn of every read pipe; pipes in Error are closed.
    static void timeslice();
    // True when a pipe holds whole strings that nobody has read, or an instance has work left that
    // needs no waiting: the loop must not sleep.
    static bool isWorkWaiting();
    static void appendPollDescriptors(std::vector<pollfd>& descriptors);

    // Listens, publishes the proxy file and makes the first instance.
    [[nodiscard]] bool open();
    [[nodiscard]] bool close() override;
    // Closes until no open is left.
    [[nodiscard]] bool closeForced();
    bool poll() override;
    // Adds the packet to the string its connection is sending; false on a protocol error, after which
    // the connection's string is gone.
    [[nodiscard]] bool processPacket(const PipePacket& packet, uint64_t streamKey);
    // Forgets what a connection that has ended was in the middle of.
    void dropStream(uint64_t streamKey);
    // See Pipes::readFromNamedPipe.
    bool read(std::string& out, bool& readComplete, char separator);
    void switchToState(ReadPipeState state);
    std::string getStateName() const override;
    ReadPipeState getState() const { return fState; }
    [[nodiscard]] bool refreshProxyIniFile();

    int getListenDescriptor() const { return fListenSocket.get(); }
    // Set while one poll of the pool has found the listener without a waiting connection: the other
    // waiting instances of that turn needn't ask again.
    bool isAcceptExhausted() const { return fIsAcceptExhausted; }
    // Takes what a wait saw of the listeners: one that was watched and stayed quiet has no writer
    // waiting, so the next poll of its pool doesn't ask (a coordinator at rest would ask every turn).
    static void noteListeners(const std::vector<pollfd>& descriptors);
    void setAcceptExhausted() { fIsAcceptExhausted = true; }
    bool isUnreadFull() const { return fUnreadBytes >= MAX_UNREAD_BYTES; }
    const std::vector<std::shared_ptr<ReadPipeHandleBuffer>>& getInstances() const {
        return fReadPipeHandleBufferPool;
    }
    size_t getStreamCount() const { return fReadPipeBuffers.size(); }

private:
    // Brings the pool back to WAITING_INSTANCE_COUNT waiting instances, reusing the disconnected ones
    // first; the disconnected ones left over are closed.
    void refillPool(size_t waitingCount, std::vector<std::shared_ptr<ReadPipeHandleBuffer>>& disconnected);
    // Brings every instance to its end and empties the pool; false when one doesn't get there.
    bool destroyInstances();
    void removeFromTables();
    // Removes the socket file, when it is still the one this pipe listens on.
    void removeSocketFile();

    ReadPipeState fState = ReadPipeState::Unknown;
    FileDescriptor fListenSocket;     // the listener, when open
    uint64_t fSocketFileIdentity = 0; // of the socket file it made
    std::vector<std::shared_ptr<ReadPipeHandleBuffer>> fReadPipeHandleBufferPool; // connected and waiting
    // Partial strings by connection, not by the process identifier in the packets: that is the writer's
    // own word, and a client could write into another's string with it.
    std::unordered_map<uint64_t, ReadPipeBuffer> fReadPipeBuffers;
    std::deque<std::string> fCompletedStrings; // whole strings, oldest first
    uint64_t fUnreadBytes = 0;                 // their size
    std::shared_ptr<IniFile> fProxyIniFile;    // the proxy file, once written
    bool fIsAcceptExhausted = false;           // see isAcceptExhausted
    bool fIsListenerQuiet = false;             // see noteListeners; good for the next poll only

    static inline PipeTable<ReadPipe> fReadPipes; // every read pipe of the process
};

} // namespace Brw
