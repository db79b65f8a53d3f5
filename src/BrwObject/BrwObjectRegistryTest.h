#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// IDs, interned GUIDs and the factory tables.
class ObjectRegistryTest : public Test {
public:
    ObjectRegistryTest() : Test("ObjectRegistryTest") {}
    std::string getClassTypeName() const override { return "Object"; }
    bool test() override;

private:
    bool testGUIDInterningAndText();
    bool testGUIDStrings();
    bool testObjectIdentities();
    bool testFactoryTables();
};

} // namespace Brw
