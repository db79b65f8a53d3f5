#include "BrwMain/BrwTestRegistry.h"

#include <memory>

#include "BrwLogger/BrwCheck.h"
#include "BrwLogger/BrwLoggerTest.h"
#include "BrwMain/BrwTest.h"
#include "BrwUtils/BrwUtilsTest.h"

namespace Brw {

bool TestRegistry::registerAll() {
    bool retVal = false;
    do {
        SANITY_CHECK(Test::registerTest(std::make_shared<LoggerTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<UtilsTest>()));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
