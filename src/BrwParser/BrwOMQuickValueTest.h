#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// Quick values against nodes: every operator of the quick path on every pair of a set of awkward values
// (zero, big and negative whole numbers, fractions, infinities, NaN, truth values, the empty values, texts
// that read as numbers and texts that don't) must give the very type and value that the operators of nodes
// give.
class OMQuickValueTest : public Test {
public:
    OMQuickValueTest() : Test("OMQuickValueTest") {}
    std::string getClassTypeName() const override { return "OMQuickValue"; }
    bool test() override;

private:
    bool testBinaryOperators();
    bool testUnaryOperators();
    bool testContainersTakeTheLongWay();
};

} // namespace Brw
