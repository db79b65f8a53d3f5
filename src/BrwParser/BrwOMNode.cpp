#include "BrwParser/BrwOMNode.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <limits>

#include "BrwLogger/BrwCheck.h"
#include "BrwObject/BrwGUIDClass.h"
#include "BrwParser/BrwOMExpression.h"
#include "BrwParser/BrwOMExpressionBinary.h"
#include "BrwParser/BrwOMExpressionKeyword.h"
#include "BrwParser/BrwOMExpressionSequence.h"
#include "BrwParser/BrwOMExpressionTernary.h"
#include "BrwParser/BrwOMExpressionUnary.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwParser/BrwOMValuePath.h"
#include "BrwTask/BrwCallTask.h"
#include "BrwTask/BrwYielding.h"

namespace Brw {

namespace {

// The quiet NaN with the sign bit set: what a value that isn't a number converts to.
double negativeQuietNaN() {
    return -std::numeric_limits<double>::quiet_NaN();
}

// The hashes of the values that hold no data of their own, and the seed of a map's hash.
constexpr uint64_t UNDEFINED_HASH = 9999;
constexpr uint64_t NULL_HASH = 9998;
constexpr uint64_t TRUE_HASH = 12345;
constexpr uint64_t FALSE_HASH = 98765;
constexpr uint64_t NAN_HASH = 8998;
constexpr uint64_t ERROR_HASH = 1232532227;
constexpr uint64_t MAP_HASH_SEED = 9996;
constexpr uint64_t UNWALKED_CONTAINER_HASH = 9995; // a container that holds itself, or nested too deeply

// What the human text forms show for a container that holds itself, or is nested deeper than they go.
constexpr const char* VALUE_NOT_SHOWN = "...";

uint64_t hashOfWord(uint64_t word) {
    unsigned char bytes[8];
    for (int i = 0; i < 8; ++i) {
        bytes[i] = static_cast<unsigned char>(word >> (8 * i));
    }
    return FNV1aHash::hashBytes(std::string_view(reinterpret_cast<const char*>(bytes), 8));
}

} // namespace

bool FunctionSignature::addLocalVariable(const std::string& localVariable) {
    bool retVal = false;
    do {
        SANITY_CHECK(! localVariable.empty());
        fLocalVariables.insert(localVariable);
        retVal = true;
    } while (false);
    return retVal;
}

bool FunctionSignature::addParameter(const std::string& parameter) {
    bool retVal = false;
    do {
        SANITY_CHECK(fParameterList.empty() || ! parameter.empty());
        fParameterList.push_back(parameter);
        retVal = true;
    } while (false);
    return retVal;
}

// ---- access ----

void OMNode::accessOMNodeResolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                           const OMArgs& args, AccessType accessType, const std::string& attr,
                                           NodePtr& out) {
    // Never waits itself: GET forwards as its last act, so this needs no frame.
    found = false;
    if (accessType == GET) {
        accessOMNodeReadOnlyResolved_yielding(task, found, scope, args, attr, out);
    } else if (accessType == GET_CREATE) {
        out = OMStored::errorFactory();
    }
}

void OMNode::accessOMNodeResolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                           const OMArgs& args, AccessType accessType, uint64_t idx,
                                           NodePtr& out) {
    found = false;
    if (accessType == GET) {
        accessOMNodeReadOnlyResolved_yielding(task, found, scope, args, idx, out);
    } else if (accessType == GET_CREATE) {
        out = OMStored::errorFactory();
    }
}

void OMNode::accessOMNodeReadOnlyResolved_yielding(const TaskPtr&, bool& found, const ScopePtr&,
                                                   const OMArgs&, uint64_t, NodePtr& out) const {
    found = false;
    out = OMStored::errorFactory();
}

void OMNode::accessOMNodeReadOnlyResolved_yielding(const TaskPtr&, bool& found, const ScopePtr&,
                                                   const OMArgs&, const std::string&, NodePtr& out) const {
    found = false;
    out = OMStored::errorFactory();
}

namespace {

// Evaluates the arguments of a function-style access, then makes the access with them; a read-only access
// never writes, whatever `accessType` says.
template <class Key>
void accessUnresolved_yielding(const IOMNode::TaskPtr& task, bool& found, IOMNode& node,
                               const IOMNode::ScopePtr& scope, const OMArgs& args, AccessType accessType,
                               bool isReadOnly, const Key& key, IOMNode::NodePtr& out) {
    struct LocalVariableState : OMFunctionState {
        OMArgs resolvedArgs;
        bool argsFound = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, found = false);
    YIELDING_CALL(OMNode::resolveArgumentList_yielding(
        task, frame->resolvedArgs, isReadOnly ? GET : accessType, args, frame->argsFound, scope, RUN));
    if (isReadOnly) {
        YIELDING_CALL(
            node.accessOMNodeReadOnlyResolved_yielding(task, found, scope, frame->resolvedArgs, key, out));
    } else {
        YIELDING_CALL(node.accessOMNodeResolved_yielding(task, found, scope, frame->resolvedArgs, accessType,
                                                         key, out));
    }
    YIELDING_END;
}

} // namespace

