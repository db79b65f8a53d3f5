#include "BrwParser/BrwOMQuickFunction.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <unordered_map>

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

// The range of doubles that a 64-bit whole number can hold exactly as an Int.
constexpr double INT_LOW = -9.2233720368547758e18;
constexpr double INT_HIGH = 9.2233720368547758e18;
// Calls between two looks at the task's deadline.
constexpr uint32_t CALLS_PER_DEADLINE_CHECK = 1024;

bool isNumber(OMType type) {
    return type == OMType::Int || type == OMType::Float;
}

bool isUndefinedOrNull(OMType type) {
    return type == OMType::Undefined || type == OMType::Null;
}

bool isQuickBinary(int32_t op) {
    return op == MULTIPLY || op == DIVIDE || op == ADD || op == SUBTRACT ||
           (op >= COMPARE_LT && op <= BOOL_OR);
}

bool isQuickUnary(int32_t op) {
    return op == NEGATIVE || op == POSITIVE || op == BOOL_NOT || op == BIT_NOT;
}

// `<` as the operators order values: NaN is never less, numbers by value, other types by type number.
bool isLess(const OMQuickValue& left, const OMQuickValue& right) {
    if (left.fType == OMType::NaN || right.fType == OMType::NaN) {
        return false;
    }
    if (isNumber(left.fType) && isNumber(right.fType)) {
        return left.asNum() < right.asNum();
    }
    if (left.fType != right.fType) {
        return static_cast<int32_t>(left.fType) < static_cast<int32_t>(right.fType);
    }
    return left.fType == OMType::Bool && ! left.fBool && right.fBool;
}

// `===`: same type and value; an Int never equals a Float.
bool isIdentical(const OMQuickValue& left, const OMQuickValue& right) {
    if (left.fType == OMType::NaN || left.fType != right.fType) {
        return false;
    }
    switch (left.fType) {
    case OMType::Bool:
        return left.fBool == right.fBool;
    case OMType::Int:
        return left.fInt == right.fInt;
    case OMType::Float:
        return left.fFloat == right.fFloat;
    default:
        return true; // undefined and null
    }
}

// `==`: as `===`, but undefined and null equal each other.
bool isEqual(const OMQuickValue& left, const OMQuickValue& right) {
    if (left.fType == OMType::NaN || right.fType == OMType::NaN) {
        return false;
    }
    return (isUndefinedOrNull(left.fType) && isUndefinedOrNull(right.fType)) || isIdentical(left, right);
}

bool isBothNaN(const OMQuickValue& left, const OMQuickValue& right) {
    return left.fType == OMType::NaN && right.fType == OMType::NaN;
}

// A small number for each name that quick functions use, so that frames compare names as numbers.
int32_t internName(const std::string& name) {
    static std::unordered_map<std::string, int32_t> names;
    const auto [position, isNew] = names.try_emplace(name, static_cast<int32_t>(names.size()));
    (void)isNew;
    return position->second;
}

// Tells the lookups cached in one run from those of older runs.
uint64_t nextRunId() {
    static uint64_t lastRunId = 0;
    return ++lastRunId;
}

uint64_t nameBit(int32_t nameId) {
    return uint64_t(1) << (static_cast<uint32_t>(nameId) & 63U);
}

} // namespace

// ---- values ----

bool OMQuickValue::fromNode(const IOMNode& node, OMQuickValue& value) {
    value.fType = node.getType();
    switch (value.fType) {
    case OMType::Undefined:
    case OMType::Null:
    case OMType::NaN:
        value.fInt = 0;
        break;
    case OMType::Bool:
        value.fBool = node.getBool();
        break;
    case OMType::Int:
        value.fInt = node.getInt();
        break;
    case OMType::Float:
        value.fFloat = node.getFloat();
        break;
    default:
        return false;
    }
    return node.isResolved(RUN);
}

