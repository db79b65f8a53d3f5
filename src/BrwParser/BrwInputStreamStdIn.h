#pragma once

#include <cstdint>
#include <string>

#include "BrwParser/BrwInputStreamPolled_abstract.h"

namespace Brw {

// Standard input (or another descriptor), polled without blocking: the coordinator goes on serving while
// a person types slowly into a pipe. It reads whole blocks into a buffer of its own rather than through
// stdio, so that what the poll sees and what is read agree.
class InputStreamStdIn : public InputStreamPolled_abstract {
public:
    static constexpr const char* TYPENAME = "InputStreamStdIn";
    static constexpr size_t READ_BLOCK_SIZE = 4096;

    explicit InputStreamStdIn(int fd = 0) : fFd(fd) {}

protected:
    int readChar() override;

private:
    // Reads what the descriptor has now: 0 when a block came, NOTHING_YET or AT_END otherwise.
    int fillReadBuffer();

    int fFd;                   // the descriptor read
    std::string fReadBuffer;   // the last block read
    size_t fReadBufferPos = 0; // next character of fReadBuffer
};

} // namespace Brw
