#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// Stored values: sharing and copying of containers, data-structure links, order of keys, the text forms
// and the conversions of every kind.
class OMStoredTest : public Test {
public:
    OMStoredTest() : Test("OMStoredTest") {}
    std::string getClassTypeName() const override { return "OMStored"; }
    bool test() override;

private:
    bool testScalarsAndRawGetters();
    bool testContainers();
    bool testSharingAndCloning();
    bool testDataStructureLinks();
    bool testTextForms();
    bool testConversions();
    bool testHashAndScalars();
    bool testScopes();
    bool testDeepValuesGoWithoutRecursion();
};

} // namespace Brw
