#include "BrwParser/BrwOMStored.h"

#include <algorithm>
#include <cstdio>

#include "BrwLogger/BrwCheck.h"
#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwObject/BrwGUIDClass.h"
#include "BrwParser/BrwOMExpression.h"
#include "BrwParser/BrwOMExpressionLValue.h"
#include "BrwParser/BrwOMQuickFunction.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMValuePath.h"
#include "BrwTask/BrwYielding.h"
#include "BrwUtils/BrwStackGuard.h"

namespace Brw {

namespace {

template <class... Args>
std::shared_ptr<OMStored> makeStored(bool (OMStored::*setter)(Args...), Args... args) {
    std::shared_ptr<OMStored> retVal;
    do {
        retVal = std::make_shared<OMStored>();
        if (! SANITY_CHECKED(((*retVal).*setter)(args...))) {
            retVal.reset();
        }
    } while (false);
    return retVal;
}

bool isAllDigits(const std::string& text) {
    return Utils::isNumeric(text);
}

} // namespace

OMStored::OMStored() {
    ++fOMStoredCount;
}

namespace {

// Elements of containers that went with their last holder, let go one at a time: a value nested a million
// deep would otherwise be freed by a recursion as deep, past the end of the stack.
std::vector<IOMNode::NodePtr>& elementsToRelease() {
    static auto* elements = new std::vector<IOMNode::NodePtr>();
    return *elements;
}

bool gIsReleasingElements = false; // the outermost destructor lets go of them; the others only add

} // namespace

OMStored::~OMStored() {
    --fOMStoredCount;
    std::vector<NodePtr>& elements = elementsToRelease();
    if (fArray && fArray.use_count() == 1) {
        fArray->takeElements(elements);
    }
    if (fMap && fMap.use_count() == 1) {
        fMap->takeElements(elements);
    }
    if (! gIsReleasingElements) {
        gIsReleasingElements = true;
        while (! elements.empty()) {
            NodePtr element = std::move(elements.back());
            elements.pop_back();
        }
        gIsReleasingElements = false;
    }
}

// ---- factories ----

std::shared_ptr<OMStored> OMStored::undefinedFactory() {
    return std::make_shared<OMStored>();
}

std::shared_ptr<OMStored> OMStored::nullFactory() {
    return makeStored(&OMStored::setNull);
}

std::shared_ptr<OMStored> OMStored::nanFactory() {
    return makeStored(&OMStored::setNaN);
}

std::shared_ptr<OMStored> OMStored::errorFactory() {
    return makeStored(&OMStored::setError);
}

std::shared_ptr<OMStored> OMStored::arrayFactory() {
    return makeStored(&OMStored::setEmptyArray);
}

std::shared_ptr<OMStored> OMStored::mapFactory() {
    return makeStored(&OMStored::setEmptyMap);
}

std::shared_ptr<OMStored> OMStored::factory(bool value) {
    return makeStored<bool>(&OMStored::set, value);
}

std::shared_ptr<OMStored> OMStored::factory(OMInt value) {
    return makeStored<OMInt>(&OMStored::set, value);
}

std::shared_ptr<OMStored> OMStored::factory(OMFloat value) {
    return makeStored<OMFloat>(&OMStored::set, value);
}

std::shared_ptr<OMStored> OMStored::factory(const char* value) {
    return makeStored<const std::string&>(&OMStored::set, std::string(value != nullptr ? value : ""));
}

std::shared_ptr<OMStored> OMStored::factory(const std::string& value) {
    return makeStored<const std::string&>(&OMStored::set, value);
}

std::shared_ptr<OMStored> OMStored::factory(const std::shared_ptr<OMArray>& array) {
    return makeStored<const std::shared_ptr<OMArray>&>(&OMStored::set, array);
}

std::shared_ptr<OMStored> OMStored::factory(const std::shared_ptr<OMExpression>& expression) {
    return makeStored<const std::shared_ptr<OMExpression>&>(&OMStored::set, expression);
}

std::shared_ptr<OMStored> OMStored::factory(const std::shared_ptr<FunctionSignature>& signature,
                                            const std::shared_ptr<OMExpression>& expression) {
    return makeStored<const std::shared_ptr<FunctionSignature>&, const std::shared_ptr<OMExpression>&>(
        &OMStored::set, signature, expression);
}

std::shared_ptr<OMStored> OMStored::cloneFactory(const IOMNode& fromOMNode, uint64_t cloneNestLevel) {
    std::shared_ptr<OMStored> retVal = undefinedFactory();
    if (! SANITY_CHECKED(retVal->setTo(fromOMNode, cloneNestLevel))) {
        retVal.reset();
    }
    return retVal;
}

std::shared_ptr<OMStored> OMStored::rewrapFactory(const IOMNode& fromOMNode) {
    if (const OMStored* stored = fromOMNode.getOMStoredRaw()) {
        // The same node: shares its owner, no copy.
        return std::shared_ptr<OMStored>(std::const_pointer_cast<IOMNode>(fromOMNode.shared_from_this()),
                                         const_cast<OMStored*>(stored));
    }
    std::shared_ptr<OMStored> retVal = undefinedFactory();
    if (! SANITY_CHECKED(retVal->set(fromOMNode))) {
        retVal.reset();
    }
    return retVal;
}

// ---- setters ----

bool OMStored::setUndefined() {
    bool retVal = false;
    do {
        if (fType == OMType::Array) {
            SANITY_CHECK(fArray);
            fArray.reset();
        } else if (fType == OMType::Map) {
            SANITY_CHECK(fMap);
            fMap.reset();
        }
        fFunctionSignature.reset();
        fString.clear();
        fUnion.fInt = 0;
        fType = OMType::Undefined;
        retVal = true;
    } while (false);
    return retVal;
}

// Every setter starts from Undefined.
#define BRW_SET_UNDEFINED_FIRST                                                                              \
    if (fType != OMType::Undefined && ! SANITY_CHECKED(setUndefined())) {                                    \
        return false;                                                                                        \
    }

bool OMStored::set(bool value) {
    BRW_SET_UNDEFINED_FIRST
    fUnion.fBool = value;
    fType = OMType::Bool;
    return true;
}

bool OMStored::set(OMInt value) {
    BRW_SET_UNDEFINED_FIRST
    fUnion.fInt = value;
    fType = OMType::Int;
    return true;
}

bool OMStored::set(OMFloat value) {
    BRW_SET_UNDEFINED_FIRST
    fUnion.fFloat = value;
    fType = OMType::Float;
    return true;
}

bool OMStored::set(const std::string& str) {
    if (&str == &fString) {
        return fType == OMType::String;
    }
    BRW_SET_UNDEFINED_FIRST
    fString = str;
    fType = OMType::String;
    return true;
}

bool OMStored::appendString(const std::string& text) {
    if (fType != OMType::String) {
        return false;
    }
    fString += text;
    return true;
}

bool OMStored::set(const char* str) {
    return set(std::string(str != nullptr ? str : ""));
}

bool OMStored::set(const std::shared_ptr<OMArray>& array) {
    std::shared_ptr<OMArray> keep = array;
    BRW_SET_UNDEFINED_FIRST
    if (! SANITY_CHECKED(keep)) {
        return false;
    }
    fArray = keep;
    fType = OMType::Array;
    return true;
}

bool OMStored::set(const std::shared_ptr<OMMap>& map) {
    std::shared_ptr<OMMap> keep = map;
    BRW_SET_UNDEFINED_FIRST
    if (! SANITY_CHECKED(keep)) {
        return false;
    }
    fMap = keep;
    fType = OMType::Map;
    return true;
}

bool OMStored::set(const std::shared_ptr<OMExpression>& expression) {
    std::shared_ptr<OMExpression> keep = expression;
    BRW_SET_UNDEFINED_FIRST
    fExpression = keep;
    fType = OMType::Expression;
    return true;
}

bool OMStored::set(const std::shared_ptr<FunctionSignature>& signature,
                   const std::shared_ptr<OMExpression>& expression) {
    std::shared_ptr<FunctionSignature> keepSignature = signature;
    std::shared_ptr<OMExpression> keepExpression = expression;
    BRW_SET_UNDEFINED_FIRST
    fFunctionSignature = keepSignature;
    fExpression = keepExpression;
    fType = OMType::Function;
    return true;
}

bool OMStored::setDate(OMInt date) {
    BRW_SET_UNDEFINED_FIRST
    fUnion.fDate = date;
    fType = OMType::Date;
    return true;
}

bool OMStored::setEmptyArray() {
    BRW_SET_UNDEFINED_FIRST
    fArray = std::make_shared<OMArray>();
    fType = OMType::Array;
    return true;
}

bool OMStored::setEmptyMap() {
    BRW_SET_UNDEFINED_FIRST
    fMap = std::make_shared<OMMap>();
    fType = OMType::Map;
    return true;
}

bool OMStored::setError() {
    BRW_SET_UNDEFINED_FIRST
    fType = OMType::Error;
    return true;
}

bool OMStored::setNaN() {
    BRW_SET_UNDEFINED_FIRST
    fType = OMType::NaN;
    return true;
}

bool OMStored::setNull() {
    BRW_SET_UNDEFINED_FIRST
    fType = OMType::Null;
    return true;
}

bool OMStored::setGUID(GUIDClass* guid) {
    BRW_SET_UNDEFINED_FIRST
    fUnion.fGUID = guid != nullptr ? guid : GUIDClass::factory(0, 0);
    fType = OMType::GUID;
    return true;
}

#undef BRW_SET_UNDEFINED_FIRST

// ---- getters ----

bool OMStored::getBool() const {
    return fType == OMType::Bool && fUnion.fBool;
}

OMInt OMStored::getInt() const {
    return fType == OMType::Int ? fUnion.fInt : 0;
}

OMFloat OMStored::getFloat() const {
    return fType == OMType::Float ? fUnion.fFloat : 0.0;
}

OMInt OMStored::getDate() const {
    return fType == OMType::Date ? fUnion.fDate : 0;
}

GUIDClass* OMStored::getGUID() const {
    if (fType != OMType::GUID) {
        return GUIDClass::factory(0, 0);
    }
    EXPECTED(fUnion.fGUID);
    return fUnion.fGUID != nullptr ? fUnion.fGUID : GUIDClass::factory(0, 0);
}

std::string OMStored::getString() const {
    return fType == OMType::String ? fString : std::string();
}

uint64_t OMStored::getSize() const {
    if (fArray) {
        return fArray->size();
    }
    return fMap ? fMap->size() : 0;
}

std::vector<std::string> OMStored::getKeys() const {
    std::vector<std::string> keys;
    if (fType == OMType::Map && fMap) {
        keys.reserve(fMap->size());
        for (const auto& [key, value] : *fMap) {
            keys.push_back(key);
        }
        std::sort(keys.begin(), keys.end());
    }
    return keys;
}

std::shared_ptr<IOMNodeIterator> OMStored::getIterator() const {
    return std::make_shared<OMStoredNodeIterator>(
        std::dynamic_pointer_cast<const OMStored>(shared_from_this()));
}

std::shared_ptr<OMStored> OMStored::getOMStoredPtr() {
    return std::shared_ptr<OMStored>(shared_from_this(), this);
}

bool OMStored::getArrayBegin(OMArray::const_iterator& position) const {
    if (fType != OMType::Array || ! fArray) {
        return false;
    }
    position = fArray->cbegin();
    return true;
}

bool OMStored::getMapBegin(OMMap::const_iterator& position) const {
    if (fType != OMType::Map || ! fMap) {
        return false;
    }
    position = fMap->cbegin();
    return true;
}

bool OMStored::isMapEnd(const OMMap::const_iterator& iterator) const {
    return fType != OMType::Map || ! fMap || iterator == fMap->cend();
}

bool OMStored::isArrayEnd(const OMArray::const_iterator& iterator) const {
    return fType != OMType::Array || ! fArray || iterator == fArray->cend();
}

uint32_t OMStored::getPermissions(const std::string& attr) const {
    if (fPermissions) {
        auto iter = fPermissions->find(attr);
        if (iter != fPermissions->end()) {
            return iter->second;
        }
    }
    return PERMISSION_DEFAULT;
}

bool OMStored::setPermissions(const std::string& attr, uint32_t permissions) {
    if (! fPermissions) {
        if (permissions == PERMISSION_DEFAULT) {
            return true;
        }
        fPermissions = std::make_unique<std::unordered_map<std::string, uint32_t>>();
    }
    if (permissions == PERMISSION_DEFAULT && fPermissions->count(attr) == 0) {
        return true;
    }
    (*fPermissions)[attr] = permissions;
    return true;
}

// ---- containers ----

bool OMStored::push(const NodePtr& node) {
    bool retVal = false;
    do {
        if (fType != OMType::Array) {
            break;
        }
        SANITY_CHECK(fArray);
        if (! ScriptLimits::isContainerAllowed(fArray->size() + 1)) {
            break;
        }
        fArray->push_back(node);
        retVal = true;
    } while (false);
    return retVal;
}

IOMNode::NodePtr OMStored::pop() {
    NodePtr retVal;
    do {
        if (fType != OMType::Array) {
            break;
        }
        SANITY_CHECK(fArray);
        if (! fArray->empty()) {
            retVal = fArray->back();
            fArray->pop_back();
        }
    } while (false);
    return retVal ? retVal : undefinedFactory();
}

bool OMStored::removeIdx(uint64_t idx) {
    if (fType == OMType::Array && fArray && idx < fArray->size()) {
        fArray->erase(fArray->begin() + static_cast<std::ptrdiff_t>(idx));
    }
    return fType == OMType::Array || fType == OMType::Map;
}

bool OMStored::removeAttr(const std::string& attr) {
    if (fType == OMType::Map && fMap) {
        fMap->erase(attr);
    }
    return fType == OMType::Array || fType == OMType::Map;
}

IOMNode::NodePtr OMStored::clone(uint64_t cloneNestLevel) const {
    return cloneFactory(*this, cloneNestLevel);
}

// ---- copying ----

bool OMStored::setTo(const IOMNode& from, uint64_t cloneNestLevel) {
    bool retVal = false;
    do {
        if (&from == this) {
            retVal = true;
            break;
        }
        // Assignment keeps this node's place in its own tree.
        NodePtr parent = fDataStructureParent.lock();
        const std::string key = fDataStructureKey;
        clear();
        if (parent) {
            fDataStructureParent = parent;
            fDataStructureKey = key;
        }
        fIsDataStructure = static_cast<bool>(parent) || from.isDataStructure();
        const OMStored* fromStored = from.getOMStoredRaw();
        if (fromStored != nullptr && fromStored->fPermissions) {
            fPermissions =
                std::make_unique<std::unordered_map<std::string, uint32_t>>(*fromStored->fPermissions);
        }
        bool success = false;
        switch (from.getType()) {
        case OMType::Undefined:
            success = true;
            break;
        case OMType::Null:
            success = setNull();
            break;
        case OMType::Error:
            success = setError();
            break;
        case OMType::NaN:
            success = setNaN();
            break;
        case OMType::Bool:
            success = set(from.getBool());
            break;
        case OMType::Date:
            success = setDate(from.getDate());
            break;
        case OMType::Int:
            success = set(from.getInt());
            break;
        case OMType::Float:
            success = set(from.getFloat());
            break;
        case OMType::String:
            success = set(from.getString());
            break;
        case OMType::Expression:
            success = set(from.getExpression());
            break;
        case OMType::Function:
            success = set(from.getFunctionSignature(), from.getExpression());
            break;
        case OMType::Array:
        case OMType::Map:
            success = copyContainerFrom(from, cloneNestLevel);
            break;
        default:
            // NOTE: a GUID value can't be copied by assignment; that limit stands.
            LOG_ERROR("unexpected type");
            break;
        }
        retVal = SANITY_CHECKED(success);
    } while (false);
    return retVal;
}

bool OMStored::copyContainerFrom(const IOMNode& from, uint64_t cloneNestLevel) {
    bool retVal = false;
    do {
        const bool isArray = from.getType() == OMType::Array;
        SANITY_CHECK(isArray ? setEmptyArray() : setEmptyMap());
        const OMStored* fromStored = from.getOMStoredRaw();
        static OMValuePath path;
        OMValuePath::Step step(path, from);
        if (fromStored != nullptr && ((! fIsDataStructure && cloneNestLevel == 0) || ! step.isEntered())) {
            // Plain variables share containers, and so does a copy of one that holds itself or is nested
            // deeper than copies go.
            fArray = fromStored->fArray;
            fMap = fromStored->fMap;
            retVal = true;
            break;
        }
        if (cloneNestLevel != 0 && cloneNestLevel != CLONE_ALL_LEVELS) {
            --cloneNestLevel;
        }
        NodePtr thisNode = shared_from_this();
        bool allOK = true;
        for (auto iterator = from.getIterator(); iterator && ! iterator->isAtEnd(); ++*iterator) {
            NodePtr copyFrom = **iterator;
            const std::string key = isArray ? std::to_string(fArray->size()) : iterator->getKey();
            if (! SANITY_CHECKED(copyFrom)) {
                allOK = false;
                break;
            }
            if (! isArray && (getPermissions(key) & PERMISSION_WRITE) == 0) {
                LOG_ERROR("not permitted -- need PERMISSION_WRITE");
                continue;
            }
            NodePtr copy = cloneFactory(*copyFrom, cloneNestLevel);
            if (copy && fIsDataStructure) {
                copy = copy->clone(cloneNestLevel);
                VERIFY(copy && copy->setDataStructureParent(thisNode, key));
            }
            if (! copy) {
                copy = undefinedFactory();
            }
            if (isArray) {
                fArray->push_back(copy);
            } else {
                (*fMap)[key] = copy;
            }
        }
        retVal = allOK;
    } while (false);
    return retVal;
}

bool OMStored::setIsDataStructure(bool isDataStructure) {
    fIsDataStructure = isDataStructure;
    if (! isDataStructure) {
        fDataStructureParent.reset();
    }
    if (fType != OMType::Array && fType != OMType::Map) {
        return true;
    }
    NodePtr self = shared_from_this();
    auto bringIntoLine = [&](NodePtr& subNode, const std::string& name) {
        if (! SANITY_CHECKED(subNode)) {
            return false;
        }
        const bool isOwnChild = subNode->getDataStructureParent() == self;
        if (! isDataStructure) {
            if (isOwnChild) {
                VERIFY(subNode->setIsDataStructure(false));
            }
            // NOTE: the link is made again right away: the children keep their place in this tree.
            VERIFY(subNode->setDataStructureParent(self, name));
        } else if (! isOwnChild) {
            // A node of another tree can't hang here too: this tree gets its own copy.
            NodePtr copy = subNode->clone(CLONE_ALL_LEVELS);
            if (! copy) {
                return false;
            }
            subNode = copy;
            VERIFY(subNode->setDataStructureParent(self, name));
        }
        return true;
    };
    bool allOK = true;
    if (fType == OMType::Array && fArray) {
        for (size_t i = 0; i < fArray->size() && allOK; ++i) {
            allOK = bringIntoLine((*fArray)[i], std::to_string(i));
        }
    } else if (fType == OMType::Map && fMap) {
        for (auto& [key, subNode] : *fMap) {
            if (! bringIntoLine(subNode, key)) {
                allOK = false;
                break;
            }
        }
    }
    return allOK;
}

// ---- access ----

IOMNode::NodePtr OMStored::adoptChild(const NodePtr& node, const std::string& key) {
    NodePtr child = node;
    NodePtr thisNode = shared_from_this();
    if (fIsDataStructure && child->getDataStructureParent() != thisNode) {
        child = child->clone(0);
    }
    if (fIsDataStructure && child) {
        (void)SANITY_CHECKED(child->setDataStructureParent(thisNode, key));
    }
    return child;
}

bool OMStored::storeInMap(const std::string& attr, NodePtr& out) {
    bool retVal = false;
    do {
        SANITY_CHECK(fMap);
        if ((getPermissions(attr) & PERMISSION_WRITE) == 0) {
            LOG_ERROR("not permitted - need PERMISSION_WRITE");
            break;
        }
        auto iter = fMap->find(attr);
        if (iter == fMap->end() && ! ScriptLimits::isContainerAllowed(fMap->size() + 1)) {
            break;
        }
        if (! out && iter != fMap->end()) {
            out = iter->second;
        }
        if (! out) {
            out = undefinedFactory();
        }
        out = adoptChild(out, attr);
        SANITY_CHECK(out);
        (*fMap)[attr] = out;
        retVal = true;
    } while (false);
    return retVal;
}

bool OMStored::isStoreWithinLimit(uint64_t idx) const {
    return fType != OMType::Array || ! fArray || idx < fArray->size() ||
           ScriptLimits::isIndexWithinLimit(idx);
}

bool OMStored::isStoreWithinLimit(const std::string& attr) const {
    if (fType == OMType::Array) {
        return ! isAllDigits(attr) || isStoreWithinLimit(Utils::toUInt64(attr));
    }
    return fType != OMType::Map || ! fMap || ScriptLimits::isContainerWithinLimit(fMap->size() + 1) ||
           fMap->count(attr) != 0;
}

bool OMStored::fillArrayUpTo(uint64_t idx) {
    if (idx >= fArray->size() && ! ScriptLimits::isIndexAllowed(idx)) {
        return false;
    }
    NodePtr thisNode = fIsDataStructure ? shared_from_this() : nullptr;
    while (fArray->size() <= idx) {
        NodePtr filler = undefinedFactory();
        if (thisNode) {
            VERIFY(filler->setDataStructureParent(thisNode, std::to_string(fArray->size())));
        }
        fArray->push_back(filler);
    }
    return true;
}

bool OMStored::storeInArray(uint64_t idx, NodePtr& out) {
    bool retVal = false;
    do {
        SANITY_CHECK(fArray);
        if (! fillArrayUpTo(idx)) {
            break;
        }
        if (! out) {
            out = (*fArray)[idx];
        }
        if (! out) {
            out = undefinedFactory();
        }
        out = adoptChild(out, std::to_string(idx));
        SANITY_CHECK(out);
        (*fArray)[idx] = out;
        retVal = true;
    } while (false);
    return retVal;
}

bool OMStored::readChild(const std::string& attr, NodePtr& out) const {
    bool found = false;
    do {
        if (fType == OMType::Array) {
            if (isAllDigits(attr)) {
                found = readChild(Utils::toUInt64(attr), out);
            }
            break;
        }
        if (fType != OMType::Map || ! fMap) {
            out.reset();
            break;
        }
        auto iter = fMap->find(attr);
        if (iter == fMap->end()) {
            out.reset();
            break;
        }
        out = iter->second;
        SANITY_CHECK(out);
        found = true;
    } while (false);
    return found;
}

bool OMStored::readChild(uint64_t idx, NodePtr& out) const {
    bool found = false;
    do {
        if (fType != OMType::Array) {
            break;
        }
        SANITY_CHECK(fArray);
        if (idx < fArray->size()) {
            out = (*fArray)[idx];
            found = true;
        }
    } while (false);
    return found;
}

bool OMStored::accessOMNodeReadOnlyResolved(const ScopePtr&, const OMArgs&, uint64_t idx,
                                            NodePtr& out) const {
    return readChild(idx, out);
}

bool OMStored::accessOMNodeReadOnlyResolved(const ScopePtr&, const OMArgs&, const std::string& attr,
                                            NodePtr& out) const {
    return readChild(attr, out);
}

void OMStored::accessOMNodeReadOnlyResolved_yielding(const TaskPtr&, bool& found, const ScopePtr&,
                                                     const OMArgs&, uint64_t idx, NodePtr& out) const {
    found = readChild(idx, out);
}

void OMStored::accessOMNodeReadOnlyResolved_yielding(const TaskPtr&, bool& found, const ScopePtr&,
                                                     const OMArgs&, const std::string& attr,
                                                     NodePtr& out) const {
    found = readChild(attr, out);
}

bool OMStored::accessOMNodeResolved(const ScopePtr& scope, const OMArgs& args, AccessType accessType,
                                    const std::string& attr, NodePtr& out) {
    bool found = false;
    do {
        if (args && ! args->empty()) {
            // Arguments belong to a function-style access, one level up.
            out.reset();
            break;
        }
        if (accessType == GET) {
            found = accessOMNodeReadOnlyResolved(scope, args, attr, out);
            break;
        }
        if (accessType != SET && accessType != GET_CREATE) {
            LOG_ERROR("unexpected accessType");
            break;
        }
        if (fType == OMType::Array) {
            found = isAllDigits(attr) && storeInArray(Utils::toUInt64(attr), out);
        } else if (fType == OMType::Map) {
            found = storeInMap(attr, out);
        }
    } while (false);
    return found;
}

bool OMStored::accessOMNodeResolved(const ScopePtr& scope, const OMArgs& args, AccessType accessType,
                                    uint64_t idx, NodePtr& out) {
    bool found = false;
    do {
        if (args && ! args->empty()) {
            out.reset();
            break;
        }
        if (accessType == GET) {
            found = accessOMNodeReadOnlyResolved(scope, args, idx, out);
            break;
        }
        if (fType != OMType::Array) {
            break;
        }
        if (accessType != SET && accessType != GET_CREATE) {
            LOG_ERROR("unexpected accessType");
            break;
        }
        found = storeInArray(idx, out);
    } while (false);
    return found;
}

void OMStored::accessOMNodeResolved_yielding(const TaskPtr&, bool& found, const ScopePtr& scope,
                                             const OMArgs& args, AccessType accessType,
                                             const std::string& attr, NodePtr& out) {
    // A stored node never waits: the synchronous form is the whole of it.
    found = OMStored::accessOMNodeResolved(scope, args, accessType, attr, out);
}

void OMStored::accessOMNodeResolved_yielding(const TaskPtr&, bool& found, const ScopePtr& scope,
                                             const OMArgs& args, AccessType accessType, uint64_t idx,
                                             NodePtr& out) {
    found = OMStored::accessOMNodeResolved(scope, args, accessType, idx, out);
}

template <class Key>
IOMNode::NodePtr OMStored::setChild(const Key& key, const NodePtr& node) {
    NodePtr retVal;
    do {
        SANITY_CHECK(this != node.get());
        NodePtr child;
        // The access is virtual: a scope finds the variable along its chain.
        if (accessOMNodeResolved(nullptr, nullptr, GET_CREATE, key, child) && child && child->set(node)) {
            retVal = child;
        }
    } while (false);
    return retVal;
}

template <class Key>
void OMStored::setAndAccessChild(bool& found, const Key& key, NodePtr& node) {
    NodePtr child = setSync(key, node);
    found = SANITY_CHECKED(child);
    if (found) {
        node = child;
    }
}

IOMNode::NodePtr OMStored::setSync(uint64_t idx, const NodePtr& node) {
    return setChild(idx, node);
}

IOMNode::NodePtr OMStored::setSync(const std::string& attr, const NodePtr& node) {
    return setChild(attr, node);
}

void OMStored::setAndAccess_yielding(const TaskPtr&, bool& found, uint64_t idx, NodePtr& node) {
    setAndAccessChild(found, idx, node);
}

void OMStored::setAndAccess_yielding(const TaskPtr&, bool& found, const std::string& attr, NodePtr& node) {
    setAndAccessChild(found, attr, node);
}

void OMStored::set_yielding(const TaskPtr&, NodePtr& out, uint64_t idx, const NodePtr& fromNode) {
    do {
        SANITY_CHECK(this != fromNode.get());
        SANITY_CHECK(fType == OMType::Array);
        SANITY_CHECK(fArray);
        if (! fillArrayUpTo(idx)) {
            break;
        }
        out = fIsDataStructure ? adoptChild(fromNode, std::to_string(idx)) : fromNode;
        (*fArray)[idx] = out;
    } while (false);
}

void OMStored::set_yielding(const TaskPtr&, NodePtr& out, const std::string& attr, const NodePtr& fromNode) {
    do {
        SANITY_CHECK(this != fromNode.get());
        SANITY_CHECK(fType == OMType::Map);
        SANITY_CHECK(fMap);
        if ((getPermissions(attr) & PERMISSION_WRITE) == 0) {
            LOG_ERROR("not permitted -- need PERMISSION_WRITE");
            break;
        }
        if (fMap->count(attr) == 0 && ! ScriptLimits::isContainerAllowed(fMap->size() + 1)) {
            break;
        }
        out = fIsDataStructure ? adoptChild(fromNode, attr) : fromNode;
        (*fMap)[attr] = out;
    } while (false);
}

// ---- evaluation ----

void OMStored::eval_yielding(const TaskPtr& task, NodePtr& out, const ScopePtr& scope,
                             HandleReturnValue handleReturnValue) {
    struct LocalVariableState : OMFunctionState {
        bool isWrapped = false;                    // the value came wrapped as a return value
        NodePtr value;                             // the unwrapped value
        std::shared_ptr<IOMNodeIterator> iterator; // over the children of a container
        NodePtr container;                         // the evaluated copy
        NodePtr element;                           // an evaluated child
        NodePtr stored;                            // what the store gave back
    };
    if (fType == OMType::Expression && fExpression && scope && scope->isPlain() &&
        scope->getType() == OMType::Map && ! task->hasPendingFunctionState() &&
        fExpression->evalDirect(task, scope, out)) {
        // Nothing in it can wait: evaluated at once, without frames.
        if (out && handleReturnValue == UNWRAP_RETURN_VALUE) {
            out = out->unwrapReturnValue();
        }
        return;
    }
    if (fType == OMType::Expression && fExpression && scope && scope->getType() == OMType::Map &&
        (fExpression->isLValue() ||
         (handleReturnValue == KEEP_RETURN_VALUE && ! fExpression->isReturnUnary() && ! isKeyword()))) {
        // The expression's value is all there is to do when nothing needs unwrapping (a name, member or call
        // is never a wrapped return value): forwarded as the last act, without a frame.
        fExpression->get_yielding(task, out, GET, scope, RUN);
        return;
    }
    // A plain value evaluates to itself and never waits: no frame for the most common case.
    if (fType != OMType::Array && fType != OMType::Map && fType != OMType::Expression &&
        fType != OMType::Function && ! task->hasPendingFunctionState()) {
        out = shared_from_this();
        return;
    }
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    frame->value = shared_from_this();
    if (scope && scope->getType() != OMType::Map) {
        scope->setEmptyMap();
    }
    frame->isWrapped = frame->value->isReturnValue();
    if (frame->isWrapped) {
        frame->value = frame->value->unwrapReturnValue();
        YIELDING_CHECK(frame->value);
    }
    out = frame->value;
    if (frame->value->getType() == OMType::Array || frame->value->getType() == OMType::Map) {
        frame->container = frame->value->getType() == OMType::Array ? arrayFactory() : mapFactory();
        for (frame->iterator = frame->value->getIterator(); ! frame->iterator->isAtEnd();
             ++*frame->iterator) {
            YIELDING_CALL(
                (**frame->iterator)->eval_yielding(task, frame->element, scope, UNWRAP_RETURN_VALUE));
            if (frame->element) {
                if (frame->value->getType() == OMType::Array) {
                    YIELDING_CALL(frame->container->set_yielding(task, frame->stored,
                                                                 frame->iterator->getIdx(), frame->element));
                } else {
                    YIELDING_CALL(frame->container->set_yielding(task, frame->stored,
                                                                 frame->iterator->getKey(), frame->element));
                    (void)SANITY_CHECKED(frame->stored);
                }
            }
        }
        out = frame->container;
    } else if (frame->value->getType() == OMType::Expression) {
        if (frame->value->getExpression()) {
            YIELDING_CALL(frame->value->getExpression()->get_yielding(task, out, GET, scope, RUN));
            if (frame->value->isKeyword()) {
                // A keyword has no value but itself: a `break` must reach the loop around it.
                out = frame->value;
            }
        }
    } else if (frame->value->getType() == OMType::Function) {
        if (scope && ! frame->value->getFunctionName().empty()) {
            YIELDING_CALL(
                scope->set_yielding(task, frame->stored, frame->value->getFunctionName(), frame->value));
        }
    }
    if (out && frame->isWrapped && handleReturnValue == KEEP_RETURN_VALUE) {
        out = out->wrapReturnValue();
    } else if (out && handleReturnValue == UNWRAP_RETURN_VALUE) {
        out = out->unwrapReturnValue();
    }
    YIELDING_END;
}

// ---- iteration ----

OMStoredNodeIterator::OMStoredNodeIterator(const std::shared_ptr<const OMStored>& node)
    : fOMStoredNode(node) {
    if (! SANITY_CHECKED(fOMStoredNode)) {
        return;
    }
    if (fOMStoredNode->getType() == OMType::Array) {
        fArray = fOMStoredNode->getArray();
        if (fArray) {
            fArrayFirst = fArray->cbegin();
            fArrayPosition = fArrayFirst;
        }
    } else if (fOMStoredNode->getType() == OMType::Map) {
        fMap = fOMStoredNode->getMap();
        if (fMap) {
            fMapPosition = fMap->cbegin();
        }
    }
}

bool OMStoredNodeIterator::isAtEnd() const {
    if (fArray) {
        return fArrayPosition == fArray->cend();
    }
    if (fMap) {
        return fMapPosition == fMap->cend();
    }
    return true;
}

uint64_t OMStoredNodeIterator::getIdx() const {
    return fArray ? static_cast<uint64_t>(fArrayPosition - fArrayFirst) : ~uint64_t(0);
}

std::string OMStoredNodeIterator::getKey() const {
    if (fArray) {
        return std::to_string(getIdx());
    }
    return fMap && ! isAtEnd() ? fMapPosition->first : std::string();
}

IOMNodeIterator& OMStoredNodeIterator::operator++() {
    if (fArray && fArrayPosition != fArray->cend()) {
        ++fArrayPosition;
    } else if (fMap && fMapPosition != fMap->cend()) {
        ++fMapPosition;
    }
    return *this;
}

std::shared_ptr<IOMNode> OMStoredNodeIterator::operator*() const {
    if (fArray) {
        return isAtEnd() ? nullptr : *fArrayPosition;
    }
    if (! fMap || isAtEnd()) {
        return nullptr;
    }
    if ((fOMStoredNode->getPermissions(fMapPosition->first) & OMStored::PERMISSION_READ) == 0) {
        // A read-protected attribute looks like an error value.
        return OMStored::errorFactory();
    }
    return fMapPosition->second;
}

} // namespace Brw