void OMNode::accessOMNodeUnresolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                             const OMArgs& args, AccessType accessType,
                                             const std::string& attr, NodePtr& out) {
    accessUnresolved_yielding(task, found, *this, scope, args, accessType, false, attr, out);
}

void OMNode::accessOMNodeUnresolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                             const OMArgs& args, AccessType accessType, uint64_t idx,
                                             NodePtr& out) {
    accessUnresolved_yielding(task, found, *this, scope, args, accessType, false, idx, out);
}

void OMNode::accessOMNodeReadOnlyUnresolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                                     const OMArgs& args, const std::string& attr,
                                                     NodePtr& out) const {
    // Read-only: the node is only read through the const access.
    accessUnresolved_yielding(task, found, const_cast<OMNode&>(*this), scope, args, GET, true, attr, out);
}

void OMNode::accessOMNodeReadOnlyUnresolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                                     const OMArgs& args, uint64_t idx, NodePtr& out) const {
    accessUnresolved_yielding(task, found, const_cast<OMNode&>(*this), scope, args, GET, true, idx, out);
}

bool OMNode::accessOMNodeResolved(const ScopePtr& scope, const OMArgs& args, AccessType accessType,
                                  const std::string& attr, NodePtr& out) {
    bool found = false;
    CallTask::call("accessOMNodeResolvedByAttr", [&](const TaskPtr& task) {
        accessOMNodeResolved_yielding(task, found, scope, args, accessType, attr, out);
    });
    return found;
}

bool OMNode::accessOMNodeResolved(const ScopePtr& scope, const OMArgs& args, AccessType accessType,
                                  uint64_t idx, NodePtr& out) {
    bool found = false;
    CallTask::call("accessOMNodeResolvedByIdx", [&](const TaskPtr& task) {
        accessOMNodeResolved_yielding(task, found, scope, args, accessType, idx, out);
    });
    return found;
}

bool OMNode::accessOMNodeReadOnlyResolved(const ScopePtr& scope, const OMArgs& args, uint64_t idx,
                                          NodePtr& out) const {
    bool found = false;
    CallTask::call("accessOMNodeReadOnlyResolvedByIdx", [&](const TaskPtr& task) {
        accessOMNodeReadOnlyResolved_yielding(task, found, scope, args, idx, out);
    });
    return found;
}

bool OMNode::accessOMNodeReadOnlyResolved(const ScopePtr& scope, const OMArgs& args, const std::string& attr,
                                          NodePtr& out) const {
    bool found = false;
    CallTask::call("accessOMNodeReadOnlyResolvedByAttr", [&](const TaskPtr& task) {
        accessOMNodeReadOnlyResolved_yielding(task, found, scope, args, attr, out);
    });
    return found;
}

bool OMNode::isMapEnd(const OMMap::const_iterator&) const {
    return true;
}

bool OMNode::isArrayEnd(const OMArray::const_iterator&) const {
    return true;
}

bool OMNode::clear() {
    setUndefined();
    fIsDataStructure = false;
    fDataStructureKey.clear();
    fDataStructureParent.reset();
    return true;
}

IOMNode::NodePtr OMNode::clone(uint64_t) const {
    LOG_ERROR("should be overridden");
    return nullptr;
}

bool OMNode::cmpOp_EQ(IOMNode& other, NodeReuse reuse) {
    NodePtr tempNode = binaryOperation(COMPARE_EQ, *this, reuse, other, KEEP_NODE);
    VERIFY(tempNode);
    return tempNode && tempNode->getBool();
}

bool OMNode::cmpOp_GT(IOMNode& other, NodeReuse reuse) {
    NodePtr tempNode = binaryOperation(COMPARE_GT, *this, reuse, other, KEEP_NODE);
    VERIFY(tempNode);
    return tempNode && tempNode->getBool();
}

bool OMNode::cmpOp_LT(IOMNode& other, NodeReuse reuse) {
    NodePtr tempNode = binaryOperation(COMPARE_LT, *this, reuse, other, KEEP_NODE);
    VERIFY(tempNode);
    return tempNode && tempNode->getBool();
}

bool OMNode::cmpOp_NE(IOMNode& other, NodeReuse reuse) {
    NodePtr tempNode = binaryOperation(COMPARE_NE, *this, reuse, other, KEEP_NODE);
    VERIFY(tempNode);
    return tempNode && tempNode->getBool();
}

bool OMNode::containsIdx(uint64_t idx) const {
    return getType() == OMType::Array && idx < getSize();
}

bool OMNode::containsAttr(const std::string& attr) const {
    NodePtr out;
    return getType() == OMType::Map && accessOMNodeReadOnlyResolved(nullptr, nullptr, attr, out);
}

void OMNode::eval_yielding(const TaskPtr&, NodePtr& out, const ScopePtr&, HandleReturnValue) {
    out = std::const_pointer_cast<IOMNode>(shared_from_this());
}

// ---- conversions ----

