#include "BrwParser/BrwOutputStreamStdOut.h"

#include <cstdio>

namespace Brw {

bool OutputStreamStdOut::flush() {
    return fflush(stdout) == 0;
}

bool OutputStreamStdOut::write(const std::string& text) {
    return fwrite(text.data(), 1, text.size(), stdout) == text.size();
}

} // namespace Brw
