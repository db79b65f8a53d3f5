#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Brw {

class Ini;

// Check: a folder path must end in a separator and a file path must not; an offence is an EXPECTED
// warning, and the test still runs. Ignore: a trailing separator makes no difference.
enum class TrailingPathCharHandling { Ignore, Check };
enum class DirRecurse { DONT_RECURSE, RECURSE };

// What Dirs::readFile found.
enum class FileReadResult {
    READ,        // the whole file is in the text
    CANNOT_READ, // missing, a folder, or unreadable
    TOO_LARGE,   // longer than the limit asked for; nothing was read
};

// Static functions on file and folder paths: tests, making and removing folders, path surgery that
// understands both separators, and the well-known folders of the user and the system. Folder paths that
// the getters give end in the separator.
class Dirs {
public:
    static constexpr const char* TYPENAME = "Dirs";
    // The separator of this platform, and the separator argument that means "either" (or, to
    // addTrailingSeparator, "the one the path uses").
    static constexpr char PLATFORM_SEPARATOR = '/';
    static constexpr char ANY_SEPARATOR = 0;
    // The program's own folder below the user's and the system's data folders.
    static constexpr const char* PROGRAM_FOLDER_NAME = "net.braidwell";
    // The files shipped with the program, below the installation root of the build tree and of an
    // installed tree alike.
    static constexpr const char* SHIPPED_FILES_PATH = "share/braidwell/";
    // The file mode of the folders the program makes: private to the user.
    static constexpr unsigned PRIVATE_FOLDER_MODE = 0700;

    // The well-known folders, as locateFolder finds them from the environment.
    enum class Folder { HOME, DESKTOP, DOCUMENTS, USER_DATA, SYSTEM_DATA, TMP };

    static bool exists(const std::string& path);
    // False for an empty path.
    static bool
    dirExists(const std::string& dirPath,
              TrailingPathCharHandling trailingPathCharHandling = TrailingPathCharHandling::Check);
    // A plain file; false for an empty path.
    static bool
    fileExists(const std::string& filePath,
               TrailingPathCharHandling trailingPathCharHandling = TrailingPathCharHandling::Check);
    // A named pipe or a local socket.
    static bool pipeExists(const std::string& path);
    // The size in bytes of a plain file, -1 when there is none.
    static int64_t getFileSize(const std::string& filePath);
    // The modification time in nanoseconds since the epoch, 0 when the file can't be read.
    static int64_t getFileTime(const std::string& filePath);

    // The absolute, normalised form, separators cleaned first; "" for "".
    static std::string fullPath(const std::string& path, char separator = PLATFORM_SEPARATOR);
    // Adds the separator if missing; ANY_SEPARATOR adds the one the path uses, or the platform's.
    static std::string addTrailingSeparator(const std::string& path, char separator = PLATFORM_SEPARATOR);
    // Every "/" and "\" becomes `separator`.
    static std::string cleanupMixedSeparators(const std::string& path, char separator = PLATFORM_SEPARATOR);
    // Up to and including the last separator before the last segment; "" without such a separator.
    static std::string getParentPath(const std::string& path, char separator = PLATFORM_SEPARATOR);
    // Segment `index` between separators, counted from 0 at the left or at the right; "" out of range.
    static std::string getPathSegmentFromLeft(const std::string& path, size_t index,
                                              char separator = PLATFORM_SEPARATOR);
    static std::string getPathSegmentFromRight(const std::string& path, size_t index,
                                               char separator = PLATFORM_SEPARATOR);
    // The text behind the last "." of the last segment.
    static std::string getFileNameExtension(const std::string& path);

    // Makes the folder, private to the user; with RECURSE every missing folder on the way. An existing
    // folder is a success.
    [[nodiscard]] static bool mkDir(const std::string& dirPath, DirRecurse dirRecurse,
                                    char separator = PLATFORM_SEPARATOR);
    // Removes the folder; with RECURSE all that is in it first (links are removed, never followed). A
    // folder that isn't there is a success.
    [[nodiscard]] static bool rmDir(const std::string& dirPath, DirRecurse dirRecurse,
                                    char separator = PLATFORM_SEPARATOR);
    // The names in the folder without "." and "..", sorted; empty for an invalid folder.
    static std::vector<std::string> scanDir(const std::string& dirPath);

    // A file shipped with the program: looked for below the installation root, then in the documents
    // folder's "Braidwell" and "BraidwellDocs", then relative to the current folder. "" when absent.
    static std::string resolvePartialFilePath(const std::string& partialPath,
                                              DirRecurse dirRecurse = DirRecurse::DONT_RECURSE,
                                              char separator = PLATFORM_SEPARATOR);
    // `partialPath` below `basePath`, and with RECURSE below each of its sub-folders; "" when absent.
    static std::string resolvePartialFilePath(const std::string& basePath, const std::string& partialPath,
                                              DirRecurse dirRecurse = DirRecurse::DONT_RECURSE,
                                              char separator = PLATFORM_SEPARATOR);
    // The root of the tree the program was installed or built in, from the folder of its executable: the
    // development layout build/<preset>/ (and its tests/ folder) and an installed bin/ are stepped over.
    static std::string getInstallationRoot(const std::string& appDirPath);
    // `relativePath` against `basePath` (or the folder of a file there); an absolute path as it is. A
    // full path when it exists.
    static std::string resolveRelativePath(const std::string& basePath, const std::string& relativePath,
                                           char separator = PLATFORM_SEPARATOR);
    static std::string getCurrentDir();

    // Reads a whole file into `contents`, unless it is longer than `byteLimit`.
    static FileReadResult readFile(const std::string& filePath, std::string& contents,
                                   uint64_t byteLimit = UINT64_MAX);
    // Writes the file whole or not at all: a temporary file beside it is renamed over it.
    [[nodiscard]] static bool writeFileWhole(const std::string& filePath, const std::string& contents);
    // The Ini of a file; an empty one, with a note, when the path is empty or missing.
    static std::shared_ptr<Ini> readIni(const std::string& iniFilePath);

    // The folders, found once and kept.
    static const std::string& getAppPath();
    static const std::string& getAppDirPath();
    static const std::string& getHomePath();
    static const std::string& getDesktopPath();
    static const std::string& getDocumentsPath();
    static const std::string& getSystemDataPath();
    static const std::string& getUserDataPath();
    static const std::string& getTmpPath();
    // The log folder below the user's data, made when missing.
    static const std::string& getLogDirPath();
    // A folder as the environment names it now, without the cache; "" with an error when it can't.
    static std::string locateFolder(Folder folder);

private:
    static bool isSeparator(char c, char separator);
    // The folder a user-dirs.dirs entry `XDG_<name>_DIR` names, or "" without one.
    static std::string getXdgUserDir(const std::string& name, const std::string& homePath);
    static bool removeTree(const std::string& dirPath);
};

} // namespace Brw
