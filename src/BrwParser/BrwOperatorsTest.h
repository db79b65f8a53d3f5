#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// The operators over every kind of value: the coercions, NaN and Error operands, deep `==` against
// identity `===`, the order of `<`, indexing, typeof, and which node becomes the result.
class OperatorsTest : public Test {
public:
    OperatorsTest() : Test("OperatorsTest") {}

    std::string getClassTypeName() const override { return "OMNode"; }
    bool test() override;

private:
    static bool testArithmeticAndBits();
    static bool testComparisons();
    static bool testEqualityOfContainers();
    static bool testUnaryOperators();
    static bool testIncrements();
    static bool testTypeOf();
    static bool testNodeReuse();
    static bool testIndex();
    static bool testRefusals();
};

} // namespace Brw
