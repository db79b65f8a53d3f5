#pragma once

#include <memory>
#include <string>

#include "BrwParser/BrwIOMNode.h"

namespace Brw {

// The part of a node that doesn't depend on how the value is stored: conversions and text forms,
// operators, data-structure links, resolution against a scope and the default refusals.
class OMNode : public virtual IOMNode {
public:
    using IOMNode::getType;
    using IOMNode::set;

    // Operators: `this` is the left operand; each writes into `result` and is false only on an internal
    // fault.
    virtual bool binop_add(const NodePtr& result, IOMNode& other);
    virtual bool binop_bit_and(const NodePtr& result, IOMNode& other);
    virtual bool binop_bit_or(const NodePtr& result, IOMNode& other);
    virtual bool binop_bit_xor(const NodePtr& result, IOMNode& other);
    virtual bool binop_bool_and(const NodePtr& result, IOMNode& other);
    virtual bool binop_bool_or(const NodePtr& result, IOMNode& other);
    virtual bool binop_divide(const NodePtr& result, IOMNode& other);
    virtual bool binop_compare_identical(const NodePtr& result, IOMNode& other);
    virtual bool binop_compare_ne(const NodePtr& result, IOMNode& other);
    virtual bool binop_compare_not_identical(const NodePtr& result, IOMNode& other);
    virtual bool binop_compare_eq(const NodePtr& result, IOMNode& other);
    virtual bool binop_compare_gt(const NodePtr& result, IOMNode& other);
    virtual bool binop_compare_ge(const NodePtr& result, IOMNode& other);
    virtual bool binop_compare_lt(const NodePtr& result, IOMNode& other);
    virtual bool binop_compare_le(const NodePtr& result, IOMNode& other);
    virtual bool binop_index(const NodePtr& result, IOMNode& other);
    virtual bool binop_multiply(const NodePtr& result, IOMNode& other);
    virtual bool binop_subtract(const NodePtr& result, IOMNode& other);
    virtual bool unop_bit_not(const std::shared_ptr<OMStored>& result);
    virtual bool unop_bool_not(const std::shared_ptr<OMStored>& result);
    virtual bool unop_negative(const std::shared_ptr<OMStored>& result);
    virtual bool unop_positive(const std::shared_ptr<OMStored>& result);
    virtual bool unop_post_decrement(const std::shared_ptr<OMStored>& result);
    virtual bool unop_post_increment(const std::shared_ptr<OMStored>& result);
    virtual bool unop_pre_decrement(const std::shared_ptr<OMStored>& result);
    virtual bool unop_pre_increment(const std::shared_ptr<OMStored>& result);
    virtual bool unop_typeof(const std::shared_ptr<OMStored>& result);

