#include "BrwUtils/BrwDirsTest.h"

#include <cstdlib>
#include <map>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace Brw {

namespace {

// Sets environment variables for its life and puts the old values back at its end.
class EnvironmentScope {
public:
    EnvironmentScope(std::initializer_list<std::pair<const char*, std::optional<std::string>>> values) {
        for (const auto& [name, value] : values) {
            const char* old = std::getenv(name);
            fSaved[name] = old != nullptr ? std::optional<std::string>(old) : std::nullopt;
            value ? setenv(name, value->c_str(), 1) : unsetenv(name);
        }
    }
    ~EnvironmentScope() {
        for (const auto& [name, value] : fSaved) {
            value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
        }
    }
    EnvironmentScope(const EnvironmentScope&) = delete;
    EnvironmentScope& operator=(const EnvironmentScope&) = delete;

private:
    std::map<std::string, std::optional<std::string>> fSaved; // the values before
};

mode_t folderMode(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? info.st_mode & 0777 : 0;
}

} // namespace

bool DirsTest::test() {
    REPORT_CLASS_TEST;
    const std::string folder = makeTemporaryFolder("dirs-test");
    bool allOK = ! folder.empty();
    allOK = testSeparators() && allOK;
    allOK = allOK && testFoldersFromEnvironment(folder);
    allOK = allOK && testMakeScanRemove(folder);
    allOK = allOK && testResolving(folder);
    allOK = allOK && testWholeFiles(folder);
    VERIFY(folder.empty() || Dirs::rmDir(folder, DirRecurse::RECURSE));
    return allOK;
}

bool DirsTest::testSeparators() {
    bool retVal = false;
    do {
        const std::string windowsPath = "C:\\Users\\user\\Desktop";
        const std::string path = "/Users/user/Desktop";
        const std::string mixedPath = "/Users/user\\Desktop/t.1";
        CHECK_EQUAL(Dirs::addTrailingSeparator(windowsPath, Dirs::ANY_SEPARATOR), windowsPath + "\\");
        CHECK_EQUAL(Dirs::addTrailingSeparator(windowsPath), windowsPath + "/");
        CHECK_EQUAL(Dirs::addTrailingSeparator(path, Dirs::ANY_SEPARATOR), path + "/");
        CHECK_EQUAL(Dirs::addTrailingSeparator(path, '\\'), path + "\\");
        CHECK_EQUAL(Dirs::addTrailingSeparator(path + "/"), path + "/");
        CHECK_EQUAL(Dirs::cleanupMixedSeparators(mixedPath), "/Users/user/Desktop/t.1");
        CHECK_EQUAL(Dirs::cleanupMixedSeparators(mixedPath, '\\'), "\\Users\\user\\Desktop\\t.1");
        // Separator 0 means either; the platform's default doesn't see the other one.
        CHECK_EQUAL(Dirs::getParentPath(windowsPath, Dirs::ANY_SEPARATOR), "C:\\Users\\user\\");
        CHECK_EQUAL(Dirs::getParentPath(windowsPath), "");
        CHECK_EQUAL(Dirs::getParentPath(path), "/Users/user/");
        CHECK_EQUAL(Dirs::getParentPath(path + "/"), "/Users/user/");
        CHECK_EQUAL(Dirs::getParentPath(path, '\\'), "");
        CHECK_EQUAL(Dirs::getPathSegmentFromLeft(windowsPath, 0, Dirs::ANY_SEPARATOR), "C:");
        CHECK_EQUAL(Dirs::getPathSegmentFromLeft(windowsPath, 1, Dirs::ANY_SEPARATOR), "Users");
        CHECK_EQUAL(Dirs::getPathSegmentFromLeft(path, 0), "");
        CHECK_EQUAL(Dirs::getPathSegmentFromLeft(path, 1), "Users");
        CHECK_EQUAL(Dirs::getPathSegmentFromLeft(path, 0, '\\'), path);
        CHECK_EQUAL(Dirs::getPathSegmentFromLeft(path, 1, '\\'), "");
        CHECK_EQUAL(Dirs::getPathSegmentFromRight(windowsPath, 0, Dirs::ANY_SEPARATOR), "Desktop");
        CHECK_EQUAL(Dirs::getPathSegmentFromRight(windowsPath, 1, Dirs::ANY_SEPARATOR), "user");
        CHECK_EQUAL(Dirs::getPathSegmentFromRight(path + "/", 0), "Desktop");
        CHECK_EQUAL(Dirs::getPathSegmentFromRight(path, 9), "");
        CHECK_EQUAL(Dirs::getFileNameExtension(mixedPath), "1");
        CHECK_EQUAL(Dirs::getFileNameExtension("/a.b/c"), "");
        CHECK_EQUAL(Dirs::fullPath("/a/./b/../c\\d"), "/a/c/d");
        CHECK_EQUAL(Dirs::fullPath(""), "");
        retVal = true;
    } while (false);
    return retVal;
}

