// The built-in functions on files and paths, members of OMExpressionLValueToken: files by number
// (fileOpen, fileRead, fileWrite, fileClose), whole files (readFile, writeFile), tests, path surgery and
// the file system as a tree.

#include <cmath>

#include "BrwLogger/BrwCheck.h"
#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwParser/BrwFiles/BrwOMFileSystem.h"
#include "BrwParser/BrwFiles/BrwOpenedFile.h"
#include "BrwParser/BrwOMAccessor.h"
#include "BrwParser/BrwOMExpressionLValue.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwParser/BrwScriptLimits.h"
#include "BrwUtils/BrwDirs.h"

namespace Brw {

namespace {

using NodePtr = std::shared_ptr<IOMNode>;
using ScopePtr = std::shared_ptr<OMScope>;

// The largest file number a script's number can name; file numbers never come near it.
constexpr double LARGEST_FILE_ID = 9.0e18;

std::string textOf(const NodePtr& node) {
    return OMAccessor(node).getAsString();
}

// A path of argument 0 against the folder of the running script, or else the current folder.
std::string resolvedPath(const ScopePtr& scope, const OMExpressionLValueResolution& resolution) {
    const std::string path = textOf(resolution.getArgument(0));
    const std::string scriptFilePath = scope ? scope->getScriptFilePath() : std::string();
    LOG_NOTE_F("curScriptFilePath %s", scriptFilePath.c_str());
    const std::string base = scriptFilePath.empty()
                                 ? Dirs::addTrailingSeparator(Dirs::getCurrentDir())
                                 : Dirs::getParentPath(scriptFilePath, Dirs::ANY_SEPARATOR);
    return Dirs::resolveRelativePath(base, path);
}

// The open file that argument 0 names; null after the script error of a number below 1 or of a file
// that isn't open.
std::shared_ptr<OpenedFile> fileOfArgument(const OMExpressionLValueResolution& resolution) {
    const double fileId = OMAccessor(resolution.getArgument(0)).getAsNum();
    if (! (fileId >= 1.0)) {
        ScriptErrorLog::report("fileId <= 0");
        return nullptr;
    }
    std::shared_ptr<OpenedFile> file =
        fileId <= LARGEST_FILE_ID ? OpenedFile::getFile(static_cast<int64_t>(fileId)) : nullptr;
    if (! file) {
        ScriptErrorLog::report("file not open");
    }
    return file;
}

// A segment index from a script number: negative and NaN are 0.
size_t segmentIndexOf(const NodePtr& node) {
    const double index = OMAccessor(node).getAsNum();
    return index > 0.0 && index < LARGEST_FILE_ID ? static_cast<size_t>(index) : 0;
}

// Reads with fgetc until the end, `byteLimit` bytes, or the end of `stopText`; false past the text limit.
bool readFromFile(FILE* stdFile, uint64_t byteLimit, const std::string& stopText, std::string& text) {
    for (int c = fgetc(stdFile); c != EOF; c = fgetc(stdFile)) {
        text += static_cast<char>(c);
        if (! ScriptLimits::isTextWithinLimit(text.size())) {
            return false;
        }
        const bool isStopTextRead =
            ! stopText.empty() && text.size() >= stopText.size() &&
            text.compare(text.size() - stopText.size(), stopText.size(), stopText) == 0;
        if (text.size() >= byteLimit || isStopTextRead) {
            break;
        }
    }
    return true;
}

// One of the two segment built-ins.
NodePtr pathSegment(const OMExpressionLValueResolution& resolution, bool isFromLeft) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! resolution.hasArguments(1)) {
            break;
        }
        NodePtr thisNode = resolution.getArgument(0);
        NodePtr idxNode = resolution.getArgument(1);
        NodePtr separatorNode = resolution.getArgument(2);
        SANITY_CHECK(thisNode);
        SANITY_CHECK(idxNode);
        SANITY_CHECK(separatorNode);
        const size_t index = resolution.getArgumentCount() >= 2 ? segmentIndexOf(idxNode) : 0;
        const std::string separatorText = resolution.getArgumentCount() >= 3 ? textOf(separatorNode) : "";
        const char separator = separatorText.empty() ? Dirs::PLATFORM_SEPARATOR : separatorText[0];
        const std::string path = textOf(thisNode);
        SANITY_CHECK(retVal->set(isFromLeft ? Dirs::getPathSegmentFromLeft(path, index, separator)
                                            : Dirs::getPathSegmentFromRight(path, index, separator)));
    } while (false);
    return retVal;
}

} // namespace

