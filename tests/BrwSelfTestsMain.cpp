// Runs every self-test class registered in the program as a test case of its own, then tears the process
// down and fails when any runtime object is left.

#include <gtest/gtest.h>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwLogger.h"
#include "BrwMain/BrwMain.h"
#include "BrwMain/BrwTest.h"
#include "BrwTestEnvironment.h"

namespace {

class SelfTestCase : public testing::Test {
public:
    explicit SelfTestCase(std::string testName) : fTestName(std::move(testName)) {}

    void TestBody() override {
        std::shared_ptr<Brw::Test> test = Brw::Test::getTest(fTestName);
        ASSERT_TRUE(test) << "no such self-test: " << fTestName;
        EXPECT_TRUE(test->run()) << "self-test " << fTestName
                                 << " failed; its failed checks are logged above";
    }

private:
    std::string fTestName;
};

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    BrwTests::isolateHome();
    if (! BrwTests::initCoordinator("brw_selftests")) {
        fprintf(stderr, "the coordinator did not start\n");
        return 1;
    }
    // Failed checks explain a failed test on standard error.
    Brw::Logger::setLogLevel(1);
    for (const auto& test : Brw::Test::getTests()) {
        const std::string name = test->getTestName();
        testing::RegisterTest("SelfTest", name.c_str(), nullptr, nullptr, __FILE__, __LINE__,
                              [name]() -> testing::Test* { return new SelfTestCase(name); });
    }
    int result = RUN_ALL_TESTS();
    Brw::tearDown();
    if (! Brw::verifyNoObjectLeft()) {
        fprintf(stderr, "runtime objects left at exit: %llu\n",
                static_cast<unsigned long long>(Brw::Object::getObjectCount()));
        result = 1;
    }
    return result;
}
