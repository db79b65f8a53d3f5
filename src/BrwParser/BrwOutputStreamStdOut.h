#pragma once

#include "BrwParser/BrwOutputStream.h"

namespace Brw {

// The process's standard output.
class OutputStreamStdOut : public OutputStream {
public:
    static constexpr const char* TYPENAME = "OutputStreamStdOut";

    bool flush() override;
    bool write(const std::string& text) override;
};

} // namespace Brw