OMQuickValue OMQuickValue::fromNum(double number) {
    OMQuickValue value;
    if (std::isnan(number)) {
        value.fType = OMType::NaN;
    } else if (number >= INT_LOW && number < INT_HIGH &&
               static_cast<double>(static_cast<OMInt>(number)) == number) {
        value.fType = OMType::Int;
        value.fInt = static_cast<OMInt>(number);
    } else {
        value.fType = OMType::Float;
        value.fFloat = number;
    }
    return value;
}

OMQuickValue OMQuickValue::fromInt(OMInt number) {
    OMQuickValue value;
    value.fType = OMType::Int;
    value.fInt = number;
    return value;
}

OMQuickValue OMQuickValue::fromBool(bool truth) {
    OMQuickValue value;
    value.fType = OMType::Bool;
    value.fBool = truth;
    return value;
}

std::shared_ptr<OMStored> OMQuickValue::toNode() const {
    switch (fType) {
    case OMType::Null:
        return OMStored::nullFactory();
    case OMType::NaN:
        return OMStored::nanFactory();
    case OMType::Bool:
        return OMStored::factory(fBool);
    case OMType::Int:
        return OMStored::factory(fInt);
    case OMType::Float:
        return OMStored::factory(fFloat);
    default:
        return OMStored::undefinedFactory();
    }
}

bool OMQuickValue::storeInto(IOMNode& node) const {
    switch (fType) {
    case OMType::Null:
        return node.setNull();
    case OMType::NaN:
        return node.setNaN();
    case OMType::Bool:
        return node.set(fBool);
    case OMType::Int:
        return node.set(fInt);
    case OMType::Float:
        return node.set(fFloat);
    default:
        return node.setUndefined();
    }
}

double OMQuickValue::asNum() const {
    switch (fType) {
    case OMType::Bool:
        return fBool ? 1.0 : 0.0;
    case OMType::Int:
        return static_cast<double>(fInt);
    case OMType::Float:
        return fFloat;
    default:
        return std::numeric_limits<double>::quiet_NaN();
    }
}

bool OMQuickValue::asBool() const {
    switch (fType) {
    case OMType::Bool:
        return fBool;
    case OMType::Int:
        return fInt != 0;
    case OMType::Float:
        return fFloat != 0.0;
    default:
        return false;
    }
}

int64_t OMQuickValue::asBits() const {
    const double number = asNum();
    if (std::isnan(number) || number < INT_LOW || number >= INT_HIGH) {
        return -1;
    }
    const auto whole = static_cast<int64_t>(std::floor(number));
    return static_cast<double>(whole) == number ? whole : -1;
}

bool OMQuickValue::binary(BinOp op, const OMQuickValue& left, const OMQuickValue& right,
                          OMQuickValue& result) {
    switch (op) {
    case ADD:
        result = fromNum(left.asNum() + right.asNum());
        return true;
    case SUBTRACT:
        result = fromNum(left.asNum() - right.asNum());
        return true;
    case MULTIPLY:
        result = fromNum(left.asNum() * right.asNum());
        return true;
    case DIVIDE: {
        // A division by zero is NaN, never an infinity.
        const double divisor = right.asNum();
        result = divisor == 0.0 ? fromNum(std::numeric_limits<double>::quiet_NaN())
                                : fromNum(left.asNum() / divisor);
        return true;
    }
    case COMPARE_LT:
        result = fromBool(isLess(left, right));
        return true;
    case COMPARE_LE:
        result = fromBool(isLess(left, right) || isEqual(left, right));
        return true;
    case COMPARE_GT:
        result = fromBool(left.fType != OMType::NaN && right.fType != OMType::NaN && ! isLess(left, right) &&
                          ! isEqual(left, right));
        return true;
    case COMPARE_GE:
        result = fromBool(left.fType != OMType::NaN && right.fType != OMType::NaN && ! isLess(left, right));
        return true;
    case COMPARE_EQ:
        result = fromBool(isEqual(left, right));
        return true;
    case COMPARE_NE:
        result = fromBool(isBothNaN(left, right) || ! isEqual(left, right));
        return true;
    case COMPARE_IDENTICAL:
        result = fromBool(isIdentical(left, right));
        return true;
    case COMPARE_NOT_IDENTICAL:
        result = fromBool(isBothNaN(left, right) || ! isIdentical(left, right));
        return true;
    case BIT_AND: {
        const int64_t bits = left.asBits();
        result = fromInt(bits == 0 ? 0 : bits & right.asBits());
        return true;
    }
    case BIT_OR: {
        const int64_t bits = left.asBits();
        result = fromInt(bits == -1 ? -1 : bits | right.asBits());
        return true;
    }
    case BIT_XOR:
        result = fromInt(left.asBits() ^ right.asBits());
        return true;
    case BOOL_AND:
        result = fromBool(left.asBool() && right.asBool());
        return true;
    case BOOL_OR:
        result = fromBool(left.asBool() || right.asBool());
        return true;
    default:
        return false;
    }
}

