#include "BrwParser/BrwMatchNodeFunction.h"

#include <algorithm>

#include "BrwLogger/BrwCheck.h"
#include "BrwParser/BrwOMAccessor.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwYielding.h"

namespace Brw {

namespace {

// The function value that `name` denotes in `scope`, or null when there is none.
std::shared_ptr<OMStored> findScriptFunction(const OMScope& scope, const std::string& name) {
    std::shared_ptr<OMStored> retVal;
    IOMNode::NodePtr functionNode = scope.getOMNode(name);
    if (functionNode && functionNode->getType() != OMType::Error) {
        retVal = OMStored::rewrapFactory(*functionNode);
    }
    return retVal;
}

} // namespace

std::shared_ptr<MatchNodeFunction> MatchNodeFunction::factory(const std::string& functionName) {
    return std::make_shared<MatchNodeFunction>(functionName);
}

bool MatchNodeFunction::registerMatch(const NodePtr& omNode) {
    bool retVal = false;
    do {
        SANITY_CHECK(omNode);
        retVal = addMatch(omNode);
    } while (false);
    return retVal;
}

bool MatchNodeFunction::isBuiltIn() const {
    return fFunctionName == "count" || fFunctionName == "name" || fFunctionName == "select";
}

IOMNode::NodePtr MatchNodeFunction::calculateBuiltIn(AccessType accessType, const NodePtr& setOMNode) const {
    NodePtr calculatedNode;
    do {
        if (fFunctionName == "count") {
            if (accessType != SET) {
                calculatedNode = OMStored::factory(static_cast<OMInt>(fMatches ? fMatches->size() : 0));
            }
        } else if (fFunctionName == "name") {
            if (accessType == SET) {
                break;
            }
            std::vector<std::string> names;
            for (const NodePtr& match : fMatches ? *fMatches : OMArray()) {
                names.push_back(match->getDataStructureKey());
            }
            std::sort(names.begin(), names.end());
            if (names.empty()) {
                calculatedNode = OMStored::undefinedFactory();
            } else if (names.size() == 1) {
                calculatedNode = OMStored::factory(names.front());
            } else {
                std::shared_ptr<OMStored> array = OMStored::arrayFactory();
                SANITY_CHECK(array);
                for (const std::string& name : names) {
                    std::shared_ptr<OMStored> nameNode = OMStored::factory(name);
                    VERIFY(nameNode && array->push(nameNode));
                }
                calculatedNode = array;
            }
        } else if (fFunctionName == "select" && fMatches) {
            calculatedNode = OMStored::factory(std::make_shared<OMArray>(*fMatches));
            SANITY_CHECK(calculatedNode);
            if (accessType == SET) {
                for (const NodePtr& match : *fMatches) {
                    VERIFY(match->set(setOMNode));
                }
            }
        }
    } while (false);
    return calculatedNode;
}

OMArgs MatchNodeFunction::makeIgnoreArguments(const IOMNode& omNode) {
    OMArgs arguments;
    do {
        NodePtr dataStructureParent = omNode.getDataStructureParent();
        if (! dataStructureParent) {
            dataStructureParent = OMStored::undefinedFactory();
        }
        SANITY_CHECK(dataStructureParent);
        NodePtr dataStructureKeyNode = OMStored::factory(omNode.getDataStructureKey());
        SANITY_CHECK(dataStructureKeyNode);
        arguments = std::make_shared<std::vector<NodePtr>>(
            std::vector<NodePtr>{dataStructureParent, dataStructureKeyNode});
    } while (false);
    return arguments;
}

bool MatchNodeFunction::handUp(const NodePtr& calculatedNode) {
    bool retVal = false;
    do {
        if (std::shared_ptr<MatchNode> parent = fParent.lock()) {
            SANITY_CHECK(parent->registerMatch(calculatedNode));
        } else {
            SANITY_CHECK(registerMatch(calculatedNode));
        }
        retVal = true;
    } while (false);
    return retVal;
}

void MatchNodeFunction::callScriptFunction_yielding(const TaskPtr& task, NodePtr& out, bool& isFunctionFound,
                                                    const NodePtr& phaseNode, const OMArgs& arguments,
                                                    const ScopePtr& scope) {
    struct LocalVariableState : OMFunctionState {
        std::shared_ptr<OMStored> functionNode; // the function called
    };
    YIELDING_BEGIN(LocalVariableState, frame, isFunctionFound = false);
    YIELDING_CHECK(scope);
    frame->functionNode = findScriptFunction(*scope, fFunctionName);
    if (! frame->functionNode) {
        YIELDING_FINISH;
    }
    isFunctionFound = true;
    YIELDING_CALL(
        frame->functionNode->callNodeAsFunction_yielding(task, out, false, phaseNode, arguments, scope));
    YIELDING_END;
}

void MatchNodeFunction::traverse_yielding(const TaskPtr& task, bool& done, const ScopePtr& scope,
                                          IOMNode& omNode, AccessType accessType, const NodePtr& setOMNode) {
    struct LocalVariableState : OMFunctionState {
        NodePtr functionPhaseNode;    // what the script function is asked to do
        OMArgs resolvedArgumentList;  // what it is called with
        NodePtr result;               // its answer to "ignore"
        bool isFunctionFound = false; // the scope has a function of this name
        bool subDone = false;         // the next segment's done
        NodePtr calculatedNode;       // the value this visit hands up
    };
    YIELDING_BEGIN(LocalVariableState, frame, done = false);
    if (! fNext) {
        YIELDING_CHECK(acceptMatch(omNode.shared_from_this(), accessType, setOMNode));
    } else if (isDescendable(omNode.getType())) {
        if (scope) {
            frame->functionPhaseNode =
                OMStored::factory(OMAccessor::functionPhaseToStr(FUNCTION_PHASE_IGNORE));
            YIELDING_CHECK(frame->functionPhaseNode);
            frame->resolvedArgumentList = makeIgnoreArguments(omNode);
            YIELDING_CHECK(frame->resolvedArgumentList);
            YIELDING_CALL(callScriptFunction_yielding(task, frame->result, frame->isFunctionFound,
                                                      frame->functionPhaseNode, frame->resolvedArgumentList,
                                                      scope));
            (void)SANITY_CHECKED(! frame->isFunctionFound || frame->result);
        }
        // A true answer to "ignore" skips the subtree.
        if (! frame->result || frame->result->getType() != OMType::Bool || ! frame->result->getBool()) {
            YIELDING_CALL(
                fNext->traverse_yielding(task, frame->subDone, scope, omNode, accessType, setOMNode));
        }
    }
    if (isBuiltIn()) {
        frame->calculatedNode = calculateBuiltIn(accessType, setOMNode);
    } else if (scope) {
        frame->functionPhaseNode = OMStored::factory(OMAccessor::functionPhaseToStr(FUNCTION_PHASE_PROCESS));
        YIELDING_CHECK(frame->functionPhaseNode);
        frame->resolvedArgumentList = std::make_shared<std::vector<NodePtr>>(
            1, OMStored::factory(std::make_shared<OMArray>(fMatches ? *fMatches : OMArray())));
        YIELDING_CALL(callScriptFunction_yielding(task, frame->calculatedNode, frame->isFunctionFound,
                                                  frame->functionPhaseNode, frame->resolvedArgumentList,
                                                  scope));
    }
    // The next visit starts empty.
    resetMatches();
    if (frame->calculatedNode) {
        YIELDING_CHECK(handUp(frame->calculatedNode));
    }
    done = true;
    YIELDING_END;
}

} // namespace Brw
