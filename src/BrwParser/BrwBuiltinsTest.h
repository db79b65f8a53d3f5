#pragma once

#include <memory>

#include "BrwLogger/BrwScriptErrorCapture.h"
#include "BrwMain/BrwTest.h"

namespace Brw {

// The built-in functions on values and text, called through the dispatcher of left values as a parsed
// script calls them: `f(a, b)` and `a.f(b)`.
class BuiltinsTest : public Test {
public:
    BuiltinsTest() : Test("BuiltinsTest") {}
    std::string getClassTypeName() const override { return "OMExpressionLValueToken"; }
    bool setup() override;
    bool teardown() override;
    bool test() override;

private:
    bool testNumbers();
    bool testNumberParsing();
    bool testIsNaN();
    bool testSubstrAndIndexOf();
    bool testTextForms();
    bool testContainers();
    bool testPushAndPop();
    bool testReferenceReading();
    bool testReferenceWriting();
    bool testScriptFilePath();

    std::unique_ptr<ScriptErrorCapture> fScriptErrors; // the script errors provoked here, while it runs
};

} // namespace Brw
