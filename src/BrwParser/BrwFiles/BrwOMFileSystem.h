#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "BrwParser/BrwOMNode.h"

namespace Brw {

// A read-only view of one path on disk as a map of eight attributes, for scripts and reference paths:
// "fileList" holds a further node for each entry of a folder, so a tree comes into being one level at a
// time, as far as it is asked for. Nothing is read before an attribute is asked for, and an attribute
// once read is kept for the node's life: a new node sees the disk as it is now.
class OMFileSystem : public virtual OMNode {
public:
    static constexpr const char* TYPENAME = "OMFileSystem";
    // The attributes, in the order of getKeys and of iteration.
    enum Attribute : size_t {
        NAME,
        PATH,
        IS_DIR,
        IS_FILE,
        IS_PIPE,
        FILE_SIZE,
        FILE_LIST,
        CONTENTS,
        ATTRIBUTE_COUNT
    };

    // Use factoryFromFilePath.
    explicit OMFileSystem(const std::string& filePath);
    ~OMFileSystem() override;
    OMFileSystem(const OMFileSystem&) = delete;
    OMFileSystem& operator=(const OMFileSystem&) = delete;

    // A node for the path, which need not exist; its separators become the platform's.
    static std::shared_ptr<OMFileSystem> factoryFromFilePath(const std::string& filePath);
    // Nodes alive now: a run that ends where it began left none behind.
    static int64_t getOMFileSystemCount() { return fOMFileSystemCount; }
    // The attribute names, made once for all nodes.
    static const std::vector<std::string>& getAttributeNames();

    const std::string& getFilePath() const { return fFilePath; }

    using OMNode::accessOMNodeReadOnlyResolved_yielding;
    using OMNode::accessOMNodeResolved_yielding;
    using OMNode::getType;
    // A map, so that reference paths descend into it.
    OMType getType() const override { return OMType::Map; }
    // From the table of attributes alone, without the disk; Undefined for any other name.
    OMType getType(const std::string& attr) const override;
    std::vector<std::string> getKeys() const override { return getAttributeNames(); }
    uint64_t getSize() const override { return ATTRIBUTE_COUNT; }
    std::shared_ptr<IOMNodeIterator> getIterator() const override;
    // Reads the attribute, from the cache or from the disk.
    void accessOMNodeReadOnlyResolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                               const OMArgs& args, const std::string& attr,
                                               NodePtr& out) const override;
    // Reading as above; writing changes nothing.
    void accessOMNodeResolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                       const OMArgs& args, AccessType accessType, const std::string& attr,
                                       NodePtr& out) override;
    // A new node on the same path.
    NodePtr clone(uint64_t cloneNestLevel) const override;
    // NOTE: the attributes that are read already; "fileList" and "contents" show as "...", since printing
    // a folder must not read the disk below it.
    std::string toString() const override;
    // Of the path: hashing must not walk the disk either.
    uint64_t hash() const override;

private:
    // The attribute's node, read and kept on the first request; null when it has none (the contents of
    // anything but a plain file) or can't be made.
    NodePtr readAttribute(size_t attribute) const;
    // The attribute's node made from the disk.
    NodePtr readFromDisk(size_t attribute) const;
    NodePtr readName() const;
    NodePtr readPath() const;
    NodePtr readIsDir() const;
    NodePtr readIsFile() const;
    NodePtr readIsPipe() const;
    NodePtr readFileSize() const;
    NodePtr readFileList() const;
    NodePtr readContents() const;

    std::string fFilePath;                        // the path, with the platform's separators
    mutable NodePtr fAttributes[ATTRIBUTE_COUNT]; // the attributes read so far, by Attribute

    static inline int64_t fOMFileSystemCount = 0; // nodes alive now
};

// Walks the attributes of one node in their order; the index is all ones, as in any map.
class OMFileSystemIterator : public IOMNodeIterator {
public:
    explicit OMFileSystemIterator(std::shared_ptr<const OMFileSystem> node) : fNode(std::move(node)) {}

    bool isAtEnd() const override { return fPosition >= OMFileSystem::ATTRIBUTE_COUNT; }
    uint64_t getIdx() const override { return UINT64_MAX; }
    std::string getKey() const override;
    IOMNodeIterator& operator++() override;
    std::shared_ptr<IOMNode> operator*() const override;

private:
    std::shared_ptr<const OMFileSystem> fNode; // the node walked
    size_t fPosition = 0;                      // the attribute reached
};

} // namespace Brw
