#pragma once

#include <cstdint>

#include "BrwParser/BrwInputStreamPolled_abstract.h"

namespace Brw {

// The keyboard of a person at a terminal, polled without blocking. While the stream lives a terminal at
// standard input delivers each key at once and doesn't echo: the prompted stream echoes what it reads.
// Without a terminal the same polling reads whatever comes, from standard input or another descriptor.
class InputStreamConsole : public InputStreamPolled_abstract {
public:
    static constexpr const char* TYPENAME = "InputStreamConsole";

    explicit InputStreamConsole(int32_t echoMode, int fd = 0);
    ~InputStreamConsole() override;
    InputStreamConsole(const InputStreamConsole&) = delete;
    InputStreamConsole& operator=(const InputStreamConsole&) = delete;

    int32_t getEchoMode() const { return fEchoMode; }
    // Modes 1 and 3 echo what is read.
    bool isEchoOn() const { return fEchoMode == 1 || fEchoMode == 3; }

protected:
    int readChar() override;

private:
    int32_t fEchoMode;           // the consoleEcho setting
    int fFd;                     // the descriptor read
    bool fIsTerminal;            // fd is a terminal
    bool fHoldsRawInput = false; // this stream put the terminal into raw input mode
};

} // namespace Brw
