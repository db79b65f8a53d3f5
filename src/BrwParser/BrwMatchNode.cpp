#include "BrwParser/BrwMatchNode.h"

#include <cstring>
#include <string_view>

#include "BrwLogger/BrwCheck.h"
#include "BrwTask/BrwYielding.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

size_t NodeAddressHash::operator()(const std::shared_ptr<IOMNode>& node) const {
    const IOMNode* address = node.get();
    char bytes[sizeof(address)];
    std::memcpy(bytes, &address, sizeof(address));
    return static_cast<size_t>(FNV1aHash::hashBytes(std::string_view(bytes, sizeof(bytes))));
}

bool MatchNode::isIterMatch(const IOMNodeIterator&) {
    return true;
}

bool MatchNode::setParent(const std::shared_ptr<MatchNode>& parent,
                          const std::shared_ptr<MatchNode>& thisNode) {
    bool retVal = false;
    do {
        SANITY_CHECK(thisNode);
        SANITY_CHECK(parent);
        thisNode->fParent = parent;
        parent->fNext = thisNode;
        retVal = true;
    } while (false);
    return retVal;
}

bool MatchNode::isDescendable(OMType type) {
    // Bit 15 stands for no type at all.
    constexpr uint32_t descendableTypes = 0x8306;
    const auto bit = static_cast<uint32_t>(type);
    return bit < 32 && ((descendableTypes >> bit) & 1) != 0;
}

const MatchNode& MatchNode::getHead() const {
    const MatchNode* head = this;
    for (std::shared_ptr<MatchNode> parent = fParent.lock(); parent; parent = parent->fParent.lock()) {
        head = parent.get();
    }
    return *head;
}

bool MatchNode::isChainFailed() const {
    return getHead().fIsChainFailed;
}

void MatchNode::markChainFailed() {
    const_cast<MatchNode&>(getHead()).fIsChainFailed = true;
}

bool MatchNode::registerMatch(const NodePtr& omNode) {
    bool retVal = false;
    do {
        SANITY_CHECK(omNode);
        if (std::shared_ptr<MatchNode> parent = fParent.lock()) {
            SANITY_CHECK(parent->registerMatch(omNode));
            retVal = true;
            break;
        }
        retVal = addMatch(omNode);
    } while (false);
    return retVal;
}

bool MatchNode::addMatch(const NodePtr& omNode) {
    bool retVal = false;
    do {
        if (! fMatches) {
            fMatches = std::make_shared<OMArray>();
        }
        SANITY_CHECK(fMatches);
        if (! fMatchSet) {
            fMatchSet = std::make_shared<MatchSet>();
        }
        SANITY_CHECK(fMatchSet);
        if (fMatchSet->insert(omNode).second) {
            fMatches->push_back(omNode);
        }
        retVal = true;
    } while (false);
    return retVal;
}

void MatchNode::resetMatches() {
    fMatches.reset();
    fMatchSet.reset();
}

bool MatchNode::acceptMatch(const NodePtr& childOMNode, AccessType accessType, const NodePtr& setOMNode) {
    bool retVal = false;
    do {
        SANITY_CHECK(childOMNode);
        if (accessType == SET) {
            SANITY_CHECK(childOMNode->set(setOMNode));
        }
        SANITY_CHECK(registerMatch(childOMNode));
        retVal = true;
    } while (false);
    return retVal;
}

void MatchNode::traverse_yielding(const TaskPtr& task, bool& done, const ScopePtr& scope, IOMNode& omNode,
                                  AccessType accessType, const NodePtr& setOMNode) {
    struct LocalVariableState : OMFunctionState {
        std::shared_ptr<IOMNodeIterator> iterator; // over omNode's children
        NodePtr child;                             // the matching child
        bool isChildDescendable = false;           // the child is a container or may become one
        bool subDone = false;                      // the callee's done
    };
    YIELDING_BEGIN(LocalVariableState, frame, done = false);
    frame->iterator = omNode.getIterator();
    while (frame->iterator && ! frame->iterator->isAtEnd()) {
        // Checks don't stand in this loop: a failure leaves the function at once through YIELDING_FINISH.
        if (! isIterMatch(*frame->iterator)) {
            if (isChainFailed()) {
                YIELDING_FINISH;
            }
            ++*frame->iterator;
            continue;
        }
        frame->child = **frame->iterator;
        if (! frame->child) {
            ++*frame->iterator;
            continue;
        }
        ++fCount;
        frame->isChildDescendable = isDescendable(frame->child->getType());
        if (fCount < fMaxCount && frame->isChildDescendable) {
            // Deeper levels first.
            YIELDING_CALL(
                traverse_yielding(task, frame->subDone, scope, *frame->child, accessType, setOMNode));
            if (! frame->subDone) {
                --fCount;
                YIELDING_FINISH;
            }
        }
        if (fCount >= fMinCount) {
            if (! fNext) {
                if (! acceptMatch(frame->child, accessType, setOMNode)) {
                    --fCount;
                    YIELDING_FINISH;
                }
            } else if (frame->isChildDescendable) {
                YIELDING_CALL(fNext->traverse_yielding(task, frame->subDone, scope, *frame->child, accessType,
                                                       setOMNode));
                if (isChainFailed()) {
                    --fCount;
                    YIELDING_FINISH;
                }
            }
        }
        --fCount;
        ++*frame->iterator;
    }
    if (fMinCount != 0 || fCount != 0) {
        done = true;
        YIELDING_FINISH;
    }
    // The segment may span no level at all: then it matches right here.
    if (! fNext) {
        YIELDING_CHECK(acceptMatch(omNode.shared_from_this(), accessType, setOMNode));
    } else if (isDescendable(omNode.getType())) {
        YIELDING_CALL(fNext->traverse_yielding(task, frame->subDone, scope, omNode, accessType, setOMNode));
        YIELDING_CHECK(! isChainFailed());
    }
    done = true;
    YIELDING_END;
}

} // namespace Brw
