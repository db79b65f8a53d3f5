#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "BrwParser/BrwInputStream.h"
#include "BrwParser/BrwOutputStream.h"

namespace Brw {

class IOMNode;
class Task;

// Joins one input and one output stream into a console: input is read a whole line at a time, with a
// prompt before it and the echo of a keyboard, and only a finished line is handed to the reader. A
// parser rollback therefore never crosses a line.
class IOStreamPrompted : public OutputStream, public virtual InputStream {
public:
    static constexpr const char* TYPENAME = "IOStreamPrompted";

    // Null streams are replaced by the process's own input and output streams.
    IOStreamPrompted(const std::shared_ptr<InputStream>& inputStream,
                     const std::shared_ptr<OutputStream>& outputStream);

    virtual std::shared_ptr<InputStream> getInputStream() const { return fNestedInputStream; }
    virtual std::shared_ptr<OutputStream> getOutputStream() const { return fNestedOutputStream; }
    // The prompt override of a parser nesting level: level 0 the prompt, others the continuation.
    virtual std::shared_ptr<IOMNode> getPromptNode(uint64_t level) const;
    virtual bool isPromptShown() const { return fIsPromptShown; }
    // Reads one line, up to and with its line end, into `line`, echoing a keyboard and editing by
    // backspace. The prompt comes when the consumer task is waiting for input. A line read into another
    // string than the current line is the caller's alone: the current line stays as it was.
    virtual void readLine_yielding(const std::shared_ptr<Task>& task, std::string& line);
    // Writes the prompt of the task's parser nesting level: the prompt node when it is a string, else
    // the configured prompt. With `toStdOut` to standard output, else to the output stream.
    virtual bool showPrompt(const std::shared_ptr<Task>& task, bool toStdOut);
    virtual void setPromptNode(const std::shared_ptr<IOMNode>& node) { fPromptNode = node; }
    virtual void setContinuationPromptNode(const std::shared_ptr<IOMNode>& node) {
        fContinuationPromptNode = node;
    }

    // InputStream
    bool next() override;
    // At the end once the nested stream is and the current line is read.
    bool atEOF() const override;
    bool compact() override;
    bool clear() override;
    // Hands out the current line; once it is read, the nested stream directly, without waiting for a
    // whole line.
    int getChar() override;
    // Hands out a character of the current line, reading a new line first when it is used up.
    void getChar_yielding(const std::shared_ptr<Task>& task, int& c) override;
    uint64_t getPos() const override;
    // Only positions within the current line.
    bool setPos(uint64_t pos) override;

    // OutputStream
    bool flush() override;
    bool write(const std::string& text) override;

    // The process-wide task that evaluates what is read: while it is busy, no prompt is shown. Null for
    // none.
    static void setConsumerTask(const std::shared_ptr<Task>& task) { fConsumerTask = task; }
    static std::shared_ptr<Task> getConsumerTask() { return fConsumerTask.lock(); }

private:
    // True when the nested stream is typed by hand.
    bool isKeyboardInput() const;
    // Shows the prompt when one is due and the consumer task waits for input.
    void showPromptWhenDue(const std::shared_ptr<Task>& task);
    // Takes one character into `text`, consuming it; true when it ends the line.
    bool takeLineChar(std::string& text, int c);
    // Echoes a character read by hand; 8 stands for a backspace that erased one.
    void echo(int c);
    // The line read becomes the current line.
    void startLine(std::string& line, std::string&& text);

    std::string fLine;                                 // the current line
    uint64_t fLineReadPos = 0;                         // next character to hand out from fLine
    uint64_t fLineBasePos = 0;                         // stream position of the start of fLine
    std::shared_ptr<InputStream> fNestedInputStream;   // where the characters come from
    std::shared_ptr<OutputStream> fNestedOutputStream; // where prompts, echo and written text go
    std::shared_ptr<IOMNode> fPromptNode;              // overrides the prompt when a string
    std::shared_ptr<IOMNode> fContinuationPromptNode;  // overrides the continuation prompt when a string
    bool fIsPromptNeeded = true;                       // the next line still wants its prompt
    bool fIsPromptShown = false;                       // a prompt has been written

    static inline std::weak_ptr<Task> fConsumerTask; // the evaluating task, if any
};

} // namespace Brw
