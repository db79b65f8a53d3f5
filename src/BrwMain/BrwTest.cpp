#include "BrwMain/BrwTest.h"

#include <filesystem>
#include <unistd.h>

namespace Brw {

namespace {

std::map<std::string, std::shared_ptr<Test>>& testRegistry() {
    static auto* registry = new std::map<std::string, std::shared_ptr<Test>>();
    return *registry;
}

int gTestNestingLevel = 0; // a test that runs inside another one is skipped

} // namespace

bool Test::run() {
    bool retVal = false;
    do {
        if (gTestNestingLevel != 0) {
            retVal = true;
            break;
        }
        SANITY_CHECK(setup());
        ++gTestNestingLevel;
        bool testResult = test();
        if (! testResult) {
            LOG_ERROR("test failed " + getTestName());
        }
        --gTestNestingLevel;
        if (fTestType == TestType::UNSET) {
            LOG_ERROR("fTestType not set. Missing REPORT_OTHER_TEST, REPORT_CLASS_TEST or REPORT_OBJECT_TEST "
                      "statement");
        }
        SANITY_CHECK(teardown());
        retVal = testResult;
    } while (false);
    return retVal;
}

bool Test::registerTest(const std::shared_ptr<Test>& test) {
    bool retVal = false;
    do {
        SANITY_CHECK(test);
        if (test->getClassTypeName().empty()) {
            LOG_ERROR("classTypeName is empty");
            break;
        }
        SANITY_CHECK(testRegistry().emplace(test->getTestName(), test).second);
        retVal = true;
    } while (false);
    return retVal;
}

std::shared_ptr<Test> Test::getTest(const std::string& testName) {
    auto iter = testRegistry().find(testName);
    return iter == testRegistry().end() ? nullptr : iter->second;
}

std::vector<std::shared_ptr<Test>> Test::getTests() {
    std::vector<std::shared_ptr<Test>> tests;
    for (const auto& [name, test] : testRegistry()) {
        tests.push_back(test);
    }
    return tests;
}

bool Test::runAll() {
    bool allOK = true;
    for (const auto& test : getTests()) {
        allOK = test->run() && allOK;
    }
    return allOK;
}

void Test::deregisterAll() {
    testRegistry().clear();
}

std::string Test::makeTemporaryFile(const std::string& stem) {
    std::error_code error;
    std::string path = (std::filesystem::temp_directory_path(error) / (stem + "-XXXXXX")).string();
    const int fd = error ? -1 : mkstemp(path.data());
    if (fd < 0) {
        LOG_ERROR("cannot make a temporary file for " + stem);
        return std::string();
    }
    close(fd);
    return path;
}

} // namespace Brw