bool OMQuickValue::unary(UnOp op, const OMQuickValue& operand, OMQuickValue& result) {
    switch (op) {
    case NEGATIVE:
        result = fromNum(-operand.asNum());
        return true;
    case POSITIVE:
        result = fromNum(operand.asNum());
        return true;
    case BOOL_NOT:
        result = fromBool(! operand.asBool());
        return true;
    case BIT_NOT:
        result = fromInt(~operand.asBits());
        return true;
    default:
        return false;
    }
}

// ---- compiling ----

// What one outermost call shares with every call it makes.
struct OMQuickFunction::Run {
    const std::shared_ptr<Task>& fTask;     // whose deadline ends the run
    const std::shared_ptr<OMScope>& fScope; // where names that no frame has are looked up
    uint64_t fId;                           // tells this run's cached lookups from older ones
    int64_t fDepth;                         // script calls nested now
    uint32_t fCallsUntilCheck;              // calls left until the deadline is looked at
};

// One call: its function, its slots, and its callers, whose slots dynamic scoping reaches.
struct OMQuickFunction::Frame {
    const OMQuickFunction* fFunction; // what runs here
    const Frame* fCaller;             // null for the outermost call
    OMQuickValue* fSlots;             // parameters, then locals (a loop's variables)
    uint64_t fCallerNames;            // the name bits of every caller's frame
    Run* fRun;                        // shared by all the frames of one outermost call
};

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
    if (! function->compileExpression(body, true, function->fRoot) || ! function->isEveryCalleeFree()) {
        return nullptr;
    }
    return function;
}

std::shared_ptr<OMQuickFunction> OMQuickFunction::compileLoop(const std::shared_ptr<IOMNode>& condition,
                                                              const std::shared_ptr<IOMNode>& body) {
    auto loop = std::make_shared<OMQuickFunction>();
    loop->fIsLoop = true;
    if (! loop->compileNode(condition, false, loop->fCondition) ||
        ! loop->compileNode(body, true, loop->fRoot) || ! loop->isEveryCalleeFree()) {
        return nullptr;
    }
    for (const int32_t nameId : loop->fSlotNames) {
        loop->fNameMask |= nameBit(nameId);
    }
    return loop;
}

bool OMQuickFunction::compileNode(const std::shared_ptr<IOMNode>& node, bool isStatement, uint32_t& index) {
    if (node && node->getType() == OMType::Expression) {
        const std::shared_ptr<OMExpression> expression = node->getExpression();
        return expression && compileExpression(*expression, isStatement, index);
    }
    if (! node || node->isReturnValue()) {
        return false;
    }
    Op op;
    op.fCode = Code::CONSTANT;
    if (! OMQuickValue::fromNode(*node, op.fConstant)) {
        return false;
    }
    index = add(std::move(op));
    return true;
}

