#include "BrwParser/BrwFiles/BrwOMFileSystem.h"

#include "BrwLogger/BrwCheck.h"
#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwParser/BrwScriptLimits.h"
#include "BrwUtils/BrwDirs.h"

namespace Brw {

namespace {

// The types of the attributes, by OMFileSystem::Attribute. NOTE: "fileList" says Array, though its value
// is a map: code that cares reads the node.
constexpr OMType ATTRIBUTE_TYPES[OMFileSystem::ATTRIBUTE_COUNT] = {
    OMType::String, OMType::String, OMType::Bool,  OMType::Bool,
    OMType::Bool,   OMType::Int,    OMType::Array, OMType::String,
};

// What a node shows for an attribute it doesn't walk.
constexpr const char* ATTRIBUTE_NOT_SHOWN = "...";

} // namespace

OMFileSystem::OMFileSystem(const std::string& filePath)
    : fFilePath(Dirs::cleanupMixedSeparators(filePath, Dirs::PLATFORM_SEPARATOR)) {
    fIsDataStructure = true;
    ++fOMFileSystemCount;
}

OMFileSystem::~OMFileSystem() {
    --fOMFileSystemCount;
}

std::shared_ptr<OMFileSystem> OMFileSystem::factoryFromFilePath(const std::string& filePath) {
    return std::make_shared<OMFileSystem>(filePath);
}

const std::vector<std::string>& OMFileSystem::getAttributeNames() {
    static const std::vector<std::string> names = {"name",   "path",     "isDir",    "isFile",
                                                   "isPipe", "fileSize", "fileList", "contents"};
    return names;
}

OMType OMFileSystem::getType(const std::string& attr) const {
    const std::vector<std::string>& names = getAttributeNames();
    for (size_t attribute = 0; attribute < ATTRIBUTE_COUNT; ++attribute) {
        if (names[attribute] == attr) {
            return ATTRIBUTE_TYPES[attribute];
        }
    }
    return OMType::Undefined;
}

std::shared_ptr<IOMNodeIterator> OMFileSystem::getIterator() const {
    return std::make_shared<OMFileSystemIterator>(
        std::dynamic_pointer_cast<const OMFileSystem>(shared_from_this()));
}

void OMFileSystem::accessOMNodeReadOnlyResolved_yielding(const TaskPtr& task, bool& found,
                                                         const ScopePtr& scope, const OMArgs& args,
                                                         const std::string& attr, NodePtr& out) const {
    const std::vector<std::string>& names = getAttributeNames();
    for (size_t attribute = 0; attribute < ATTRIBUTE_COUNT; ++attribute) {
        if (names[attribute] == attr) {
            out = readAttribute(attribute);
            found = static_cast<bool>(out);
            if (! found) {
                out = OMStored::errorFactory();
            }
            return;
        }
    }
    OMNode::accessOMNodeReadOnlyResolved_yielding(task, found, scope, args, attr, out);
}

void OMFileSystem::accessOMNodeResolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                                 const OMArgs& args, AccessType accessType,
                                                 const std::string& attr, NodePtr& out) {
    found = false;
    do {
        if (accessType != GET) {
            // The view is read-only: nothing is written to the disk, nor made in the node.
            out = OMStored::errorFactory();
            break;
        }
        bool accessOMNodeResolvedSuccess = false;
        accessOMNodeReadOnlyResolved_yielding(task, accessOMNodeResolvedSuccess, scope, args, attr, out);
        SANITY_CHECK(accessOMNodeResolvedSuccess);
        found = true;
    } while (false);
}

IOMNode::NodePtr OMFileSystem::clone(uint64_t) const {
    return factoryFromFilePath(fFilePath);
}

std::string OMFileSystem::toString() const {
    std::string text = "{ ";
    const std::vector<std::string>& names = getAttributeNames();
    for (size_t attribute = 0; attribute < ATTRIBUTE_COUNT; ++attribute) {
        const bool isWalked = attribute == FILE_LIST || attribute == CONTENTS;
        const NodePtr value = isWalked ? nullptr : readAttribute(attribute);
        text += (attribute == 0 ? "\"" : ", \"") + names[attribute] +
                "\": " + (value ? value->toString() : ATTRIBUTE_NOT_SHOWN);
    }
    return text + " }";
}

uint64_t OMFileSystem::hash() const {
    return FNV1aHash::hashBytes(fFilePath, FNV1aHash::hashBytes(TYPENAME));
}

// ---- the attributes ----

IOMNode::NodePtr OMFileSystem::readAttribute(size_t attribute) const {
    if (attribute < ATTRIBUTE_COUNT && ! fAttributes[attribute]) {
        fAttributes[attribute] = readFromDisk(attribute);
    }
    return attribute < ATTRIBUTE_COUNT ? fAttributes[attribute] : nullptr;
}

IOMNode::NodePtr OMFileSystem::readFromDisk(size_t attribute) const {
    switch (attribute) {
    case NAME:
        return readName();
    case PATH:
        return readPath();
    case IS_DIR:
        return readIsDir();
    case IS_FILE:
        return readIsFile();
    case IS_PIPE:
        return readIsPipe();
    case FILE_SIZE:
        return readFileSize();
    case FILE_LIST:
        return readFileList();
    case CONTENTS:
        return readContents();
    default:
        return nullptr;
    }
}

