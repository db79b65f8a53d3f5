#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// The data objects with their type names in front: the null rule, DataString and DataOM through the
// serializer and back, and what a reader does with names and lines it can't use.
class DataTest : public Test {
public:
    DataTest() : Test("DataTest") {}

    std::string getClassTypeName() const override { return "Data_abstract"; }
    bool test() override;

private:
    static bool testNullTravelsAsDataNull();
    static bool testDataStringRoundTrip();
    static bool testDataOMRoundTrip();
    static bool testUnknownTypeNames();
    static bool testMalformedInput();
};

} // namespace Brw
