#pragma once

#include <cstdint>
#include <memory>

namespace Brw {

class Task;

// A source of characters that never blocks. getChar peeks: a character 0 to 255, AT_END (-1) at the end,
// NOTHING_YET (-2) when nothing has arrived; next consumes what getChar showed. The concrete streams
// derive from this class virtually, so that a stream may also be an output stream.
class InputStream {
public:
    static constexpr const char* TYPENAME = "InputStream";
    static constexpr int AT_END = -1;
    static constexpr int NOTHING_YET = -2;

    virtual ~InputStream() = default;

    // Consumes the character that getChar shows.
    virtual bool next() = 0;
    virtual bool atEOF() const { return fIsAtEOF; }
    // Drops what has been consumed.
    virtual bool compact() { return true; }
    // Forgets buffered input.
    virtual bool clear() = 0;
    virtual int getChar() = 0;
    // getChar with the wait: nothing there yet is a yield of the task. With asynchronous input the
    // reader gets NOTHING_YET after a sleep and comes back later; without, the stream has ended.
    virtual void getChar_yielding(const std::shared_ptr<Task>& task, int& c);
    // Position of the next character, counted from the start of the stream.
    virtual uint64_t getPos() const = 0;
    virtual bool isLineEnd(int c) const { return c == 10 || c == 13; }
    // Goes back (or forth) to a position; each stream says how far it can reach.
    virtual bool setPos(uint64_t pos) = 0;
    virtual void setAtEOF() { fIsAtEOF = true; }

protected:
    // For the streams of a person or a pipe: 0 while the coordinator runs, AT_END once it is gone or
    // terminating (the input is over then), NOTHING_YET when it can't be reached as a coordinator.
    static int coordinatorInputState();

    bool fIsAtEOF = false; // the stream has ended
};

} // namespace Brw
