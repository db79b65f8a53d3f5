#pragma once

#include <cstdint>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "BrwParser/BrwOMContainerRegistry.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

class GUIDClass;
class IOMNode;
class OMExpression;
class OMScope;
class OMStored;
class Task;

// The fourteen kinds of value. The numbers are design: values of different kinds order by them.
enum class OMType : int32_t {
    Undefined = 1,
    Null = 2,
    Bool = 3,
    Date = 4,
    Int = 5,
    Float = 6,
    String = 7,
    Array = 8,
    Map = 9,
    Expression = 10,
    Error = 11,
    Function = 12,
    NaN = 13,
    GUID = 14,
};

using OMInt = int64_t;
using OMFloat = double;
// The call arguments of a function-style access; usually empty.
using OMArgs = std::shared_ptr<std::vector<std::shared_ptr<IOMNode>>>;

enum AccessType : int32_t {
    GET = 1,        // read; never changes the tree
    SET = 2,        // create the path as needed; the last element receives a value
    GET_CREATE = 3, // create the path as needed and return the last element
};

enum ReferenceType : int32_t {
    OM_REF_SELECTOR_FIRST_MATCH = 0,
    OM_REF_SELECTOR_SINGLE_ELEMENT_OR_ARRAY = 1,
    OM_REF_SELECTOR_ARRAY = 2,
};

enum ScriptPhase : int32_t {
    PARSE = 0, // constant folding while the tree is built: no effects
    RUN = 1,   // the real evaluation
};

enum HandleReturnValue : int32_t {
    UNWRAP_RETURN_VALUE = 0, // a wrapped return value stops at this level
    KEEP_RETURN_VALUE = 1,   // it travels on to the enclosing function
    LEAVE_RETURN_VALUE = 2,  // the result is left as it is
};

enum NodeReuse : int32_t {
    KEEP_NODE = 0,  // the operand must stay untouched
    REUSE_NODE = 1, // nothing else refers to the operand: it may become the result
};

enum FunctionPhase : int32_t {
    FUNCTION_PHASE_NONE = 0,
    FUNCTION_PHASE_IGNORE = 1,
    FUNCTION_PHASE_PROCESS = 2
};

enum BinOp : int32_t {
    BINOP_NONE = 0,
    INDEX = 2,
    MULTIPLY = 3,
    DIVIDE = 4,
    MODULO = 5,
    ADD = 6,
    SUBTRACT = 7,
    SHIFT_LEFT = 8,
    SHIFT_RIGHT = 9,
    COMPARE_LT = 10,
    COMPARE_LE = 11,
    COMPARE_GT = 12,
    COMPARE_GE = 13,
    COMPARE_EQ = 14,
    COMPARE_IDENTICAL = 15,
    COMPARE_NOT_IDENTICAL = 16,
    COMPARE_NE = 17,
    BIT_AND = 18,
    BIT_XOR = 19,
    BIT_OR = 20,
    BOOL_AND = 21,
    BOOL_OR = 22,
    ASSIGN = 24,
    COMMA = 25,
    SEMICOLON = 26,
    WHILE = 28,
    DO_WHILE = 29,
};

enum UnOp : int32_t {
    UNOP_NONE = 0,
    PRE_DECREMENT = 2,
    PRE_INCREMENT = 3,
    POST_DECREMENT = 4,
    POST_INCREMENT = 5,
    NEGATIVE = 6,
    POSITIVE = 7,
    BOOL_NOT = 8,
    BIT_NOT = 9,
    TYPEOF = 10,
    RETURN = 11,
};

enum TernOp : int32_t { TERNOP_NONE = 0, CONDITIONAL = 2, IF = 3 };

// An input iterator over the children of one node; it doesn't own them.
class IOMNodeIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = IOMNode;
    using difference_type = std::ptrdiff_t;
    using pointer = IOMNode*;
    using reference = IOMNode&;

    virtual ~IOMNodeIterator() = default;
    virtual bool isAtEnd() const = 0;
    // Index of the current child; all ones in a map.
    virtual uint64_t getIdx() const = 0;
    // Decimal index in an array, attribute name in a map.
    virtual std::string getKey() const = 0;
    virtual IOMNodeIterator& operator++() = 0;
    virtual std::shared_ptr<IOMNode> operator*() const = 0;
};

// A function's parameter list (its name first, empty when anonymous) and its local variables.
class FunctionSignature {
public:
    virtual ~FunctionSignature() = default;
    [[nodiscard]] virtual bool addLocalVariable(const std::string& localVariable);
    [[nodiscard]] virtual bool addParameter(const std::string& parameter);
    virtual const std::vector<std::string>& getParameterList() const { return fParameterList; }
    virtual const std::set<std::string>& getLocalVariables() const { return fLocalVariables; }

private:
    std::vector<std::string> fParameterList; // the function's name, then its parameters
    std::set<std::string> fLocalVariables;   // names made local by `var` or found by the parser
};

