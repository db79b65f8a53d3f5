#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "BrwParser/BrwIOMNode.h"

namespace Brw {

class MatchNode;

// The façade by which code outside the object model reads and writes a tree of nodes: typed getters and
// setters by index into an array, by reference path ("main/val1", "count()/*.*/$^.*v1.*$") and on the node
// itself, in synchronous and yielding forms. It spares its users tasks, access types, missing containers
// and the match nodes. A small value: copies share the node.
//
// A getter never fails: a missing child gives the zero of the type. A setter makes what is missing on the
// way and returns false when it can't. The synchronous forms run their operation to completion in place,
// so code that may have to wait for a message uses the yielding forms.
class OMAccessor {
public:
    using NodePtr = std::shared_ptr<IOMNode>;
    using ScopePtr = std::shared_ptr<OMScope>;
    using TaskPtr = std::shared_ptr<Task>;

    // An accessor on a fresh Undefined node.
    OMAccessor();
    // An accessor on `omNode`; an empty pointer gives a node-less accessor, which gets a node on its first
    // write.
    explicit OMAccessor(const NodePtr& omNode) : fOMNode(omNode) {}
    virtual ~OMAccessor() = default;
    OMAccessor(const OMAccessor&) = default;
    OMAccessor& operator=(const OMAccessor&) = default;

    // ---- access: `out` is the node found (an Array when a path finds several), and also the value
    // that a SET assigns ----
    virtual bool accessOMNode(AccessType accessType, uint64_t idx, NodePtr& out);
    virtual bool accessOMNode(AccessType accessType, const std::string& attr, NodePtr& out);
    virtual bool accessOMNode(AccessType accessType, const std::string& attr, NodePtr& out,
                              ReferenceType referenceType);
    virtual void accessOMNode_yielding(const TaskPtr& task, bool& found, AccessType accessType,
                                       const std::string& attr, NodePtr& out, ReferenceType referenceType);
    virtual void accessOMNode_yielding(const TaskPtr& task, bool& found, AccessType accessType, uint64_t idx,
                                       NodePtr& out);
    virtual void accessOMNode_yielding(const TaskPtr& task, bool& found, AccessType accessType,
                                       const std::string& attr, NodePtr& out);
    virtual bool accessOMNodeReadOnly(uint64_t idx, NodePtr& out) const;
    virtual bool accessOMNodeReadOnly(const std::string& attr, NodePtr& out) const;
    virtual bool accessOMNodeReadOnly(const std::string& attr, NodePtr& out,
                                      ReferenceType referenceType) const;
    virtual void accessOMNodeReadOnly_yielding(const TaskPtr& task, bool& found, const std::string& attr,
                                               NodePtr& out, ReferenceType referenceType) const;
    virtual void accessOMNodeReadOnly_yielding(const TaskPtr& task, bool& found, uint64_t idx,
                                               NodePtr& out) const;
    virtual void accessOMNodeReadOnly_yielding(const TaskPtr& task, bool& found, const std::string& attr,
                                               NodePtr& out) const;
    // Reads by path; an accessor without a node gets an empty map first.
    virtual void get_yielding(const TaskPtr& task, NodePtr& out, const std::string& attr,
                              ReferenceType referenceType);
    virtual NodePtr get(const std::string& attr, ReferenceType referenceType);

