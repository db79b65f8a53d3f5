#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// The five address classes: URLs into addresses and back, resolution inside the process, the path rules,
// equality, and travel through the serializer.
class AddressTest : public Test {
public:
    AddressTest() : Test("AddressTest") {}
    std::string getClassTypeName() const override { return "Address_abstract"; }
    bool test() override;

private:
    bool testURLsMakeTheirAddresses();
    bool testResolvedFormsAgree();
    bool testUnknownGUIDsResolveToNothing();
    bool testPathsAndTheirChecks();
    bool testEqualityAndHashByClassAndFields();
    bool testEveryClassTravelsUnchanged();
};

} // namespace Brw
