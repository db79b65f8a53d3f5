#include "BrwMain/BrwTestRegistry.h"

#include <memory>

#include "BrwAddress/BrwAddressTest.h"
#include "BrwCoordinator/BrwConfigStackTest.h"
#include "BrwCoordinator/BrwInternalCoordinatorTest.h"
#include "BrwCoordinator/BrwPipes/BrwPipesTest.h"
#include "BrwCoordinator/BrwRoutingTest.h"
#include "BrwData/BrwDataTest.h"
#include "BrwData/BrwIniTest.h"
#include "BrwEvent/BrwEventTest.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwLogger/BrwLoggerTest.h"
#include "BrwMain/BrwTest.h"
#include "BrwMessage/BrwMessageTest.h"
#include "BrwObject/BrwObjectRegistryTest.h"
#include "BrwParser/BrwAccessorTest.h"
#include "BrwParser/BrwBuiltinsTest.h"
#include "BrwParser/BrwExpressionTest.h"
#include "BrwParser/BrwFiles/BrwFileBuiltinsTest.h"
#include "BrwParser/BrwLiteralsTest.h"
#include "BrwParser/BrwOMQuickValueTest.h"
#include "BrwParser/BrwOMStoredTest.h"
#include "BrwParser/BrwOMTest.h"
#include "BrwParser/BrwOperatorsTest.h"
#include "BrwParser/BrwReferencePathTest.h"
#include "BrwParser/BrwScriptLimitsTest.h"
#include "BrwParser/BrwStreamTest.h"
#include "BrwParser/BrwSystemBuiltinsTest.h"
#include "BrwSerializer/BrwSerializerTest.h"
#include "BrwService/BrwServiceTest.h"
#include "BrwTask/BrwInstrumentScriptStreamTaskTest.h"
#include "BrwTask/BrwParseScriptTaskTest.h"
#include "BrwTask/BrwTaskTest.h"
#include "BrwTask/BrwYieldingTest.h"
#include "BrwUtils/BrwDirsTest.h"
#include "BrwUtils/BrwProcessTest.h"
#include "BrwUtils/BrwUtilsTest.h"

namespace Brw {

bool TestRegistry::registerAll() {
    bool retVal = false;
    do {
        SANITY_CHECK(Test::registerTest(std::make_shared<ObjectRegistryTest>()));
        auto internalCoordinatorTest = std::make_shared<InternalCoordinatorTest>();
        SANITY_CHECK(Test::registerTest(internalCoordinatorTest));
        SANITY_CHECK(ClassTest::registerClassTest(internalCoordinatorTest));
        SANITY_CHECK(Test::registerTest(std::make_shared<OMStoredTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<ExpressionTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<TaskTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<YieldingTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<LoggerTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<UtilsTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<OperatorsTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<AccessorTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<ReferencePathTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<StreamTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<LiteralsTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<OMQuickValueTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<BuiltinsTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<InstrumentScriptStreamTaskTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<ParseScriptTaskTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<SerializerTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<DataTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<EventTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<ScriptLimitsTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<OMTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<DirsTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<IniTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<ConfigStackTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<PidFileTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<ProcessTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<PipesTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<FileBuiltinsTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<SystemBuiltinsTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<OMFileSystemTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<AddressTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<MessageTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<ServiceTest>()));
        SANITY_CHECK(Test::registerTest(std::make_shared<RoutingTest>()));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