int64_t OMNode::getAsBits() const {
    const double number = getAsNum();
    // Outside the range of 64 bits no double is a whole number that fits.
    if (std::isnan(number) || number < -9.2233720368547758e18 || number >= 9.2233720368547758e18) {
        return -1;
    }
    const int64_t whole = static_cast<int64_t>(std::floor(number));
    return static_cast<double>(whole) == number ? whole : -1;
}

bool OMNode::getAsBool() const {
    switch (getType()) {
    case OMType::Undefined:
    case OMType::Null:
    case OMType::Error:
    case OMType::NaN:
        return false;
    case OMType::Bool:
        return getBool();
    case OMType::Date:
    case OMType::Array:
    case OMType::Map:
    case OMType::Expression:
    case OMType::Function:
    case OMType::GUID:
        return true;
    case OMType::Int:
        return getInt() != 0;
    case OMType::Float:
        return getFloat() != 0.0;
    case OMType::String:
        return ! getString().empty();
    }
    LOG_ERROR("unexpected type");
    return false;
}

double OMNode::getAsNum() const {
    switch (getType()) {
    case OMType::Bool:
        return getBool() ? 1.0 : 0.0;
    case OMType::Date:
        return static_cast<double>(getDate());
    case OMType::Int:
        return static_cast<double>(getInt());
    case OMType::Float:
        return getFloat();
    case OMType::String:
        return OMStored::numberFromText(getString());
    case OMType::Undefined:
    case OMType::Null:
    case OMType::Array:
    case OMType::Map:
    case OMType::Expression:
    case OMType::Error:
    case OMType::Function:
    case OMType::NaN:
    case OMType::GUID:
        return negativeQuietNaN();
    }
    LOG_ERROR("unexpected type");
    return negativeQuietNaN();
}

std::string OMNode::getAsIdentifier() const {
    std::string retVal;
    do {
        if (getType() != OMType::Expression) {
            break;
        }
        std::shared_ptr<OMExpression> expression = getExpression();
        SANITY_CHECK(expression);
        retVal = expression->getIdentifier();
    } while (false);
    return retVal;
}

std::string OMNode::floatToString(double value) {
    int length = snprintf(nullptr, 0, "%f", value);
    std::string text(static_cast<size_t>(std::max(length, 0)) + 1, '\0');
    snprintf(text.data(), text.size(), "%f", value);
    text.resize(static_cast<size_t>(std::max(length, 0)));
    return text;
}

std::string OMNode::functionToString(const IOMNode& node) {
    std::string text = "function";
    const std::string name = node.getFunctionName();
    if (! name.empty()) {
        text += " " + name;
    }
    text += "(";
    if (std::shared_ptr<FunctionSignature> signature = node.getFunctionSignature()) {
        const auto& parameters = signature->getParameterList();
        for (size_t i = 1; i < parameters.size(); ++i) {
            text += (i > 1 ? ", " : "") + parameters[i];
        }
    }
    text += "){";
    if (std::shared_ptr<OMExpression> body = node.getExpression()) {
        text += body->toString();
    }
    return text + "}";
}

std::string OMNode::getAsString() const {
    switch (getType()) {
    case OMType::Undefined:
        return "undefined";
    case OMType::Null:
        return "null";
    case OMType::Float:
        return floatToString(getFloat());
    case OMType::String:
        return getString();
    case OMType::Array: {
        static OMValuePath path;
        OMValuePath::Step step(path, *this);
        if (! step.isEntered()) {
            return VALUE_NOT_SHOWN;
        }
        std::string text;
        std::shared_ptr<IOMNodeIterator> iterator = getIterator();
        for (bool first = true; iterator && ! iterator->isAtEnd(); ++*iterator, first = false) {
            std::shared_ptr<OMStored> tempNode = OMStored::undefinedFactory();
            NodePtr child = **iterator;
            if (! SANITY_CHECKED(child && tempNode->set(*child))) {
                break;
            }
            text += (first ? "" : ",") + tempNode->getAsString();
        }
        return text;
    }
    case OMType::Bool:
    case OMType::Date:
    case OMType::Int:
    case OMType::Map:
    case OMType::Expression:
    case OMType::Error:
    case OMType::Function:
    case OMType::NaN:
    case OMType::GUID:
        return toString();
    }
    LOG_ERROR("unexpected type");
    return std::string();
}

