#include "BrwData/BrwIniTest.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "BrwUtils/BrwDirs.h"

namespace Brw {

namespace {

const char* const kIniText = R"INI(
# a comment
[main]
val1=   12
val2="abc"   
[other]
val5 = "abc5", "def5" "ghi5" 
val6 = ${APPPATH} -n net.braidwell.coordinator.reflector
val7 = "B\x00a"
q1=ab\c
q2=ab\c,def
q3=ab\c,"def"
q4="ab\\c","def"
arrow="right arrow:\u2192"
open="no end
no equals sign here
[placeholders]
PH1=1
PH2=2
PH2.linux="abclinux"
PH2.windows="abcwindows"
PH3="def"
PH4="X${PH1}${PH2}Z${PH3}Y"
PH5=${PH4}
PH6="${PH7}"
PH7="${PH6}"
PH9="defmacwin"
PH9.mac="defmac"
PH10="part1","part2"
PH11="a	b"
PH12="a\tb"
PH13=a	b
PH14=a\tb
[data]
a1 = ${PH10}
a1a = "${PH10}"
a2 = ${PH9}
a3 = ${PH5}
a4 = ${PH6}
a5 = ${PH7}
a6 = ${PH8}
a7 = "a","b","c"
empty =
)INI";

} // namespace

bool IniTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = testValues();
    allOK = testPlaceholders() && allOK;
    allOK = testWritingBack() && allOK;
    allOK = testLinkedInis() && allOK;
    allOK = testFiles() && allOK;
    return allOK;
}

bool IniTest::testValues() {
    bool retVal = false;
    do {
        Ini ini(kIniText);
        CHECK_EQUAL(ini.getEntry("main", "val1"), "12");
        CHECK_EQUAL(ini.getEntry("main", "val2"), "abc");
        CHECK_EQUAL(ini.getEntry("main", "val1", 1), "");
        CHECK_EQUAL(ini.getEntry("main", "val1", 1, "whatever"), "whatever");
        CHECK_EQUAL(ini.getEntry("main", "val1", "whatever"), "12");
        CHECK_EQUAL(ini.getEntryCount("main", "val1"), 1u);
        CHECK_EQUAL(ini.getEntryCount("other", "val5"), 3u);
        CHECK_EQUAL(ini.getEntry("other", "val5", 2), "ghi5");
        CHECK_EQUAL(ini.getEntry("other", "val5", 3, "whatever"), "whatever");
        CHECK_EQUAL(ini.getEntry("other", "val7"), std::string("B\0a", 3));
        // Unquoted text is one item as it stands; quoted items know escapes.
        CHECK_EQUAL(ini.getEntry("other", "q1"), "ab\\c");
        CHECK_EQUAL(ini.getRawResolvedEntry("other", "q1"), "\"ab\\\\c\"");
        CHECK_EQUAL(ini.getEntry("other", "q2"), "ab\\c,def");
        CHECK_EQUAL(ini.getEntry("other", "q3"), "ab\\c,\"def\"");
        CHECK_EQUAL(ini.getResolvedEntry("other", "q4"), "ab\\c");
        CHECK_EQUAL(ini.getResolvedEntry("other", "q4", 1), "def");
        CHECK_EQUAL(ini.getEntry("other", "arrow"), "right arrow:\xE2\x86\x92");
        CHECK_EQUAL(ini.getEntry("other", "open"), "no end");
        SANITY_CHECK(! ini.hasEntry("other", "no equals sign here"));
        CHECK_EQUAL(ini.getEntryCount("data", "empty"), 1u);
        CHECK_EQUAL(ini.getEntry("data", "empty", "default"), "");
        CHECK_EQUAL(ini.getEntryCount("data", "missing"), 0u);
        // The key of this platform replaces the plain one; the other platforms' keys are gone.
        CHECK_EQUAL(ini.getEntry("placeholders", "PH2"), "abclinux");
        CHECK_EQUAL(ini.getEntry("placeholders", "PH9"), "defmacwin");
        SANITY_CHECK(! ini.hasEntry("placeholders", "PH2.windows") &&
                     ! ini.hasEntry("placeholders", "PH9.mac"));
        // Tabs and backslashes in the raw form.
        for (const char* key : {"PH11", "PH12", "PH13"}) {
            CHECK_EQUAL(ini.getRawEntry("placeholders", key), "\"a\\tb\"");
        }
        CHECK_EQUAL(ini.getRawEntry("placeholders", "PH14"), "\"a\\\\tb\"");
        CHECK_EQUAL(ini.getSections().size(), 4u);
        CHECK_EQUAL(ini.getEntryNames("main").size(), 2u);
        retVal = true;
    } while (false);
    return retVal;
}

