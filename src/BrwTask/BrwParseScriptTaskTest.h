#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// A script session over text, driven by the scheduler: what it echoes, how it stops, and how the
// parseScript built-in waits for it.
class ParseScriptTaskTest : public Test {
public:
    ParseScriptTaskTest() : Test("ParseScriptTaskTest") {}
    std::string getClassTypeName() const override { return "ParseScriptTask"; }
    bool test() override;

private:
    bool testEchoesAsTheStandardInputMode();
    bool testStopEndsTheSessionAndItsInstrumenter();
    bool testSessionWithoutWaitingEndsAtItsDeadline();
    bool testOptionsThatAreNoFunctionAreReported();
};

} // namespace Brw
