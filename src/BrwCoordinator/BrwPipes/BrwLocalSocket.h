#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "BrwUtils/BrwFileDescriptor.h"

namespace Brw {

// What a call on a local socket came to, in the terms the pipe state machines decide on.
enum class SocketOutcome {
    Done,       // the call did its work (a send or receive may still have moved fewer bytes than asked)
    WouldBlock, // nothing could move now: no connection waiting, a full or an empty buffer
    NoListener, // nobody listens at the path: the reader isn't there (yet)
    PeerGone,   // the other end has closed: end of stream, reset or broken pipe
    Failed,     // anything else; the errno tells
};

// The kernel's word on the process at the other end of a connection.
struct PeerCredentials {
    uint32_t fProcessId = 0;
    uint32_t fUserId = 0;
};

// The few calls on Unix domain stream sockets that the pipes make, all non-blocking, so that the state
// machines above read as the portable logic they are.
class LocalSocket {
public:
    static constexpr const char* TYPENAME = "LocalSocket";
    // The longest path a socket address holds, without its terminating zero.
    static constexpr size_t MAX_PATH_LENGTH = 107;

    // A listening socket bound at `socketPath`. A socket file left by a reader that has ended is
    // replaced; one that somebody still listens on is not, and gives no socket. `error` is the errno.
    static FileDescriptor listenAt(const std::string& socketPath, int& error);
    // Takes the next waiting connection, if any.
    static SocketOutcome acceptConnection(int listenFd, FileDescriptor& connection, int& error);
    // Connects to the listener at `socketPath` without waiting.
    static SocketOutcome connectTo(const std::string& socketPath, FileDescriptor& connection, int& error);
    // Sends what the socket takes of `size` bytes; `moved` says how many. A vanished reader never raises
    // a signal here.
    static SocketOutcome sendSome(int fd, const uint8_t* data, size_t size, size_t& moved, int& error);
    // Receives up to `size` bytes; `moved` says how many. The end of the stream is PeerGone.
    static SocketOutcome receiveSome(int fd, uint8_t* data, size_t size, size_t& moved, int& error);
    [[nodiscard]] static bool getPeerCredentials(int fd, PeerCredentials& credentials);
    // The identity of the file at `path` (device and inode folded), 0 when there is none: tells a socket
    // file of ours from one that replaced it.
    static uint64_t getFileIdentity(const std::string& path);
};

} // namespace Brw
