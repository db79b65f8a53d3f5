#pragma once

#include <cstdint>
#include <string>

#include "BrwParser/BrwInputStream.h"

namespace Brw {

// Standard input (or another descriptor), polled without blocking: the coordinator goes on serving while
// a person types slowly into a pipe. It reads whole blocks into a buffer of its own rather than through
// stdio, so that what the poll sees and what is read agree.
class InputStreamStdIn : public virtual InputStream {
public:
    static constexpr const char* TYPENAME = "InputStreamStdIn";
    static constexpr size_t READ_BLOCK_SIZE = 4096;

    explicit InputStreamStdIn(int fd = 0) : fFd(fd) {}

    // Refused while no character is shown.
    bool next() override;
    bool clear() override;
    // Ends with the coordinator: once it is gone or terminating, the stream is over.
    int getChar() override;
    uint64_t getPos() const override { return fPos; }
    // Only the current position.
    bool setPos(uint64_t pos) override { return pos == fPos; }

private:
    // Reads what the descriptor has now: 0 when a block came, NOTHING_YET or AT_END otherwise.
    int fillReadBuffer();

    int fPeekedChar = NOTHING_YET; // the character getChar shows, or AT_END, or NOTHING_YET
    uint64_t fPos = 0;             // characters consumed
    int fFd;                       // the descriptor read
    std::string fReadBuffer;       // the last block read
    size_t fReadBufferPos = 0;     // next character of fReadBuffer
};

} // namespace Brw