    // IOMNode
    bool accessOMNodeResolved(const ScopePtr& scope, const OMArgs& args, AccessType accessType,
                              const std::string& attr, NodePtr& out) override;
    bool accessOMNodeResolved(const ScopePtr& scope, const OMArgs& args, AccessType accessType, uint64_t idx,
                              NodePtr& out) override;
    void accessOMNodeResolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                       const OMArgs& args, AccessType accessType, const std::string& attr,
                                       NodePtr& out) override;
    void accessOMNodeResolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                       const OMArgs& args, AccessType accessType, uint64_t idx,
                                       NodePtr& out) override;
    void accessOMNodeUnresolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                         const OMArgs& args, AccessType accessType, const std::string& attr,
                                         NodePtr& out) override;
    void accessOMNodeUnresolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                         const OMArgs& args, AccessType accessType, uint64_t idx,
                                         NodePtr& out) override;
    bool accessOMNodeReadOnlyResolved(const ScopePtr& scope, const OMArgs& args, uint64_t idx,
                                      NodePtr& out) const override;
    bool accessOMNodeReadOnlyResolved(const ScopePtr& scope, const OMArgs& args, const std::string& attr,
                                      NodePtr& out) const override;
    void accessOMNodeReadOnlyResolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                               const OMArgs& args, uint64_t idx, NodePtr& out) const override;
    void accessOMNodeReadOnlyResolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                               const OMArgs& args, const std::string& attr,
                                               NodePtr& out) const override;
    void accessOMNodeReadOnlyUnresolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                                 const OMArgs& args, const std::string& attr,
                                                 NodePtr& out) const override;
    void accessOMNodeReadOnlyUnresolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                                 const OMArgs& args, uint64_t idx,
                                                 NodePtr& out) const override;
    bool isMapEnd(const OMMap::const_iterator& iterator) const override;
    bool isArrayEnd(const OMArray::const_iterator& iterator) const override;
    bool clear() override;
    NodePtr clone(uint64_t cloneNestLevel) const override;
    bool cmpOp_EQ(IOMNode& other, NodeReuse reuse) override;
    bool cmpOp_GT(IOMNode& other, NodeReuse reuse) override;
    bool cmpOp_LT(IOMNode& other, NodeReuse reuse) override;
    bool cmpOp_NE(IOMNode& other, NodeReuse reuse) override;
    bool containsIdx(uint64_t idx) const override;
    bool containsAttr(const std::string& attr) const override;
    bool removeAttr(const std::string&) override { return false; }
    bool removeIdx(uint64_t) override { return false; }
    void eval_yielding(const TaskPtr& task, NodePtr& out, const ScopePtr& scope,
                       HandleReturnValue handleReturnValue) override;
    int64_t getAsBits() const override;
    bool getAsBool() const override;
    std::string getAsIdentifier() const override;
    double getAsNum() const override;
    std::string getAsString() const override;
    bool getBool() const override { return false; }
    NodePtr getDataStructureParent() const override { return fDataStructureParent.lock(); }
    uint64_t getDataStructureIdx() const override;
    std::string getDataStructureKey() const override;
    OMInt getDate() const override { return 0; }
    OMFloat getFloat() const override { return 0.0; }
    std::shared_ptr<OMExpression> getExpression() const override { return nullptr; }
    std::string getFunctionName() const override;
    std::shared_ptr<FunctionSignature> getFunctionSignature() const override { return nullptr; }
    GUIDClass* getGUID() const override;
    OMInt getInt() const override { return 0; }
    std::vector<std::string> getKeys() const override;
    std::shared_ptr<IOMNodeIterator> getIterator() const override { return nullptr; }
    NodePtr getOMNode(const std::string& attr) const override;
    NodePtr getOMNode(uint64_t idx) const override;
    std::shared_ptr<OMStored> getOMStoredPtr() override;
    std::string getSelector() const override;
    uint64_t getSize() const override { return 0; }
    std::string getString() const override { return std::string(); }
    OMType getType(const std::string& attr) const override;
    OMType getType(uint64_t idx) const override;
    uint64_t hash() const override;
    bool isDataStructure() const override { return fIsDataStructure; }
    bool isKeyword() const override;
    bool isKeyword(int32_t token) const override;
    bool isLValue() const override;
    bool isResolved(ScriptPhase scriptPhase) const override;
    bool isScalar() const override;
    bool isReturnValue() const override;
    NodePtr pop() override;
    bool push(const NodePtr&) override { return false; }
    NodePtr set(const NodePtr& from) override;
    NodePtr set(const IOMNode& from) override;
    bool set(const std::shared_ptr<FunctionSignature>&, const std::shared_ptr<OMExpression>&) override {
        return false;
    }
    bool set(const std::shared_ptr<OMExpression>&) override { return false; }
    bool set(const std::shared_ptr<OMMap>&) override { return false; }
    bool set(const std::shared_ptr<OMArray>&) override { return false; }
    bool set(const char*) override { return false; }
    bool set(const std::string&) override { return false; }
    bool set(OMInt) override { return false; }
    bool set(OMFloat) override { return false; }
    bool set(bool) override { return false; }
    NodePtr setSync(uint64_t idx, const NodePtr& node) override;
    NodePtr setSync(const std::string& attr, const NodePtr& node) override;
    NodePtr setSyncToCloned(uint64_t idx, const NodePtr& node) override;
    NodePtr setSyncToCloned(const std::string& attr, const NodePtr& node) override;
    void set_yielding(const TaskPtr& task, NodePtr& out, uint64_t idx, const NodePtr& fromNode) override;
    void set_yielding(const TaskPtr& task, NodePtr& out, const std::string& attr,
                      const NodePtr& fromNode) override;
    void setAndAccess_yielding(const TaskPtr& task, bool& found, uint64_t idx, NodePtr& node) override;
    void setAndAccess_yielding(const TaskPtr& task, bool& found, const std::string& attr,
                               NodePtr& node) override;
    void setAndAccess_yielding(const TaskPtr& task, bool& found, NodePtr& node) override;
    bool setDataStructureParent(const NodePtr& parent, const std::string& key) override;
    bool setDate(OMInt) override { return false; }
    bool setEmptyArray() override { return false; }
    bool setEmptyMap() override { return false; }
    bool setError() override { return false; }
    bool setIsDataStructure(bool isDataStructure) override;
    bool setNaN() override { return false; }
    bool setNull() override { return false; }
    bool setNum(double value) override;
    bool setTo(const IOMNode& from, uint64_t cloneNestLevel) override;
    bool setUndefined() override { return false; }
    std::string toString() const override;
    NodePtr unwrapReturnValue() override;
    NodePtr wrapReturnValue() override;

    // The operator dispatchers. A null operand or scope is a failed check and gives null.
    static NodePtr binaryOperation(BinOp op, const NodePtr& node1, NodeReuse reuse1, const NodePtr& node2,
                                   NodeReuse reuse2, const ScopePtr& scope);
    static NodePtr binaryOperation(BinOp op, IOMNode& node1, NodeReuse reuse1, IOMNode& node2,
                                   NodeReuse reuse2);
    static std::shared_ptr<OMStored> unaryOperation(UnOp op, const NodePtr& node, const ScopePtr& scope,
                                                    NodeReuse reuse);
    static std::shared_ptr<OMStored> unaryOperation(UnOp op, IOMNode& node, NodeReuse reuse);

    // The parser's way to build operations: the new expression is evaluated at once in an isolated scope,
    // and when that gives a final value the value stands in its place: constants fold as the tree grows.
    // `out` stays empty when the operation can't be built (an assignment to something not assignable).
    static void registerBinaryOperation_yielding(const TaskPtr& task, NodePtr& out, BinOp op,
                                                 const NodePtr& node1, const NodePtr& node2);
    static void registerUnaryOperation_yielding(const TaskPtr& task, NodePtr& out, UnOp op,
                                                const NodePtr& node);
    static void registerTernaryOperation_yielding(const TaskPtr& task, NodePtr& out, TernOp op,
                                                  const NodePtr& node1, const NodePtr& node2,
                                                  const NodePtr& node3);
    static void registerKeywordOperation_yielding(const TaskPtr& task, NodePtr& out, int32_t token);

    // Turns a node that may hold expressions into a value: containers are copied with their elements
    // resolved, a named function is defined in `scope`, an expression is evaluated.
    static void getResolvedNode_yielding(const TaskPtr& task, NodePtr& retVal, AccessType accessType,
                                         const NodePtr& node, const ScopePtr& scope, ScriptPhase scriptPhase,
                                         HandleReturnValue handleReturnValue);
    // Resolves each argument in order, left to right.
    static void resolveArgumentList_yielding(const TaskPtr& task, OMArgs& outList, AccessType accessType,
                                             const OMArgs& argList, bool& found, const ScopePtr& scope,
                                             ScriptPhase scriptPhase);

    // The text of a Float, "%f".
    static std::string floatToString(double value);
    // Whether `left + right` makes a text within the text limit, counted without copying a text: the
    // concatenation of `+` where either side is a text; true when neither is. Says nothing either way.
    static bool isSumWithinTextLimit(const IOMNode& left, const IOMNode& right);
    // The text of a Function: "function name(a, b){body}".
    static std::string functionToString(const IOMNode& node);

protected:
    bool fIsDataStructure = false;               // part of a tree with value semantics: exactly one parent
    std::string fDataStructureKey;               // the name under which the parent holds this node
    std::weak_ptr<IOMNode> fDataStructureParent; // the parent; empty for a root

private:
    // The negation of `comparison`, with two NaN giving true.
    bool negatedComparison(const NodePtr& result, IOMNode& other,
                           bool (OMNode::*comparison)(const NodePtr&, IOMNode&));
    // Evaluates a new expression node at parse time and gives the folded value, or the node itself.
    static void foldExpression_yielding(const TaskPtr& task, NodePtr& out,
                                        const std::shared_ptr<OMExpression>& expression);

    // The type of whatever `getOMNode` gives, Undefined for nothing.
    static OMType typeOfNode(const NodePtr& node) { return node ? node->getType() : OMType::Undefined; }
};

} // namespace Brw
