#pragma once

#include <cstddef>

namespace Brw {

// The few terminal and descriptor calls of the input streams, kept here so that the streams read as
// portable logic. Raw input means non-canonical mode without echo: keys arrive one by one, and the
// program echoes them itself.
class Terminal {
public:
    static constexpr const char* TYPENAME = "Terminal";

    // True when `fd` is a terminal.
    static bool isTerminal(int fd);
    // Puts standard input into raw input mode when it is a terminal; nested calls count. The saved mode
    // comes back at the matching leaveRawInput, at a normal exit, and on a fatal signal (the signal then
    // takes its previous action). False when the mode could not be set.
    [[nodiscard]] static bool enterRawInput();
    // Ends one enterRawInput; the last one restores the saved mode and the previous signal actions.
    static void leaveRawInput();
    // True while standard input is held in raw input mode.
    static bool isRawInput();

    // Without waiting: 1 when a read of `fd` would not block (data, end or error), 0 when nothing is
    // there yet, -1 when the poll itself failed.
    static int pollReadable(int fd);
    // What readBytes gives when a read would block or was interrupted.
    static constexpr long READ_WOULD_BLOCK = -2;

    // One read of at most `size` bytes: the count, 0 at the end of input, -1 on an error,
    // READ_WOULD_BLOCK when nothing could be read now.
    static long readBytes(int fd, char* buffer, size_t size);
};

} // namespace Brw