    // ---- getters: the zero of the type when the child is missing ----
    virtual OMInt getAsBits(uint64_t idx) const;
    virtual OMInt getAsBits(const std::string& attr) const;
    // -1 without a node.
    virtual OMInt getAsBits() const;
    virtual bool getAsBool(uint64_t idx) const;
    virtual bool getAsBool(const std::string& attr) const;
    virtual bool getAsBool() const;
    // NaN when missing.
    virtual double getAsNum(uint64_t idx) const;
    virtual double getAsNum(const std::string& attr) const;
    virtual double getAsNum() const;
    virtual std::string getAsString(uint64_t idx) const;
    virtual std::string getAsString(const std::string& attr) const;
    virtual std::string getAsString() const;
    virtual bool getBool(uint64_t idx) const;
    virtual bool getBool(const std::string& attr) const;
    virtual bool getBool() const;
    virtual OMInt getDate(uint64_t idx) const;
    virtual OMInt getDate(const std::string& attr) const;
    virtual OMInt getDate() const;
    virtual OMFloat getFloat(uint64_t idx) const;
    virtual OMFloat getFloat(const std::string& attr) const;
    virtual OMFloat getFloat() const;
    virtual GUIDClass* getGUID(uint64_t idx) const;
    virtual GUIDClass* getGUID(const std::string& attr) const;
    virtual GUIDClass* getGUID() const;
    virtual OMInt getInt(uint64_t idx) const;
    virtual OMInt getInt(const std::string& attr) const;
    virtual OMInt getInt() const;
    // The child itself, empty when missing; without an argument the accessor's node.
    virtual NodePtr getOMNode(uint64_t idx) const;
    virtual NodePtr getOMNode(const std::string& attr) const;
    virtual NodePtr getOMNode() const { return fOMNode; }
    // Attribute names of the map, sorted.
    virtual std::vector<std::string> getKeys() const;
    virtual std::string getString(uint64_t idx) const;
    virtual std::string getString(const std::string& attr) const;
    virtual std::string getString() const;
    virtual uint64_t getSize(uint64_t idx) const;
    virtual uint64_t getSize(const std::string& attr) const;
    virtual uint64_t getSize() const;
    // Undefined when missing.
    virtual OMType getType(uint64_t idx) const;
    virtual OMType getType(const std::string& attr) const;
    virtual OMType getType() const;
    virtual uint64_t hash() const;

    // ---- setters: by index (an array is made when there is none), by path (a map is made), and on the
    // node itself ----
    virtual bool set(uint64_t idx, const char* str);
    virtual bool set(const std::string& attr, const char* str);
    virtual bool set(const char* str);
    virtual bool set(uint64_t idx, const std::string& str);
    virtual bool set(const std::string& attr, const std::string& str);
    virtual bool set(const std::string& str);
    // The const node forms store a copy; the pointer forms store the node itself at an index, and give its
    // value to every match of a path.
    virtual bool set(uint64_t idx, const IOMNode& omNode);
    virtual bool set(uint64_t idx, const NodePtr& omNode);
    virtual bool set(const std::string& attr, const IOMNode& omNode);
    virtual bool set(const std::string& attr, const NodePtr& omNode);
    virtual bool set(const NodePtr& omNode);
    virtual bool set(uint64_t idx, OMFloat d);
    virtual bool set(const std::string& attr, OMFloat d);
    virtual bool set(OMFloat d);
    virtual bool set(uint64_t idx, OMInt i);
    virtual bool set(const std::string& attr, OMInt i);
    virtual bool set(OMInt i);
    virtual bool set(uint64_t idx, bool b);
    virtual bool set(const std::string& attr, bool b);
    virtual bool set(bool b);
    // Sugar, so that an int literal is an OMInt and not a bool.
    bool set(uint64_t idx, int i) { return set(idx, static_cast<OMInt>(i)); }
    bool set(const std::string& attr, int i) { return set(attr, static_cast<OMInt>(i)); }
    bool set(int i) { return set(static_cast<OMInt>(i)); }
    // Assigns `omNode` to every match of the path; afterwards `omNode` is the match, or an Array of them.
    virtual void set_yielding(const TaskPtr& task, bool& found, const std::string& attr, NodePtr& omNode);
    // The scope in which path functions run.
    virtual void setAccessorScope(const ScopePtr& scope) { fAccessorScope = scope; }
    virtual bool setEmptyArray(uint64_t idx);
    virtual bool setEmptyArray(const std::string& attr);
    virtual bool setEmptyArray();
    virtual bool setEmptyMap(uint64_t idx);
    virtual bool setEmptyMap(const std::string& attr);
    virtual bool setEmptyMap();
    virtual bool setError(uint64_t idx);
    virtual bool setError(const std::string& attr);
    virtual bool setError();
    virtual bool setNaN(uint64_t idx);
    virtual bool setNaN(const std::string& attr);
    virtual bool setNaN();
    virtual bool setNull(uint64_t idx);
    virtual bool setNull(const std::string& attr);
    virtual bool setNull();
    virtual bool setUndefined(uint64_t idx);
    virtual bool setUndefined(const std::string& attr);
    virtual bool setUndefined();

