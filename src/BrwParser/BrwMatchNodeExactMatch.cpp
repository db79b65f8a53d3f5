#include "BrwParser/BrwMatchNodeExactMatch.h"

#include "BrwLogger/BrwCheck.h"
#include "BrwTask/BrwYielding.h"

namespace Brw {

std::shared_ptr<MatchNodeExactMatch> MatchNodeExactMatch::factory(const std::string& indexOrAttrName) {
    return std::make_shared<MatchNodeExactMatch>(indexOrAttrName);
}

bool MatchNodeExactMatch::prepareContainer(IOMNode& omNode, AccessType accessType, bool isNumeric) const {
    bool retVal = false;
    do {
        const bool isCreating = accessType == SET || accessType == GET_CREATE;
        const OMType type = omNode.getType();
        if (isCreating && (type == OMType::Undefined || type == OMType::Null)) {
            if (isNumeric) {
                SANITY_CHECK(omNode.setEmptyArray());
            } else {
                SANITY_CHECK(omNode.setEmptyMap());
            }
        }
        // NOTE: a numeric name never addresses a map attribute whose name is digits.
        retVal = omNode.getType() == (isNumeric ? OMType::Array : OMType::Map);
    } while (false);
    return retVal;
}

void MatchNodeExactMatch::traverse_yielding(const TaskPtr& task, bool& done, const ScopePtr& scope,
                                            IOMNode& omNode, AccessType accessType,
                                            const NodePtr& setOMNode) {
    struct LocalVariableState : OMFunctionState {
        bool isNumeric = false; // the name is an array index
        bool isFound = false;   // the child is there, or was made
        NodePtr child;          // the named child
        bool subDone = false;   // the next segment's done
    };
    YIELDING_BEGIN(LocalVariableState, frame, done = false);
    frame->isNumeric = Utils::isNumeric(fIndexOrAttrName);
    if (! prepareContainer(omNode, accessType, frame->isNumeric)) {
        YIELDING_FINISH;
    }
    // A SET creates the way and assigns only at the end of the path.
    if (frame->isNumeric) {
        YIELDING_CALL(omNode.accessOMNodeResolved_yielding(task, frame->isFound, scope, nullptr,
                                                           accessType == SET ? GET_CREATE : accessType,
                                                           Utils::toUInt64(fIndexOrAttrName), frame->child));
    } else {
        YIELDING_CALL(omNode.accessOMNodeResolved_yielding(task, frame->isFound, scope, nullptr,
                                                           accessType == SET ? GET_CREATE : accessType,
                                                           fIndexOrAttrName, frame->child));
    }
    if (! frame->isFound || ! frame->child) {
        YIELDING_FINISH;
    }
    if (! fNext) {
        YIELDING_CHECK(acceptMatch(frame->child, accessType, setOMNode));
        done = true;
    } else if (isDescendable(frame->child->getType())) {
        YIELDING_CALL(
            fNext->traverse_yielding(task, frame->subDone, scope, *frame->child, accessType, setOMNode));
        done = frame->subDone;
    }
    // A scalar in mid-path gives no match: the path leads nowhere, as with a missing child.
    YIELDING_END;
}

} // namespace Brw
