#pragma once

#include "BrwParser/BrwOutputStream.h"

namespace Brw {

// The process's standard error.
class OutputStreamStdErr : public OutputStream {
public:
    static constexpr const char* TYPENAME = "OutputStreamStdErr";

    bool flush() override;
    bool write(const std::string& text) override;
};

} // namespace Brw
