#include "BrwParser/BrwInputStreamStdIn.h"

#include "BrwLogger/BrwCheck.h"
#include "BrwUtils/BrwTerminal.h"

namespace Brw {

bool InputStreamStdIn::next() {
    bool retVal = false;
    do {
        SANITY_CHECK(fPeekedChar >= 0);
        ++fPos;
        fPeekedChar = NOTHING_YET;
        retVal = true;
    } while (false);
    return retVal;
}

bool InputStreamStdIn::clear() {
    if (fPeekedChar != AT_END) {
        fPeekedChar = NOTHING_YET;
    }
    return true;
}

int InputStreamStdIn::getChar() {
    if (fIsAtEOF) {
        return AT_END;
    }
    const int coordinatorState = coordinatorInputState();
    if (coordinatorState != 0) {
        if (coordinatorState == AT_END) {
            fPeekedChar = AT_END;
            setAtEOF();
        }
        return coordinatorState;
    }
    if (fPeekedChar != NOTHING_YET) {
        return fPeekedChar;
    }
    if (fReadBufferPos >= fReadBuffer.size()) {
        const int filled = fillReadBuffer();
        if (filled != 0) {
            return filled;
        }
    }
    fPeekedChar = static_cast<unsigned char>(fReadBuffer[fReadBufferPos++]);
    return fPeekedChar;
}

int InputStreamStdIn::fillReadBuffer() {
    const int readable = Terminal::pollReadable(fFd);
    if (readable == 0) {
        return NOTHING_YET;
    }
    char block[READ_BLOCK_SIZE];
    const long count = readable < 0 ? -1 : Terminal::readBytes(fFd, block, sizeof(block));
    if (count == -2) {
        return NOTHING_YET;
    }
    if (count <= 0) {
        EXPECTED(count == 0);
        fPeekedChar = AT_END;
        setAtEOF();
        return AT_END;
    }
    fReadBuffer.assign(block, static_cast<size_t>(count));
    fReadBufferPos = 0;
    return 0;
}

} // namespace Brw
