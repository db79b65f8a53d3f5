#pragma once

#include "BrwMain/BrwTest.h"
#include "BrwUtils/BrwDirs.h"

namespace Brw {

// Paths on both separators, the folders the environment names, folders made and removed, the search for
// shipped files, and whole files read and written.
class DirsTest : public Test {
public:
    DirsTest() : Test("DirsTest") {}
    std::string getClassTypeName() const override { return Dirs::TYPENAME; }
    bool test() override;

private:
    static bool testSeparators();
    static bool testFoldersFromEnvironment(const std::string& folder);
    static bool testMakeScanRemove(const std::string& folder);
    static bool testResolving(const std::string& folder);
    static bool testWholeFiles(const std::string& folder);
};

} // namespace Brw
