#include "BrwCoordinator/BrwPipes/BrwLocalSocket.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace Brw {

namespace {

static_assert(LocalSocket::MAX_PATH_LENGTH + 1 == sizeof(sockaddr_un::sun_path));

// The connections a listener lets wait before they are taken: as many as the system allows, so that a
// burst of writers finds room.
constexpr int LISTEN_BACKLOG = SOMAXCONN;

bool makeAddress(const std::string& socketPath, sockaddr_un& address) {
    if (socketPath.empty() || socketPath.size() > LocalSocket::MAX_PATH_LENGTH) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memset(&address, 0, sizeof(address));
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, socketPath.c_str(), socketPath.size() + 1);
    return true;
}

FileDescriptor newSocket() {
    return FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

bool isPeerGone(int error) {
    return error == EPIPE || error == ECONNRESET || error == ENOTCONN;
}

bool isWouldBlock(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

} // namespace

FileDescriptor LocalSocket::listenAt(const std::string& socketPath, int& error) {
    FileDescriptor retVal;
    error = 0;
    do {
        sockaddr_un address{};
        if (! makeAddress(socketPath, address)) {
            error = errno;
            break;
        }
        // A socket file that nobody answers on was left by a reader that ended; one that answers belongs
        // to a live reader, and stays its own.
        FileDescriptor probe;
        int probeError = 0;
        if (connectTo(socketPath, probe, probeError) == SocketOutcome::Done) {
            error = EADDRINUSE;
            break;
        }
        if (probeError == ECONNREFUSED) {
            ::unlink(socketPath.c_str());
        }
        FileDescriptor listener = newSocket();
        if (! listener.isOpen() ||
            ::bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
            ::listen(listener.get(), LISTEN_BACKLOG) != 0) {
            error = errno;
            break;
        }
        retVal = std::move(listener);
    } while (false);
    return retVal;
}

SocketOutcome LocalSocket::acceptConnection(int listenFd, FileDescriptor& connection, int& error) {
    connection.reset(::accept4(listenFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    error = connection.isOpen() ? 0 : errno;
    if (connection.isOpen()) {
        return SocketOutcome::Done;
    }
    // A connection whose client gave up before it was taken is no connection at all.
    return isWouldBlock(error) || error == ECONNABORTED ? SocketOutcome::WouldBlock : SocketOutcome::Failed;
}

SocketOutcome LocalSocket::connectTo(const std::string& socketPath, FileDescriptor& connection, int& error) {
    sockaddr_un address{};
    connection.reset();
    if (! makeAddress(socketPath, address)) {
        error = errno;
        return SocketOutcome::Failed;
    }
    FileDescriptor client = newSocket();
    if (! client.isOpen()) {
        error = errno;
        return SocketOutcome::Failed;
    }
    if (::connect(client.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        error = errno;
        if (error == ENOENT || error == ECONNREFUSED) {
            return SocketOutcome::NoListener;
        }
        // A listener whose queue of waiting connections is full: all its instances are busy.
        return isWouldBlock(error) ? SocketOutcome::WouldBlock : SocketOutcome::Failed;
    }
    error = 0;
    connection = std::move(client);
    return SocketOutcome::Done;
}

SocketOutcome LocalSocket::sendSome(int fd, const uint8_t* data, size_t size, size_t& moved, int& error) {
    const ssize_t count = ::send(fd, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    moved = count > 0 ? static_cast<size_t>(count) : 0;
    error = count >= 0 ? 0 : errno;
    if (count >= 0) {
        return SocketOutcome::Done;
    }
    return isWouldBlock(error) ? SocketOutcome::WouldBlock
                               : (isPeerGone(error) ? SocketOutcome::PeerGone : SocketOutcome::Failed);
}

SocketOutcome LocalSocket::receiveSome(int fd, uint8_t* data, size_t size, size_t& moved, int& error) {
    const ssize_t count = ::recv(fd, data, size, MSG_DONTWAIT);
    moved = count > 0 ? static_cast<size_t>(count) : 0;
    error = count >= 0 ? 0 : errno;
    if (count > 0) {
        return SocketOutcome::Done;
    }
    if (count == 0) {
        return SocketOutcome::PeerGone;
    }
    return isWouldBlock(error) ? SocketOutcome::WouldBlock
                               : (isPeerGone(error) ? SocketOutcome::PeerGone : SocketOutcome::Failed);
}

bool LocalSocket::getPeerCredentials(int fd, PeerCredentials& credentials) {
    ucred peer{};
    socklen_t length = sizeof(peer);
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0 || length != sizeof(peer)) {
        return false;
    }
    credentials.fProcessId = static_cast<uint32_t>(peer.pid);
    credentials.fUserId = static_cast<uint32_t>(peer.uid);
    return true;
}

uint64_t LocalSocket::getFileIdentity(const std::string& path) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) {
        return 0;
    }
    return (static_cast<uint64_t>(info.st_dev) << 32) ^ static_cast<uint64_t>(info.st_ino);
}

} // namespace Brw
