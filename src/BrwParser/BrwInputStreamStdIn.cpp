#include "BrwParser/BrwInputStreamStdIn.h"

#include "BrwLogger/BrwCheck.h"
#include "BrwUtils/BrwTerminal.h"

namespace Brw {

int InputStreamStdIn::readChar() {
    if (fReadBufferPos >= fReadBuffer.size()) {
        const int filled = fillReadBuffer();
        if (filled != 0) {
            return filled;
        }
    }
    return static_cast<unsigned char>(fReadBuffer[fReadBufferPos++]);
}

int InputStreamStdIn::fillReadBuffer() {
    const int readable = Terminal::pollReadable(fFd);
    if (readable == 0) {
        return NOTHING_YET;
    }
    char block[READ_BLOCK_SIZE];
    const long count = readable < 0 ? -1 : Terminal::readBytes(fFd, block, sizeof(block));
    if (count == Terminal::READ_WOULD_BLOCK) {
        return NOTHING_YET;
    }
    if (count <= 0) {
        EXPECTED(count == 0);
        return AT_END;
    }
    fReadBuffer.assign(block, static_cast<size_t>(count));
    fReadBufferPos = 0;
    return 0;
}

} // namespace Brw