void OMExpressionLValueToken::registerFileBuiltins() {
    registerBuiltin(_dirExists, ftn_dirExists, nullptr);
    registerBuiltin(_fileClose, ftn_fileClose, nullptr);
    registerBuiltin(_fileExists, ftn_fileExists, nullptr);
    registerBuiltin(_fileOpen, ftn_fileOpen, nullptr);
    registerBuiltin(_fileRead, ftn_fileRead, nullptr);
    registerBuiltin(_fileSystem, ftn_fileSystem, nullptr);
    registerBuiltin(_fileWrite, ftn_fileWrite, nullptr);
    registerBuiltin(_parentPath, ftn_parentPath, nullptr);
    registerBuiltin(_pathSegmentFromLeft, ftn_pathSegmentFromLeft, nullptr);
    registerBuiltin(_pathSegmentFromRight, ftn_pathSegmentFromRight, nullptr);
    registerBuiltin(_readFile, ftn_readFile, nullptr);
    registerBuiltin(_writeFile, ftn_writeFile, nullptr);
}

// ---- files by number ----

NodePtr OMExpressionLValueToken::ftn_fileOpen(AccessType, const ScopePtr& scope,
                                              OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! resolution.hasArguments(2)) {
            break;
        }
        NodePtr modeNode = resolution.getArgument(1);
        SANITY_CHECK(modeNode);
        // Only the first letter counts: "rb" reads.
        const std::string mode = textOf(modeNode);
        const char modeLetter = mode.empty() ? 0 : mode[0];
        if (modeLetter != 'a' && modeLetter != 'r' && modeLetter != 'w') {
            ScriptErrorLog::report("unexpected file mode");
            break;
        }
        const FileMode fileMode = modeLetter == 'a'   ? FileMode::Append
                                  : modeLetter == 'r' ? FileMode::Read
                                                      : FileMode::Write;
        std::shared_ptr<OpenedFile> file = OpenedFile::open(resolvedPath(scope, resolution), fileMode);
        SANITY_CHECK(file);
        SANITY_CHECK(retVal->set(static_cast<OMInt>(file->getFileId())));
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_fileClose(AccessType, const ScopePtr&,
                                               OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! resolution.hasArguments(1)) {
            break;
        }
        std::shared_ptr<OpenedFile> file = fileOfArgument(resolution);
        if (! file) {
            break;
        }
        SANITY_CHECK(file->close());
        SANITY_CHECK(retVal->set(true));
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_fileRead(AccessType, const ScopePtr&,
                                              OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! resolution.hasArguments(1)) {
            break;
        }
        std::shared_ptr<OpenedFile> file = fileOfArgument(resolution);
        if (! file) {
            break;
        }
        if (file->getFileMode() != FileMode::Read) {
            ScriptErrorLog::report("file not opened for read");
            break;
        }
        NodePtr readLimitNode = resolution.getArgument(1);
        SANITY_CHECK(readLimitNode);
        FILE* stdFile = file->getFile();
        SANITY_CHECK(stdFile);
        uint64_t byteLimit = UINT64_MAX;
        std::string stopText;
        if (readLimitNode->getType() == OMType::String) {
            stopText = readLimitNode->getString();
        } else if (readLimitNode->getType() == OMType::Int || readLimitNode->getType() == OMType::Float) {
            const double number = readLimitNode->getAsNum();
            byteLimit = number >= 1.0 && number < LARGEST_FILE_ID ? static_cast<uint64_t>(number) : byteLimit;
        }
        std::string text;
        if (! readFromFile(stdFile, byteLimit, stopText, text)) {
            ScriptErrorLog::report(ScriptLimits::textTooLongMessage());
            SANITY_CHECK(retVal->setError());
            break;
        }
        SANITY_CHECK(retVal->set(text));
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_fileWrite(AccessType, const ScopePtr&,
                                               OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! resolution.hasArguments(2)) {
            break;
        }
        std::shared_ptr<OpenedFile> file = fileOfArgument(resolution);
        if (! file) {
            break;
        }
        if (file->getFileMode() == FileMode::Read) {
            ScriptErrorLog::report("file not opened for writing");
            break;
        }
        NodePtr outputNode = resolution.getArgument(1);
        SANITY_CHECK(outputNode);
        FILE* stdFile = file->getFile();
        SANITY_CHECK(stdFile);
        const std::string text = textOf(outputNode);
        // Flushed at once: a script that reads the file next sees what it wrote.
        VERIFY(fwrite(text.data(), 1, text.size(), stdFile) == text.size() && fflush(stdFile) == 0);
        SANITY_CHECK(retVal->set(true));
    } while (false);
    return retVal;
}