// Every value a script can hold, name or reach. Operations that may run a script or wait are `_yielding`;
// the synchronous companions run them to completion in a small task.
class IOMNode : public std::enable_shared_from_this<IOMNode> {
public:
    using NodePtr = std::shared_ptr<IOMNode>;
    using ScopePtr = std::shared_ptr<OMScope>;
    using TaskPtr = std::shared_ptr<Task>;

    virtual ~IOMNode() = default;

    virtual bool accessOMNodeResolved(const ScopePtr& scope, const OMArgs& args, AccessType accessType,
                                      const std::string& attr, NodePtr& out) = 0;
    virtual bool accessOMNodeResolved(const ScopePtr& scope, const OMArgs& args, AccessType accessType,
                                      uint64_t idx, NodePtr& out) = 0;
    virtual void accessOMNodeResolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                               const OMArgs& args, AccessType accessType,
                                               const std::string& attr, NodePtr& out) = 0;
    virtual void accessOMNodeResolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                               const OMArgs& args, AccessType accessType, uint64_t idx,
                                               NodePtr& out) = 0;
    virtual void accessOMNodeUnresolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                                 const OMArgs& args, AccessType accessType,
                                                 const std::string& attr, NodePtr& out) = 0;
    virtual void accessOMNodeUnresolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                                 const OMArgs& args, AccessType accessType, uint64_t idx,
                                                 NodePtr& out) = 0;
    virtual bool accessOMNodeReadOnlyResolved(const ScopePtr& scope, const OMArgs& args, uint64_t idx,
                                              NodePtr& out) const = 0;
    virtual bool accessOMNodeReadOnlyResolved(const ScopePtr& scope, const OMArgs& args,
                                              const std::string& attr, NodePtr& out) const = 0;
    virtual void accessOMNodeReadOnlyResolved_yielding(const TaskPtr& task, bool& found,
                                                       const ScopePtr& scope, const OMArgs& args,
                                                       uint64_t idx, NodePtr& out) const = 0;
    virtual void accessOMNodeReadOnlyResolved_yielding(const TaskPtr& task, bool& found,
                                                       const ScopePtr& scope, const OMArgs& args,
                                                       const std::string& attr, NodePtr& out) const = 0;
    virtual void accessOMNodeReadOnlyUnresolved_yielding(const TaskPtr& task, bool& found,
                                                         const ScopePtr& scope, const OMArgs& args,
                                                         const std::string& attr, NodePtr& out) const = 0;
    virtual void accessOMNodeReadOnlyUnresolved_yielding(const TaskPtr& task, bool& found,
                                                         const ScopePtr& scope, const OMArgs& args,
                                                         uint64_t idx, NodePtr& out) const = 0;
    virtual bool isMapEnd(const OMMap::const_iterator& iterator) const = 0;
    virtual bool isArrayEnd(const OMArray::const_iterator& iterator) const = 0;
    virtual bool clear() = 0;
    // A new node with the same value; `cloneNestLevel` container levels are copied, all ones for all.
    virtual NodePtr clone(uint64_t cloneNestLevel) const = 0;
    virtual bool cmpOp_EQ(IOMNode& other, NodeReuse reuse) = 0;
    virtual bool cmpOp_GT(IOMNode& other, NodeReuse reuse) = 0;
    virtual bool cmpOp_LT(IOMNode& other, NodeReuse reuse) = 0;
    virtual bool cmpOp_NE(IOMNode& other, NodeReuse reuse) = 0;
    virtual bool containsIdx(uint64_t idx) const = 0;
    virtual bool containsAttr(const std::string& attr) const = 0;
    virtual bool removeAttr(const std::string& attr) = 0;
    virtual bool removeIdx(uint64_t idx) = 0;
    virtual void eval_yielding(const TaskPtr& task, NodePtr& out, const ScopePtr& scope,
                               HandleReturnValue handleReturnValue) = 0;
    virtual int64_t getAsBits() const = 0;
    virtual bool getAsBool() const = 0;
    virtual std::string getAsIdentifier() const = 0;
    virtual double getAsNum() const = 0;
    virtual std::string getAsString() const = 0;
    virtual bool getBool() const = 0;
    virtual NodePtr getDataStructureParent() const = 0;
    virtual uint64_t getDataStructureIdx() const = 0;
    virtual std::string getDataStructureKey() const = 0;
    virtual OMInt getDate() const = 0;
    virtual OMFloat getFloat() const = 0;
    virtual std::shared_ptr<OMExpression> getExpression() const = 0;
    virtual std::string getFunctionName() const = 0;
    virtual std::shared_ptr<FunctionSignature> getFunctionSignature() const = 0;
    virtual GUIDClass* getGUID() const = 0;
    virtual OMInt getInt() const = 0;
    // Attribute names of a map in byte order; empty otherwise.
    virtual std::vector<std::string> getKeys() const = 0;
    virtual std::shared_ptr<IOMNodeIterator> getIterator() const = 0;
    // A child, or a fresh Error node when there is none: never null.
    virtual NodePtr getOMNode(const std::string& attr) const = 0;
    virtual NodePtr getOMNode(uint64_t idx) const = 0;
    virtual std::shared_ptr<OMStored> getOMStoredPtr() = 0;
    // This node as a stored value, or null: the cheap test, without a dynamic cast.
    virtual const OMStored* getOMStoredRaw() const { return nullptr; }
    // The path from the root of the data structure: "/other/val5/1".
    virtual std::string getSelector() const = 0;
    virtual uint64_t getSize() const = 0;
    virtual std::string getString() const = 0;
    virtual OMType getType(const std::string& attr) const = 0;
    virtual OMType getType(uint64_t idx) const = 0;
    virtual OMType getType() const = 0;
    virtual uint64_t hash() const = 0;
    virtual bool isDataStructure() const = 0;
    virtual bool isKeyword() const = 0;
    virtual bool isKeyword(int32_t token) const = 0;
    virtual bool isLValue() const = 0;
    virtual bool isResolved(ScriptPhase scriptPhase) const = 0;
    virtual bool isScalar() const = 0;
    virtual bool isReturnValue() const = 0;
    virtual NodePtr pop() = 0;
    virtual bool push(const NodePtr& node) = 0;
    // Value assignment; the result is this node, or null on failure.
    virtual NodePtr set(const NodePtr& from) = 0;
    virtual NodePtr set(const IOMNode& from) = 0;
    virtual bool set(const std::shared_ptr<FunctionSignature>& signature,
                     const std::shared_ptr<OMExpression>& expression) = 0;
    virtual bool set(const std::shared_ptr<OMExpression>& expression) = 0;
    virtual bool set(const std::shared_ptr<OMMap>& map) = 0;
    virtual bool set(const std::shared_ptr<OMArray>& array) = 0;
    virtual bool set(const char* str) = 0;
    virtual bool set(const std::string& str) = 0;
    virtual bool set(OMInt value) = 0;
    virtual bool set(OMFloat value) = 0;
    virtual bool set(bool value) = 0;
    virtual NodePtr setSync(uint64_t idx, const NodePtr& node) = 0;
    virtual NodePtr setSync(const std::string& attr, const NodePtr& node) = 0;
    virtual NodePtr setSyncToCloned(uint64_t idx, const NodePtr& node) = 0;
    virtual NodePtr setSyncToCloned(const std::string& attr, const NodePtr& node) = 0;
    virtual void set_yielding(const TaskPtr& task, NodePtr& out, uint64_t idx, const NodePtr& fromNode) = 0;
    virtual void set_yielding(const TaskPtr& task, NodePtr& out, const std::string& attr,
                              const NodePtr& fromNode) = 0;
    virtual void setAndAccess_yielding(const TaskPtr& task, bool& found, uint64_t idx, NodePtr& node) = 0;
    virtual void setAndAccess_yielding(const TaskPtr& task, bool& found, const std::string& attr,
                                       NodePtr& node) = 0;
    virtual void setAndAccess_yielding(const TaskPtr& task, bool& found, NodePtr& node) = 0;
    virtual bool setDataStructureParent(const NodePtr& parent, const std::string& key) = 0;
    virtual bool setDate(OMInt date) = 0;
    virtual bool setEmptyArray() = 0;
    virtual bool setEmptyMap() = 0;
    virtual bool setError() = 0;
    virtual bool setIsDataStructure(bool isDataStructure) = 0;
    virtual bool setNaN() = 0;
    virtual bool setNull() = 0;
    // NaN as NaN, a whole number as Int, anything else as Float.
    virtual bool setNum(double value) = 0;
    virtual bool setTo(const IOMNode& from, uint64_t cloneNestLevel) = 0;
    virtual bool setUndefined() = 0;
    virtual std::string toString() const = 0;
    virtual NodePtr unwrapReturnValue() = 0;
    virtual NodePtr wrapReturnValue() = 0;

    // Sugar over the typed setters, so that literals of other integer types don't go to bool.
    bool set(int value) { return set(static_cast<OMInt>(value)); }
};

} // namespace Brw
