#include "BrwMain/BrwTestRegistry.h"

#include <memory>

#include "BrwLogger/BrwCheck.h"
#include "BrwMain/BrwTest.h"

namespace Brw {

bool TestRegistry::registerAll() {
    bool retVal = false;
    do {
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