std::string OMNode::toString() const {
    static OMValuePath path;
    switch (getType()) {
    case OMType::Undefined:
        return "undefined";
    case OMType::Null:
        return "null";
    case OMType::Bool:
        return getBool() ? "true" : "false";
    case OMType::Date: {
        const time_t date = static_cast<time_t>(getDate());
        struct tm tm {};
        char buffer[64] = {0};
        if (! SANITY_CHECKED(gmtime_r(&date, &tm) != nullptr)) {
            return std::string();
        }
        if (! SANITY_CHECKED(asctime_r(&tm, buffer) != nullptr)) {
            return std::string();
        }
        return Utils::trim(buffer);
    }
    case OMType::Int:
        return std::to_string(getInt());
    case OMType::Float:
        return floatToString(getFloat());
    case OMType::String:
        return "\"" + getString() + "\"";
    case OMType::Array: {
        OMValuePath::Step step(path, *this);
        if (! step.isEntered()) {
            return VALUE_NOT_SHOWN;
        }
        std::string text = "[";
        std::shared_ptr<IOMNodeIterator> iterator = getIterator();
        for (bool first = true; iterator && ! iterator->isAtEnd(); ++*iterator, first = false) {
            NodePtr child = **iterator;
            text += (first ? "" : ", ") + (child ? child->toString() : std::string("undefined"));
        }
        return text + "]";
    }
    case OMType::Map: {
        OMValuePath::Step step(path, *this);
        if (! step.isEntered()) {
            return VALUE_NOT_SHOWN;
        }
        std::string text = "{ ";
        bool first = true;
        for (const std::string& key : getKeys()) {
            NodePtr attrValue = getOMNode(key);
            if (! SANITY_CHECKED(attrValue)) {
                break;
            }
            text += (first ? "\"" : ", \"") + key + "\": " + attrValue->toString();
            first = false;
        }
        return text + " }";
    }
    case OMType::Expression: {
        std::shared_ptr<OMExpression> expression = getExpression();
        return expression ? expression->toString() : std::string();
    }
    case OMType::Error:
        return "error";
    case OMType::Function:
        return functionToString(*this);
    case OMType::NaN:
        return "NaN";
    case OMType::GUID:
        return getGUID() != nullptr ? getGUID()->toSectionedString() : std::string();
    }
    LOG_ERROR("unexpected type");
    return std::string();
}

// ---- data-structure links ----

uint64_t OMNode::getDataStructureIdx() const {
    NodePtr parent = fDataStructureParent.lock();
    if (! parent || parent->getType() != OMType::Array) {
        return ~uint64_t(0);
    }
    if (fDataStructureKey.empty() || ! Utils::isNumeric(fDataStructureKey)) {
        uint64_t position = 0;
        for (auto iterator = parent->getIterator(); iterator && ! iterator->isAtEnd();
             ++*iterator, ++position) {
            if ((**iterator).get() == this) {
                return position;
            }
        }
        return ~uint64_t(0);
    }
    return Utils::toUInt64(fDataStructureKey);
}

std::string OMNode::getDataStructureKey() const {
    NodePtr parent = fDataStructureParent.lock();
    if (! parent) {
        return std::string();
    }
    if (parent->getType() == OMType::Array) {
        return std::to_string(getDataStructureIdx());
    }
    if (parent->getType() != OMType::Map) {
        return std::string();
    }
    NodePtr held;
    if (! fDataStructureKey.empty() &&
        parent->accessOMNodeReadOnlyResolved(nullptr, nullptr, fDataStructureKey, held) &&
        held.get() == this) {
        return fDataStructureKey;
    }
    // The map no longer holds this node under its key: look for it, and remember where it is.
    for (auto iterator = parent->getIterator(); iterator && ! iterator->isAtEnd(); ++*iterator) {
        if ((**iterator).get() == this) {
            const_cast<OMNode*>(this)->fDataStructureKey = iterator->getKey();
            return fDataStructureKey;
        }
    }
    return std::string();
}

std::string OMNode::getSelector() const {
    std::string selector = getDataStructureKey();
    for (NodePtr parent = getDataStructureParent(); parent; parent = parent->getDataStructureParent()) {
        selector = parent->getDataStructureKey() + "/" + selector;
    }
    return selector;
}