    // ---- text forms: a missing child prints as undefined ----
    // The exchange form, which parses back: {"key":value, "other":"text"}.
    virtual std::string stringify(uint64_t idx) const;
    virtual std::string stringify(const std::string& attr) const;
    virtual std::string stringify() const;
    // The short human form: { key: value,other: text }.
    virtual std::string toString(uint64_t idx) const;
    virtual std::string toString(const std::string& attr) const;
    virtual std::string toString() const;
    // The type as `typeof` names it.
    virtual std::string typeOf(uint64_t idx) const;
    virtual std::string typeOf(const std::string& attr) const;
    virtual std::string typeOf() const;

    // Deep equality of the nodes; a node-less accessor counts as Undefined.
    bool operator==(const OMAccessor& other) const;

    // ---- reference paths ----
    // Compiles a path into its chain of match nodes: the head, or null after logging why.
    static std::shared_ptr<MatchNode> parseReference(const std::string& reference);
    // Splits a path into its segments from `position` on: "other/val5[1]" gives other, val5, [1].
    static std::vector<std::string> parseReferenceSegments(const std::string& reference, size_t position);
    // Reads the level prefix of a regular-expression segment ($ ? * + or {min,max}) into `min` and `max`;
    // `regExpStr` is the rest.
    [[nodiscard]] static bool extractRegExpStr(const std::string& segmentRegExpStr, uint64_t& min,
                                               uint64_t& max, std::string& regExpStr);
    static std::string functionPhaseToStr(int32_t functionPhase);

    // The text forms of any node.
    // How stringify writes the text of strings and keys: bare, as the language prints it (a quote within
    // goes out as it is, and such text doesn't parse back), or escaped, so that any text travels.
    enum class StringForm { BARE, ESCAPED };
    static std::string stringifyNode(const IOMNode& omNode, StringForm stringForm = StringForm::BARE);
    static std::string toStringNode(const IOMNode& omNode);
    static std::string typeOfNode(const IOMNode& omNode);

private:
    // Runs a path over `root`: parse, mark the root a data structure for the time of the walk so that
    // nodes made on the way get parents, walk, read the matches into `omNode`.
    static void walkReference_yielding(const TaskPtr& task, bool& found, const NodePtr& root,
                                       const ScopePtr& scope, AccessType accessType, const std::string& attr,
                                       NodePtr& omNode, ReferenceType referenceType);
    // The node, made Undefined when there is none.
    [[nodiscard]] bool ensureNode();
    // The node for a getter on the node itself; logs when there is none.
    NodePtr ownNode() const;
    NodePtr readChild(uint64_t idx) const;
    NodePtr readChild(const std::string& attr) const;
    // The node, made an empty array when it is Undefined or Null.
    [[nodiscard]] bool ensureArray();
    // The element at `idx`, made (and the array with it) when missing; null when that can't be done.
    NodePtr childToSet(uint64_t idx);
    // Gives `value` to every match of the path, making what is missing.
    bool setByReference(const std::string& attr, const NodePtr& value);

    NodePtr fOMNode;         // the node; may be empty, and is then made on the first write
    ScopePtr fAccessorScope; // where path functions run; empty by default
};

} // namespace Brw
