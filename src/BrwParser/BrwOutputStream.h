#pragma once

#include <memory>
#include <string>

namespace Brw {

class Task;

// A sink of text.
class OutputStream {
public:
    static constexpr const char* TYPENAME = "OutputStream";

    virtual ~OutputStream() = default;

    virtual bool flush() { return true; }
    // False when the stream did not take the text.
    virtual bool write(const std::string& text) = 0;
    // Writes and flushes; a stream that refuses the text holds the task, which tries again after each
    // yield check.
    virtual void write_yielding(const std::shared_ptr<Task>& task, bool& success, const std::string& text);
};

} // namespace Brw
