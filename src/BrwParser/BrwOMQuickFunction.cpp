#include "BrwParser/BrwOMQuickFunction.h"

#include <algorithm>
#include <memory>
#include <new>
#include <unordered_map>

#include "BrwLogger/BrwCheck.h"
#include "BrwParser/BrwOMExpressionBinary.h"
#include "BrwParser/BrwOMExpressionLValue.h"
#include "BrwParser/BrwOMExpressionSequence.h"
#include "BrwParser/BrwOMExpressionTernary.h"
#include "BrwParser/BrwOMExpressionUnary.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwTask.h"
#include "BrwUtils/BrwStackGuard.h"

namespace Brw {

namespace {

// Calls between two looks at the task's deadline.
constexpr uint32_t CALLS_PER_DEADLINE_CHECK = 1024;
// Iterations of a loop between two looks at the slice and the deadline.
constexpr uint32_t ITERATIONS_PER_YIELD_CHECK = 32;

// A small number for each name that quick code uses, so that frames compare names as numbers.
int32_t internName(const std::string& name) {
    static std::unordered_map<std::string, int32_t> names;
    const auto [position, isNew] = names.try_emplace(name, static_cast<int32_t>(names.size()));
    (void)isNew;
    return position->second;
}

uint64_t nameBit(int32_t nameId) {
    return uint64_t(1) << (static_cast<uint32_t>(nameId) & 63U);
}

// Tells the lookups cached in one run from those of older runs.
uint64_t nextRunId() {
    static uint64_t lastRunId = 0;
    return ++lastRunId;
}

// An expression node's expression, of the type asked for; null for anything else.
template <class Expression>
Expression* expressionOf(const std::shared_ptr<IOMNode>& node) {
    return node && node->getType() == OMType::Expression
               ? dynamic_cast<Expression*>(node->getExpression().get())
               : nullptr;
}

// The slots of one call on the native stack: only as many values as the callee has are made and destroyed.
template <size_t CAPACITY>
class SlotArray {
public:
    explicit SlotArray(size_t count) : fCount(std::min(count, CAPACITY)) {
        std::uninitialized_default_construct_n(data(), fCount);
    }
    ~SlotArray() { std::destroy_n(data(), fCount); }
    SlotArray(const SlotArray&) = delete;
    SlotArray& operator=(const SlotArray&) = delete;
    OMQuickValue* data() { return std::launder(reinterpret_cast<OMQuickValue*>(fStorage)); }

private:
    alignas(OMQuickValue) unsigned char fStorage[CAPACITY * sizeof(OMQuickValue)]; // room for the values
    size_t fCount;                                                                 // values made
};

} // namespace

// What one outermost call, or one iteration of a loop, shares with every call it makes.
struct OMQuickFunction::Run {
    const std::shared_ptr<Task>& fTask;     // whose deadline ends the run
    const std::shared_ptr<OMScope>& fScope; // where names that no frame has are looked up
    uint64_t fId;                           // tells this run's cached lookups from older ones
    int64_t fDepth;                         // script calls nested now
    uint32_t fCallsUntilCheck;              // calls left until the deadline is looked at
    bool fHasWrittenElement;                // a loop's iteration changed a container: no way back
};

// One call: its function, its slots, and its callers, whose slots dynamic scoping reaches.
struct OMQuickFunction::Frame {
    const OMQuickFunction* fFunction; // what runs here
    const Frame* fCaller;             // null for the outermost call
    OMQuickValue* fSlots;             // parameters, then locals (a loop's variables)
    uint64_t fCallerNames;            // the name bits of every caller's frame
    Run* fRun;                        // shared by all the frames of one outermost call
};

// ---- compiling ----

std::shared_ptr<OMQuickFunction> OMQuickFunction::compile(const FunctionSignature& signature,
                                                          OMExpression& body) {
    const std::vector<std::string>& parameters = signature.getParameterList();
    const size_t parameterCount = parameters.empty() ? 0 : parameters.size() - 1; // the first is the name
    if (parameterCount + signature.getLocalVariables().size() > MAX_SLOTS) {
        return nullptr;
    }
    auto function = std::make_shared<OMQuickFunction>();
    function->fParameterCount = parameterCount;
    for (size_t index = 1; index < parameters.size(); ++index) {
        function->fSlotNames.push_back(internName(parameters[index]));
    }
    for (const std::string& local : signature.getLocalVariables()) {
        function->fSlotNames.push_back(internName(local));
    }
    for (const int32_t nameId : function->fSlotNames) {
        function->fNameMask |= nameBit(nameId);
    }
    if (! function->compileExpression(body, Place::STATEMENT, function->fRoot) ||
        ! function->isEveryCalleeFree()) {
        return nullptr;
    }
    return function;
}

std::shared_ptr<OMQuickFunction> OMQuickFunction::compileLoop(const std::shared_ptr<IOMNode>& condition,
                                                              const std::shared_ptr<IOMNode>& body) {
    auto loop = std::make_shared<OMQuickFunction>();
    loop->fIsLoop = true;
    if (! loop->compileNode(condition, Place::OPERAND, loop->fCondition)) {
        return nullptr;
    }
    // The long way can take over at each statement of a block, so each may end with an element write.
    auto* block = expressionOf<OMExpressionSequence>(body);
    if (block != nullptr && (block->getBinOp() == SEMICOLON || block->getBinOp() == COMMA) &&
        block->getNodeCount() > 0) {
        for (size_t position = 0; position < block->getNodeCount(); ++position) {
            uint32_t statement = 0;
            if (! loop->compileNode(block->getNode(position), Place::LAST_ACT, statement)) {
                return nullptr;
            }
            loop->fStatements.push_back(statement);
        }
    } else if (! loop->compileNode(body, Place::LAST_ACT, loop->fRoot)) {
        return nullptr;
    } else {
        loop->fStatements.push_back(loop->fRoot);
    }
    if (! loop->isEveryCalleeFree()) {
        return nullptr;
    }
    for (size_t slot = 0; slot < loop->fSlotNames.size(); ++slot) {
        // A container whose elements change is no number to assign.
        if (loop->fIsWritten[slot] && loop->fIsElementWritten[slot]) {
            return nullptr;
        }
        loop->fNameMask |= nameBit(loop->fSlotNames[slot]);
        if (loop->fIsWritten[slot]) {
            loop->fAssignedSlots.push_back(static_cast<uint32_t>(slot));
        }
    }
    return loop;
}

bool OMQuickFunction::compileNode(const std::shared_ptr<IOMNode>& node, Place place, uint32_t& index) {
    if (node && node->getType() == OMType::Expression) {
        // `return x` included: it is allowed where statements are.
        const std::shared_ptr<OMExpression> expression = node->getExpression();
        return expression && compileExpression(*expression, place, index);
    }
    if (! node || node->isReturnValue()) {
        return false;
    }
    Op op;
    op.fCode = Code::CONSTANT;
    // A literal container is copied when evaluated: the long way does that.
    if (! OMQuickValue::fromNode(node, op.fConstant) || op.fConstant.isContainer()) {
        return false;
    }
    index = add(std::move(op));
    return true;
}

bool OMQuickFunction::compileExpression(OMExpression& expression, Place place, uint32_t& index) {
    const bool isStatement = place != Place::OPERAND;
    Op op;
    auto* unary = dynamic_cast<OMExpressionUnary*>(&expression);
    auto* binary = dynamic_cast<OMExpressionBinary*>(&expression);
    if ((unary != nullptr && unary->isIncrementOrDecrement()) ||
        (binary != nullptr && binary->getBinOp() == ASSIGN)) {
        return fIsLoop && isStatement && compileWrite(expression, place, index);
    }
    if (auto* name = dynamic_cast<OMExpressionLValueStr*>(&expression)) {
        // `parent.name` reads the member as `parent["name"]` reads it.
        return name->getParent() && ! name->getArgumentList()
                   ? compileRead(name->getParent(), OMStored::factory(name->getName()), index)
                   : compileName(*name, index);
    }
    if (auto* element = dynamic_cast<OMExpressionLValueIndexByExpression*>(&expression)) {
        return ! element->getArgumentList() &&
               compileRead(element->getParent(), element->getIndexExpression(), index);
    }
    if (auto* fixed = dynamic_cast<OMExpressionLValueIndex*>(&expression)) {
        const auto position = static_cast<OMInt>(fixed->getIndex());
        return ! fixed->getArgumentList() && position >= 0 &&
               compileRead(fixed->getParent(), OMStored::factory(position), index);
    }
    if (unary != nullptr) {
        op.fCode = unary->getUnOp() == RETURN ? Code::RETURN : Code::UNARY;
        op.fOperator = unary->getUnOp();
        const bool isAllowed =
            op.fCode == Code::RETURN ? ! fIsLoop && isStatement : OMQuickValue::isQuickUnary(op.fOperator);
        if (! isAllowed || ! compileNode(unary->getOperand(), Place::OPERAND, op.fFirst)) {
            return false;
        }
    } else if (binary != nullptr) {
        op.fCode = Code::BINARY;
        op.fOperator = binary->getBinOp();
        if (! OMQuickValue::isQuickBinary(op.fOperator) ||
            ! compileNode(binary->getNode1(), Place::OPERAND, op.fFirst) ||
            ! compileNode(binary->getNode2(), Place::OPERAND, op.fSecond)) {
            return false;
        }
    } else if (auto* sequence = dynamic_cast<OMExpressionSequence*>(&expression)) {
        const BinOp binOp = sequence->getBinOp();
        const bool isBlock = binOp == COMMA || binOp == SEMICOLON;
        std::vector<std::shared_ptr<IOMNode>> nodes;
        for (size_t position = 0; position < sequence->getNodeCount(); ++position) {
            nodes.push_back(sequence->getNode(position));
        }
        // A block is a statement list only where it stands as a statement.
        return (isBlock ? isStatement : OMQuickValue::isQuickBinary(binOp)) && ! nodes.empty() &&
               compileList(isBlock ? Code::BLOCK : Code::CHAIN, binOp, nodes,
                           isBlock ? place : Place::OPERAND, index);
    } else if (auto* ternary = dynamic_cast<OMExpressionTernary*>(&expression)) {
        op.fCode = Code::CHOICE;
        const TernOp ternOp = ternary->getTernOp();
        const Place branchPlace = ternOp == IF ? place : Place::OPERAND;
        if ((ternOp != CONDITIONAL && (ternOp != IF || ! isStatement)) ||
            ! compileNode(ternary->getNode1(), Place::OPERAND, op.fFirst) ||
            ! compileNode(ternary->getNode2(), branchPlace, op.fSecond) ||
            ! compileNode(ternary->getNode3(), branchPlace, op.fThird)) {
            return false;
        }
    } else {
        return false;
    }
    index = add(std::move(op));
    return true;
}

bool OMQuickFunction::compileName(OMExpressionLValueStr& name, uint32_t& index) {
    const std::string& identifier = name.getName();
    if (name.getParent() || identifier == "this" || identifier == "arguments") {
        return false;
    }
    if (name.getArgumentList()) {
        if (! compileList(Code::CALL, 0, *name.getArgumentList(), Place::OPERAND, index)) {
            return false;
        }
        fOps[index].fSlot = internName(identifier);
        fOps[index].fName = identifier;
        return true;
    }
    Op op;
    op.fSlot = fIsLoop ? loopSlot(identifier) : findSlot(internName(identifier));
    op.fCode = op.fSlot >= 0 ? Code::LOCAL : Code::FREE;
    if (op.fCode == Code::FREE) {
        op.fSlot = internName(identifier);
        op.fName = identifier;
    }
    index = add(std::move(op));
    return true;
}

bool OMQuickFunction::compileRead(const std::shared_ptr<IOMNode>& container,
                                  const std::shared_ptr<IOMNode>& key, uint32_t& index) {
    Op op;
    op.fCode = Code::INDEX;
    if (! compileNode(container, Place::OPERAND, op.fFirst) ||
        ! compileNode(key, Place::OPERAND, op.fSecond)) {
        return false;
    }
    index = add(std::move(op));
    return true;
}

bool OMQuickFunction::compileWrite(OMExpression& expression, Place place, uint32_t& index) {
    Op op;
    std::shared_ptr<IOMNode> target;
    if (auto* unary = dynamic_cast<OMExpressionUnary*>(&expression)) {
        op.fCode = Code::STEP;
        op.fOperator = unary->getUnOp();
        target = unary->getOperand();
    } else if (auto* binary = dynamic_cast<OMExpressionBinary*>(&expression)) {
        op.fCode = Code::STORE;
        target = binary->getNode1();
        if (! compileNode(binary->getNode2(), Place::OPERAND, op.fFirst)) {
            return false;
        }
    }
    OMExpressionLValueStr* name = expressionOf<OMExpressionLValueStr>(target);
    if (auto* element = expressionOf<OMExpressionLValueIndexByExpression>(target)) {
        // `name[key] = value`: once written, the element stays written, so nothing may follow.
        name = expressionOf<OMExpressionLValueStr>(element->getParent());
        if (op.fCode != Code::STORE || place != Place::LAST_ACT || element->getArgumentList() ||
            ! compileNode(element->getIndexExpression(), Place::OPERAND, op.fSecond)) {
            return false;
        }
        op.fCode = Code::STORE_ELEMENT;
    }
    if (name == nullptr || name->getParent() || name->getArgumentList()) {
        return false;
    }
    op.fSlot = loopSlot(name->getName());
    const auto slot = static_cast<size_t>(op.fSlot);
    (op.fCode == Code::STORE_ELEMENT ? fIsElementWritten : fIsWritten)[slot] = true;
    index = add(std::move(op));
    return true;
}

bool OMQuickFunction::compileList(Code code, int32_t op, const std::vector<std::shared_ptr<IOMNode>>& nodes,
                                  Place place, uint32_t& index) {
    std::vector<uint32_t> operands(nodes.size());
    for (size_t position = 0; position < nodes.size(); ++position) {
        // Only the last statement of a block may be the last act of the block.
        const Place nodePlace =
            place == Place::LAST_ACT && position + 1 < nodes.size() ? Place::STATEMENT : place;
        if (! compileNode(nodes[position], nodePlace, operands[position])) {
            return false;
        }
    }
    Op list;
    list.fCode = code;
    list.fOperator = op;
    list.fFirst = static_cast<uint32_t>(fLists.size());
    list.fSecond = static_cast<uint32_t>(operands.size());
    fLists.insert(fLists.end(), operands.begin(), operands.end());
    index = add(std::move(list));
    return true;
}

bool OMQuickFunction::isEveryCalleeFree() const {
    return std::none_of(fOps.begin(), fOps.end(),
                        [this](const Op& op) { return op.fCode == Code::CALL && findSlot(op.fSlot) >= 0; });
}

uint32_t OMQuickFunction::add(Op&& op) {
    fOps.push_back(std::move(op));
    return static_cast<uint32_t>(fOps.size() - 1);
}

int32_t OMQuickFunction::loopSlot(const std::string& name) {
    const int32_t nameId = internName(name);
    int32_t slot = findSlot(nameId);
    if (slot < 0) {
        slot = static_cast<int32_t>(fSlotNames.size());
        fSlotNames.push_back(nameId);
        fLoopNames.push_back(name);
        fIsWritten.push_back(false);
        fIsElementWritten.push_back(false);
    }
    return slot;
}

int32_t OMQuickFunction::findSlot(int32_t nameId) const {
    for (size_t slot = fSlotNames.size(); slot > 0; --slot) {
        if (fSlotNames[slot - 1] == nameId) {
            return static_cast<int32_t>(slot - 1);
        }
    }
    return -1;
}

// ---- calls ----

bool OMQuickFunction::call(const std::shared_ptr<Task>& task, const std::shared_ptr<OMScope>& scope,
                           const OMArgs& args, int64_t callDepth, std::shared_ptr<IOMNode>& out) const {
    if (! isWorthTrying()) {
        return false;
    }
    SlotArray<MAX_SLOTS> slots(fSlotNames.size());
    const size_t argumentCount = args ? std::min(args->size(), fParameterCount) : 0;
    for (size_t index = 0; index < argumentCount; ++index) {
        const std::shared_ptr<IOMNode>& argument = (*args)[index];
        if (! argument || ! OMQuickValue::fromNode(argument, slots.data()[index])) {
            ++fAbandonCount;
            return false;
        }
    }
    Run run{task, scope, nextRunId(), callDepth, CALLS_PER_DEADLINE_CHECK, false};
    OMQuickValue result;
    if (invoke(run, nullptr, slots.data(), result) == ABANDONED) {
        ++fAbandonCount;
        return false;
    }
    ++fDoneCount;
    out = result.toNode();
    return out != nullptr;
}

OMQuickFunction::Flow OMQuickFunction::invoke(Run& run, const Frame* caller, OMQuickValue* slots,
                                              OMQuickValue& out) const {
    if (run.fDepth >= ScriptLimits::fCallDepth || StackGuard::isNearlyExhausted()) {
        return ABANDONED;
    }
    if (--run.fCallsUntilCheck == 0) {
        run.fCallsUntilCheck = CALLS_PER_DEADLINE_CHECK;
        if (run.fTask->isPastDeadline()) {
            return ABANDONED;
        }
    }
    const Frame frame{this, caller, slots, caller ? caller->fCallerNames | caller->fFunction->fNameMask : 0,
                      &run};
    ++run.fDepth;
    const Flow flow = eval(fRoot, frame, out);
    --run.fDepth;
    return flow == ABANDONED ? ABANDONED : VALUE;
}

// ---- loops ----

OMQuickFunction::LoopStop OMQuickFunction::runLoop(const std::shared_ptr<Task>& task,
                                                   const std::shared_ptr<OMScope>& scope, int64_t callDepth,
                                                   size_t& statementIndex) const {
    if (! isWorthTrying()) {
        return LOOP_AT_BODY;
    }
    std::vector<std::shared_ptr<IOMNode>> written(fSlotNames.size());
    std::vector<OMQuickValue> slots(fSlotNames.size());
    if (! loadLoopSlots(scope, written, slots)) {
        ++fAbandonCount;
        return LOOP_AT_BODY;
    }
    std::vector<OMQuickValue> saved(fAssignedSlots.size());
    Run run{task, scope, 0, callDepth, CALLS_PER_DEADLINE_CHECK, false};
    const Frame frame{this, nullptr, slots.data(), 0, &run};
    LoopStop stop = LOOP_AT_BODY;
    uint32_t iterationCount = 0;
    while (runIteration(frame, saved, stop, statementIndex)) {
        ++iterationCount;
        if (iterationCount % ITERATIONS_PER_YIELD_CHECK == 0 && task->isYieldDue()) {
            break;
        }
    }
    bool allStored = true;
    for (size_t slot = 0; slot < written.size(); ++slot) {
        if (written[slot] && ! slots[slot].storeInto(*written[slot])) {
            allStored = false;
        }
    }
    ++(iterationCount > 0 || stop != LOOP_AT_BODY ? fDoneCount : fAbandonCount);
    (void)SANITY_CHECKED(allStored);
    return stop;
}

bool OMQuickFunction::runIteration(const Frame& frame, std::vector<OMQuickValue>& saved, LoopStop& stop,
                                   size_t& statementIndex) const {
    // Until an element is written, an iteration that can't be run to its end leaves no trace: the long way
    // runs it again. After that, the long way goes on from where this one stopped.
    Run& run = *frame.fRun;
    saveSlots(frame, saved);
    run.fId = nextRunId(); // the loop writes: what a callee looked up outside may have changed
    run.fHasWrittenElement = false;
    OMQuickValue value;
    for (statementIndex = 0; statementIndex < fStatements.size(); ++statementIndex) {
        if (run.fHasWrittenElement) {
            saveSlots(frame, saved);
        }
        if (eval(fStatements[statementIndex], frame, value) != VALUE) {
            restoreSlots(frame, saved);
            stop = run.fHasWrittenElement ? LOOP_AT_STATEMENT : LOOP_AT_BODY;
            return false;
        }
    }
    if (eval(fCondition, frame, value) != VALUE) {
        if (! run.fHasWrittenElement) {
            restoreSlots(frame, saved);
        }
        stop = run.fHasWrittenElement ? LOOP_AT_CONDITION : LOOP_AT_BODY;
        return false;
    }
    stop = value.asBool() ? LOOP_AT_BODY : LOOP_FINISHED;
    return stop == LOOP_AT_BODY;
}

void OMQuickFunction::saveSlots(const Frame& frame, std::vector<OMQuickValue>& saved) const {
    for (size_t position = 0; position < fAssignedSlots.size(); ++position) {
        saved[position] = frame.fSlots[fAssignedSlots[position]];
    }
}

void OMQuickFunction::restoreSlots(const Frame& frame, const std::vector<OMQuickValue>& saved) const {
    for (size_t position = 0; position < fAssignedSlots.size(); ++position) {
        frame.fSlots[fAssignedSlots[position]] = saved[position];
    }
}

bool OMQuickFunction::loadLoopSlots(const std::shared_ptr<OMScope>& scope,
                                    std::vector<std::shared_ptr<IOMNode>>& written,
                                    std::vector<OMQuickValue>& slots) const {
    for (size_t slot = 0; slot < slots.size(); ++slot) {
        const std::string& name = fLoopNames[slot];
        std::shared_ptr<IOMNode> node;
        if (! fIsWritten[slot] && ! fIsElementWritten[slot]) {
            if (! scope->accessOMNodeReadOnlyResolved(scope, nullptr, name, node) || ! node ||
                ! OMQuickValue::fromNode(node, slots[slot])) {
                return false;
            }
            continue;
        }
        // A variable of the scope's own, as a write finds it. One that is assigned holds a plain value that
        // nothing else holds (the map and `node`), so nobody could see it change. One whose elements are
        // written holds a container that is no data structure, whose new elements have no parent to tell.
        if (scope->isDataStructure() || (scope->getPermissions(name) & OMStored::PERMISSION_WRITE) == 0 ||
            ! scope->OMStored::accessOMNodeReadOnlyResolved(nullptr, nullptr, name, node) || ! node ||
            node->getDataStructureParent() || ! OMQuickValue::fromNode(node, slots[slot])) {
            return false;
        }
        const bool isFit =
            fIsWritten[slot]
                ? node.use_count() == 2 && slots[slot].isPlain()
                : slots[slot].isContainer() && node->getOMStoredRaw() != nullptr && ! node->isDataStructure();
        if (! isFit) {
            return false;
        }
        if (fIsWritten[slot]) {
            written[slot] = std::move(node);
        }
    }
    return true;
}

// ---- evaluation ----

OMQuickFunction::Flow OMQuickFunction::eval(uint32_t index, const Frame& frame, OMQuickValue& out) const {
    const Op& op = fOps[index];
    switch (op.fCode) {
    case Code::CONSTANT:
        out = op.fConstant;
        return VALUE;
    case Code::LOCAL:
        out = frame.fSlots[op.fSlot];
        return VALUE;
    case Code::FREE:
        return evalFree(op, frame, out);
    case Code::CALL:
        return evalCall(op, frame, out);
    case Code::UNARY: {
        OMQuickValue operand;
        return eval(op.fFirst, frame, operand) == VALUE &&
                       OMQuickValue::unary(static_cast<UnOp>(op.fOperator), operand, out)
                   ? VALUE
                   : ABANDONED;
    }
    case Code::BINARY: {
        OMQuickValue leftScratch;
        OMQuickValue rightScratch;
        const OMQuickValue* left = operand(op.fFirst, frame, leftScratch);
        const OMQuickValue* right = left != nullptr ? operand(op.fSecond, frame, rightScratch) : nullptr;
        return right != nullptr && OMQuickValue::binary(static_cast<BinOp>(op.fOperator), *left, *right, out)
                   ? VALUE
                   : ABANDONED;
    }
    case Code::CHAIN: {
        // Left to right, each step on the result of the one before.
        if (eval(fLists[op.fFirst], frame, out) != VALUE) {
            return ABANDONED;
        }
        for (uint32_t position = 1; position < op.fSecond; ++position) {
            OMQuickValue scratch;
            const OMQuickValue* right = operand(fLists[op.fFirst + position], frame, scratch);
            if (right == nullptr ||
                ! OMQuickValue::binary(static_cast<BinOp>(op.fOperator), out, *right, out)) {
                return ABANDONED;
            }
        }
        return VALUE;
    }
    case Code::BLOCK:
        // The value of the last statement, or the first return.
        for (uint32_t position = 0; position < op.fSecond; ++position) {
            const Flow flow = eval(fLists[op.fFirst + position], frame, out);
            if (flow != VALUE) {
                return flow;
            }
        }
        return VALUE;
    case Code::CHOICE: {
        OMQuickValue condition;
        if (eval(op.fFirst, frame, condition) != VALUE) {
            return ABANDONED;
        }
        return eval(condition.asBool() ? op.fSecond : op.fThird, frame, out);
    }
    case Code::RETURN:
        return eval(op.fFirst, frame, out) == VALUE ? RETURNED : ABANDONED;
    case Code::INDEX:
        return evalElement(op, frame, out);
    case Code::STORE:
        // An assigned variable holds plain values only (see loadLoopSlots).
        if (eval(op.fFirst, frame, out) != VALUE || ! out.isPlain()) {
            return ABANDONED;
        }
        frame.fSlots[op.fSlot] = out;
        return VALUE;
    case Code::STEP:
        return evalStep(op, frame, out);
    case Code::STORE_ELEMENT:
        return evalStoreElement(op, frame, out);
    }
    return ABANDONED;
}

const OMQuickValue* OMQuickFunction::operand(uint32_t index, const Frame& frame,
                                             OMQuickValue& scratch) const {
    // A slot or a constant is read where it is, without a copy.
    const Op& op = fOps[index];
    if (op.fCode == Code::LOCAL) {
        return &frame.fSlots[op.fSlot];
    }
    if (op.fCode == Code::CONSTANT) {
        return &op.fConstant;
    }
    return eval(index, frame, scratch) == VALUE ? &scratch : nullptr;
}

OMQuickFunction::Flow OMQuickFunction::evalStep(const Op& op, const Frame& frame, OMQuickValue& out) const {
    OMQuickValue& variable = frame.fSlots[op.fSlot];
    if (! variable.isPlain()) {
        return ABANDONED;
    }
    const bool isIncrement = op.fOperator == PRE_INCREMENT || op.fOperator == POST_INCREMENT;
    const OMQuickValue old = variable;
    variable = OMQuickValue::fromNum(old.asNum() + (isIncrement ? 1 : -1));
    out = op.fOperator == POST_INCREMENT || op.fOperator == POST_DECREMENT ? old : variable;
    return VALUE;
}

const OMQuickValue* OMQuickFunction::findInCallers(int32_t nameId, const Frame& frame) {
    if ((frame.fCallerNames & nameBit(nameId)) == 0) {
        return nullptr;
    }
    // Frames of one function have the same names: a recursion is looked at once.
    const OMQuickFunction* checked = nullptr;
    for (const Frame* caller = frame.fCaller; caller != nullptr; caller = caller->fCaller) {
        if (caller->fFunction == checked) {
            continue;
        }
        checked = caller->fFunction;
        const int32_t slot = checked->findSlot(nameId);
        if (slot >= 0) {
            return &caller->fSlots[slot];
        }
    }
    return nullptr;
}

OMQuickFunction::Flow OMQuickFunction::evalFree(const Op& op, const Frame& frame, OMQuickValue& out) const {
    // Dynamic scoping: a caller's parameter of that name comes first, then the scope of the outermost call.
    if (const OMQuickValue* callerValue = findInCallers(op.fSlot, frame)) {
        out = *callerValue;
        return VALUE;
    }
    // Nothing writes during a run, so one lookup per run will do.
    Run& run = *frame.fRun;
    if (op.fCacheRun != run.fId) {
        std::shared_ptr<IOMNode> node;
        if (! run.fScope->accessOMNodeReadOnlyResolved(run.fScope, nullptr, op.fName, node) || ! node ||
            ! OMQuickValue::fromNode(node, op.fCachedValue)) {
            return ABANDONED;
        }
        op.fCacheRun = run.fId;
    }
    out = op.fCachedValue;
    return VALUE;
}

const OMQuickFunction* OMQuickFunction::findCallee(const Op& op, const Frame& frame) const {
    if (findInCallers(op.fSlot, frame) != nullptr) {
        return nullptr;
    }
    Run& run = *frame.fRun;
    if (op.fCacheRun != run.fId) {
        std::shared_ptr<IOMNode> node;
        const OMStored* function = nullptr;
        if (run.fScope->accessOMNodeReadOnlyResolved(run.fScope, nullptr, op.fName, node) && node &&
            node->getType() == OMType::Function) {
            function = node->getOMStoredRaw();
        }
        op.fCachedCallee = function != nullptr ? function->getQuickFunction() : nullptr;
        op.fCacheRun = run.fId;
    }
    return op.fCachedCallee;
}

OMQuickFunction::Flow OMQuickFunction::evalCall(const Op& op, const Frame& frame, OMQuickValue& out) const {
    const OMQuickFunction* callee = findCallee(op, frame);
    if (callee == nullptr) {
        return ABANDONED;
    }
    SlotArray<MAX_SLOTS> slots(callee->fSlotNames.size());
    for (uint32_t position = 0; position < op.fSecond; ++position) {
        OMQuickValue argument;
        if (eval(fLists[op.fFirst + position], frame, argument) != VALUE) {
            return ABANDONED;
        }
        if (position < callee->fParameterCount) {
            slots.data()[position] = std::move(argument);
        }
    }
    return callee->invoke(*frame.fRun, &frame, slots.data(), out);
}

bool OMQuickFunction::accessElement(const Frame& frame, const OMQuickValue& container,
                                    const OMQuickValue& key, AccessType accessType,
                                    std::shared_ptr<IOMNode>& element) {
    // A whole number picks an element, anything else names a member by its text.
    if (! container.isContainer() || container.fNode->getOMStoredRaw() == nullptr) {
        return false;
    }
    const std::shared_ptr<OMScope>& scope = frame.fRun->fScope;
    if (key.fType == OMType::Int && key.fInt >= 0) {
        return container.fNode->accessOMNodeResolved(scope, nullptr, accessType,
                                                     static_cast<uint64_t>(key.fInt), element);
    }
    const std::shared_ptr<IOMNode> keyNode = key.fNode ? key.fNode : key.toNode();
    return ! key.isContainer() &&
           container.fNode->accessOMNodeResolved(scope, nullptr, accessType, keyNode->getAsString(), element);
}

OMQuickFunction::Flow OMQuickFunction::evalElement(const Op& op, const Frame& frame,
                                                   OMQuickValue& out) const {
    // A missing element is reported by the long way.
    OMQuickValue container;
    OMQuickValue key;
    std::shared_ptr<IOMNode> element;
    return eval(op.fFirst, frame, container) == VALUE && eval(op.fSecond, frame, key) == VALUE &&
                   accessElement(frame, container, key, GET, element) && element &&
                   OMQuickValue::fromNode(element, out)
               ? VALUE
               : ABANDONED;
}

OMQuickFunction::Flow OMQuickFunction::evalStoreElement(const Op& op, const Frame& frame,
                                                        OMQuickValue& out) const {
    // Everything is read before anything is written, so that an abandoned write leaves no trace.
    OMQuickValue key;
    if (eval(op.fSecond, frame, key) != VALUE || eval(op.fFirst, frame, out) != VALUE || out.isContainer()) {
        return ABANDONED;
    }
    std::shared_ptr<IOMNode> element;
    if (! accessElement(frame, frame.fSlots[op.fSlot], key, SET, element) || ! element) {
        return ABANDONED;
    }
    // Only an element that was there already can have a parent: it is found, not made, and the long way
    // writes it through its parent.
    if (element->getDataStructureParent()) {
        return ABANDONED;
    }
    frame.fRun->fHasWrittenElement = true;
    const std::shared_ptr<IOMNode> value = out.toNode();
    (void)SANITY_CHECKED(value && element->set(value));
    return VALUE;
}

} // namespace Brw
