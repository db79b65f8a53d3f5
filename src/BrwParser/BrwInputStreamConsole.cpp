#include "BrwParser/BrwInputStreamConsole.h"

#include <unistd.h>

#include "BrwLogger/BrwCheck.h"
#include "BrwUtils/BrwTerminal.h"

namespace Brw {

namespace {

constexpr int kEndOfTransmission = 4; // Ctrl-D

} // namespace

InputStreamConsole::InputStreamConsole(int32_t echoMode, int fd)
    : fEchoMode(echoMode), fFd(fd), fIsTerminal(Terminal::isTerminal(fd)) {
    if (fIsTerminal && fd == STDIN_FILENO) {
        fHoldsRawInput = Terminal::enterRawInput();
        EXPECTED(fHoldsRawInput);
    }
}

InputStreamConsole::~InputStreamConsole() {
    if (fHoldsRawInput) {
        Terminal::leaveRawInput();
    }
}

int InputStreamConsole::readChar() {
    const int readable = Terminal::pollReadable(fFd);
    if (readable == 0) {
        return NOTHING_YET;
    }
    char byte = 0;
    const long count = readable < 0 ? -1 : Terminal::readBytes(fFd, &byte, 1);
    if (count == Terminal::READ_WOULD_BLOCK) {
        return NOTHING_YET;
    }
    // NOTE: a raw terminal hands Ctrl-D over as a character; it ends the input as it would in the
    // terminal's own line editing.
    if (count <= 0 || (fIsTerminal && byte == kEndOfTransmission)) {
        return AT_END;
    }
    return static_cast<unsigned char>(byte);
}

} // namespace Brw
