#pragma once

#include <cstdint>
#include <poll.h>
#include <string>
#include <vector>

#include "BrwUtils/BrwDirs.h"

namespace Brw {

// The transport between coordinators of one user on one machine, as the coordinator sees it: pipes named
// by the paths of their proxy files, opened for reading (a coordinator's own input) or writing (another
// coordinator's input), and handed whole strings.
//
// A pipe is a listening Unix domain stream socket. Its proxy file, getPipeFolderPath() + coordinator name,
// is what other processes look for; it names the socket, which lives in a folder private to the user
// (see getSocketFolderPath). Each connected writer is one accepted connection of the reader's.
//
// Nothing here waits but waitForActivity: the event loop drives the pipes by ReadPipe::timeslice() and
// WritePipe::timeslice(), and sleeps in waitForActivity between its turns.
class Pipes {
public:
    static constexpr const char* TYPENAME = "Pipes";
    // The proxy file's section and keys.
    static constexpr const char* PROXY_SECTION = "NamedPipe";
    static constexpr const char* PROXY_PATH_KEY = "namedPipeProxyPath";
    static constexpr const char* PROXY_PROCESS_ID_KEY = "processId";
    static constexpr const char* PROXY_SOCKET_PATH_KEY = "socketPath";
    // waitForActivity's time-out that never expires: the wait lasts until something is ready. Any other
    // negative time-out is the default time-out.
    static constexpr int64_t WAIT_WITHOUT_LIMIT = -2;

    // True when the proxy file exists.
    static bool
    namedPipeExists(const std::string& namedPipePath,
                    TrailingPathCharHandling trailingPathCharHandling = TrailingPathCharHandling::Check);
    // True when the proxy file exists and the process it names runs.
    static bool
    namedPipeIsActive(const std::string& namedPipePath,
                      TrailingPathCharHandling trailingPathCharHandling = TrailingPathCharHandling::Check);
    // Closes every pipe of this process on the path, and removes the proxy file if it is still there.
    [[nodiscard]] static bool
    deleteNamedPipe(const std::string& namedPipePath,
                    TrailingPathCharHandling trailingPathCharHandling = TrailingPathCharHandling::Check);
    // The handle of the read pipe of the path, made and opened when there is none; 0 on failure.
    static int
    openReadNamedPipe(const std::string& namedPipePath,
                      TrailingPathCharHandling trailingPathCharHandling = TrailingPathCharHandling::Check);
    // The handle of the write pipe of the path; 0 when the pipe doesn't exist.
    static int
    openWriteNamedPipe(const std::string& namedPipePath,
                       TrailingPathCharHandling trailingPathCharHandling = TrailingPathCharHandling::Check);
    // The next received text up to and including `separator`, with `readComplete` set; or all there is,
    // without it. False when the handle names no read pipe.
    [[nodiscard]] static bool readFromNamedPipe(std::string& str, int handle, bool& readComplete,
                                                char separator);
    // Queues the string; it leaves as the reader takes it. An empty string isn't sent.
    [[nodiscard]] static bool writeToNamedPipe(int handle, const std::string& str);
    // Closes the pipe of the handle, read or write; a write pipe still flushes what it holds.
    [[nodiscard]] static bool closeNamedPipe(int handle);
    // Ends every pipe of the process at once, unsent data with it: the process is going.
    static void closeAll();

    // The one sleep of an event loop: until a descriptor of the transport or of `extraReadDescriptors`
    // (standard input, say) is ready, or the time-out in microseconds passes. A retry that a write pipe
    // has scheduled shortens the sleep; unread strings, or reading cut short by its budget, end it at
    // once. True when something is ready.
    static bool waitForActivity(int64_t timeoutMicroseconds, const std::vector<int>& extraReadDescriptors);
    // Adds the descriptors the transport waits on: listening sockets with a free instance, connections
    // that can be read, write sockets with a packet under way.
    static void appendPollDescriptors(std::vector<pollfd>& descriptors);

    // The folder of this user's sockets, made on first use: $XDG_RUNTIME_DIR/net.braidwell/, or a
    // folder of the user's own in the temporary folder. "" when it can't be made, or when what stands
    // there isn't a folder owned by this user, private to it.
    static std::string getSocketFolderPath();
    // The socket path of a new read pipe: its name in the socket folder, or a hash of the proxy path
    // when that wouldn't fit a socket address. "" without a socket folder.
    static std::string makeSocketPath(const std::string& namedPipePath);
    // The socket path that the proxy file of a running reader names; "" when it names none.
    static std::string readSocketPath(const std::string& namedPipePath);

    // A new handle for a pipe: a process-wide counter, never 0.
    static int nextExternalHandle();
    // The process identifier that packets carry, fetched once.
    static uint32_t getOwnProcessId();

private:
    // The checks every path goes through; false for an empty path.
    static bool checkPath(const std::string& namedPipePath,
                          TrailingPathCharHandling trailingPathCharHandling);
};

} // namespace Brw