bool OMNode::setDataStructureParent(const NodePtr& parent, const std::string& key) {
    bool retVal = false;
    do {
        NodePtr current = fDataStructureParent.lock();
        if (current == parent && (parent || fDataStructureParent.expired())) {
            if (parent) {
                fDataStructureKey = key;
            }
            retVal = true;
            break;
        }
        if (! parent) {
            SANITY_CHECK(setIsDataStructure(false));
        } else {
            fDataStructureParent = parent;
            fDataStructureKey = key;
            SANITY_CHECK(setIsDataStructure(true));
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool OMNode::setIsDataStructure(bool isDataStructure) {
    // Nodes with children keep them in line in their own override.
    fIsDataStructure = isDataStructure;
    if (! isDataStructure) {
        fDataStructureParent.reset();
    }
    return true;
}

// ---- identity and shape ----

std::string OMNode::getFunctionName() const {
    std::shared_ptr<FunctionSignature> signature = getFunctionSignature();
    if (! signature || signature->getParameterList().empty()) {
        return std::string();
    }
    return signature->getParameterList().front();
}

GUIDClass* OMNode::getGUID() const {
    return GUIDClass::factory(0, 0);
}

std::vector<std::string> OMNode::getKeys() const {
    std::vector<std::string> keys;
    if (getType() == OMType::Map) {
        for (auto iterator = getIterator(); iterator && ! iterator->isAtEnd(); ++*iterator) {
            keys.push_back(iterator->getKey());
        }
        std::sort(keys.begin(), keys.end());
    }
    return keys;
}

IOMNode::NodePtr OMNode::getOMNode(const std::string& attr) const {
    NodePtr out;
    if (! accessOMNodeReadOnlyResolved(nullptr, nullptr, attr, out) || ! out) {
        out = OMStored::errorFactory();
    }
    return out;
}

IOMNode::NodePtr OMNode::getOMNode(uint64_t idx) const {
    NodePtr out;
    if (! accessOMNodeReadOnlyResolved(nullptr, nullptr, idx, out) || ! out) {
        out = OMStored::errorFactory();
    }
    return out;
}

std::shared_ptr<OMStored> OMNode::getOMStoredPtr() {
    return std::dynamic_pointer_cast<OMStored>(shared_from_this());
}

OMType OMNode::getType(const std::string& attr) const {
    NodePtr out;
    return accessOMNodeReadOnlyResolved(nullptr, nullptr, attr, out) ? typeOfNode(out) : OMType::Undefined;
}

OMType OMNode::getType(uint64_t idx) const {
    NodePtr out;
    return accessOMNodeReadOnlyResolved(nullptr, nullptr, idx, out) ? typeOfNode(out) : OMType::Undefined;
}

uint64_t OMNode::hash() const {
    static OMValuePath path;
    switch (getType()) {
    case OMType::Undefined:
        return UNDEFINED_HASH;
    case OMType::Null:
        return NULL_HASH;
    case OMType::Bool:
        return getBool() ? TRUE_HASH : FALSE_HASH;
    case OMType::Date:
        return hashOfWord(static_cast<uint64_t>(getDate()));
    case OMType::Int:
        return hashOfWord(static_cast<uint64_t>(getInt()));
    case OMType::Float: {
        double value = getFloat();
        if (value == 0.0) {
            value = 0.0; // -0.0 hashes as +0.0
        }
        uint64_t bits = 0;
        static_assert(sizeof(bits) == sizeof(value));
        std::memcpy(&bits, &value, sizeof(bits));
        return hashOfWord(bits);
    }
    case OMType::String:
        return FNV1aHash::hashBytes(getString());
    case OMType::Array: {
        OMValuePath::Step step(path, *this);
        if (! step.isEntered()) {
            return UNWALKED_CONTAINER_HASH;
        }
        uint64_t hash = 0;
        for (auto iterator = getIterator(); iterator && ! iterator->isAtEnd(); ++*iterator) {
            NodePtr child = **iterator;
            hash ^= hashOfWord(child ? child->hash() : 0);
        }
        return hash;
    }
    case OMType::Map: {
        OMValuePath::Step step(path, *this);
        if (! step.isEntered()) {
            return UNWALKED_CONTAINER_HASH;
        }
        uint64_t hash = MAP_HASH_SEED;
        for (auto iterator = getIterator(); iterator && ! iterator->isAtEnd(); ++*iterator) {
            NodePtr child = **iterator;
            hash ^= FNV1aHash::hashBytes(iterator->getKey()) ^ hashOfWord(child ? child->hash() : 0);
        }
        return hash;
    }
    case OMType::Expression: {
        std::shared_ptr<OMExpression> expression = getExpression();
        if (! SANITY_CHECKED(expression)) {
            return 0;
        }
        return expression->hash();
    }
    case OMType::Error:
        return ERROR_HASH;
    case OMType::Function: {
        uint64_t hash = FNV1aHash::hashBytes(getFunctionName());
        if (std::shared_ptr<FunctionSignature> signature = getFunctionSignature()) {
            for (const std::string& parameter : signature->getParameterList()) {
                hash = FNV1aHash::hashBytes(parameter, hash);
            }
        }
        return hash;
    }
    case OMType::NaN:
        return NAN_HASH;
    case OMType::GUID: {
        GUIDClass* guid = getGUID();
        return guid != nullptr ? guid->get().fHigh ^ guid->get().fLow : 0;
    }
    }
    return 0;
}

bool OMNode::isKeyword() const {
    std::shared_ptr<OMExpression> expression = getType() == OMType::Expression ? getExpression() : nullptr;
    return expression && expression->getExpressionKind() == OMExpression::KEYWORD;
}

bool OMNode::isKeyword(int32_t token) const {
    std::shared_ptr<OMExpression> expression = getType() == OMType::Expression ? getExpression() : nullptr;
    return expression && expression->getExpressionKind() == OMExpression::KEYWORD &&
           expression->getToken() == token;
}

bool OMNode::isLValue() const {
    std::shared_ptr<OMExpression> expression = getType() == OMType::Expression ? getExpression() : nullptr;
    return expression && expression->isLValue();
}

bool OMNode::isReturnValue() const {
    std::shared_ptr<OMExpression> expression = getType() == OMType::Expression ? getExpression() : nullptr;
    return expression && expression->isReturnUnary();
}

bool OMNode::isResolved(ScriptPhase scriptPhase) const {
    switch (getType()) {
    case OMType::Array:
    case OMType::Map: {
        if (scriptPhase == RUN) {
            // Containers that reach run time were built from resolved values (getResolvedNode_yielding
            // copies a literal with its elements resolved): walking a large map on every access would
            // make each access cost its size.
            return true;
        }
        std::shared_ptr<IOMNodeIterator> iterator = getIterator();
        if (! SANITY_CHECKED(iterator)) {
            return false;
        }
        for (; ! iterator->isAtEnd(); ++*iterator) {
            NodePtr child = **iterator;
            if (child && ! child->isResolved(scriptPhase)) {
                return false;
            }
        }
        return true;
    }
    case OMType::Expression:
        return scriptPhase != PARSE && (isKeyword() || isReturnValue() || isLValue());
    case OMType::Function:
        return scriptPhase != PARSE;
    default:
        return true;
    }
}

bool OMNode::isScalar() const {
    switch (getType()) {
    case OMType::Bool:
    case OMType::Int:
    case OMType::Float:
    case OMType::String:
    case OMType::Error:
    case OMType::GUID:
        return true;
    case OMType::Undefined:
    case OMType::Null:
    case OMType::Date:
    case OMType::Array:
    case OMType::Map:
    case OMType::Expression:
    case OMType::Function:
    case OMType::NaN:
        return false;
    }
    LOG_ERROR("unexpected type");
    return false;
}

// ---- assignment ----

IOMNode::NodePtr OMNode::pop() {
    LOG_ERROR("unimplemented pop()");
    return OMStored::undefinedFactory();
}

IOMNode::NodePtr OMNode::set(const NodePtr& from) {
    if (! from) {
        return setUndefined() ? shared_from_this() : nullptr;
    }
    return set(*from);
}

IOMNode::NodePtr OMNode::set(const IOMNode& from) {
    if (&from == this) {
        return shared_from_this();
    }
    return setTo(from, 0) ? shared_from_this() : nullptr;
}

bool OMNode::setNum(double value) {
    if (std::isnan(value)) {
        return setNaN();
    }
    if (value >= -9.2233720368547758e18 && value < 9.2233720368547758e18) {
        const OMInt whole = static_cast<OMInt>(value);
        if (static_cast<double>(whole) == value) {
            return set(whole);
        }
    }
    return set(static_cast<OMFloat>(value));
}

bool OMNode::setTo(const IOMNode& from, uint64_t) {
    return &from == this;
}

namespace {

// The synchronous store of a child: setAndAccess_yielding run to its end; the child, or null.
template <class Key>
IOMNode::NodePtr setSyncByKey(IOMNode& parent, const Key& key, const IOMNode::NodePtr& node) {
    IOMNode::NodePtr retVal;
    do {
        SANITY_CHECK(&parent != node.get());
        IOMNode::NodePtr stored = node;
        bool found = false;
        const bool ran = CallTask::call("setAndAccess", [&](const IOMNode::TaskPtr& task) {
            parent.setAndAccess_yielding(task, found, key, stored);
        });
        if (ran && found) {
            retVal = stored;
        }
    } while (false);
    return retVal;
}

} // namespace

IOMNode::NodePtr OMNode::setSync(uint64_t idx, const NodePtr& node) {
    return setSyncByKey(*this, idx, node);
}

IOMNode::NodePtr OMNode::setSync(const std::string& attr, const NodePtr& node) {
    return setSyncByKey(*this, attr, node);
}

IOMNode::NodePtr OMNode::setSyncToCloned(uint64_t idx, const NodePtr& node) {
    NodePtr retVal;
    do {
        SANITY_CHECK(this != node.get());
        SANITY_CHECK(node);
        retVal = setSync(idx, node->clone(0));
    } while (false);
    return retVal;
}

IOMNode::NodePtr OMNode::setSyncToCloned(const std::string& attr, const NodePtr& node) {
    NodePtr retVal;
    do {
        SANITY_CHECK(this != node.get());
        SANITY_CHECK(node);
        retVal = setSync(attr, node->clone(0));
    } while (false);
    return retVal;
}

void OMNode::set_yielding(const TaskPtr& task, NodePtr& out, uint64_t idx, const NodePtr& fromNode) {
    struct LocalVariableState : OMFunctionState {
        bool success = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    YIELDING_CHECK(this != fromNode.get());
    YIELDING_CHECK(fromNode);
    out = fromNode->clone(0);
    YIELDING_CALL(setAndAccess_yielding(task, frame->success, idx, out));
    YIELDING_CHECK(frame->success);
    YIELDING_END;
}

void OMNode::set_yielding(const TaskPtr& task, NodePtr& out, const std::string& attr,
                          const NodePtr& fromNode) {
    struct LocalVariableState : OMFunctionState {
        bool success = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    YIELDING_CHECK(this != fromNode.get());
    YIELDING_CHECK(fromNode);
    out = fromNode->clone(0);
    YIELDING_CALL(setAndAccess_yielding(task, frame->success, attr, out));
    YIELDING_CHECK(frame->success);
    YIELDING_END;
}

void OMNode::setAndAccess_yielding(const TaskPtr& task, bool& found, uint64_t idx, NodePtr& node) {
    struct LocalVariableState : OMFunctionState {
        NodePtr child;
    };
    YIELDING_BEGIN(LocalVariableState, frame, found = false);
    YIELDING_CALL(
        accessOMNodeResolved_yielding(task, found, nullptr, nullptr, GET_CREATE, idx, frame->child));
    if (found && frame->child) {
        found = static_cast<bool>(frame->child->set(node));
        node = frame->child;
    }
    YIELDING_END;
}

void OMNode::setAndAccess_yielding(const TaskPtr& task, bool& found, const std::string& attr, NodePtr& node) {
    struct LocalVariableState : OMFunctionState {
        NodePtr child;
    };
    YIELDING_BEGIN(LocalVariableState, frame, found = false);
    YIELDING_CALL(
        accessOMNodeResolved_yielding(task, found, nullptr, nullptr, GET_CREATE, attr, frame->child));
    if (found && frame->child) {
        found = static_cast<bool>(frame->child->set(node));
        node = frame->child;
    }
    YIELDING_END;
}

void OMNode::setAndAccess_yielding(const TaskPtr&, bool& found, NodePtr& node) {
    found = static_cast<bool>(set(node));
    node = shared_from_this();
}

// ---- resolution ----

void OMNode::resolveArgumentList_yielding(const TaskPtr& task, OMArgs& outList, AccessType accessType,
                                          const OMArgs& argList, bool& found, const ScopePtr& scope,
                                          ScriptPhase scriptPhase) {
    struct LocalVariableState : OMFunctionState {
        size_t index = 0;
        NodePtr resolved;
    };
    YIELDING_BEGIN(LocalVariableState, frame, found = false);
    outList = std::make_shared<std::vector<NodePtr>>();
    if (argList) {
        outList->reserve(argList->size());
        for (frame->index = 0; frame->index < argList->size(); ++frame->index) {
            YIELDING_CALL(getResolvedNode_yielding(task, frame->resolved, accessType,
                                                   (*argList)[frame->index], scope, scriptPhase,
                                                   UNWRAP_RETURN_VALUE));
            outList->push_back(frame->resolved);
        }
    }
    found = true;
    YIELDING_END;
}

void OMNode::getResolvedNode_yielding(const TaskPtr& task, NodePtr& retVal, AccessType accessType,
                                      const NodePtr& node, const ScopePtr& scope, ScriptPhase scriptPhase,
                                      HandleReturnValue handleReturnValue) {
    struct LocalVariableState : OMFunctionState {
        std::shared_ptr<IOMNodeIterator> iterator; // over the children of a container
        NodePtr container;                         // the copy being filled
        NodePtr element;                           // a resolved child
        NodePtr stored;                            // what the store gave back
        NodePtr evaluated;                         // result of an expression
    };
    if (node && scope && node->getType() == OMType::Expression && accessType == GET && scriptPhase == RUN) {
        // Evaluating an expression is the whole of it: forwarded as the last act, without a frame.
        node->eval_yielding(task, retVal, scope, handleReturnValue);
        return;
    }
    if (scriptPhase == PARSE && node && node->getType() == OMType::Expression &&
        ! task->hasPendingFunctionState() && node->getExpression() && node->getExpression()->isUnfoldable()) {
        // Its own fold found nothing constant, and a second walk wouldn't either: a long chain of operators
        // would otherwise be walked anew for every operator added.
        retVal = node;
        return;
    }
    if (node && ! task->hasPendingFunctionState()) {
        const OMType type = node->getType();
        if (! scope || (type != OMType::Array && type != OMType::Map && type != OMType::Function &&
                        type != OMType::Expression)) {
            // A plain value is its own value: no frame for the most common case.
            retVal = node;
            return;
        }
    }
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    retVal = node;
    YIELDING_CHECK(retVal);
    if (! scope) {
        YIELDING_FINISH;
    }
    if (node->getType() == OMType::Array || node->getType() == OMType::Map) {
        // The copy is made even when nothing in the container needed resolving.
        frame->container =
            node->getType() == OMType::Array ? OMStored::arrayFactory() : OMStored::mapFactory();
        for (frame->iterator = node->getIterator(); frame->iterator && ! frame->iterator->isAtEnd();
             ++*frame->iterator) {
            YIELDING_CALL(getResolvedNode_yielding(task, frame->element, accessType, **frame->iterator, scope,
                                                   scriptPhase, UNWRAP_RETURN_VALUE));
            if (node->getType() == OMType::Array) {
                frame->container->push(frame->element);
            } else {
                YIELDING_CALL(frame->container->set_yielding(task, frame->stored, frame->iterator->getKey(),
                                                             frame->element));
                (void)SANITY_CHECKED(frame->stored);
            }
        }
        retVal = frame->container;
    } else if (node->getType() == OMType::Function) {
        if (! node->getFunctionName().empty()) {
            YIELDING_CALL(scope->set_yielding(task, frame->stored, node->getFunctionName(), node));
        }
    } else if (node->getType() == OMType::Expression) {
        // A write reaches the left value with its access type, so that `x = 1` makes an unknown x.
        if (accessType != GET || scriptPhase == PARSE) {
            if (node->getExpression()) {
                YIELDING_CALL(node->getExpression()->get_yielding(task, frame->evaluated, accessType, scope,
                                                                  scriptPhase));
                if (frame->evaluated) {
                    retVal = frame->evaluated;
                }
            }
        } else {
            YIELDING_CALL(node->eval_yielding(task, frame->evaluated, scope, handleReturnValue));
            retVal = frame->evaluated;
        }
    }
    YIELDING_CHECK(retVal);
    YIELDING_END;
}

IOMNode::NodePtr OMNode::unwrapReturnValue() {
    NodePtr retVal = shared_from_this();
    while (retVal && retVal->isReturnValue()) {
        std::shared_ptr<OMExpression> expression = retVal->getExpression();
        retVal = expression ? expression->getOperand() : nullptr;
        (void)SANITY_CHECKED(retVal);
    }
    return retVal;
}

IOMNode::NodePtr OMNode::wrapReturnValue() {
    NodePtr retVal;
    do {
        std::shared_ptr<OMStored> operand = OMStored::rewrapFactory(*this);
        SANITY_CHECK(operand);
        std::shared_ptr<OMExpression> wrappedExpression = OMExpression::returnFactory(operand);
        SANITY_CHECK(wrappedExpression);
        retVal = OMStored::factory(wrappedExpression);
    } while (false);
    return retVal;
}

// ---- building expressions ----

void OMNode::foldExpression_yielding(const TaskPtr& task, NodePtr& out,
                                     const std::shared_ptr<OMExpression>& expression) {
    struct LocalVariableState : OMFunctionState {
        NodePtr expressionNode;         // the new expression, held in a node
        std::shared_ptr<OMScope> scope; // isolated: folding sees no variables
        NodePtr resolved;               // what it evaluates to at parse time
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    YIELDING_CHECK(expression);
    YIELDING_ASSIGN(frame->expressionNode, OMStored::factory(expression));
    YIELDING_ASSIGN(frame->scope, OMScope::factory());
    YIELDING_CALL(getResolvedNode_yielding(task, frame->resolved, GET, frame->expressionNode, frame->scope,
                                           PARSE, KEEP_RETURN_VALUE));
    out = frame->resolved && frame->resolved->isResolved(PARSE) ? frame->resolved : frame->expressionNode;
    if (out == frame->expressionNode) {
        expression->markUnfoldable();
    }
    YIELDING_END;
}

void OMNode::registerBinaryOperation_yielding(const TaskPtr& task, NodePtr& out, BinOp op,
                                              const NodePtr& node1, const NodePtr& node2) {
    struct LocalVariableState : OMFunctionState {
        std::shared_ptr<OMExpression> expression;
        NodePtr result;
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    YIELDING_CHECK(node1);
    YIELDING_CHECK(node2);
    if (op == ASSIGN && ! node1->isLValue()) {
        // `7 = a` and the like: nothing to assign to, and the parse fails.
        out.reset();
        YIELDING_FINISH;
    }
    if (op == COMMA || op == SEMICOLON || op == ADD) {
        std::shared_ptr<OMExpression> expression1 =
            node1->getType() == OMType::Expression ? node1->getExpression() : nullptr;
        auto sequence = std::dynamic_pointer_cast<OMExpressionSequence>(expression1);
        if (sequence && sequence->getBinOp() == op) {
            // The chain grows in place: no new expression.
            YIELDING_CHECK(sequence->append(node2));
            frame->expression = sequence;
        } else {
            YIELDING_ASSIGN(frame->expression, OMExpressionSequence::factory(op, node1, node2));
        }
    } else {
        frame->expression = OMExpressionBinary::factory(op, node1, node2);
        YIELDING_CHECK(frame->expression);
    }
    YIELDING_CALL(foldExpression_yielding(task, frame->result, frame->expression));
    out = frame->result;
    YIELDING_END;
}

void OMNode::registerUnaryOperation_yielding(const TaskPtr& task, NodePtr& out, UnOp op,
                                             const NodePtr& node) {
    struct LocalVariableState : OMFunctionState {
        std::shared_ptr<OMExpression> expression;
        NodePtr result;
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    frame->expression = OMExpressionUnary::factory(op, node);
    YIELDING_CHECK(frame->expression);
    YIELDING_CALL(foldExpression_yielding(task, frame->result, frame->expression));
    out = frame->result;
    YIELDING_END;
}

void OMNode::registerTernaryOperation_yielding(const TaskPtr& task, NodePtr& out, TernOp op,
                                               const NodePtr& node1, const NodePtr& node2,
                                               const NodePtr& node3) {
    struct LocalVariableState : OMFunctionState {
        std::shared_ptr<OMExpression> expression;
        NodePtr result;
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    frame->expression = OMExpressionTernary::factory(op, node1, node2, node3);
    if (! frame->expression) {
        LOG_ERROR("failed to register ternary operation");
        YIELDING_FINISH;
    }
    YIELDING_CALL(foldExpression_yielding(task, frame->result, frame->expression));
    out = frame->result;
    YIELDING_END;
}

void OMNode::registerKeywordOperation_yielding(const TaskPtr&, NodePtr& out, int32_t token) {
    out = OMStored::factory(OMExpressionKeyword::factory(static_cast<Token>(token)));
    if (! out) {
        LOG_ERROR("failed to register keyword operation");
    }
}

} // namespace Brw
