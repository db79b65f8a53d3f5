#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// The first stage of the standard-input mode, fed through a pipe: what it hands on as statements, and
// when.
class InstrumentScriptStreamTaskTest : public Test {
public:
    InstrumentScriptStreamTaskTest() : Test("InstrumentScriptStreamTaskTest") {}
    std::string getClassTypeName() const override { return "InstrumentScriptStreamTask"; }
    bool test() override;

private:
    bool testCommentsAndBlanks();
    bool testStatementsEndOutsideBrackets();
    bool testYieldDirectivesAndOtherDirectives();
    bool testUnbalancedBracketsEndTheText();
    bool testLineEndIsDecidedWithoutMoreInput();
};

} // namespace Brw
