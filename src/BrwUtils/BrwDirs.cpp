#include "BrwUtils/BrwDirs.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "BrwData/BrwIni.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwUtils/BrwFileDescriptor.h"

namespace Brw {

namespace {

// The program's folder for its logs, below the user's data folder.
constexpr const char* LOG_FOLDER_NAME = "Logs";
// The file of the user's named folders, below the user's configuration folder.
constexpr const char* USER_DIRS_FILE_NAME = "user-dirs.dirs";
// Where shipped files are looked for when the installation root has none, below the documents folder.
constexpr const char* DOCUMENTS_FOLDER_NAMES[] = {"Braidwell/", "BraidwellDocs/"};
// The development layout: the CMake build folder of a preset, below the source root.
constexpr const char* BUILD_FOLDER_NAME = "build";
// The folder an installed program runs from, below the installation prefix.
constexpr const char* INSTALLED_BINARY_FOLDER_NAME = "bin";
// What a read asks of the disk at a time.
constexpr size_t READ_CHUNK_BYTES = 65536;

bool statPath(const std::string& path, struct stat& info) {
    return ! path.empty() && ::stat(path.c_str(), &info) == 0;
}

// An environment variable that holds an absolute path; "" otherwise, as the XDG rules ignore others.
std::string absoluteFromEnvironment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr && value[0] == '/' ? std::string(value) : std::string();
}

std::string homeFromPasswordDatabase() {
    std::string home;
    std::vector<char> buffer(16384);
    struct passwd entry {};
    struct passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
        found->pw_dir != nullptr) {
        home = found->pw_dir;
    }
    return home;
}

// Splits at the separators, dropping one trailing separator, so that a folder path's last segment is the
// folder's name.
std::vector<std::string> splitSegments(const std::string& path, char separator,
                                       bool (*isSeparator)(char, char)) {
    std::vector<std::string> segments;
    size_t end = path.size();
    if (end > 0 && isSeparator(path[end - 1], separator)) {
        --end;
    }
    std::string segment;
    for (size_t i = 0; i < end; ++i) {
        if (isSeparator(path[i], separator)) {
            segments.push_back(segment);
            segment.clear();
        } else {
            segment += path[i];
        }
    }
    segments.push_back(segment);
    return segments;
}

// Caches one folder of the environment for the process's life.
const std::string& cached(std::string& cache, bool& isFound, Dirs::Folder folder) {
    if (! isFound) {
        cache = Dirs::locateFolder(folder);
        isFound = true;
    }
    return cache;
}

} // namespace

bool Dirs::isSeparator(char c, char separator) {
    return separator == ANY_SEPARATOR ? (c == '/' || c == '\\') : c == separator;
}

bool Dirs::exists(const std::string& path) {
    struct stat info {};
    return statPath(path, info);
}

bool Dirs::dirExists(const std::string& dirPath, TrailingPathCharHandling trailingPathCharHandling) {
    if (trailingPathCharHandling == TrailingPathCharHandling::Check && ! dirPath.empty()) {
        EXPECTED(isSeparator(dirPath.back(), ANY_SEPARATOR));
    }
    struct stat info {};
    return statPath(dirPath, info) && S_ISDIR(info.st_mode);
}

bool Dirs::fileExists(const std::string& filePath, TrailingPathCharHandling trailingPathCharHandling) {
    if (trailingPathCharHandling == TrailingPathCharHandling::Check && ! filePath.empty()) {
        EXPECTED(! isSeparator(filePath.back(), ANY_SEPARATOR));
    }
    struct stat info {};
    return statPath(filePath, info) && S_ISREG(info.st_mode);
}

bool Dirs::pipeExists(const std::string& path) {
    struct stat info {};
    return statPath(path, info) && (S_ISFIFO(info.st_mode) || S_ISSOCK(info.st_mode));
}

int64_t Dirs::getFileSize(const std::string& filePath) {
    struct stat info {};
    return statPath(filePath, info) && S_ISREG(info.st_mode) ? static_cast<int64_t>(info.st_size) : -1;
}

