#include <cstdlib>
#include <limits>

#include "BrwParser/BrwOMStored.h"

namespace Brw {

double OMStored::numberFromText(const std::string& text) {
    // STUB-NUMBER: replaced by the number parser
    char* end = nullptr;
    double value = strtod(text.c_str(), &end);
    return end == text.c_str() ? -std::numeric_limits<double>::quiet_NaN() : value;
}

} // namespace Brw
