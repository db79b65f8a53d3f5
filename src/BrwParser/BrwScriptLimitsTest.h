#pragma once

#include <memory>

#include "BrwLogger/BrwScriptErrorCapture.h"
#include "BrwMain/BrwTest.h"

namespace Brw {

// The limits of texts and containers, reached cheaply with smaller limits in force: past each, one script
// error, an Error value where a value is due, and the script goes on.
class ScriptLimitsTest : public Test {
public:
    ScriptLimitsTest() : Test("ScriptLimitsTest") {}
    std::string getClassTypeName() const override { return "ScriptLimits"; }
    bool setup() override;
    bool teardown() override;
    bool test() override;

private:
    bool testTextsGrowingPastTheLimit();
    bool testTextsMadeByBuiltinsAndLiterals();
    bool testContainersGrowingPastTheLimit();

    std::unique_ptr<ScriptErrorCapture> fScriptErrors; // the script errors provoked here, while it runs
};

} // namespace Brw
