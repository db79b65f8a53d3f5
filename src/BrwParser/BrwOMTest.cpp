#include "BrwParser/BrwOMTest.h"

#include <cstdio>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwEvalTask.h"
#include "BrwUtils/BrwDirs.h"

namespace Brw {

namespace {

// The folders of test scripts below the shipped files.
constexpr const char* TEST_SCRIPT_FOLDERS[] = {"SampleScripts", "ReleaseTestScripts"};
constexpr const char* TEST_SCRIPT_EXTENSION = "bwq";

std::shared_ptr<OMScope> getCoordinatorScope() {
    auto internalCoordinator = std::dynamic_pointer_cast<InternalCoordinator>(InternalCoordinator::factory());
    return internalCoordinator ? internalCoordinator->getCoordinatorScope() : nullptr;
}

} // namespace

bool OMTest::test() {
    REPORT_OTHER_TEST;
    bool retVal = false;
    do {
        const std::string rootPath = Dirs::resolvePartialFilePath(Dirs::SHIPPED_FILES_PATH);
        SANITY_CHECK(! rootPath.empty());
        std::string report;
        const bool allOK = runTestScripts(rootPath, getCoordinatorScope(), report);
        fputs(report.c_str(), stderr);
        SANITY_CHECK(allOK);
        SANITY_CHECK(testRunnerSeesFailure());
        retVal = true;
    } while (false);
    return retVal;
}

bool OMTest::runTestScripts(const std::string& rootPath, const std::shared_ptr<OMScope>& coordinatorScope,
                            std::string& report) {
    bool allOK = true;
    for (const char* folder : TEST_SCRIPT_FOLDERS) {
        const std::string folderPath =
            Dirs::addTrailingSeparator(rootPath) + folder + Dirs::PLATFORM_SEPARATOR;
        if (! Dirs::dirExists(folderPath)) {
            continue;
        }
        for (const std::string& name : Dirs::scanDir(folderPath)) {
            if (Dirs::getFileNameExtension(name) == TEST_SCRIPT_EXTENSION) {
                allOK = runTestScript(folderPath + name, coordinatorScope, report) && allOK;
            }
        }
    }
    return allOK;
}

bool OMTest::runTestScript(const std::string& testScriptPath,
                           const std::shared_ptr<OMScope>& coordinatorScope, std::string& report) {
    bool retVal = false;
    do {
        SANITY_CHECK(Dirs::fileExists(testScriptPath));
        LOG_NOTE_F("running test script %s", testScriptPath.c_str());
        SANITY_CHECK(coordinatorScope);
        std::shared_ptr<OMScope> scope = OMScope::factory(coordinatorScope, OMScope::READS_PARENT);
        SANITY_CHECK(scope);
        std::shared_ptr<IOMNode> result =
            EvalScriptTask::call(OMStored::undefinedFactory(), scope, testScriptPath, UNWRAP_RETURN_VALUE);
        SANITY_CHECK(result);
        const std::string name = Dirs::getPathSegmentFromRight(testScriptPath, 0);
        const std::string resultStr =
            result->getType() == OMType::String ? result->getString() : result->toString();
        const std::string expected = name == MUST_FAIL_SCRIPT ? "mustFail" : "success";
        if (result->getType() != OMType::String || resultStr != expected) {
            report += Utils::format("script %s failed: %s\n", name.c_str(), resultStr.c_str());
            break;
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool OMTest::testRunnerSeesFailure() {
    bool retVal = false;
    const std::string rootPath = Test::makeTemporaryFile("omtest-root");
    do {
        SANITY_CHECK(! rootPath.empty() && ::remove(rootPath.c_str()) == 0);
        const std::string folderPath = rootPath + "/SampleScripts/";
        SANITY_CHECK(Dirs::mkDir(folderPath, DirRecurse::RECURSE));
        SANITY_CHECK(Dirs::writeFileWhole(folderPath + MUST_FAIL_SCRIPT, "x = \"must\";\nx + \"Fail\"\n"));
        std::string report;
        SANITY_CHECK(runTestScripts(rootPath, getCoordinatorScope(), report));
        CHECK_EQUAL(report, "");
        // A script that gives anything but "success" fails the run, and is named.
        SANITY_CHECK(Dirs::writeFileWhole(folderPath + "other.bwq", "\"succes\" + \"s!\"\n"));
        SANITY_CHECK(! runTestScripts(rootPath, getCoordinatorScope(), report));
        CHECK_EQUAL(report, "script other.bwq failed: success!\n");
        // So does a mustFail.bwq that succeeds.
        SANITY_CHECK(Dirs::writeFileWhole(folderPath + "other.bwq", "\"success\"\n"));
        SANITY_CHECK(Dirs::writeFileWhole(folderPath + MUST_FAIL_SCRIPT, "\"success\"\n"));
        report.clear();
        SANITY_CHECK(! runTestScripts(rootPath, getCoordinatorScope(), report));
        CHECK_EQUAL(report, "script mustFail.bwq failed: success\n");
        retVal = true;
    } while (false);
    VERIFY(rootPath.empty() || Dirs::rmDir(rootPath, DirRecurse::RECURSE));
    return retVal;
}

} // namespace Brw
