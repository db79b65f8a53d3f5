#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// Reference paths: splitting and compiling, every kind of segment over trees of three levels, the three
// reference types, reading, creating and assigning through paths, bad paths and regular expressions that
// would run away.
class ReferencePathTest : public Test {
public:
    ReferencePathTest() : Test("ReferencePathTest") {}
    std::string getClassTypeName() const override { return "MatchNode"; }
    bool test() override;

private:
    bool testSplitting();
    bool testCompiling();
    bool testWideSegments();
    bool testNamesIndicesAndFunctions();
    bool testArraySegments();
    bool testReferenceTypes();
    bool testReadsChangeNothing();
    bool testCreatingAndAssigning();
    bool testAssigningEveryMatch();
    bool testBadPaths();
    bool testRunawayRegExp();
    bool testResumingAcrossSlices();
    bool testFunctionsInAScope();
};

} // namespace Brw