bool IniTest::testPlaceholders() {
    bool retVal = false;
    do {
        Ini ini(kIniText);
        ini.setPlaceholder("APPPATH", "HELLO");
        ini.setPlaceholder("PH8", "tuv");
        CHECK_EQUAL(ini.getResolvedEntry("other", "val6"), "HELLO -n net.braidwell.coordinator.reflector");
        CHECK_EQUAL(ini.getEntry("other", "val6"), "${APPPATH} -n net.braidwell.coordinator.reflector");
        // A placeholder that is the whole item brings its whole list.
        CHECK_EQUAL(ini.getRawEntry("data", "a1"), "\"${PH10}\"");
        CHECK_EQUAL(ini.getRawResolvedEntry("data", "a1"), "\"part1\",\"part2\"");
        CHECK_EQUAL(ini.getResolvedEntry("data", "a1", 1, "yyy"), "part2");
        CHECK_EQUAL(ini.getEntry("data", "a1a", 0), "${PH10}");
        CHECK_EQUAL(ini.getEntry("placeholders", "PH10", 1, "yyy"), "part2");
        CHECK_EQUAL(ini.getEntry("placeholders", "PH10", 2, "xxx"), "xxx");
        CHECK_EQUAL(ini.getResolvedEntry("data", "a2"), "defmacwin");
        // Placeholders of placeholders, inside text, with the platform's key.
        CHECK_EQUAL(ini.getResolvedEntry("data", "a3"), "X1abclinuxZdefY");
        // A cycle gives up: the text stays as it was.
        CHECK_EQUAL(ini.getResolvedEntry("data", "a4"), "${PH6}");
        CHECK_EQUAL(ini.getResolvedEntry("data", "a5"), "${PH7}");
        CHECK_EQUAL(ini.getResolvedEntry("data", "a6"), "tuv");
        CHECK_EQUAL(ini.getResolvedEntry("data", "a7", 2), "c");
        CHECK_EQUAL(ini.getResolvedEntry("data", "a7", 3, "d"), "d");
        retVal = true;
    } while (false);
    return retVal;
}

bool IniTest::testWritingBack() {
    bool retVal = false;
    do {
        Ini ini(kIniText);
        Ini same(kIniText);
        SANITY_CHECK(ini == same && ini.hash() == same.hash());
        CHECK_EQUAL(ini.toString(), std::string(kIniText));
        ini.setEntry("data", "new", "tab\there, \"quoted\", back\\slash");
        ini.setEntry("", "top", 1, "second");
        SANITY_CHECK(! (ini == same) && ini.hash() != same.hash());
        SANITY_CHECK(ini.toString() != kIniText);
        // The text written back reads as the same Ini, also with NUL bytes, lists and unsectioned keys.
        Ini reread(ini.toString());
        SANITY_CHECK(reread == ini && reread.hash() == ini.hash());
        CHECK_EQUAL(reread.getEntry("data", "new"), "tab\there, \"quoted\", back\\slash");
        CHECK_EQUAL(reread.getEntryCount("", "top"), 2u);
        ini.removeEntry("data", "new");
        ini.removeEntry("", "top");
        ini.removeEntry("other", "val5", 0);
        CHECK_EQUAL(ini.getEntry("other", "val5"), "def5");
        ini.setEntry("other", "val5", 0, "abc5");
        ini.setEntry("other", "val5", 1, "def5");
        ini.setEntry("other", "val5", 2, "ghi5");
        Ini restored(ini.toString());
        SANITY_CHECK(restored == same);
        retVal = true;
    } while (false);
    return retVal;
}

bool IniTest::testLinkedInis() {
    bool retVal = false;
    do {
        auto parent = std::make_shared<Ini>("[placeholders]\nROOT=/from/parent\nNAME=parent\n"
                                            "[config]\nonlyParent=${ROOT}/x\nboth=parent\n");
        auto child = std::make_shared<Ini>("[placeholders]\nNAME=child\n[config]\nboth=${NAME}\n");
        SANITY_CHECK(child->setParent(parent));
        {
            LogLevelScope quiet(0);
            SANITY_CHECK(! child->setParent(parent));
        }
        CHECK_EQUAL(child->getResolvedEntry("config", "onlyParent"), "/from/parent/x");
        CHECK_EQUAL(child->getResolvedEntry("config", "both"), "child");
        SANITY_CHECK(! child->hasEntry("config", "onlyParent"));
        // A placeholder set from outside wins over the file's own.
        child->setPlaceholder("NAME", "outside");
        CHECK_EQUAL(child->getResolvedEntry("config", "both"), "outside");
        CHECK_EQUAL(parent->getResolvedEntry("config", "both"), "parent");
        retVal = true;
    } while (false);
    return retVal;
}

bool IniTest::testFiles() {
    bool retVal = false;
    const std::string folder = makeTemporaryFolder("ini-test");
    do {
        SANITY_CHECK(! folder.empty());
        const std::string path = folder + "config.ini";
        {
            IniFile missing(path);
            SANITY_CHECK(missing.getSections().empty() && ! missing.isChanged() && ! missing.isDirty());
            missing.setEntry("config", "logLevel", "3");
            SANITY_CHECK(missing.isDirty());
            {
                LogLevelScope quiet(0);
                SANITY_CHECK(! missing.readUpdate());
            }
            // Unsaved changes are written when it goes.
        }
        IniFile iniFile(path);
        CHECK_EQUAL(iniFile.getEntry("config", "logLevel"), "3");
        SANITY_CHECK(! iniFile.isChanged() && iniFile.readUpdate());
        // Another process changes the file: the change is noticed and read.
        SANITY_CHECK(Dirs::writeFileWhole(path, "[config]\nlogLevel=4\n"));
        const struct timespec later[2] = {{0, UTIME_OMIT}, {Dirs::getFileTime(path) / 1000000000 + 10, 0}};
        SANITY_CHECK(::utimensat(AT_FDCWD, path.c_str(), later, 0) == 0);
        SANITY_CHECK(iniFile.isChanged());
        SANITY_CHECK(iniFile.readUpdate());
        CHECK_EQUAL(iniFile.getEntry("config", "logLevel"), "4");
        SANITY_CHECK(! iniFile.isChanged());
        // A folder in the file's place can't be saved over, now nor when the IniFile goes.
        {
            LogLevelScope quiet(0);
            IniFile onFolder(folder);
            onFolder.setEntry("a", "b", "c");
            SANITY_CHECK(! onFolder.save());
        }
        retVal = true;
    } while (false);
    VERIFY(folder.empty() || Dirs::rmDir(folder, DirRecurse::RECURSE));
    return retVal;
}

} // namespace Brw
