#include "BrwParser/BrwOutputStreamString.h"

namespace Brw {

bool OutputStreamString::write(const std::string& text) {
    append(text);
    return true;
}

} // namespace Brw
