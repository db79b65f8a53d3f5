#include "BrwParser/BrwOutputStreamStdErr.h"

#include <cstdio>

namespace Brw {

bool OutputStreamStdErr::flush() {
    return fflush(stderr) == 0;
}

bool OutputStreamStdErr::write(const std::string& text) {
    return fwrite(text.data(), 1, text.size(), stderr) == text.size();
}

} // namespace Brw
