#include "BrwMain/BrwClassTest.h"

#include <unordered_map>

#include "BrwUtils/BrwHash.h"

namespace Brw {

namespace {

std::unordered_map<std::string, std::shared_ptr<ClassTest>, FNV1aHash>& classTests() {
    static auto* table = new std::unordered_map<std::string, std::shared_ptr<ClassTest>, FNV1aHash>();
    return *table;
}

} // namespace

bool ClassTest::test() {
    bool retVal = false;
    do {
        REPORT_CLASS_TEST;
        SANITY_CHECK(classTest());
        retVal = true;
    } while (false);
    return retVal;
}

bool ClassTest::registerClassTest(const std::shared_ptr<ClassTest>& test) {
    bool retVal = false;
    do {
        SANITY_CHECK(test);
        const std::string classTypeName = test->getClassTypeName();
        SANITY_CHECK(! classTypeName.empty());
        classTests()[classTypeName] = test;
        retVal = true;
    } while (false);
    return retVal;
}

std::shared_ptr<ClassTest> ClassTest::getClassTest(const std::string& classTypeName) {
    std::shared_ptr<ClassTest> retVal;
    do {
        auto iter = classTests().find(classTypeName);
        SANITY_CHECK(iter != classTests().end());
        retVal = iter->second;
    } while (false);
    return retVal;
}

void ClassTest::deregisterAll() {
    classTests().clear();
}

} // namespace Brw
