#include "BrwParser/BrwFiles/BrwFileBuiltinsTest.h"

#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwParser/BrwFiles/BrwOMFileSystem.h"
#include "BrwParser/BrwOMAccessor.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwScriptLimits.h"
#include "BrwTask/BrwSessionEvaluator.h"
#include "BrwUtils/BrwDirs.h"

namespace Brw {

bool FileBuiltinsTest::setup() {
    fScriptErrors = std::make_unique<ScriptErrorCapture>();
    fFolder = makeTemporaryFolder("file-builtins-test");
    return fScriptErrors->isCapturing() && ! fFolder.empty();
}

bool FileBuiltinsTest::teardown() {
    fScriptErrors.reset();
    return fFolder.empty() || Dirs::rmDir(fFolder, DirRecurse::RECURSE);
}

bool FileBuiltinsTest::test() {
    REPORT_OTHER_TEST;
    bool allOK = testFilesByNumber();
    allOK = testWholeFilesAndPaths() && allOK;
    allOK = testTextLimit() && allOK;
    return allOK;
}

std::string FileBuiltinsTest::runScript(const std::string& text) const {
    std::shared_ptr<OMScope> scope = OMScope::factory(nullptr, OMScope::READS_PARENT);
    // Relative paths go to the script's folder, wherever the process runs.
    scope->pushScriptFilePath(fFolder + "script.bwq");
    return SessionEvaluator::evaluate(text, scope);
}

bool FileBuiltinsTest::testFilesByNumber() {
    bool retVal = false;
    do {
        const uint64_t before = ScriptErrorLog::getReportCount();
        const std::string output =
            runScript("writeFile(\"data.txt\", \"line1\\nline2\\n\");\n"
                      "id = fileOpen(\"data.txt\", \"rb\"); id > 0\n"
                      "fileRead(id, 3)\n"
                      "fileRead(id, \"\\n\")\n"
                      "fileRead(id)\n"
                      "fileRead(id)\n"
                      "fileWrite(id, 1)\n"
                      "fileClose(id)\n"
                      "fileClose(id)\n"
                      "fileClose(0)\n"
                      "fileClose(99999999)\n"
                      "fileOpen(\"data.txt\", \"z\")\n"
                      "fileOpen(\"data.txt\")\n"
                      "w = fileOpen(\"out.txt\", \"w\"); fileRead(w)\n"
                      "fileWrite(w, [1, 2]); fileClose(w); readFile(\"out.txt\")\n"
                      "a = fileOpen(\"out.txt\", \"a\"); fileWrite(a, \"!\"); fileClose(a)\n"
                      "readFile(\"out.txt\")\n");
        CHECK_EQUAL(output,
                    "true\n\"lin\"\n\"e1\n\"\n\"line2\n\"\n\"\"\nundefined\ntrue\nundefined\nundefined\n"
                    "undefined\nundefined\nundefined\nundefined\n\"1,2\"\ntrue\n\"1,2!\"\n");
        CHECK_EQUAL(fScriptErrors->errorsSince(before),
                    "file not opened for writing | file not open | fileId <= 0 | file not open | "
                    "unexpected file mode | insufficient arguments | file not opened for read");
        SANITY_CHECK(Dirs::fileExists(fFolder + "data.txt"));
        retVal = true;
    } while (false);
    return retVal;
}

bool FileBuiltinsTest::testWholeFilesAndPaths() {
    bool retVal = false;
    do {
        SANITY_CHECK(Dirs::writeFileWhole(fFolder + "data.txt", "line1\nline2\n"));
        const uint64_t before = ScriptErrorLog::getReportCount();
        const std::string output = runScript("fileExists(\"data.txt\")\n"
                                             "fileExists(\".\")\n"
                                             "dirExists(\".\")\n"
                                             "readFile(\"missing.txt\")\n"
                                             "writeFile(\"no/such/folder/x\", 1)\n"
                                             "fileSystem(\"data.txt\").fileSize\n"
                                             "pathSegmentFromRight(\"a/b/c.txt\", 0, \"/\")\n"
                                             "pathSegmentFromRight(\"a/b/c.txt\", 1)\n"
                                             "pathSegmentFromLeft(\"a\\\\b\", 1, \"\\\\\")\n"
                                             "parentPath(\"a\\\\b\\\\c\")\n"
                                             "parentPath()\n"
                                             "writeFile(\"x\")\n");
        CHECK_EQUAL(output, "true\nfalse\ntrue\nundefined\nfalse\n12\n\"c.txt\"\n\"b\"\n\"b\"\n\"a\\b\\\"\n"
                            "undefined\nundefined\n");
        CHECK_EQUAL(fScriptErrors->errorsSince(before), "insufficient arguments | insufficient arguments");
        retVal = true;
    } while (false);
    return retVal;
}

bool FileBuiltinsTest::testTextLimit() {
    bool retVal = false;
    const uint64_t savedTextBytes = ScriptLimits::fTextBytes;
    do {
        SANITY_CHECK(Dirs::writeFileWhole(fFolder + "data.txt", "line1\nline2\n"));
        ScriptLimits::fTextBytes = 8;
        const std::string tooLong = ScriptLimits::textTooLongMessage();
        const uint64_t before = ScriptErrorLog::getReportCount();
        // A file longer than a text may be is an Error, read by any of the three ways; a short one reads.
        const std::string output =
            runScript("readFile(\"data.txt\")\n"
                      "id = fileOpen(\"data.txt\", \"r\"); fileRead(id)\n"
                      "fileClose(id); id = fileOpen(\"data.txt\", \"r\"); fileRead(id, 6)\n"
                      "fileClose(id)\n"
                      "typeof fileSystem(\"data.txt\").contents\n");
        ScriptLimits::fTextBytes = savedTextBytes;
        CHECK_EQUAL(output, "error\nerror\n\"line1\n\"\ntrue\n\"error\"\n");
        CHECK_EQUAL(fScriptErrors->errorsSince(before),
                    tooLong + " | " + tooLong + " | " + tooLong + " | cannot access identifier");
        retVal = true;
    } while (false);
    ScriptLimits::fTextBytes = savedTextBytes;
    return retVal;
}

bool OMFileSystemTest::test() {
    REPORT_CLASS_TEST;
    const std::string folder = makeTemporaryFolder("om-file-system-test");
    bool allOK = ! folder.empty();
    allOK = allOK && testAttributes(folder);
    allOK = allOK && testReadOnceAndNothingLeft(folder);
    VERIFY(folder.empty() || Dirs::rmDir(folder, DirRecurse::RECURSE));
    return allOK;
}

bool OMFileSystemTest::testAttributes(const std::string& folder) {
    bool retVal = false;
    do {
        SANITY_CHECK(Dirs::mkDir(folder + "net.braidwell/sub/Logs/", DirRecurse::RECURSE));
        SANITY_CHECK(Dirs::writeFileWhole(folder + "a.txt", "12345"));
        auto node = OMFileSystem::factoryFromFilePath(folder);
        CHECK_EQUAL(node->getSize(), 8u);
        SANITY_CHECK(node->getType() == OMType::Map && node->getType("fileList") == OMType::Array);
        SANITY_CHECK(node->getType("contents") == OMType::String &&
                     node->getType("other") == OMType::Undefined);
        OMAccessor accessor(node);
        SANITY_CHECK(accessor.getBool("isDir") && ! accessor.getBool("isFile") &&
                     ! accessor.getBool("isPipe"));
        CHECK_EQUAL(accessor.getString("name"), Dirs::getPathSegmentFromRight(folder, 0));
        CHECK_EQUAL(OMAccessor(node->getOMNode("fileList")).getSize(), 2u);
        // A folder has no contents, and the view writes nothing.
        std::shared_ptr<IOMNode> out;
        SANITY_CHECK(! node->accessOMNodeReadOnlyResolved(nullptr, nullptr, "contents", out));
        {
            LogLevelScope quiet(0);
            SANITY_CHECK(! node->accessOMNodeResolved(nullptr, nullptr, SET, "name", out));
            SANITY_CHECK(! node->accessOMNodeResolved(nullptr, nullptr, GET_CREATE, "new", out));
        }
        SANITY_CHECK(! Dirs::exists(folder + "new"));
        // The log folder within three levels of the program's folder.
        OMAccessor program(node->getOMNode("fileList")->getOMNode("net.braidwell"));
        std::shared_ptr<IOMNode> logs;
        {
            LogLevelScope quiet(0);
            SANITY_CHECK(program.accessOMNode(GET, "{,3}.+/Logs", logs, OM_REF_SELECTOR_FIRST_MATCH) && logs);
        }
        CHECK_EQUAL(OMAccessor(logs).getString("path"), folder + "net.braidwell/sub/Logs");
        // A path that isn't there.
        OMAccessor nowhere(OMFileSystem::factoryFromFilePath(folder + "nowhere"));
        SANITY_CHECK(! nowhere.getBool("isDir") && ! nowhere.getBool("isFile"));
        CHECK_EQUAL(OMAccessor(nowhere.getOMNode("fileList")).getSize(), 0u);
        retVal = true;
    } while (false);
    return retVal;
}

bool OMFileSystemTest::testReadOnceAndNothingLeft(const std::string& folder) {
    bool retVal = false;
    do {
        const int64_t nodesBefore = OMFileSystem::getOMFileSystemCount();
        const int64_t storedBefore = OMStored::getOMStoredCount();
        {
            auto node = OMFileSystem::factoryFromFilePath(folder + "a.txt");
            OMAccessor accessor(node);
            CHECK_EQUAL(accessor.getString("contents"), "12345");
            SANITY_CHECK(accessor.getBool("isFile"));
            CHECK_EQUAL(accessor.getInt("fileSize"), 5);
            // Read once: the node keeps what it read; a new node sees the disk as it is now.
            SANITY_CHECK(Dirs::writeFileWhole(folder + "a.txt", "xy"));
            CHECK_EQUAL(accessor.getString("contents"), "12345");
            CHECK_EQUAL(OMAccessor(OMFileSystem::factoryFromFilePath(folder + "a.txt")).getString("contents"),
                        "xy");
            // A walk of the whole tree, and a look at every attribute.
            auto root = OMFileSystem::factoryFromFilePath(folder);
            std::shared_ptr<IOMNode> all;
            SANITY_CHECK(OMAccessor(root).accessOMNode(GET, "{,9}.+/name", all, OM_REF_SELECTOR_ARRAY) &&
                         all);
            SANITY_CHECK(all->getSize() >= 4);
            SANITY_CHECK(! root->toString().empty());
        }
        CHECK_EQUAL(OMFileSystem::getOMFileSystemCount(), nodesBefore);
        CHECK_EQUAL(OMStored::getOMStoredCount(), storedBefore);
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
