#pragma once

#include <memory>

#include "BrwLogger/BrwScriptErrorCapture.h"
#include "BrwMain/BrwTest.h"

namespace Brw {

// Expression trees built as the parser builds them: folding, evaluation that yields mid-way, control
// flow carried by values, calls in frames and runaway recursion.
class ExpressionTest : public Test {
public:
    ExpressionTest() : Test("ExpressionTest") {}
    std::string getClassTypeName() const override { return "OMExpression"; }
    bool setup() override;
    bool teardown() override;
    bool test() override;

private:
    bool testFolding();
    bool testEvaluationYieldingMidway();
    bool testLoopsAndBreak();
    bool testFunctionsAndReturn();
    bool testRecursion();
    bool testNamesAndElements();
    bool testPrintedForms();

    std::unique_ptr<ScriptErrorCapture> fScriptErrors; // the script errors provoked here, while it runs
};

} // namespace Brw