int64_t Dirs::getFileTime(const std::string& filePath) {
    constexpr int64_t NANOSECONDS_PER_SECOND = 1000000000;
    struct stat info {};
    if (! statPath(filePath, info)) {
        return 0;
    }
    return static_cast<int64_t>(info.st_mtim.tv_sec) * NANOSECONDS_PER_SECOND + info.st_mtim.tv_nsec;
}

std::string Dirs::fullPath(const std::string& path, char separator) {
    if (path.empty()) {
        return path;
    }
    const std::string cleaned = cleanupMixedSeparators(path, PLATFORM_SEPARATOR);
    std::error_code error;
    const std::filesystem::path full = std::filesystem::absolute(cleaned, error);
    const std::string text = error ? cleaned : full.lexically_normal().string();
    return separator == PLATFORM_SEPARATOR ? text : cleanupMixedSeparators(text, separator);
}

std::string Dirs::addTrailingSeparator(const std::string& path, char separator) {
    if (path.empty()) {
        return path;
    }
    if (separator == ANY_SEPARATOR) {
        const size_t last = path.find_last_of("/\\");
        separator = last == std::string::npos ? PLATFORM_SEPARATOR : path[last];
    }
    return path.back() == separator ? path : path + separator;
}

std::string Dirs::cleanupMixedSeparators(const std::string& path, char separator) {
    std::string cleaned = path;
    const char to = separator == ANY_SEPARATOR ? PLATFORM_SEPARATOR : separator;
    std::replace_if(
        cleaned.begin(), cleaned.end(), [](char c) { return c == '/' || c == '\\'; }, to);
    return cleaned;
}

std::string Dirs::getParentPath(const std::string& path, char separator) {
    size_t end = path.size();
    if (end > 0 && isSeparator(path[end - 1], separator)) {
        --end;
    }
    for (size_t i = end; i > 0; --i) {
        if (isSeparator(path[i - 1], separator)) {
            return path.substr(0, i);
        }
    }
    return std::string();
}

std::string Dirs::getPathSegmentFromLeft(const std::string& path, size_t index, char separator) {
    const std::vector<std::string> segments = splitSegments(path, separator, isSeparator);
    return index < segments.size() ? segments[index] : std::string();
}

std::string Dirs::getPathSegmentFromRight(const std::string& path, size_t index, char separator) {
    const std::vector<std::string> segments = splitSegments(path, separator, isSeparator);
    return index < segments.size() ? segments[segments.size() - 1 - index] : std::string();
}

std::string Dirs::getFileNameExtension(const std::string& path) {
    const std::string name = getPathSegmentFromRight(path, 0, ANY_SEPARATOR);
    const size_t dot = name.rfind('.');
    return dot == std::string::npos ? std::string() : name.substr(dot + 1);
}

bool Dirs::mkDir(const std::string& dirPath, DirRecurse dirRecurse, char separator) {
    bool retVal = false;
    do {
        SANITY_CHECK(! dirPath.empty());
        // The disk knows one separator, whichever the caller wrote.
        const std::string cleaned = cleanupMixedSeparators(dirPath, PLATFORM_SEPARATOR);
        std::vector<std::string> segments;
        for (const std::string& segment : Utils::split(cleaned, PLATFORM_SEPARATOR)) {
            if (! segment.empty()) {
                segments.push_back(segment);
            }
        }
        SANITY_CHECK(! segments.empty());
        SANITY_CHECK(separator == '\\' || separator == '/');
        std::string path = cleaned[0] == PLATFORM_SEPARATOR ? std::string(1, PLATFORM_SEPARATOR) : "";
        bool isMade = true;
        for (size_t i = 0; i < segments.size() && isMade; ++i) {
            path += segments[i] + PLATFORM_SEPARATOR;
            const bool isLast = i + 1 == segments.size();
            if ((isLast || dirRecurse == DirRecurse::RECURSE) && ! dirExists(path)) {
                isMade = ::mkdir(path.c_str(), PRIVATE_FOLDER_MODE) == 0 || errno == EEXIST;
            }
        }
        SANITY_CHECK(isMade && dirExists(path));
        retVal = true;
    } while (false);
    return retVal;
}

