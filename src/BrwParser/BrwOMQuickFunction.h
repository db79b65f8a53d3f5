#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "BrwParser/BrwIOMNode.h"
#include "BrwParser/BrwOMQuickValue.h"

namespace Brw {

class OMExpression;

// Quick code: a function body that only reads, or a loop, compiled once into a small tree over quick values
// with its names in slots. Calls among such functions need no nodes, scopes or lookups of names by text, and
// a loop's iterations keep its variables in slots; that is most of what they cost otherwise. Anything the
// tree can't do (a value it can't hold, a function that isn't quick, a lookup that fails) abandons the
// call or the iteration before it has changed anything that anybody could see, and the slower paths then
// make it from its start.
class OMQuickFunction {
public:
    // Where a loop's quick run stopped, and where the long way goes on.
    enum LoopStop : uint8_t {
        LOOP_FINISHED,     // the condition is false
        LOOP_AT_BODY,      // the condition is true, and the body is due
        LOOP_AT_STATEMENT, // the body is due from one of its statements on
        LOOP_AT_CONDITION, // the body ran, and the condition is due
    };

    // Null when the body uses anything beyond values, names, the operators, `?:`, `if`, `return`, blocks,
    // elements and members read (`a[i]`, `a[2]`, `a.name`) and calls by name, or names "this" or
    // "arguments".
    static std::shared_ptr<OMQuickFunction> compile(const FunctionSignature& signature, OMExpression& body);
    // A loop whose condition only reads and whose body writes numbers to variables (assignments, increments)
    // and values to elements of containers in variables (`m[k] = v`, only as the last act of a statement
    // of its own); null when it has anything else.
    static std::shared_ptr<OMQuickFunction> compileLoop(const std::shared_ptr<IOMNode>& condition,
                                                        const std::shared_ptr<IOMNode>& body);

    // Calls the function with `args` below `scope`, at `callDepth` script calls deep; false, with nothing
    // changed, when the call must be made another way.
    bool call(const std::shared_ptr<Task>& task, const std::shared_ptr<OMScope>& scope, const OMArgs& args,
              int64_t callDepth, std::shared_ptr<IOMNode>& out) const;
    // Runs iterations of such a loop in `scope`, whose condition was just found true, each the body and then
    // the condition, until the condition is false, the slice is over or something can't be done quickly;
    // `statementIndex` tells the statement of LOOP_AT_STATEMENT. The variables it writes live in slots
    // meanwhile: only variables of the scope's own that nothing else holds.
    LoopStop runLoop(const std::shared_ptr<Task>& task, const std::shared_ptr<OMScope>& scope,
                     int64_t callDepth, size_t& statementIndex) const;

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
        INDEX,
        STORE,
        STEP,
        STORE_ELEMENT,
    };
    // Where an expression stands: an operand gives a value; a statement may write; the last act of a
    // loop's statement may also write to an element, which can't be undone.
    enum class Place : uint8_t { OPERAND, STATEMENT, LAST_ACT };
    enum Flow : uint8_t { VALUE, RETURNED, ABANDONED };
    static constexpr size_t MAX_SLOTS = 8;

    struct Op {
        Code fCode = Code::CONSTANT;
        int32_t fOperator = 0;             // the BinOp or UnOp
        uint32_t fFirst = 0;               // first operand; for lists, the first index into fLists
        uint32_t fSecond = 0;              // second operand; for lists, their count
        uint32_t fThird = 0;               // the branch taken when the condition is false
        int32_t fSlot = -1;                // a slot, or the interned name
        OMQuickValue fConstant;            // the value of a constant
        std::string fName;                 // a free name or the callee's name
        mutable uint64_t fCacheRun = 0;    // the run that filled the cache
        mutable OMQuickValue fCachedValue; // a free name's value in the outermost scope
        mutable const OMQuickFunction* fCachedCallee = nullptr; // a callee found there
    };
    struct Run;
    struct Frame;

