#pragma once

#include "BrwMain/BrwTest.h"
#include "BrwUtils/BrwProcess.h"

namespace Brw {

// Processes launched with their words as they are, detached, and not running once they have ended.
class ProcessTest : public Test {
public:
    ProcessTest() : Test("ProcessTest") {}
    std::string getClassTypeName() const override { return Process::TYPENAME; }
    bool test() override;

private:
    static bool testWordsArriveWhole(const std::string& folder);
    static bool testFindingAndEnding();
};

} // namespace Brw
