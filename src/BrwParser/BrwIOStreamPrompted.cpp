#include "BrwParser/BrwIOStreamPrompted.h"

#include <cstdio>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwParser/BrwIOMNode.h"
#include "BrwParser/BrwInputStreamConsole.h"
#include "BrwTask/BrwYielding.h"

namespace Brw {

namespace {

constexpr int kBackspace = 8;
constexpr int kDelete = 127;
constexpr int kCarriageReturn = 13;

// Drops the last character of UTF-8 text: its continuation bytes, then its first byte.
void eraseLastChar(std::string& text) {
    while (! text.empty() && (static_cast<unsigned char>(text.back()) & 0xC0) == 0x80) {
        text.pop_back();
    }
    if (! text.empty()) {
        text.pop_back();
    }
}

} // namespace

IOStreamPrompted::IOStreamPrompted(const std::shared_ptr<InputStream>& inputStream,
                                   const std::shared_ptr<OutputStream>& outputStream)
    : fNestedInputStream(inputStream), fNestedOutputStream(outputStream) {
    do {
        if (fNestedInputStream && fNestedOutputStream) {
            break;
        }
        ASSIGN_TYPED(InternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        if (! fNestedOutputStream) {
            fNestedOutputStream = internalCoordinator->outputStreamFactory();
        }
        if (! fNestedInputStream) {
            fNestedInputStream = internalCoordinator->inputStreamFactory();
        }
    } while (false);
}

std::shared_ptr<IOMNode> IOStreamPrompted::getPromptNode(uint64_t level) const {
    return level == 0 ? fPromptNode : fContinuationPromptNode;
}

void IOStreamPrompted::readLine_yielding(const std::shared_ptr<Task>& task, std::string& line) {
    struct LocalVariableState : OMFunctionState {
        std::string text;         // the line so far
        int c = NOTHING_YET;      // the character peeked
        bool isLineEnded = false; // a line end or the end of input came
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    YIELDING_CHECK(fNestedInputStream);
    showPromptWhenDue(task);
    while (! frame->isLineEnded) {
        YIELDING_CALL(fNestedInputStream->getChar_yielding(task, frame->c));
        if (frame->c == NOTHING_YET) {
            // The evaluator may have become idle meanwhile: that is when the prompt appears.
            showPromptWhenDue(task);
            YIELDING_WAIT(task->yield());
        } else {
            frame->isLineEnded = takeLineChar(frame->text, frame->c);
        }
    }
    startLine(line, std::move(frame->text));
    YIELDING_END;
}

bool IOStreamPrompted::showPrompt(const std::shared_ptr<Task>& task, bool toStdOut) {
    bool retVal = false;
    do {
        if (! fNestedOutputStream && ! toStdOut) {
            retVal = true;
            break;
        }
        const uint64_t level = task ? task->getParsingNestLevel() : 0;
        const std::shared_ptr<IOMNode> node = getPromptNode(level);
        std::string text;
        if (node && node->getType() == OMType::String) {
            text = node->getString();
        } else {
            text = level > 0 ? InternalCoordinator::fPromptContinuation : InternalCoordinator::fPrompt;
        }
        if (text.empty()) {
            retVal = true;
            break;
        }
        if (toStdOut) {
            SANITY_CHECK(fputs(text.c_str(), stdout) >= 0);
            fflush(stdout);
        } else {
            SANITY_CHECK(fNestedOutputStream->write(text));
            fNestedOutputStream->flush();
            // The prompt for the next line is out: reading that line must not show it again.
            fIsPromptShown = true;
            fIsPromptNeeded = false;
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool IOStreamPrompted::next() {
    bool retVal = false;
    do {
        SANITY_CHECK(fNestedInputStream);
        if (fLineReadPos < fLine.size()) {
            ++fLineReadPos;
            retVal = true;
            break;
        }
        // Past the line: the character comes straight from the nested stream, and counts as read.
        const int c = fNestedInputStream->getChar();
        if (! fNestedInputStream->next()) {
            break;
        }
        ++fLineBasePos;
        echo(c == kDelete ? kBackspace : c);
        retVal = true;
    } while (false);
    return retVal;
}

bool IOStreamPrompted::atEOF() const {
    bool retVal = false;
    do {
        SANITY_CHECK(fNestedInputStream);
        retVal = (fIsAtEOF || fNestedInputStream->atEOF()) && fLineReadPos >= fLine.size();
    } while (false);
    return retVal;
}

bool IOStreamPrompted::compact() {
    bool retVal = false;
    do {
        SANITY_CHECK(fNestedInputStream);
        retVal = fNestedInputStream->compact();
    } while (false);
    return retVal;
}

bool IOStreamPrompted::clear() {
    bool retVal = false;
    do {
        SANITY_CHECK(fNestedInputStream);
        fLineBasePos += fLineReadPos;
        fLine.clear();
        fLineReadPos = 0;
        retVal = fNestedInputStream->clear();
    } while (false);
    return retVal;
}

int IOStreamPrompted::getChar() {
    int retVal = AT_END;
    do {
        SANITY_CHECK(fNestedInputStream);
        if (fLineReadPos < fLine.size()) {
            retVal = static_cast<unsigned char>(fLine[fLineReadPos]);
            break;
        }
        retVal = fNestedInputStream->getChar();
        if (retVal == AT_END) {
            setAtEOF();
        }
    } while (false);
    return retVal;
}

void IOStreamPrompted::getChar_yielding(const std::shared_ptr<Task>& task, int& c) {
    struct LocalVariableState : OMFunctionState {};
    YIELDING_BEGIN(LocalVariableState, frame, c = NOTHING_YET);
    YIELDING_CHECK(fNestedInputStream);
    if (fLineReadPos >= fLine.size() && ! fNestedInputStream->atEOF()) {
        task->setWaitingForInput(true);
        YIELDING_CALL(readLine_yielding(task, fLine));
    }
    if (fLineReadPos < fLine.size()) {
        task->setWaitingForInput(false);
        c = static_cast<unsigned char>(fLine[fLineReadPos]);
    } else if (fNestedInputStream->atEOF()) {
        task->setWaitingForInput(false);
        c = AT_END;
        setAtEOF();
    } else {
        c = NOTHING_YET;
    }
    YIELDING_END;
}

uint64_t IOStreamPrompted::getPos() const {
    uint64_t retVal = 0;
    do {
        SANITY_CHECK(fNestedInputStream);
        retVal = fLineBasePos + fLineReadPos;
    } while (false);
    return retVal;
}

bool IOStreamPrompted::setPos(uint64_t pos) {
    if (pos < fLineBasePos || pos - fLineBasePos > fLine.size()) {
        return false;
    }
    fLineReadPos = pos - fLineBasePos;
    return true;
}

bool IOStreamPrompted::flush() {
    bool retVal = false;
    do {
        SANITY_CHECK(fNestedOutputStream);
        retVal = fNestedOutputStream->flush();
    } while (false);
    return retVal;
}

bool IOStreamPrompted::write(const std::string& text) {
    bool retVal = false;
    do {
        SANITY_CHECK(fNestedOutputStream);
        retVal = fNestedOutputStream->write(text);
    } while (false);
    return retVal;
}

bool IOStreamPrompted::isKeyboardInput() const {
    return std::dynamic_pointer_cast<InputStreamConsole>(fNestedInputStream) != nullptr;
}

void IOStreamPrompted::showPromptWhenDue(const std::shared_ptr<Task>& task) {
    if (! fIsPromptNeeded) {
        return;
    }
    const std::shared_ptr<Task> consumer = getConsumerTask();
    if (consumer && ! consumer->isWaitingForInput()) {
        return;
    }
    VERIFY(showPrompt(task, false));
    fIsPromptShown = true;
    fIsPromptNeeded = false;
}

bool IOStreamPrompted::takeLineChar(std::string& text, int c) {
    if (c == AT_END) {
        // The line ends as it stands.
        setAtEOF();
        return true;
    }
    int echoed = c;
    if ((c == kBackspace || c == kDelete) && isKeyboardInput()) {
        VERIFY(fNestedInputStream->next());
        if (text.empty()) {
            return false;
        }
        eraseLastChar(text);
        echoed = kBackspace;
    } else {
        text.push_back(static_cast<char>(c));
        VERIFY(fNestedInputStream->next());
    }
    echo(echoed);
    return isLineEnd(c);
}

void IOStreamPrompted::echo(int c) {
    const auto console = std::dynamic_pointer_cast<InputStreamConsole>(fNestedInputStream);
    if (! console || ! console->isEchoOn() || ! fNestedOutputStream || c < 0) {
        return;
    }
    std::string text;
    if (c == kCarriageReturn) {
        text = "\n";
    } else if (c == kBackspace) {
        // Back one column and erase to the end of the line.
        text = "\b\x1b[K";
    } else {
        text = std::string(1, static_cast<char>(c));
    }
    VERIFY(fNestedOutputStream->write(text));
    fNestedOutputStream->flush();
}

void IOStreamPrompted::startLine(std::string& line, std::string&& text) {
    fIsPromptNeeded = true;
    if (&line != &fLine) {
        // The caller takes the whole line for itself (a script reading its input): the rest of the
        // current line is still the parser's, and the positions go on counting the parser's text alone.
        line = std::move(text);
        return;
    }
    fLineBasePos += fLine.size();
    fLine = std::move(text);
    fLineReadPos = 0;
}

} // namespace Brw
