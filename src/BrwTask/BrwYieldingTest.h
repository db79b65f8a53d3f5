#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// The resumable-function convention: waits deep in a chain resume where they stopped, a callee that
// finishes at once costs no yield, and a failed check anywhere finishes its function and leaves no frame.
class YieldingTest : public Test {
public:
    YieldingTest() : Test("YieldingTest") {}
    std::string getClassTypeName() const override { return "Task"; }
    bool test() override;

private:
    bool testCharacterSourceExample();
    bool testNestedCalleesResumeMidway();
    bool testCalleeFinishingAtOnceCostsNoYield();
    bool testCheckFailingThreeDeepMidSlice();
    bool testCheckInsideLoopEndsTheFunction();
    bool testSliceEndingBetweenStepsResumesThere();
};

} // namespace Brw