bool Dirs::removeTree(const std::string& dirPath) {
    bool retVal = true;
    const std::string folder = addTrailingSeparator(dirPath, PLATFORM_SEPARATOR);
    for (const std::string& name : scanDir(folder)) {
        const std::string path = folder + name;
        struct stat info {};
        if (::lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
            retVal = removeTree(path) && retVal;
        } else {
            retVal = ::unlink(path.c_str()) == 0 && retVal;
        }
    }
    return ::rmdir(folder.c_str()) == 0 && retVal;
}

bool Dirs::rmDir(const std::string& dirPath, DirRecurse dirRecurse, char separator) {
    bool retVal = false;
    do {
        SANITY_CHECK(! dirPath.empty());
        SANITY_CHECK(separator == '\\' || separator == '/');
        const std::string cleaned = cleanupMixedSeparators(dirPath, PLATFORM_SEPARATOR);
        struct stat info {};
        if (::lstat(cleaned.c_str(), &info) != 0) {
            retVal = true;
            break;
        }
        if (dirRecurse == DirRecurse::RECURSE) {
            SANITY_CHECK(removeTree(cleaned));
        } else {
            SANITY_CHECK(::rmdir(cleaned.c_str()) == 0);
        }
        retVal = true;
    } while (false);
    return retVal;
}

