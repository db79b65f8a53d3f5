#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "BrwParser/BrwIOMNode.h"

namespace Brw {

class OMExpression;
class OMStored;

// A number, a truth value or an empty value, held without a node: what a quick function computes with. The
// operations give exactly what the operators of the language give on nodes of these types.
struct OMQuickValue {
    OMType fType = OMType::Undefined;
    union {
        OMInt fInt;
        OMFloat fFloat;
        bool fBool;
    };

    OMQuickValue() : fInt(0) {}
    // False when `node` holds a value of another type, or one that isn't final.
    static bool fromNode(const IOMNode& node, OMQuickValue& value);
    // A whole number in range is an Int, NaN is NaN, anything else a Float: as a node stores a number.
    static OMQuickValue fromNum(double number);
    static OMQuickValue fromInt(OMInt number);
    static OMQuickValue fromBool(bool truth);
    std::shared_ptr<OMStored> toNode() const;
    // Gives `node` this value; false when the node refuses.
    [[nodiscard]] bool storeInto(IOMNode& node) const;

    double asNum() const;
    bool asBool() const;
    int64_t asBits() const;

    // The operators that have a meaning on these types; false for the others.
    static bool binary(BinOp op, const OMQuickValue& left, const OMQuickValue& right, OMQuickValue& result);
    static bool unary(UnOp op, const OMQuickValue& operand, OMQuickValue& result);
};

// The body of a function that only reads, compiled once into a small tree over quick values, with its
// parameters in slots. Calls among such functions need no nodes, scopes or lookups of names by text, which
// is most of what a call costs otherwise. Anything the tree can't do with quick values (a text, a container,
// a function that isn't quick) abandons the whole call, which is harmless because nothing was written: the
// slower paths then make it from its start.
class OMQuickFunction {
public:
    // Null when the body uses anything beyond numbers, names, the operators, `?:`, `if`, `return`, blocks
    // and calls by name, or names "this" or "arguments".
    static std::shared_ptr<OMQuickFunction> compile(const FunctionSignature& signature, OMExpression& body);

    // A loop whose condition only reads and whose body makes plain writes to variables (assignments of what
    // only reads, increments, `if`), compiled the same way with every name it uses in a slot. Null when it
    // has anything else.
    static std::shared_ptr<OMQuickFunction> compileLoop(const std::shared_ptr<IOMNode>& condition,
                                                        const std::shared_ptr<IOMNode>& body);

    // Calls the function with `args` below `scope`, at `callDepth` script calls deep; false, with nothing
    // changed, when the call must be made another way.
    bool call(const std::shared_ptr<Task>& task, const std::shared_ptr<OMScope>& scope, const OMArgs& args,
              int64_t callDepth, std::shared_ptr<IOMNode>& out) const;
    // Runs iterations of such a loop in `scope`, whose condition was just found true: whole iterations,
    // each the body and then the condition, until the condition is false (true) or the slice is over or an
    // iteration can't be run quickly (false: the condition is true and the next body is due). The variables
    // it writes live in slots meanwhile: only variables of the scope's own that nothing else holds.
    bool runLoop(const std::shared_ptr<Task>& task, const std::shared_ptr<OMScope>& scope,
                 int64_t callDepth) const;

private:
    enum class Code : uint8_t {
        CONSTANT,
        LOCAL,
        FREE,
        CALL,
        UNARY,
        BINARY,
        CHAIN,
        BLOCK,
        CHOICE,
        RETURN,
        STORE,
        STEP
    };
    enum Flow : uint8_t { VALUE, RETURNED, ABANDONED };
    static constexpr size_t MAX_SLOTS = 8;

    struct Op {
        Code fCode = Code::CONSTANT;
        int32_t fOperator = 0;             // the BinOp or UnOp
        uint32_t fFirst = 0;               // first operand; for lists, the first index into fLists
        uint32_t fSecond = 0;              // second operand; for lists, their count
        uint32_t fThird = 0;               // the branch not taken when the condition is false
        int32_t fSlot = -1;                // a parameter's slot, or the interned name
        OMQuickValue fConstant;            // the value of a constant
        std::string fName;                 // a free name or the callee's name
        mutable uint64_t fCacheRun = 0;    // the outermost call that filled the cache
        mutable OMQuickValue fCachedValue; // a free name's value in the caller's scope
        mutable const OMQuickFunction* fCachedCallee = nullptr; // a callee found there
    };
    struct Run;
    struct Frame;

    // Adds the op of `node` (a value or an expression); false when it has none. Writes and returns may only
    // be statements.
    bool compileNode(const std::shared_ptr<IOMNode>& node, bool isStatement, uint32_t& index);
    bool compileExpression(OMExpression& expression, bool isStatement, uint32_t& index);
    bool compileName(class OMExpressionLValueStr& name, uint32_t& index);
    bool compileWrite(OMExpression& expression, uint32_t& index);
    bool compileList(Code code, int32_t op, const std::vector<std::shared_ptr<IOMNode>>& nodes,
                     bool isStatement, uint32_t& index);
    // No call names a slot: its value is plain, and calling a plain value gives the value (the long way).
    bool isEveryCalleeFree() const;
    uint32_t add(Op&& op);
    // The slot of a name among the parameters and locals; the last one wins, as binding overwrites.
    int32_t findSlot(int32_t nameId) const;
    // A loop's slot for a name, made on first use.
    int32_t loopSlot(const std::string& name);
    // Reads a loop's variables into slots; false when one is missing or can't live in a slot.
    bool loadLoopSlots(const std::shared_ptr<OMScope>& scope, std::vector<std::shared_ptr<IOMNode>>& written,
                       std::vector<OMQuickValue>& slots) const;

    Flow eval(uint32_t index, const Frame& frame, OMQuickValue& out) const;
    Flow evalStep(const Op& op, const Frame& frame, OMQuickValue& out) const;
    Flow evalFree(const Op& op, const Frame& frame, OMQuickValue& out) const;
    Flow evalCall(const Op& op, const Frame& frame, OMQuickValue& out) const;
    // The callee of a call by name: a caller's parameter of that name is a plain value, which abandons.
    const OMQuickFunction* findCallee(const Op& op, const Frame& frame) const;
    Flow invoke(Run& run, const Frame* caller, OMQuickValue* slots, OMQuickValue& out) const;

    std::vector<Op> fOps;                // the tree, children before parents
    std::vector<uint32_t> fLists;        // operands of calls, chains and blocks
    uint32_t fRoot = 0;                  // the body
    std::vector<int32_t> fSlotNames;     // interned names of the parameters, then the locals
    bool fIsLoop = false;                // every name has a slot, and writes are allowed
    uint32_t fCondition = 0;             // a loop's condition
    std::vector<std::string> fLoopNames; // a loop's names by slot
    std::vector<bool> fIsWritten;        // a loop's slots that it writes
    size_t fParameterCount = 0;          // how many slots the arguments fill
    uint64_t fNameMask = 0;              // a bit per slot name: a frame that can't have a name is skipped
    mutable uint64_t fAbandonCount = 0;  // calls abandoned, and calls done: a function that keeps
    mutable uint64_t fDoneCount = 0;     // abandoning isn't tried any more
};

} // namespace Brw