bool DirsTest::testFoldersFromEnvironment(const std::string& folder) {
    bool retVal = false;
    do {
        const std::string home = folder + "home/";
        const std::string config = folder + "config/";
        EnvironmentScope environment({{"HOME", folder + "home"},
                                      {"XDG_DATA_HOME", std::nullopt},
                                      {"XDG_CONFIG_HOME", folder + "config"},
                                      {"XDG_DATA_DIRS", std::nullopt},
                                      {"TMPDIR", std::nullopt}});
        CHECK_EQUAL(Dirs::locateFolder(Dirs::Folder::HOME), home);
        CHECK_EQUAL(Dirs::locateFolder(Dirs::Folder::USER_DATA), home + ".local/share/");
        CHECK_EQUAL(Dirs::locateFolder(Dirs::Folder::SYSTEM_DATA), "/usr/local/share/net.braidwell/");
        CHECK_EQUAL(Dirs::locateFolder(Dirs::Folder::TMP), "/tmp/");
        CHECK_EQUAL(Dirs::locateFolder(Dirs::Folder::DESKTOP), home + "Desktop/");
        CHECK_EQUAL(Dirs::locateFolder(Dirs::Folder::DOCUMENTS), home + "Documents/");
        // The user's named folders, below the home or anywhere.
        SANITY_CHECK(Dirs::mkDir(config, DirRecurse::RECURSE));
        SANITY_CHECK(Dirs::writeFileWhole(config + "user-dirs.dirs",
                                          "# named folders\n"
                                          "XDG_DESKTOP_DIR=\"$HOME/Schreibtisch\"\n"
                                          "XDG_DOCUMENTS_DIR=\"/srv/docs\"\n"));
        CHECK_EQUAL(Dirs::locateFolder(Dirs::Folder::DESKTOP), home + "Schreibtisch/");
        CHECK_EQUAL(Dirs::locateFolder(Dirs::Folder::DOCUMENTS), "/srv/docs/");
        // Variables that name absolute paths win; relative ones are ignored, as the XDG rules say.
        setenv("XDG_DATA_HOME", "/data/home", 1);
        setenv("XDG_DATA_DIRS", "/first:/second", 1);
        setenv("TMPDIR", "/scratch", 1);
        CHECK_EQUAL(Dirs::locateFolder(Dirs::Folder::USER_DATA), "/data/home/");
        CHECK_EQUAL(Dirs::locateFolder(Dirs::Folder::SYSTEM_DATA), "/first/net.braidwell/");
        CHECK_EQUAL(Dirs::locateFolder(Dirs::Folder::TMP), "/scratch/");
        setenv("XDG_DATA_HOME", "relative", 1);
        CHECK_EQUAL(Dirs::locateFolder(Dirs::Folder::USER_DATA), home + ".local/share/");
        // Without HOME, the password database knows the home.
        unsetenv("HOME");
        SANITY_CHECK(! Dirs::locateFolder(Dirs::Folder::HOME).empty());
        retVal = true;
    } while (false);
    return retVal;
}

bool DirsTest::testMakeScanRemove(const std::string& folder) {
    bool retVal = false;
    do {
        const std::string nested = folder + "made/a/b/";
        {
            LogLevelScope quiet(0);
            SANITY_CHECK(! Dirs::mkDir(nested, DirRecurse::DONT_RECURSE));
        }
        SANITY_CHECK(! Dirs::exists(folder + "made"));
        SANITY_CHECK(Dirs::mkDir(nested, DirRecurse::RECURSE));
        SANITY_CHECK(Dirs::dirExists(nested) && ! Dirs::fileExists(nested, TrailingPathCharHandling::Ignore));
        CHECK_EQUAL(folderMode(folder + "made/a"), 0700u);
        SANITY_CHECK(Dirs::mkDir(nested, DirRecurse::DONT_RECURSE));
        CHECK_EQUAL(Dirs::scanDir(folder + "made/").size(), 1u);
        CHECK_EQUAL(Dirs::scanDir(folder + "made/")[0], "a");
        // Removing a tree removes a link in it, not what the link points to.
        SANITY_CHECK(Dirs::writeFileWhole(folder + "kept.txt", "kept"));
        SANITY_CHECK(::symlink(folder.c_str(), (nested + "link").c_str()) == 0);
        SANITY_CHECK(Dirs::rmDir(folder + "made", DirRecurse::RECURSE));
        SANITY_CHECK(! Dirs::exists(folder + "made") && Dirs::fileExists(folder + "kept.txt"));
        SANITY_CHECK(Dirs::rmDir(folder + "made", DirRecurse::RECURSE));
        retVal = true;
    } while (false);
    return retVal;
}

