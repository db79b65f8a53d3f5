#pragma once

#include "BrwParser/BrwInputStreamString.h"
#include "BrwParser/BrwOutputStream.h"

namespace Brw {

// A pipe in memory: what is written is read back through the input face. It joins a task that writes
// statements to a task that parses them; setAtEOF is the writer's end of input.
class OutputStreamString : public OutputStream, public InputStreamString {
public:
    static constexpr const char* TYPENAME = "OutputStreamString";

    // Always takes the text.
    bool write(const std::string& text) override;
};

} // namespace Brw
