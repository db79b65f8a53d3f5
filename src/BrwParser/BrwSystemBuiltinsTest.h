#pragma once

#include <memory>
#include <string>

#include "BrwLogger/BrwScriptErrorCapture.h"
#include "BrwMain/BrwTest.h"

namespace Brw {

// The built-ins on the system, the process and its streams, run as script text in a session of their
// own; what a script sees of them plainly is in tests/scripts/system.bwq. quit() ends the whole process
// and is left to the tests of the program.
class SystemBuiltinsTest : public Test {
public:
    SystemBuiltinsTest() : Test("SystemBuiltinsTest") {}
    std::string getClassTypeName() const override { return "OMExpressionLValueToken"; }
    bool setup() override;
    bool teardown() override;
    bool test() override;

private:
    bool testSysInfoAndGetEnv();
    bool testYield();
    bool testExitAndStdIn();
    bool testOutputToAStreamThatStalls();
    bool testLogLevels();

    std::unique_ptr<ScriptErrorCapture> fScriptErrors; // the script errors provoked here
};

} // namespace Brw