// ---- whole files ----

NodePtr OMExpressionLValueToken::ftn_fileExists(AccessType, const ScopePtr& scope,
                                                OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! resolution.hasArguments(1)) {
            break;
        }
        const std::string path = resolvedPath(scope, resolution);
        SANITY_CHECK(retVal->set(Dirs::fileExists(path, TrailingPathCharHandling::Ignore)));
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_dirExists(AccessType, const ScopePtr& scope,
                                               OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! resolution.hasArguments(1)) {
            break;
        }
        const std::string path = resolvedPath(scope, resolution);
        SANITY_CHECK(retVal->set(Dirs::dirExists(path, TrailingPathCharHandling::Ignore)));
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_readFile(AccessType, const ScopePtr& scope,
                                              OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! resolution.hasArguments(1)) {
            break;
        }
        const std::string path = resolvedPath(scope, resolution);
        LOG_NOTE_F("reading %s", path.c_str());
        std::string text;
        const FileReadResult readResult = Dirs::readFile(path, text, ScriptLimits::fTextBytes);
        if (readResult == FileReadResult::TOO_LARGE) {
            // Too long to be a text: the script gets the error of the limit, and nothing is read.
            ScriptErrorLog::report(ScriptLimits::textTooLongMessage());
            SANITY_CHECK(retVal->setError());
        } else if (readResult == FileReadResult::READ) {
            SANITY_CHECK(retVal->set(text));
        }
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_writeFile(AccessType, const ScopePtr& scope,
                                               OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! resolution.hasArguments(2)) {
            break;
        }
        NodePtr valueNode = resolution.getArgument(1);
        SANITY_CHECK(valueNode);
        const std::string text = textOf(valueNode);
        FILE* file = fopen(resolvedPath(scope, resolution).c_str(), "we");
        bool isWritten = false;
        if (file != nullptr) {
            isWritten = fwrite(text.data(), 1, text.size(), file) == text.size();
            isWritten = fclose(file) == 0 && isWritten;
        }
        SANITY_CHECK(retVal->set(isWritten));
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_fileSystem(AccessType, const ScopePtr& scope,
                                                OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! resolution.hasArguments(1)) {
            break;
        }
        std::shared_ptr<OMFileSystem> fileSystem =
            OMFileSystem::factoryFromFilePath(resolvedPath(scope, resolution));
        SANITY_CHECK(fileSystem);
        retVal = fileSystem;
    } while (false);
    return retVal;
}

// ---- paths ----

NodePtr OMExpressionLValueToken::ftn_parentPath(AccessType, const ScopePtr&,
                                                OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! resolution.hasArguments(1)) {
            break;
        }
        NodePtr thisNode = resolution.getArgument(0);
        SANITY_CHECK(thisNode);
        SANITY_CHECK(retVal->set(Dirs::getParentPath(textOf(thisNode), Dirs::ANY_SEPARATOR)));
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_pathSegmentFromLeft(AccessType, const ScopePtr&,
                                                         OMExpressionLValueResolution& resolution) {
    return pathSegment(resolution, true);
}

NodePtr OMExpressionLValueToken::ftn_pathSegmentFromRight(AccessType, const ScopePtr&,
                                                          OMExpressionLValueResolution& resolution) {
    return pathSegment(resolution, false);
}

} // namespace Brw