bool DirsTest::testResolving(const std::string& folder) {
    bool retVal = false;
    do {
        CHECK_EQUAL(Dirs::getInstallationRoot("/src/braidwell/build/default/"), "/src/braidwell/");
        CHECK_EQUAL(Dirs::getInstallationRoot("/src/braidwell/build/asan/tests/"), "/src/braidwell/");
        CHECK_EQUAL(Dirs::getInstallationRoot("/usr/bin"), "/usr/");
        CHECK_EQUAL(Dirs::getInstallationRoot("/opt/braidwell/"), "/opt/braidwell/");
        // The program is found where it runs from; the shipped files below its installation root.
        SANITY_CHECK(Dirs::fileExists(Dirs::getAppPath()));
        const std::string appName = Dirs::getPathSegmentFromRight(Dirs::getAppPath(), 0);
        CHECK_EQUAL(Dirs::resolvePartialFilePath(Dirs::getAppDirPath(), appName), Dirs::getAppPath());
        SANITY_CHECK(Dirs::dirExists(Dirs::resolvePartialFilePath(Dirs::SHIPPED_FILES_PATH) + "/"));
        // Below sub-folders only when asked to.
        SANITY_CHECK(Dirs::mkDir(folder + "deep/er/", DirRecurse::RECURSE));
        SANITY_CHECK(Dirs::writeFileWhole(folder + "deep/er/x.bwq", ""));
        CHECK_EQUAL(Dirs::resolvePartialFilePath(folder, "x.bwq"), "");
        CHECK_EQUAL(Dirs::resolvePartialFilePath(folder, "x.bwq", DirRecurse::RECURSE),
                    folder + "deep/er/x.bwq");
        // A relative path is taken against a folder, or against the folder of a file.
        CHECK_EQUAL(Dirs::resolveRelativePath(folder + "deep", "er/x.bwq"), folder + "deep/er/x.bwq");
        CHECK_EQUAL(Dirs::resolveRelativePath(folder + "deep/er/x.bwq", "x.bwq"), folder + "deep/er/x.bwq");
        CHECK_EQUAL(Dirs::resolveRelativePath(folder, "/abs/olute"), "/abs/olute");
        CHECK_EQUAL(Dirs::resolveRelativePath(folder, "no\\such"), folder + "no/such");
        retVal = true;
    } while (false);
    return retVal;
}

bool DirsTest::testWholeFiles(const std::string& folder) {
    bool retVal = false;
    do {
        const std::string path = folder + "whole.txt";
        SANITY_CHECK(Dirs::writeFileWhole(path, std::string("one\0two", 7)));
        SANITY_CHECK(Dirs::writeFileWhole(path, "replaced"));
        std::string text;
        SANITY_CHECK(Dirs::readFile(path, text) == FileReadResult::READ);
        CHECK_EQUAL(text, "replaced");
        CHECK_EQUAL(Dirs::getFileSize(path), 8);
        // Past the limit nothing is read; a folder or a missing file can't be read.
        SANITY_CHECK(Dirs::readFile(path, text, 7) == FileReadResult::TOO_LARGE && text.empty());
        SANITY_CHECK(Dirs::readFile(path, text, 8) == FileReadResult::READ);
        SANITY_CHECK(Dirs::readFile(folder, text) == FileReadResult::CANNOT_READ);
        SANITY_CHECK(Dirs::readFile(folder + "missing", text) == FileReadResult::CANNOT_READ);
        // The temporary file of the writes is gone.
        bool isTemporaryFileLeft = false;
        for (const std::string& name : Dirs::scanDir(folder)) {
            isTemporaryFileLeft = isTemporaryFileLeft || name.find(".tmp-") != std::string::npos;
        }
        SANITY_CHECK(! isTemporaryFileLeft);
        {
            LogLevelScope quiet(0);
            SANITY_CHECK(! Dirs::writeFileWhole(folder + "missing/file", "x"));
        }
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