namespace Brw {

// ---- function calls ----

void OMStored::callNodeAsFunction_yielding(const TaskPtr& task, NodePtr& out, bool useThis,
                                           const NodePtr& thisNode, const OMArgs& args,
                                           const ScopePtr& scope) {
    struct LocalVariableState : OMFunctionState {
        std::shared_ptr<OMScope> frame;     // the call's own variables
        std::shared_ptr<OMExpression> body; // what runs
        NodePtr result;                     // the body's value
    };
    // Counts the calls nested on the native stack now; a wait unwinds them and the resumption counts anew.
    struct CallDepth {
        CallDepth() { ++fCallDepth; }
        ~CallDepth() { --fCallDepth; }
    } callDepth;
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    YIELDING_CHECK(scope);
    if (fType != OMType::Function) {
        YIELDING_FINISH;
    }
    if (fCallDepth > ScriptLimits::fCallDepth || StackGuard::isNearlyExhausted()) {
        // A runaway recursion ends here, with an error value that the callers pass up.
        ScriptErrorLog::report("maximum call depth exceeded");
        out = errorFactory();
        YIELDING_FINISH;
    }
    frame->body = fExpression;
    YIELDING_CHECK(frame->body);
    YIELDING_ASSIGN(frame->frame, OMScope::factory(scope, OMScope::FUNCTION_FRAME));
    YIELDING_CHECK(fFunctionSignature);
    YIELDING_CHECK(bindCallFrame(*frame->frame, *fFunctionSignature, useThis, thisNode, args, true));
    out = undefinedFactory();
    YIELDING_CALL(frame->body->get_yielding(task, frame->result, GET, frame->frame, RUN));
    if (frame->result) {
        out = frame->result->unwrapReturnValue();
    }
    YIELDING_CHECK(out);
    YIELDING_END;
}

bool OMStored::bindCallFrame(OMScope& callFrame, const FunctionSignature& functionSignature, bool useThis,
                             const NodePtr& thisNode, const OMArgs& args, bool isBindingFrameNames) {
    bool retVal = false;
    do {
        // With `useThis` the this-node is bound as "this" below, after the parameters; without it, it is the
        // first parameter: how a path function gets its node.
        bool isThisPlaced = useThis && thisNode;
        size_t nextArgument = 0;
        const std::vector<std::string>& parameters = functionSignature.getParameterList();
        bool allOK = true;
        for (size_t i = 1; i < parameters.size() && allOK; ++i) {
            NodePtr value;
            if (! isThisPlaced) {
                isThisPlaced = true;
                value = thisNode;
            }
            if (! value && args && nextArgument < args->size()) {
                value = (*args)[nextArgument++];
            }
            NodePtr stored;
            bindInFrame(callFrame, parameters[i], value ? value : undefinedFactory(), stored);
            allOK = static_cast<bool>(stored);
        }
        SANITY_CHECK(allOK);
        for (const std::string& local : functionSignature.getLocalVariables()) {
            NodePtr stored;
            bindInFrame(callFrame, local, undefinedFactory(), stored);
            SANITY_CHECK(stored);
        }
        if (isBindingFrameNames) {
            bindFrameNames(callFrame, thisNode, args);
        }
        retVal = true;
    } while (false);
    return retVal;
}

void OMStored::bindFrameNames(OMScope& callFrame, const NodePtr& thisNode, const OMArgs& args) {
    NodePtr stored;
    if (thisNode) {
        bindInFrame(callFrame, "this", thisNode, stored);
    } else if (args && ! args->empty()) {
        bindInFrame(callFrame, "this", args->front(), stored);
    }
    if (args && ! args->empty()) {
        auto arguments = arrayFactory();
        for (const NodePtr& argument : *args) {
            arguments->push(argument);
        }
        bindInFrame(callFrame, "arguments", arguments, stored);
    }
}

bool OMStored::callReadOnlyDirect(const TaskPtr& task, const ScopePtr& scope, const OMArgs& args,
                                  NodePtr& out) const {
    if (fType != OMType::Function || ! fExpression || ! fFunctionSignature) {
        return false;
    }
    const OMExpression::DirectShape shape = fExpression->getDirectShape();
    if (shape != OMExpression::DIRECT_PURE && shape != OMExpression::DIRECT_READ_ONLY) {
        return false;
    }
    // Recursion too deep for the native stack, or a deadline passed: the long way reports the one and ends
    // the task for the other. Once the depth ran out, no call tries again until the outermost call has
    // returned, or a runaway recursion would try at every level on its way down.
    // NOTE: a used-up slice doesn't stop a call that only reads: it runs to its end in this slice.
    if (fCallDepth == 0) {
        fIsDirectDepthExhausted = false;
    }
    if (fIsDirectDepthExhausted || task->isPastDeadline()) {
        return false;
    }
    if (fCallDepth >= ScriptLimits::fCallDepth || StackGuard::isNearlyExhausted()) {
        fIsDirectDepthExhausted = true;
        return false;
    }
    const OMQuickFunction* quickFunction = getQuickFunction();
    if (quickFunction != nullptr && quickFunction->call(task, scope, args, fCallDepth, out)) {
        return true;
    }
    std::shared_ptr<OMScope> callFrame = OMScope::factory(scope, OMScope::FUNCTION_FRAME);
    if (! callFrame || ! callFrame->isPlain() ||
        ! bindCallFrame(*callFrame, *fFunctionSignature, false, nullptr, args,
                        OMExpressionLValueStr::isFrameNameRead())) {
        return false;
    }
    NodePtr result;
    ++fCallDepth;
    const bool isDone = fExpression->evalDirect(task, callFrame, result);
    --fCallDepth;
    if (! isDone) {
        return false;
    }
    out = result ? result->unwrapReturnValue() : undefinedFactory();
    return out != nullptr;
}

const OMQuickFunction* OMStored::getQuickFunction() const {
    if (fType != OMType::Function || ! fExpression || ! fFunctionSignature) {
        return nullptr;
    }
    const OMExpression::DirectShape shape = fExpression->getDirectShape();
    if (shape != OMExpression::DIRECT_PURE && shape != OMExpression::DIRECT_READ_ONLY) {
        return nullptr;
    }
    return fExpression->getQuickFunction(fFunctionSignature);
}

void OMStored::bindInFrame(OMScope& callFrame, const std::string& name, const NodePtr& value,
                           NodePtr& stored) {
    // Stored in the frame's own map, by value for scalars and by sharing for containers.
    stored = value->clone(0);
    if (stored) {
        NodePtr kept = stored;
        (void)callFrame.OMStored::accessOMNodeResolved(nullptr, nullptr, SET, name, kept);
        stored = kept;
    }
    (void)SANITY_CHECKED(stored);
}

void OMStored::functionOperation_yielding(const TaskPtr& task, NodePtr& out, const std::string& name,
                                          bool useThis, const NodePtr& thisNode, const OMArgs& args,
                                          const ScopePtr& scope) {
    struct LocalVariableState : OMFunctionState {
        std::shared_ptr<OMStored> functionNodeOMStored;
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    YIELDING_CHECK(scope);
    {
        NodePtr functionNode;
        if (useThis && thisNode) {
            functionNode = thisNode->getOMNode(name);
        }
        if (! functionNode || functionNode->getType() == OMType::Error) {
            functionNode = scope->getOMNode(name);
        }
        if (! functionNode || functionNode->getType() == OMType::Error) {
            YIELDING_FINISH;
        }
        frame->functionNodeOMStored = rewrapFactory(*functionNode);
    }
    YIELDING_CHECK(frame->functionNodeOMStored);
    YIELDING_CALL(
        frame->functionNodeOMStored->callNodeAsFunction_yielding(task, out, useThis, thisNode, args, scope));
    YIELDING_END;
}

} // namespace Brw
