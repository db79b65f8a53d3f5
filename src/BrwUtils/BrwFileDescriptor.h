#pragma once

#include <cerrno>
#include <string>
#include <unistd.h>

namespace Brw {

// Owns one open descriptor and closes it when it goes, so that no return path leaks one.
class FileDescriptor {
public:
    static constexpr int NONE = -1; // holds no descriptor

    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : fFd(fd) {}
    ~FileDescriptor() { reset(); }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    FileDescriptor(FileDescriptor&& other) noexcept : fFd(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }

    int get() const { return fFd; }
    bool isOpen() const { return fFd != NONE; }
    // Gives the descriptor up without closing it.
    int release() {
        const int fd = fFd;
        fFd = NONE;
        return fd;
    }
    // Closes what it holds and takes `fd` instead.
    void reset(int fd = NONE) {
        if (fFd != NONE) {
            ::close(fFd);
        }
        fFd = fd;
    }

    // Writes all of `text`, going on after interrupted and partial writes; false on an error.
    [[nodiscard]] bool writeAll(const std::string& text) const {
        size_t written = 0;
        while (written < text.size()) {
            const ssize_t count = ::write(fFd, text.data() + written, text.size() - written);
            if (count < 0 && errno == EINTR) {
                continue;
            }
            if (count <= 0) {
                return false;
            }
            written += static_cast<size_t>(count);
        }
        return true;
    }

private:
    int fFd = NONE; // the descriptor, or NONE
};

} // namespace Brw
