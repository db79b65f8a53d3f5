#pragma once

#include <memory>
#include <string>

#include "BrwMain/BrwTest.h"

namespace Brw {

class OMScope;

// The shipped test scripts: each .bwq of the folders "SampleScripts" and "ReleaseTestScripts" of the
// shipped files runs in a fresh scope and must give "success"; "mustFail.bwq" must give "mustFail", which
// proves that the runner sees a script fail.
class OMTest : public Test {
public:
    static constexpr const char* MUST_FAIL_SCRIPT = "mustFail.bwq";

    OMTest() : Test("OMTest") {}
    std::string getClassTypeName() const override { return "OMStored"; }
    bool test() override;

    // Runs the scripts of the two folders below `rootPath` under `coordinatorScope`; true when each gave
    // what it must. A line "script NAME failed: VALUE" for each one that didn't goes to `report`.
    static bool runTestScripts(const std::string& rootPath, const std::shared_ptr<OMScope>& coordinatorScope,
                               std::string& report);

private:
    static bool runTestScript(const std::string& testScriptPath,
                              const std::shared_ptr<OMScope>& coordinatorScope, std::string& report);
    // A folder holding only mustFail.bwq passes, and one more script that fails is seen.
    bool testRunnerSeesFailure();
};

} // namespace Brw
