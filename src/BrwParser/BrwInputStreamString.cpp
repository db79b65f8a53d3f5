#include "BrwParser/BrwInputStreamString.h"

namespace Brw {

bool InputStreamString::next() {
    if (fReadPos >= fBuffer.size()) {
        return false;
    }
    ++fReadPos;
    return true;
}

bool InputStreamString::atEOF() const {
    return fIsAtEOF && fReadPos >= fBuffer.size();
}

bool InputStreamString::compact() {
    fBuffer.erase(0, fReadPos);
    fDiscardedChars += fReadPos;
    fReadPos = 0;
    return true;
}

bool InputStreamString::clear() {
    fDiscardedChars += fBuffer.size();
    fBuffer.clear();
    fReadPos = 0;
    return true;
}

int InputStreamString::getChar() {
    if (fReadPos < fBuffer.size()) {
        return static_cast<unsigned char>(fBuffer[fReadPos]);
    }
    // The reader has caught up: the buffer starts afresh, so that a long-lived stream stays small.
    if (! fBuffer.empty()) {
        clear();
    }
    return fIsAtEOF ? AT_END : NOTHING_YET;
}

bool InputStreamString::setPos(uint64_t pos) {
    if (pos < fDiscardedChars || pos - fDiscardedChars > fBuffer.size()) {
        return false;
    }
    fReadPos = pos - fDiscardedChars;
    return true;
}

} // namespace Brw