std::vector<std::string> Dirs::scanDir(const std::string& dirPath) {
    std::vector<std::string> names;
    DIR* dir = dirPath.empty() ? nullptr : ::opendir(dirPath.c_str());
    if (dir == nullptr) {
        LOG_ERROR("invalid directory");
        return names;
    }
    while (const struct dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    ::closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

std::string Dirs::getInstallationRoot(const std::string& appDirPath) {
    const std::string folder = addTrailingSeparator(appDirPath, PLATFORM_SEPARATOR);
    // build/<preset>/ of the development layout, or build/<preset>/<test folder>/.
    for (size_t depth : {1, 2}) {
        if (getPathSegmentFromRight(folder, depth) == BUILD_FOLDER_NAME) {
            std::string root = folder;
            for (size_t i = 0; i <= depth; ++i) {
                root = getParentPath(root);
            }
            return root;
        }
    }
    if (getPathSegmentFromRight(folder, 0) == INSTALLED_BINARY_FOLDER_NAME) {
        return getParentPath(folder);
    }
    return folder;
}

std::string Dirs::resolvePartialFilePath(const std::string& basePath, const std::string& partialPath,
                                         DirRecurse dirRecurse, char separator) {
    std::string found;
    if (basePath.empty() || partialPath.empty()) {
        return found;
    }
    const std::string base = addTrailingSeparator(basePath, separator);
    const std::string candidate = cleanupMixedSeparators(base + partialPath, separator);
    if (exists(candidate)) {
        return fullPath(candidate, separator);
    }
    if (dirRecurse == DirRecurse::RECURSE && dirExists(base, TrailingPathCharHandling::Ignore)) {
        for (const std::string& name : scanDir(base)) {
            struct stat info {};
            const std::string sub = base + name;
            // Links are not followed: a link to a folder above would never end.
            if (::lstat(sub.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
                found = resolvePartialFilePath(sub, partialPath, dirRecurse, separator);
                if (! found.empty()) {
                    break;
                }
            }
        }
    }
    return found;
}

std::string Dirs::resolvePartialFilePath(const std::string& partialPath, DirRecurse dirRecurse,
                                         char separator) {
    std::string found =
        resolvePartialFilePath(getInstallationRoot(getAppDirPath()), partialPath, dirRecurse, separator);
    for (const char* documentsFolder : DOCUMENTS_FOLDER_NAMES) {
        if (found.empty() && ! getDocumentsPath().empty()) {
            found = resolvePartialFilePath(getDocumentsPath() + documentsFolder, partialPath, dirRecurse,
                                           separator);
        }
    }
    if (found.empty() && exists(partialPath)) {
        found = fullPath(partialPath, separator);
    }
    return found;
}

std::string Dirs::resolveRelativePath(const std::string& basePath, const std::string& relativePath,
                                      char separator) {
    std::string path;
    const bool isAbsolute = ! relativePath.empty() && (isSeparator(relativePath[0], ANY_SEPARATOR) ||
                                                       (relativePath.size() > 1 && relativePath[1] == ':'));
    if (isAbsolute || basePath.empty()) {
        path = relativePath;
    } else {
        std::string folder = basePath;
        if (exists(basePath) && ! dirExists(basePath, TrailingPathCharHandling::Ignore)) {
            folder = getParentPath(basePath, ANY_SEPARATOR);
        }
        path = addTrailingSeparator(folder, separator) + relativePath;
    }
    path = cleanupMixedSeparators(path, separator);
    return exists(path) ? fullPath(path, separator) : path;
}

std::string Dirs::getCurrentDir() {
    char currentDir[PATH_MAX] = {0};
    VERIFY(getcwd(currentDir, sizeof(currentDir)));
    return currentDir;
}

FileReadResult Dirs::readFile(const std::string& filePath, std::string& contents, uint64_t byteLimit) {
    contents.clear();
    FileDescriptor file(filePath.empty() ? FileDescriptor::NONE
                                         : ::open(filePath.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat info {};
    if (! file.isOpen() || ::fstat(file.get(), &info) != 0 || ! S_ISREG(info.st_mode)) {
        return FileReadResult::CANNOT_READ;
    }
    if (static_cast<uint64_t>(info.st_size) > byteLimit) {
        return FileReadResult::TOO_LARGE;
    }
    contents.reserve(static_cast<size_t>(info.st_size));
    char buffer[READ_CHUNK_BYTES];
    for (;;) {
        const ssize_t count = ::read(file.get(), buffer, sizeof(buffer));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            contents.clear();
            return FileReadResult::CANNOT_READ;
        }
        if (count == 0) {
            break;
        }
        // A file that grows while it is read is held to the limit all the same.
        if (contents.size() + static_cast<uint64_t>(count) > byteLimit) {
            contents.clear();
            return FileReadResult::TOO_LARGE;
        }
        contents.append(buffer, static_cast<size_t>(count));
    }
    return FileReadResult::READ;
}

bool Dirs::writeFileWhole(const std::string& filePath, const std::string& contents) {
    bool retVal = false;
    std::string temporaryPath = filePath + ".tmp-XXXXXX";
    FileDescriptor file(::mkostemp(temporaryPath.data(), O_CLOEXEC));
    do {
        SANITY_CHECK(file.isOpen());
        SANITY_CHECK(file.writeAll(contents));
        SANITY_CHECK(::fsync(file.get()) == 0);
        SANITY_CHECK(::rename(temporaryPath.c_str(), filePath.c_str()) == 0);
        retVal = true;
    } while (false);
    if (! retVal && file.isOpen()) {
        ::unlink(temporaryPath.c_str());
    }
    return retVal;
}

std::shared_ptr<Ini> Dirs::readIni(const std::string& iniFilePath) {
    std::string text;
    if (iniFilePath.empty() || readFile(iniFilePath, text) != FileReadResult::READ) {
        LOG_NOTE_F("iniFilePath does not exist or is empty: %s", iniFilePath.c_str());
        text.clear();
    }
    return std::make_shared<Ini>(text);
}

// ---- the well-known folders ----

std::string Dirs::getXdgUserDir(const std::string& name, const std::string& homePath) {
    std::string configPath = absoluteFromEnvironment("XDG_CONFIG_HOME");
    configPath = configPath.empty() ? homePath + ".config/" : addTrailingSeparator(configPath);
    std::string text;
    if (readFile(configPath + USER_DIRS_FILE_NAME, text) != FileReadResult::READ) {
        return std::string();
    }
    // Lines such as XDG_DESKTOP_DIR="$HOME/Desktop"; a path is either below $HOME or absolute.
    const std::string key = "XDG_" + name + "_DIR";
    const std::string homeVariable = "$HOME";
    std::string found;
    for (const std::string& rawLine : Utils::splitIntoLines(text)) {
        const std::string line = Utils::trim(rawLine);
        const size_t equals = line.find('=');
        if (line.empty() || line[0] == '#' || equals == std::string::npos ||
            Utils::trim(line.substr(0, equals)) != key) {
            continue;
        }
        std::string value = Utils::trim(line.substr(equals + 1));
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
            value = value.substr(1, value.size() - 2);
        }
        if (value.compare(0, homeVariable.size(), homeVariable) == 0) {
            found = homePath + value.substr(std::min(value.size(), homeVariable.size() + 1));
        } else if (! value.empty() && value[0] == '/') {
            found = value;
        }
    }
    return found.empty() ? found : addTrailingSeparator(found);
}

std::string Dirs::locateFolder(Folder folder) {
    std::string home = std::getenv("HOME") != nullptr ? std::getenv("HOME") : "";
    if (home.empty()) {
        home = homeFromPasswordDatabase();
    }
    home = addTrailingSeparator(home);
    std::string path;
    switch (folder) {
    case Folder::HOME:
        path = home;
        break;
    case Folder::DESKTOP:
    case Folder::DOCUMENTS: {
        const bool isDesktop = folder == Folder::DESKTOP;
        path = home.empty() ? "" : getXdgUserDir(isDesktop ? "DESKTOP" : "DOCUMENTS", home);
        if (path.empty() && ! home.empty()) {
            path = home + (isDesktop ? "Desktop/" : "Documents/");
        }
        break;
    }
    case Folder::USER_DATA:
        path = absoluteFromEnvironment("XDG_DATA_HOME");
        path = ! path.empty() ? addTrailingSeparator(path) : home.empty() ? "" : home + ".local/share/";
        break;
    case Folder::SYSTEM_DATA: {
        const char* dataDirs = std::getenv("XDG_DATA_DIRS");
        const std::string first = dataDirs != nullptr ? Utils::split(dataDirs, ':')[0] : "";
        path = addTrailingSeparator(first.empty() || first[0] != '/' ? "/usr/local/share" : first) +
               PROGRAM_FOLDER_NAME + PLATFORM_SEPARATOR;
        break;
    }
    case Folder::TMP:
        path = absoluteFromEnvironment("TMPDIR");
        path = addTrailingSeparator(path.empty() ? "/tmp" : path);
        break;
    }
    if (path.empty()) {
        LOG_ERROR("no home folder: HOME is not set and the password database has none");
    }
    return path;
}

const std::string& Dirs::getAppPath() {
    static std::string appPath;
    if (appPath.empty()) {
        std::error_code error;
        const std::filesystem::path resolved = std::filesystem::read_symlink("/proc/self/exe", error);
        VERIFY(! error);
        appPath = error ? std::string() : resolved.string();
    }
    return appPath;
}

const std::string& Dirs::getAppDirPath() {
    static std::string appDirPath;
    if (appDirPath.empty()) {
        appDirPath = getParentPath(getAppPath());
        VERIFY(dirExists(appDirPath));
    }
    return appDirPath;
}

const std::string& Dirs::getHomePath() {
    static std::string path;
    static bool isFound = false;
    return cached(path, isFound, Folder::HOME);
}

const std::string& Dirs::getDesktopPath() {
    static std::string path;
    static bool isFound = false;
    return cached(path, isFound, Folder::DESKTOP);
}

const std::string& Dirs::getDocumentsPath() {
    static std::string path;
    static bool isFound = false;
    return cached(path, isFound, Folder::DOCUMENTS);
}

const std::string& Dirs::getSystemDataPath() {
    static std::string path;
    static bool isFound = false;
    return cached(path, isFound, Folder::SYSTEM_DATA);
}

const std::string& Dirs::getUserDataPath() {
    static std::string path;
    static bool isFound = false;
    return cached(path, isFound, Folder::USER_DATA);
}

const std::string& Dirs::getTmpPath() {
    static std::string path;
    static bool isFound = false;
    return cached(path, isFound, Folder::TMP);
}

const std::string& Dirs::getLogDirPath() {
    static std::string path;
    if (path.empty() && ! getUserDataPath().empty()) {
        path = getUserDataPath() + PROGRAM_FOLDER_NAME + PLATFORM_SEPARATOR + LOG_FOLDER_NAME +
               PLATFORM_SEPARATOR;
        if (! dirExists(path)) {
            VERIFY(mkDir(path, DirRecurse::RECURSE));
        }
    }
    return path;
}

} // namespace Brw