IOMNode::NodePtr OMFileSystem::readName() const {
    NodePtr retVal;
    do {
        std::shared_ptr<OMStored> attrName = OMStored::undefinedFactory();
        SANITY_CHECK(attrName);
        SANITY_CHECK(attrName->set(Dirs::getPathSegmentFromRight(fFilePath, 0)));
        retVal = attrName;
    } while (false);
    return retVal;
}

IOMNode::NodePtr OMFileSystem::readPath() const {
    NodePtr retVal;
    do {
        std::shared_ptr<OMStored> attrPath = OMStored::undefinedFactory();
        SANITY_CHECK(attrPath);
        SANITY_CHECK(attrPath->set(fFilePath));
        retVal = attrPath;
    } while (false);
    return retVal;
}

IOMNode::NodePtr OMFileSystem::readIsDir() const {
    NodePtr retVal;
    do {
        std::shared_ptr<OMStored> attrIsDir = OMStored::undefinedFactory();
        SANITY_CHECK(attrIsDir);
        const bool isDir = Dirs::dirExists(fFilePath, TrailingPathCharHandling::Ignore);
        SANITY_CHECK(attrIsDir->set(isDir));
        retVal = attrIsDir;
    } while (false);
    return retVal;
}

IOMNode::NodePtr OMFileSystem::readIsFile() const {
    NodePtr retVal;
    do {
        std::shared_ptr<OMStored> attrIsFile = OMStored::undefinedFactory();
        SANITY_CHECK(attrIsFile);
        const bool isFile = Dirs::fileExists(fFilePath, TrailingPathCharHandling::Ignore);
        SANITY_CHECK(attrIsFile->set(isFile));
        retVal = attrIsFile;
    } while (false);
    return retVal;
}

IOMNode::NodePtr OMFileSystem::readIsPipe() const {
    NodePtr retVal;
    do {
        std::shared_ptr<OMStored> attrIsNamedPipe = OMStored::undefinedFactory();
        SANITY_CHECK(attrIsNamedPipe);
        const bool isNamedPipe = Dirs::pipeExists(fFilePath);
        SANITY_CHECK(attrIsNamedPipe->set(isNamedPipe));
        retVal = attrIsNamedPipe;
    } while (false);
    return retVal;
}

IOMNode::NodePtr OMFileSystem::readFileSize() const {
    NodePtr retVal;
    do {
        std::shared_ptr<OMStored> attrFileSize = OMStored::undefinedFactory();
        SANITY_CHECK(attrFileSize);
        // Anything but a plain file has no bytes of its own.
        const OMInt fileSize = std::max<OMInt>(0, Dirs::getFileSize(fFilePath));
        SANITY_CHECK(attrFileSize->set(fileSize));
        retVal = attrFileSize;
    } while (false);
    return retVal;
}

IOMNode::NodePtr OMFileSystem::readFileList() const {
    NodePtr retVal;
    do {
        std::shared_ptr<OMStored> attrFileList = OMStored::undefinedFactory();
        SANITY_CHECK(attrFileList);
        SANITY_CHECK(attrFileList->setEmptyMap());
        if (Dirs::dirExists(fFilePath, TrailingPathCharHandling::Ignore)) {
            // The entries are nodes of their own, read when they are asked for.
            auto entries = std::make_shared<OMMap>();
            const std::string folder = Dirs::addTrailingSeparator(fFilePath);
            for (const std::string& name : Dirs::scanDir(folder)) {
                (*entries)[name] = factoryFromFilePath(folder + name);
            }
            SANITY_CHECK(attrFileList->set(entries));
        }
        retVal = attrFileList;
    } while (false);
    return retVal;
}

IOMNode::NodePtr OMFileSystem::readContents() const {
    NodePtr retVal;
    do {
        if (! Dirs::fileExists(fFilePath, TrailingPathCharHandling::Ignore)) {
            break;
        }
        std::string inStr;
        const FileReadResult readResult = Dirs::readFile(fFilePath, inStr, ScriptLimits::fTextBytes);
        if (readResult == FileReadResult::TOO_LARGE) {
            // The script error of the limit, and the attribute stays unread.
            ScriptErrorLog::report(ScriptLimits::textTooLongMessage());
            break;
        }
        SANITY_CHECK(readResult == FileReadResult::READ);
        std::shared_ptr<OMStored> attrContents = OMStored::undefinedFactory();
        SANITY_CHECK(attrContents);
        SANITY_CHECK(attrContents->set(inStr));
        retVal = attrContents;
    } while (false);
    return retVal;
}

// ---- iterator ----

std::string OMFileSystemIterator::getKey() const {
    return isAtEnd() ? std::string() : OMFileSystem::getAttributeNames()[fPosition];
}

IOMNodeIterator& OMFileSystemIterator::operator++() {
    ++fPosition;
    return *this;
}

std::shared_ptr<IOMNode> OMFileSystemIterator::operator*() const {
    return isAtEnd() || ! fNode ? nullptr : fNode->getOMNode(getKey());
}

} // namespace Brw