    // Adds the op of `node` (a value or an expression); false when it has none.
    bool compileNode(const std::shared_ptr<IOMNode>& node, Place place, uint32_t& index);
    bool compileExpression(OMExpression& expression, Place place, uint32_t& index);
    bool compileName(class OMExpressionLValueStr& name, uint32_t& index);
    // An element of `container` read by `key`: `a[i]`, `a[2]`, `a.name`.
    bool compileRead(const std::shared_ptr<IOMNode>& container, const std::shared_ptr<IOMNode>& key,
                     uint32_t& index);
    bool compileWrite(OMExpression& expression, Place place, uint32_t& index);
    bool compileList(Code code, int32_t op, const std::vector<std::shared_ptr<IOMNode>>& nodes, Place place,
                     uint32_t& index);
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
    // Copies the assigned slots of a loop, and puts them back: how an iteration is undone.
    void saveSlots(const Frame& frame, std::vector<OMQuickValue>& saved) const;
    void restoreSlots(const Frame& frame, const std::vector<OMQuickValue>& saved) const;
    // One iteration of a loop: false when it stopped, with `stop` and `statementIndex` set.
    bool runIteration(const Frame& frame, std::vector<OMQuickValue>& saved, LoopStop& stop,
                      size_t& statementIndex) const;

    Flow eval(uint32_t index, const Frame& frame, OMQuickValue& out) const;
    // The value of an operand, evaluated into `scratch` when it is neither a slot nor a constant; null when
    // abandoned. It stays valid until the next write to a slot.
    const OMQuickValue* operand(uint32_t index, const Frame& frame, OMQuickValue& scratch) const;
    Flow evalStep(const Op& op, const Frame& frame, OMQuickValue& out) const;
    Flow evalFree(const Op& op, const Frame& frame, OMQuickValue& out) const;
    Flow evalCall(const Op& op, const Frame& frame, OMQuickValue& out) const;
    Flow evalElement(const Op& op, const Frame& frame, OMQuickValue& out) const;
    Flow evalStoreElement(const Op& op, const Frame& frame, OMQuickValue& out) const;
    // The element `key` picks in `container`, read or made, as `a[i]` picks it.
    static bool accessElement(const Frame& frame, const OMQuickValue& container, const OMQuickValue& key,
                              AccessType accessType, std::shared_ptr<IOMNode>& element);
    // The slot of a caller's frame that has the name, as dynamic scoping finds it; null when none has.
    static const OMQuickValue* findInCallers(int32_t nameId, const Frame& frame);
    // Quick code whose values it mostly can't handle would pay for every attempt in vain.
    bool isWorthTrying() const { return fAbandonCount <= 8 || fAbandonCount <= fDoneCount; }
    // The callee of a call by name: a caller's parameter of that name is a plain value, which abandons.
    const OMQuickFunction* findCallee(const Op& op, const Frame& frame) const;
    Flow invoke(Run& run, const Frame* caller, OMQuickValue* slots, OMQuickValue& out) const;

    std::vector<Op> fOps;                 // the tree, children before parents
    std::vector<uint32_t> fLists;         // operands of calls, chains and blocks
    uint32_t fRoot = 0;                   // the body
    std::vector<int32_t> fSlotNames;      // interned names of the parameters, then the locals
    size_t fParameterCount = 0;           // how many slots the arguments fill
    uint64_t fNameMask = 0;               // a bit per slot name: a frame that can't have a name is skipped
    bool fIsLoop = false;                 // every name has a slot, and writes are allowed
    uint32_t fCondition = 0;              // a loop's condition
    std::vector<uint32_t> fStatements;    // a loop body's statements, where the long way can take over
    std::vector<std::string> fLoopNames;  // a loop's names by slot
    std::vector<bool> fIsWritten;         // a loop's slots that it assigns
    std::vector<uint32_t> fAssignedSlots; // the same as a list
    std::vector<bool> fIsElementWritten;  // a loop's slots whose container it writes to
    mutable uint64_t fAbandonCount = 0;   // runs abandoned, and runs done: quick code that keeps
    mutable uint64_t fDoneCount = 0;      // abandoning isn't tried any more
};

} // namespace Brw
