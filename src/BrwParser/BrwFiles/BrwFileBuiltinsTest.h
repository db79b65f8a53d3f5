#pragma once

#include <memory>
#include <string>

#include "BrwLogger/BrwScriptErrorCapture.h"
#include "BrwMain/BrwTest.h"

namespace Brw {

// The built-ins on files and paths, run as script text in a session whose script lives in a folder of
// its own, and the file system as a tree of nodes.
class FileBuiltinsTest : public Test {
public:
    FileBuiltinsTest() : Test("FileBuiltinsTest") {}
    std::string getClassTypeName() const override { return "OMExpressionLValueToken"; }
    bool setup() override;
    bool teardown() override;
    bool test() override;

private:
    // The echo of a session whose script file is `fFolder`script.bwq.
    std::string runScript(const std::string& text) const;
    bool testFilesByNumber();
    bool testWholeFilesAndPaths();
    bool testTextLimit();

    std::unique_ptr<ScriptErrorCapture> fScriptErrors; // the script errors provoked here
    std::string fFolder;                               // the running script's folder
};

// OMFileSystem: attributes read once and only when asked for, no node left behind, read-only.
class OMFileSystemTest : public Test {
public:
    OMFileSystemTest() : Test("OMFileSystemTest") {}
    std::string getClassTypeName() const override { return "OMFileSystem"; }
    bool test() override;

private:
    static bool testAttributes(const std::string& folder);
    static bool testReadOnceAndNothingLeft(const std::string& folder);
};

} // namespace Brw
