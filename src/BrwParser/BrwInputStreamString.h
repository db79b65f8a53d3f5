#pragma once

#include <string>

#include "BrwParser/BrwInputStream.h"

namespace Brw {

// Reads a string that may grow at its end. What has been read is dropped from the buffer once the
// reader has caught up (or on compact), and positions go on counting across the dropped text, which is
// then out of reach of setPos.
class InputStreamString : public virtual InputStream {
public:
    static constexpr const char* TYPENAME = "InputStreamString";

    explicit InputStreamString(std::string text = std::string()) : fBuffer(std::move(text)) {}

    bool next() override;
    // NOTE: at the end only once the text is read too: a writer that ends its stream must not cut off
    // what its reader has not reached yet.
    bool atEOF() const override;
    bool compact() override;
    bool clear() override;
    int getChar() override;
    uint64_t getPos() const override { return fReadPos + fDiscardedChars; }
    bool setPos(uint64_t pos) override;

    // Adds text at the end, for the reader to find.
    void append(const std::string& text) { fBuffer += text; }
    // Characters read or forgotten and no longer kept.
    uint64_t getDiscardedChars() const { return fDiscardedChars; }
    size_t getBufferSize() const { return fBuffer.size(); }
    // The text not yet discarded: for a string written to and never read, all of it.
    const std::string& getText() const { return fBuffer; }

protected:
    std::string fBuffer;          // text not yet discarded
    uint64_t fReadPos = 0;        // next character in fBuffer
    uint64_t fDiscardedChars = 0; // characters dropped from the front of fBuffer so far
};

} // namespace Brw
