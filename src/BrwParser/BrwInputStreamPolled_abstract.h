#pragma once

#include <cstdint>

#include "BrwParser/BrwInputStream.h"

namespace Brw {

// A descriptor polled without blocking: the peeked character, the count of consumed ones and the end that
// comes with the coordinator's. The concrete streams say only how the next character is read.
class InputStreamPolled_abstract : public virtual InputStream {
public:
    // Refused while no character is shown.
    bool next() override;
    bool clear() override;
    // Ends with the coordinator: once it is gone or terminating, the stream is over.
    int getChar() override;
    uint64_t getPos() const override { return fPos; }
    // Only the current position: what was read is not kept.
    bool setPos(uint64_t pos) override { return pos == fPos; }

protected:
    // The next character, taken from the source; NOTHING_YET when none has come, AT_END at the end.
    virtual int readChar() = 0;

private:
    int fPeekedChar = NOTHING_YET; // the character getChar shows, or AT_END, or NOTHING_YET
    uint64_t fPos = 0;             // characters consumed
};

} // namespace Brw
