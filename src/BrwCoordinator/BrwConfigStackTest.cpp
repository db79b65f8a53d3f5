#include "BrwCoordinator/BrwConfigStackTest.h"

#include "BrwCoordinator/BrwPidFile.h"
#include "BrwUtils/BrwDirs.h"
#include "BrwUtils/BrwProcess.h"

namespace Brw {

namespace {

const char* const kMainName = "net.braidwell.coordinator.main";
const char* const kOtherName = "net.braidwell.coordinator.other";

const char* const kFirstFile = R"INI(
[config]
plain=first
wild=first
own=first
overridden=first
[config.*]
wild=any
own=any
both=star
[config.net.*]
both=net
[config.net.braidwell.coordinator.main]
own=main
overridden=main
[config.net.*.other]
own=other
[configuration]
plain=not this section
[placeholders]
ROOT=/from/first
[urlMap]
alias=first
kept=first
)INI";

const char* const kSecondFile = R"INI(
[config]
overridden=second
rooted=${ROOT}/x
home=${HOME_DIR}
[urlMap]
alias=second
)INI";

} // namespace

bool ConfigStackTest::test() {
    REPORT_CLASS_TEST;
    const std::string folder = makeTemporaryFolder("config-stack-test");
    bool allOK = ! folder.empty();
    allOK = allOK && testOrderOfStrength(folder);
    allOK = allOK && testPlaceholdersAndTables(folder);
    VERIFY(folder.empty() || Dirs::rmDir(folder, DirRecurse::RECURSE));
    return allOK;
}

bool ConfigStackTest::testOrderOfStrength(const std::string& folder) {
    bool retVal = false;
    do {
        SANITY_CHECK(Dirs::writeFileWhole(folder + "first.ini", kFirstFile));
        SANITY_CHECK(Dirs::writeFileWhole(folder + "second.ini", kSecondFile));
        ConfigStack stack;
        SANITY_CHECK(stack.addFile(folder + "first.ini"));
        SANITY_CHECK(stack.addFile(folder + "missing.ini"));
        SANITY_CHECK(stack.addFile(folder + "second.ini"));
        CHECK_EQUAL(stack.getFiles().size(), 2u);
        auto value = [&](const char* key, const char* name) {
            return stack.getValue("config", key, "default", name);
        };
        CHECK_EQUAL(value("plain", kMainName), "first");
        CHECK_EQUAL(value("missing", kMainName), "default");
        // The coordinator's section over the wildcards over the plain section.
        CHECK_EQUAL(value("wild", kMainName), "any");
        CHECK_EQUAL(value("own", kMainName), "main");
        CHECK_EQUAL(value("own", kOtherName), "other");
        CHECK_EQUAL(value("own", "net.braidwell.coordinator.third"), "any");
        // Wildcards apply in sorted order: "config.*" before "config.net.*".
        CHECK_EQUAL(value("both", kMainName), "net");
        // A later file wins, even with its plain section over the coordinator's section of an earlier one.
        std::string source;
        CHECK_EQUAL(stack.getValue("config", "overridden", "default", kMainName, &source), "second");
        CHECK_EQUAL(source, folder + "second.ini");
        CHECK_EQUAL(stack.getValue("config", "own", "default", kMainName, &source), "main");
        CHECK_EQUAL(source, folder + "first.ini");
        stack.getValue("config", "missing", "default", kMainName, &source);
        CHECK_EQUAL(source, "");
        retVal = true;
    } while (false);
    return retVal;
}

bool ConfigStackTest::testPlaceholdersAndTables(const std::string& folder) {
    bool retVal = false;
    do {
        ConfigStack stack;
        SANITY_CHECK(stack.addFile(folder + "first.ini"));
        SANITY_CHECK(stack.addFile(folder + "second.ini"));
        // A later file sees the placeholders of the earlier ones, and the program's folders.
        CHECK_EQUAL(stack.getValue("config", "rooted", "", kMainName), "/from/first/x");
        CHECK_EQUAL(stack.getValue("config", "home", "", kMainName), Dirs::getHomePath());
        const std::map<std::string, std::string> urlMap = stack.getTable("urlMap");
        CHECK_EQUAL(urlMap.size(), 2u);
        CHECK_EQUAL(urlMap.at("alias"), "second");
        CHECK_EQUAL(urlMap.at("kept"), "first");
        retVal = true;
    } while (false);
    return retVal;
}

bool PidFileTest::test() {
    REPORT_CLASS_TEST;
    bool retVal = false;
    const std::string folder = makeTemporaryFolder("pid-file-test");
    do {
        SANITY_CHECK(! folder.empty());
        const std::string path = folder + "net.braidwell.coordinator.test.pid";
        const uint32_t processId = Process::getCurrentProcessId();
        CHECK_EQUAL(PidFile::readPublished(path), 0u);
        {
            PidFile holder;
            SANITY_CHECK(holder.publish(path, processId));
            CHECK_EQUAL(PidFile::readPublished(path), processId);
            // The lock belongs to the open file: a second one is refused even in this process.
            PidFile second;
            {
                LogLevelScope quiet(0);
                SANITY_CHECK(! second.publish(path, 1));
            }
            SANITY_CHECK(second.remove());
            CHECK_EQUAL(PidFile::readPublished(path), processId);
            SANITY_CHECK(holder.remove());
            SANITY_CHECK(! Dirs::exists(path));
        }
        // A file nobody holds is stale: it reads as none and goes, and it stops no publisher.
        SANITY_CHECK(Dirs::writeFileWhole(path, "4321"));
        CHECK_EQUAL(PidFile::readPublished(path), 0u);
        SANITY_CHECK(! Dirs::exists(path));
        SANITY_CHECK(Dirs::writeFileWhole(path, "4321"));
        PidFile next;
        SANITY_CHECK(next.publish(path, 77));
        std::string text;
        SANITY_CHECK(Dirs::readFile(path, text) == FileReadResult::READ);
        CHECK_EQUAL(text, "77");
        SANITY_CHECK(next.remove());
        retVal = true;
    } while (false);
    VERIFY(folder.empty() || Dirs::rmDir(folder, DirRecurse::RECURSE));
    return retVal;
}

} // namespace Brw