bool OMQuickFunction::compileExpression(OMExpression& expression, bool isStatement, uint32_t& index) {
    Op op;
    auto* unary = dynamic_cast<OMExpressionUnary*>(&expression);
    auto* binary = dynamic_cast<OMExpressionBinary*>(&expression);
    if ((unary != nullptr && unary->isIncrementOrDecrement()) ||
        (binary != nullptr && binary->getBinOp() == ASSIGN)) {
        return fIsLoop && isStatement && compileWrite(expression, index);
    }
    if (auto* name = dynamic_cast<OMExpressionLValueStr*>(&expression)) {
        return compileName(*name, index);
    }
    if (unary != nullptr) {
        op.fCode = unary->getUnOp() == RETURN ? Code::RETURN : Code::UNARY;
        op.fOperator = unary->getUnOp();
        const bool isAllowed =
            op.fCode == Code::RETURN ? ! fIsLoop && isStatement : isQuickUnary(op.fOperator);
        if (! isAllowed || ! compileNode(unary->getOperand(), false, op.fFirst)) {
            return false;
        }
    } else if (binary != nullptr) {
        op.fCode = Code::BINARY;
        op.fOperator = binary->getBinOp();
        if (! isQuickBinary(op.fOperator) || ! compileNode(binary->getNode1(), false, op.fFirst) ||
            ! compileNode(binary->getNode2(), false, op.fSecond)) {
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
        return (isBlock ? isStatement : isQuickBinary(binOp)) && ! nodes.empty() &&
               compileList(isBlock ? Code::BLOCK : Code::CHAIN, binOp, nodes, isBlock, index);
    } else if (auto* ternary = dynamic_cast<OMExpressionTernary*>(&expression)) {
        op.fCode = Code::CHOICE;
        const TernOp ternOp = ternary->getTernOp();
        if ((ternOp != CONDITIONAL && (ternOp != IF || ! isStatement)) ||
            ! compileNode(ternary->getNode1(), false, op.fFirst) ||
            ! compileNode(ternary->getNode2(), isStatement, op.fSecond) ||
            ! compileNode(ternary->getNode3(), isStatement, op.fThird)) {
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
        if (! compileList(Code::CALL, 0, *name.getArgumentList(), false, index)) {
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

bool OMQuickFunction::compileWrite(OMExpression& expression, uint32_t& index) {
    Op op;
    std::shared_ptr<IOMNode> target;
    if (auto* unary = dynamic_cast<OMExpressionUnary*>(&expression)) {
        op.fCode = Code::STEP;
        op.fOperator = unary->getUnOp();
        target = unary->getOperand();
    } else if (auto* binary = dynamic_cast<OMExpressionBinary*>(&expression)) {
        op.fCode = Code::STORE;
        target = binary->getNode1();
        if (! compileNode(binary->getNode2(), false, op.fFirst)) {
            return false;
        }
    }
    const std::shared_ptr<OMExpression> targetExpression =
        target && target->getType() == OMType::Expression ? target->getExpression() : nullptr;
    auto* name = dynamic_cast<OMExpressionLValueStr*>(targetExpression.get());
    if (name == nullptr || name->getParent() || name->getArgumentList()) {
        return false;
    }
    op.fSlot = loopSlot(name->getName());
    fIsWritten[static_cast<size_t>(op.fSlot)] = true;
    index = add(std::move(op));
    return true;
}

bool OMQuickFunction::compileList(Code code, int32_t op, const std::vector<std::shared_ptr<IOMNode>>& nodes,
                                  bool isStatement, uint32_t& index) {
    std::vector<uint32_t> operands(nodes.size());
    for (size_t position = 0; position < nodes.size(); ++position) {
        if (! compileNode(nodes[position], isStatement, operands[position])) {
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
    for (const Op& op : fOps) {
        if (op.fCode == Code::CALL && findSlot(op.fSlot) >= 0) {
            return false;
        }
    }
    return true;
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

// ---- running ----

bool OMQuickFunction::call(const std::shared_ptr<Task>& task, const std::shared_ptr<OMScope>& scope,
                           const OMArgs& args, int64_t callDepth, std::shared_ptr<IOMNode>& out) const {
    // A function whose values mostly aren't numbers would pay for every attempt in vain.
    if (fAbandonCount > 8 && fAbandonCount > fDoneCount) {
        return false;
    }
    std::array<OMQuickValue, MAX_SLOTS> slots;
    const size_t argumentCount = args ? std::min(args->size(), fParameterCount) : 0;
    for (size_t index = 0; index < argumentCount; ++index) {
        const std::shared_ptr<IOMNode>& argument = (*args)[index];
        if (! argument || ! OMQuickValue::fromNode(*argument, slots[index])) {
            ++fAbandonCount;
            return false;
        }
    }
    Run run{task, scope, nextRunId(), callDepth, CALLS_PER_DEADLINE_CHECK};
    OMQuickValue result;
    if (invoke(run, nullptr, slots.data(), result) == ABANDONED) {
        ++fAbandonCount;
        return false;
    }
    ++fDoneCount;
    out = result.toNode();
    return out != nullptr;
}

bool OMQuickFunction::runLoop(const std::shared_ptr<Task>& task, const std::shared_ptr<OMScope>& scope,
                              int64_t callDepth) const {
    constexpr uint32_t ITERATIONS_PER_YIELD_CHECK = 32;
    if (fAbandonCount > 8 && fAbandonCount > fDoneCount) {
        return false;
    }
    std::vector<std::shared_ptr<IOMNode>> written(fSlotNames.size());
    std::vector<OMQuickValue> slots(fSlotNames.size());
    if (! loadLoopSlots(scope, written, slots)) {
        ++fAbandonCount;
        return false;
    }
    std::vector<OMQuickValue> saved(slots.size());
    Run run{task, scope, 0, callDepth, CALLS_PER_DEADLINE_CHECK};
    const Frame frame{this, nullptr, slots.data(), 0, &run};
    bool isFinished = false;
    uint32_t iterationCount = 0;
    for (;;) {
        // An iteration that can't be run to its end leaves no trace: the long way runs it again.
        std::copy(slots.begin(), slots.end(), saved.begin());
        run.fId = nextRunId(); // the loop writes: what a callee looked up outside may have changed
        OMQuickValue value;
        if (eval(fRoot, frame, value) != VALUE || eval(fCondition, frame, value) != VALUE) {
            std::copy(saved.begin(), saved.end(), slots.begin());
            break;
        }
        ++iterationCount;
        if (! value.asBool()) {
            isFinished = true;
            break;
        }
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
    ++(iterationCount > 0 ? fDoneCount : fAbandonCount);
    return isFinished && allStored;
}

bool OMQuickFunction::loadLoopSlots(const std::shared_ptr<OMScope>& scope,
                                    std::vector<std::shared_ptr<IOMNode>>& written,
                                    std::vector<OMQuickValue>& slots) const {
    for (size_t slot = 0; slot < slots.size(); ++slot) {
        const std::string& name = fLoopNames[slot];
        std::shared_ptr<IOMNode> node;
        if (! fIsWritten[slot]) {
            if (! scope->accessOMNodeReadOnlyResolved(scope, nullptr, name, node) || ! node ||
                ! OMQuickValue::fromNode(*node, slots[slot])) {
                return false;
            }
            continue;
        }
        // A variable of the scope's own that nothing else holds (the map and `node`): its value may live in
        // the slot, since nobody could see the node change.
        if (scope->isDataStructure() || (scope->getPermissions(name) & OMStored::PERMISSION_WRITE) == 0 ||
            ! scope->OMStored::accessOMNodeReadOnlyResolved(nullptr, nullptr, name, node) || ! node ||
            node.use_count() != 2 || node->getDataStructureParent() ||
            ! OMQuickValue::fromNode(*node, slots[slot])) {
            return false;
        }
        written[slot] = std::move(node);
    }
    return true;
}

OMQuickFunction::Flow OMQuickFunction::invoke(Run& run, const Frame* caller, OMQuickValue* slots,
                                              OMQuickValue& out) const {
    if (run.fDepth >= OMStored::MAX_CALL_DEPTH || StackGuard::isNearlyExhausted()) {
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
        OMQuickValue left;
        OMQuickValue right;
        return eval(op.fFirst, frame, left) == VALUE && eval(op.fSecond, frame, right) == VALUE &&
                       OMQuickValue::binary(static_cast<BinOp>(op.fOperator), left, right, out)
                   ? VALUE
                   : ABANDONED;
    }
    case Code::CHAIN: {
        // Left to right, each step on the result of the one before.
        if (eval(fLists[op.fFirst], frame, out) != VALUE) {
            return ABANDONED;
        }
        for (uint32_t position = 1; position < op.fSecond; ++position) {
            OMQuickValue right;
            if (eval(fLists[op.fFirst + position], frame, right) != VALUE ||
                ! OMQuickValue::binary(static_cast<BinOp>(op.fOperator), out, right, out)) {
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
    case Code::STORE:
        if (eval(op.fFirst, frame, out) != VALUE) {
            return ABANDONED;
        }
        frame.fSlots[op.fSlot] = out;
        return VALUE;
    case Code::STEP:
        return evalStep(op, frame, out);
    }
    return ABANDONED;
}

OMQuickFunction::Flow OMQuickFunction::evalStep(const Op& op, const Frame& frame, OMQuickValue& out) const {
    OMQuickValue& variable = frame.fSlots[op.fSlot];
    const bool isIncrement = op.fOperator == PRE_INCREMENT || op.fOperator == POST_INCREMENT;
    const OMQuickValue old = variable;
    variable = OMQuickValue::fromNum(old.asNum() + (isIncrement ? 1 : -1));
    out = op.fOperator == POST_INCREMENT || op.fOperator == POST_DECREMENT ? old : variable;
    return VALUE;
}

OMQuickFunction::Flow OMQuickFunction::evalFree(const Op& op, const Frame& frame, OMQuickValue& out) const {
    // Dynamic scoping: a caller's parameter of that name comes first, then the scope of the outermost call.
    if ((frame.fCallerNames & nameBit(op.fSlot)) != 0) {
        const OMQuickFunction* checked = nullptr;
        for (const Frame* caller = frame.fCaller; caller != nullptr; caller = caller->fCaller) {
            if (caller->fFunction == checked) {
                continue;
            }
            checked = caller->fFunction;
            const int32_t slot = checked->findSlot(op.fSlot);
            if (slot >= 0) {
                out = caller->fSlots[slot];
                return VALUE;
            }
        }
    }
    // Nothing writes during a run, so one lookup per run will do.
    Run& run = *frame.fRun;
    if (op.fCacheRun != run.fId) {
        std::shared_ptr<IOMNode> node;
        if (! run.fScope->accessOMNodeReadOnlyResolved(run.fScope, nullptr, op.fName, node) || ! node ||
            ! OMQuickValue::fromNode(*node, op.fCachedValue)) {
            return ABANDONED;
        }
        op.fCacheRun = run.fId;
    }
    out = op.fCachedValue;
    return VALUE;
}

const OMQuickFunction* OMQuickFunction::findCallee(const Op& op, const Frame& frame) const {
    if ((frame.fCallerNames & nameBit(op.fSlot)) != 0) {
        for (const Frame* caller = frame.fCaller; caller != nullptr; caller = caller->fCaller) {
            if (caller->fFunction->findSlot(op.fSlot) >= 0) {
                return nullptr;
            }
        }
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
    std::array<OMQuickValue, MAX_SLOTS> slots;
    for (uint32_t position = 0; position < op.fSecond; ++position) {
        OMQuickValue argument;
        if (eval(fLists[op.fFirst + position], frame, argument) != VALUE) {
            return ABANDONED;
        }
        if (position < callee->fParameterCount) {
            slots[position] = argument;
        }
    }
    return callee->invoke(*frame.fRun, &frame, slots.data(), out);
}

} // namespace Brw
