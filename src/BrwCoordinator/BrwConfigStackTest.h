#pragma once

#include "BrwCoordinator/BrwConfigStack.h"
#include "BrwMain/BrwTest.h"

namespace Brw {

// The order of strength of the configuration: later file over earlier, and within a file the
// coordinator's section over wildcard sections over the plain one; placeholders across files; tables.
class ConfigStackTest : public Test {
public:
    ConfigStackTest() : Test("ConfigStackTest") {}
    std::string getClassTypeName() const override { return ConfigStack::TYPENAME; }
    bool test() override;

private:
    static bool testOrderOfStrength(const std::string& folder);
    static bool testPlaceholdersAndTables(const std::string& folder);
};

// The published process identifier: one holder at a time, and stale files.
class PidFileTest : public Test {
public:
    PidFileTest() : Test("PidFileTest") {}
    std::string getClassTypeName() const override { return "PidFile"; }
    bool test() override;
};

} // namespace Brw
