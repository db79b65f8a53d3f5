#include "BrwParser/BrwOMAccessor.h"

#include <limits>

#include "BrwLogger/BrwCheck.h"
#include "BrwObject/BrwGUIDClass.h"
#include "BrwParser/BrwMatchNode.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwCallTask.h"
#include "BrwTask/BrwYielding.h"

namespace Brw {

namespace {

// What a number conversion gives for a missing value: the quiet NaN with the sign bit set.
double missingNumber() {
    return -std::numeric_limits<double>::quiet_NaN();
}

} // namespace

OMAccessor::OMAccessor() : fOMNode(OMStored::undefinedFactory()) {}

// ---- access ----

void OMAccessor::walkReference_yielding(const TaskPtr& task, bool& found, const NodePtr& root,
                                        const ScopePtr& scope, AccessType accessType, const std::string& attr,
                                        NodePtr& omNode, ReferenceType referenceType) {
    struct LocalVariableState : OMFunctionState {
        std::shared_ptr<MatchNode> head; // the compiled path; owns the chain
        NodePtr root;                    // held for the time of the walk
        bool wasDataStructure = false;   // the root's flag before the walk
        bool done = false;               // the walk finished properly
    };
    YIELDING_BEGIN(LocalVariableState, frame, found = false);
    frame->head = parseReference(attr);
    if (! frame->head) {
        omNode.reset();
        YIELDING_FINISH;
    }
    if (! omNode) {
        omNode = OMStored::undefinedFactory();
    }
    YIELDING_CHECK(omNode);
    YIELDING_CHECK(root);
    frame->root = root;
    frame->wasDataStructure = root->isDataStructure();
    if (! frame->wasDataStructure) {
        // Nodes made on the way get parents; a value of another tree is copied in.
        VERIFY(frame->root->setIsDataStructure(true));
    }
    YIELDING_CALL(frame->head->traverse_yielding(task, frame->done, scope, *frame->root, accessType, omNode));
    if (! frame->wasDataStructure) {
        VERIFY(frame->root->setIsDataStructure(false));
    }
    if (! frame->done || frame->head->isChainFailed()) {
        omNode.reset();
        YIELDING_FINISH;
    }
    // No match leaves `omNode` as it is, yet counts as found.
    if (std::shared_ptr<OMArray> matches = frame->head->getMatches(); matches && ! matches->empty()) {
        if (referenceType == OM_REF_SELECTOR_ARRAY || matches->size() > 1) {
            omNode = OMStored::factory(matches);
        } else {
            omNode = matches->front();
        }
    }
    found = true;
    YIELDING_END;
}

void OMAccessor::accessOMNode_yielding(const TaskPtr& task, bool& found, AccessType accessType,
                                       const std::string& attr, NodePtr& out, ReferenceType referenceType) {
    struct LocalVariableState : OMFunctionState {};
    YIELDING_BEGIN(LocalVariableState, frame, found = false);
    (void)frame;
    if (accessType == GET) {
        // A read goes the read-only way, whatever kind of node this is.
        YIELDING_CALL(accessOMNodeReadOnly_yielding(task, found, attr, out, referenceType));
        YIELDING_FINISH;
    }
    if (attr.empty()) {
        out.reset();
        YIELDING_FINISH;
    }
    if (! fOMNode) {
        fOMNode = OMStored::undefinedFactory();
    }
    YIELDING_CALL(
        walkReference_yielding(task, found, fOMNode, fAccessorScope, accessType, attr, out, referenceType));
    YIELDING_END;
}

void OMAccessor::accessOMNode_yielding(const TaskPtr& task, bool& found, AccessType accessType, uint64_t idx,
                                       NodePtr& out) {
    // Forwards as its last act: no frame of its own.
    found = false;
    do {
        SANITY_CHECK(fOMNode);
        fOMNode->accessOMNodeResolved_yielding(task, found, fAccessorScope, nullptr, accessType, idx, out);
    } while (false);
}

void OMAccessor::accessOMNode_yielding(const TaskPtr& task, bool& found, AccessType accessType,
                                       const std::string& attr, NodePtr& out) {
    accessOMNode_yielding(task, found, accessType, attr, out, OM_REF_SELECTOR_FIRST_MATCH);
}

void OMAccessor::accessOMNodeReadOnly_yielding(const TaskPtr& task, bool& found, const std::string& attr,
                                               NodePtr& out, ReferenceType referenceType) const {
    struct LocalVariableState : OMFunctionState {};
    YIELDING_BEGIN(LocalVariableState, frame, found = false);
    (void)frame;
    if (! fOMNode || attr.empty()) {
        out.reset();
        YIELDING_FINISH;
    }
    YIELDING_CALL(
        walkReference_yielding(task, found, fOMNode, fAccessorScope, GET, attr, out, referenceType));
    YIELDING_END;
}

void OMAccessor::accessOMNodeReadOnly_yielding(const TaskPtr& task, bool& found, uint64_t idx,
                                               NodePtr& out) const {
    found = false;
    do {
        SANITY_CHECK(fOMNode);
        fOMNode->accessOMNodeReadOnlyResolved_yielding(task, found, fAccessorScope, nullptr, idx, out);
    } while (false);
}

void OMAccessor::accessOMNodeReadOnly_yielding(const TaskPtr& task, bool& found, const std::string& attr,
                                               NodePtr& out) const {
    accessOMNodeReadOnly_yielding(task, found, attr, out, OM_REF_SELECTOR_FIRST_MATCH);
}

void OMAccessor::get_yielding(const TaskPtr& task, NodePtr& out, const std::string& attr,
                              ReferenceType referenceType) {
    struct LocalVariableState : OMFunctionState {
        bool found = false; // the path led somewhere
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    if (! fOMNode) {
        fOMNode = OMStored::mapFactory();
    }
    YIELDING_CALL(accessOMNodeReadOnly_yielding(task, frame->found, attr, out, referenceType));
    YIELDING_END;
}

void OMAccessor::set_yielding(const TaskPtr& task, bool& found, const std::string& attr, NodePtr& omNode) {
    struct LocalVariableState : OMFunctionState {};
    YIELDING_BEGIN(LocalVariableState, frame, found = false);
    (void)frame;
    if (! fOMNode) {
        fOMNode = OMStored::mapFactory();
    }
    YIELDING_CALL(accessOMNode_yielding(task, found, SET, attr, omNode, OM_REF_SELECTOR_ARRAY));
    YIELDING_END;
}

bool OMAccessor::accessOMNode(AccessType accessType, uint64_t idx, NodePtr& out) {
    bool found = false;
    if (! CallTask::call("accessOMNodeByIdx", [&](const TaskPtr& task) {
            accessOMNode_yielding(task, found, accessType, idx, out);
        })) {
        found = false;
    }
    return found;
}

bool OMAccessor::accessOMNode(AccessType accessType, const std::string& attr, NodePtr& out) {
    bool found = false;
    if (! CallTask::call("accessOMNodeByAttr", [&](const TaskPtr& task) {
            accessOMNode_yielding(task, found, accessType, attr, out);
        })) {
        found = false;
    }
    return found;
}

bool OMAccessor::accessOMNode(AccessType accessType, const std::string& attr, NodePtr& out,
                              ReferenceType referenceType) {
    bool found = false;
    if (! CallTask::call("accessOMNode", [&](const TaskPtr& task) {
            accessOMNode_yielding(task, found, accessType, attr, out, referenceType);
        })) {
        found = false;
    }
    return found;
}

bool OMAccessor::accessOMNodeReadOnly(uint64_t idx, NodePtr& out) const {
    bool found = false;
    if (! CallTask::call("accessOMNodeReadOnlyByIdx", [&](const TaskPtr& task) {
            accessOMNodeReadOnly_yielding(task, found, idx, out);
        })) {
        found = false;
    }
    return found;
}

bool OMAccessor::accessOMNodeReadOnly(const std::string& attr, NodePtr& out) const {
    bool found = false;
    if (! CallTask::call("accessOMNodeReadOnlyByAttr", [&](const TaskPtr& task) {
            accessOMNodeReadOnly_yielding(task, found, attr, out);
        })) {
        found = false;
    }
    return found;
}

bool OMAccessor::accessOMNodeReadOnly(const std::string& attr, NodePtr& out,
                                      ReferenceType referenceType) const {
    bool found = false;
    if (! CallTask::call("accessOMNodeReadOnly", [&](const TaskPtr& task) {
            accessOMNodeReadOnly_yielding(task, found, attr, out, referenceType);
        })) {
        found = false;
    }
    return found;
}

IOMNode::NodePtr OMAccessor::get(const std::string& attr, ReferenceType referenceType) {
    NodePtr out;
    if (! CallTask::call("getter",
                         [&](const TaskPtr& task) { get_yielding(task, out, attr, referenceType); })) {
        out.reset();
    }
    return out;
}

// ---- getters ----

IOMNode::NodePtr OMAccessor::ownNode() const {
    NodePtr retVal;
    do {
        SANITY_CHECK(fOMNode);
        retVal = fOMNode;
    } while (false);
    return retVal;
}

IOMNode::NodePtr OMAccessor::readChild(uint64_t idx) const {
    NodePtr out;
    if (! accessOMNodeReadOnly(idx, out)) {
        out.reset();
    }
    return out;
}

IOMNode::NodePtr OMAccessor::readChild(const std::string& attr) const {
    NodePtr out;
    if (! accessOMNodeReadOnly(attr, out)) {
        out.reset();
    }
    return out;
}

// The three shapes of a getter: the child's value by index or by path, or the node's own.
#define BRW_ACCESSOR_GETTERS(Type, name, valueOf, zero)                                                      \
    Type OMAccessor::name(uint64_t idx) const {                                                              \
        NodePtr omNode = readChild(idx);                                                                     \
        return omNode ? valueOf : (zero);                                                                    \
    }                                                                                                        \
    Type OMAccessor::name(const std::string& attr) const {                                                   \
        NodePtr omNode = readChild(attr);                                                                    \
        return omNode ? valueOf : (zero);                                                                    \
    }                                                                                                        \
    Type OMAccessor::name() const {                                                                          \
        NodePtr omNode = ownNode();                                                                          \
        return omNode ? valueOf : (zero);                                                                    \
    }

BRW_ACCESSOR_GETTERS(bool, getAsBool, omNode->getAsBool(), false)
BRW_ACCESSOR_GETTERS(double, getAsNum, omNode->getAsNum(), missingNumber())
BRW_ACCESSOR_GETTERS(std::string, getAsString, omNode->getAsString(), std::string())
BRW_ACCESSOR_GETTERS(bool, getBool, omNode->getBool(), false)
BRW_ACCESSOR_GETTERS(OMInt, getDate, omNode->getDate(), 0)
BRW_ACCESSOR_GETTERS(OMFloat, getFloat, omNode->getFloat(), 0.0)
BRW_ACCESSOR_GETTERS(GUIDClass*, getGUID, omNode->getGUID(), GUIDClass::factory(0, 0))
BRW_ACCESSOR_GETTERS(OMInt, getInt, omNode->getInt(), 0)
BRW_ACCESSOR_GETTERS(std::string, getString, omNode->getString(), std::string())
BRW_ACCESSOR_GETTERS(uint64_t, getSize, omNode->getSize(), 0)
BRW_ACCESSOR_GETTERS(OMType, getType, omNode->getType(), OMType::Undefined)

#undef BRW_ACCESSOR_GETTERS

OMInt OMAccessor::getAsBits(uint64_t idx) const {
    NodePtr omNode = readChild(idx);
    return omNode ? omNode->getAsBits() : 0;
}

OMInt OMAccessor::getAsBits(const std::string& attr) const {
    NodePtr omNode = readChild(attr);
    return omNode ? omNode->getAsBits() : 0;
}

OMInt OMAccessor::getAsBits() const {
    NodePtr omNode = ownNode();
    return omNode ? omNode->getAsBits() : -1;
}

IOMNode::NodePtr OMAccessor::getOMNode(uint64_t idx) const {
    return readChild(idx);
}

IOMNode::NodePtr OMAccessor::getOMNode(const std::string& attr) const {
    return readChild(attr);
}

std::vector<std::string> OMAccessor::getKeys() const {
    NodePtr omNode = ownNode();
    return omNode ? omNode->getKeys() : std::vector<std::string>();
}

uint64_t OMAccessor::hash() const {
    // A node-less accessor counts as Undefined.
    return fOMNode ? fOMNode->hash() : OMStored::undefinedFactory()->hash();
}

bool OMAccessor::operator==(const OMAccessor& other) const {
    NodePtr left = fOMNode ? fOMNode : OMStored::undefinedFactory();
    NodePtr right = other.fOMNode ? other.fOMNode : OMStored::undefinedFactory();
    return left->cmpOp_EQ(*right, KEEP_NODE);
}

// ---- setters ----

bool OMAccessor::ensureNode() {
    bool retVal = false;
    do {
        if (! fOMNode) {
            fOMNode = OMStored::undefinedFactory();
        }
        SANITY_CHECK(fOMNode);
        retVal = true;
    } while (false);
    return retVal;
}

bool OMAccessor::ensureArray() {
    bool retVal = false;
    do {
        SANITY_CHECK(ensureNode());
        // An index asks for an array, as a numeric path segment does.
        if (fOMNode->getType() == OMType::Undefined || fOMNode->getType() == OMType::Null) {
            SANITY_CHECK(fOMNode->setEmptyArray());
        }
        retVal = true;
    } while (false);
    return retVal;
}

IOMNode::NodePtr OMAccessor::childToSet(uint64_t idx) {
    NodePtr retVal;
    do {
        SANITY_CHECK(ensureArray());
        NodePtr omNode;
        if (! accessOMNode(SET, idx, omNode)) {
            break;
        }
        retVal = omNode;
    } while (false);
    return retVal;
}

bool OMAccessor::setByReference(const std::string& attr, const NodePtr& value) {
    bool found = false;
    // Every match receives the value: a path may well reach more than one node.
    NodePtr omNode = value;
    if (! CallTask::call("setter", [&](const TaskPtr& task) { set_yielding(task, found, attr, omNode); })) {
        found = false;
    }
    return found;
}

// The three shapes of a typed setter. NOTE: the value's parameter name is part of the logged check text.
#define BRW_ACCESSOR_SETTERS(ParamType, param)                                                               \
    bool OMAccessor::set(uint64_t idx, ParamType param) {                                                    \
        bool retVal = false;                                                                                 \
        do {                                                                                                 \
            NodePtr omNode = childToSet(idx);                                                                \
            if (! omNode) {                                                                                  \
                break;                                                                                       \
            }                                                                                                \
            SANITY_CHECK(omNode->set(param));                                                                \
            retVal = true;                                                                                   \
        } while (false);                                                                                     \
        return retVal;                                                                                       \
    }                                                                                                        \
    bool OMAccessor::set(const std::string& attr, ParamType param) {                                         \
        return setByReference(attr, OMStored::factory(param));                                               \
    }                                                                                                        \
    bool OMAccessor::set(ParamType param) {                                                                  \
        bool retVal = false;                                                                                 \
        do {                                                                                                 \
            SANITY_CHECK(ensureNode());                                                                      \
            SANITY_CHECK(fOMNode->set(param));                                                               \
            retVal = true;                                                                                   \
        } while (false);                                                                                     \
        return retVal;                                                                                       \
    }

BRW_ACCESSOR_SETTERS(const char*, str)
BRW_ACCESSOR_SETTERS(const std::string&, str)
BRW_ACCESSOR_SETTERS(OMFloat, d)
BRW_ACCESSOR_SETTERS(OMInt, i)
BRW_ACCESSOR_SETTERS(bool, b)

#undef BRW_ACCESSOR_SETTERS

// The three shapes of a setter of a value without a payload.
#define BRW_ACCESSOR_KIND_SETTERS(name, valueFactory)                                                        \
    bool OMAccessor::name(uint64_t idx) {                                                                    \
        bool retVal = false;                                                                                 \
        do {                                                                                                 \
            NodePtr omNode = childToSet(idx);                                                                \
            if (! omNode) {                                                                                  \
                break;                                                                                       \
            }                                                                                                \
            SANITY_CHECK(omNode->name());                                                                    \
            retVal = true;                                                                                   \
        } while (false);                                                                                     \
        return retVal;                                                                                       \
    }                                                                                                        \
    bool OMAccessor::name(const std::string& attr) {                                                         \
        return setByReference(attr, valueFactory);                                                           \
    }                                                                                                        \
    bool OMAccessor::name() {                                                                                \
        bool retVal = false;                                                                                 \
        do {                                                                                                 \
            SANITY_CHECK(ensureNode());                                                                      \
            SANITY_CHECK(fOMNode->name());                                                                   \
            retVal = true;                                                                                   \
        } while (false);                                                                                     \
        return retVal;                                                                                       \
    }

BRW_ACCESSOR_KIND_SETTERS(setEmptyArray, OMStored::arrayFactory())
BRW_ACCESSOR_KIND_SETTERS(setEmptyMap, OMStored::mapFactory())
BRW_ACCESSOR_KIND_SETTERS(setError, OMStored::errorFactory())
BRW_ACCESSOR_KIND_SETTERS(setNaN, OMStored::nanFactory())
BRW_ACCESSOR_KIND_SETTERS(setNull, OMStored::nullFactory())
BRW_ACCESSOR_KIND_SETTERS(setUndefined, OMStored::undefinedFactory())

#undef BRW_ACCESSOR_KIND_SETTERS

bool OMAccessor::set(uint64_t idx, const IOMNode& omNode) {
    bool retVal = false;
    do {
        NodePtr omNodePtr = OMStored::undefinedFactory();
        SANITY_CHECK(omNodePtr);
        SANITY_CHECK(omNodePtr->set(omNode));
        SANITY_CHECK(set(idx, omNodePtr));
        retVal = true;
    } while (false);
    return retVal;
}

bool OMAccessor::set(uint64_t idx, const NodePtr& omNode) {
    bool retVal = false;
    do {
        SANITY_CHECK(ensureArray());
        // The element is the very node.
        NodePtr stored = omNode;
        if (! accessOMNode(SET, idx, stored)) {
            break;
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool OMAccessor::set(const std::string& attr, const IOMNode& omNode) {
    bool retVal = false;
    do {
        NodePtr omNodePtr = OMStored::undefinedFactory();
        SANITY_CHECK(omNodePtr);
        SANITY_CHECK(omNodePtr->set(omNode));
        SANITY_CHECK(set(attr, omNodePtr));
        retVal = true;
    } while (false);
    return retVal;
}

bool OMAccessor::set(const std::string& attr, const NodePtr& omNode) {
    return setByReference(attr, omNode);
}

bool OMAccessor::set(const NodePtr& omNode) {
    bool retVal = false;
    do {
        SANITY_CHECK(ensureNode());
        SANITY_CHECK(fOMNode->set(omNode));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
