// The built-in functions on values and text, members of OMExpressionLValueToken.

#include <cmath>
#include <limits>

#include "BrwLogger/BrwCheck.h"
#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwParser/BrwInputStreamString.h"
#include "BrwParser/BrwOMAccessor.h"
#include "BrwParser/BrwOMExpressionLValue.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwYielding.h"
#include "BrwUtils/BrwUtils.h"

namespace Brw {

namespace {

using NodePtr = std::shared_ptr<IOMNode>;
using ScopePtr = std::shared_ptr<OMScope>;

// False, with the script error reported, when the call has fewer than `needed` arguments.
[[nodiscard]] bool hasArguments(const OMExpressionLValueResolution& resolution, size_t needed) {
    return resolution.hasArguments(needed);
}

// A position or length from a script number: negative and NaN are 0, too large is the largest.
uint64_t toUnsignedSaturated(double number) {
    if (! (number > 0.0)) {
        return 0;
    }
    if (number >= 18446744073709551616.0) {
        return std::numeric_limits<uint64_t>::max();
    }
    return static_cast<uint64_t>(number);
}

double numberOf(const NodePtr& node) {
    return OMAccessor(node).getAsNum();
}

std::string textOf(const NodePtr& node) {
    return OMAccessor(node).getAsString();
}

// A radix that no number is read in.
constexpr int UNREADABLE_RADIX = 0;

// The parser's base for a radix argument: its integer part, 10 for 1 and below (and NaN);
// UNREADABLE_RADIX above 36.
int baseFromRadix(double radix) {
    if (! (radix >= 2.0)) {
        return 10;
    }
    return radix < 37.0 ? static_cast<int>(radix) : UNREADABLE_RADIX;
}

// Reads a number from the whole of `text` into `node`, by the script's number rules for `base`; what
// can't be read leaves the node as it was.
void parseNumberInto(OMStored& node, const std::string& text, int base) {
    if (base == UNREADABLE_RADIX) {
        return;
    }
    auto stream = std::make_shared<InputStreamString>(text);
    stream->setAtEOF();
    VERIFY(node.parseNum(stream, base));
}

// Gives `node` the text, or Error past the text limit (reported).
bool setText(IOMNode& node, const std::string& text) {
    return ScriptLimits::isTextAllowed(text.size()) ? node.set(text) : node.setError();
}

// NOTE: only the ASCII letters change: the bytes of a multi-byte UTF-8 letter are left alone, whatever
// the locale.
std::string changeCase(std::string text, bool toUpper) {
    const char from = toUpper ? 'a' : 'A';
    const char to = toUpper ? 'A' : 'a';
    for (char& c : text) {
        if (c >= from && c <= from + 25) {
            c = static_cast<char>(c - from + to);
        }
    }
    return text;
}

// One of the two case built-ins.
NodePtr changeCaseOfThis(OMExpressionLValueResolution& resolution, bool toUpper) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! hasArguments(resolution, 1)) {
            break;
        }
        NodePtr thisNode = resolution.getArgument(0);
        SANITY_CHECK(thisNode);
        SANITY_CHECK(retVal->set(changeCase(textOf(thisNode), toUpper)));
    } while (false);
    return retVal;
}

} // namespace

void OMExpressionLValueToken::registerBuiltins() {
    registerBuiltin(_abs, ftn_abs, nullptr);
    registerBuiltin(_enquote, ftn_enquote, nullptr);
    registerBuiltin(_eval, nullptr, ftn_eval_yielding);
    registerBuiltin(_evalScript, nullptr, ftn_evalScript_yielding);
    registerBuiltin(_indexOf, ftn_indexOf, nullptr);
    registerBuiltin(_isNaN, ftn_isNaN, nullptr);
    registerBuiltin(_keys, ftn_keys, nullptr);
    registerBuiltin(_length, nullptr, ftn_length_yielding);
    registerBuiltin(_parseFloat, ftn_parseFloat, nullptr);
    registerBuiltin(_parseInt, ftn_parseInt, nullptr);
    registerBuiltin(_parseScript, nullptr, ftn_parseScript_yielding);
    registerBuiltin(_pop, ftn_pop, nullptr);
    registerBuiltin(_push, ftn_push, nullptr);
    registerBuiltin(_reference, nullptr, ftn_reference_yielding);
    registerBuiltin(_scriptFilePath, ftn_scriptFilePath, nullptr);
    registerBuiltin(_size, ftn_size, nullptr);
    registerBuiltin(_sqr, ftn_sqr, nullptr);
    registerBuiltin(_sqrt, ftn_sqrt, nullptr);
    registerBuiltin(_stringify, ftn_stringify, nullptr);
    registerBuiltin(_substr, ftn_substr, nullptr);
    registerBuiltin(_toLowerCase, ftn_toLowerCase, nullptr);
    registerBuiltin(_toString, ftn_toString, nullptr);
    registerBuiltin(_toUpperCase, ftn_toUpperCase, nullptr);
    registerFileBuiltins();
    registerSystemBuiltins();
    registerMessagingBuiltins();
}

// ---- numbers ----

NodePtr OMExpressionLValueToken::ftn_abs(AccessType, const ScopePtr&,
                                         OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! hasArguments(resolution, 1)) {
            break;
        }
        NodePtr thisNode = resolution.getArgument(0);
        SANITY_CHECK(thisNode);
        // A whole result is an integer, NaN stays NaN.
        SANITY_CHECK(retVal->setNum(std::fabs(numberOf(thisNode))));
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_sqr(AccessType, const ScopePtr&,
                                         OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! hasArguments(resolution, 1)) {
            break;
        }
        NodePtr thisNode = resolution.getArgument(0);
        SANITY_CHECK(thisNode);
        const double x = numberOf(thisNode);
        SANITY_CHECK(retVal->setNum(x * x));
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_sqrt(AccessType, const ScopePtr&,
                                          OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! hasArguments(resolution, 1)) {
            break;
        }
        NodePtr thisNode = resolution.getArgument(0);
        SANITY_CHECK(thisNode);
        const double root = std::sqrt(numberOf(thisNode));
        if (std::isnan(root)) {
            SANITY_CHECK(retVal->setNaN());
            break;
        }
        const double rounded = std::floor(root + 0.5);
        // NOTE: the square of the rounded root is compared with the root, not with the argument, so only
        // 0 and 1 come back as integers: sqrt(4) is the double 2.0. Scripts rely on this.
        if (rounded * rounded == root && std::isfinite(rounded)) {
            SANITY_CHECK(retVal->set(static_cast<OMInt>(rounded)));
        } else {
            SANITY_CHECK(retVal->set(static_cast<OMFloat>(root)));
        }
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_isNaN(AccessType, const ScopePtr&,
                                           OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! hasArguments(resolution, 1)) {
            break;
        }
        NodePtr thisNode = resolution.getArgument(0);
        SANITY_CHECK(thisNode);
        // Anything that is no number and no text counts as not a number, an array or a map included.
        bool isNotANumber = true;
        switch (thisNode->getType()) {
        case OMType::String:
            isNotANumber = std::isnan(numberOf(thisNode));
            break;
        case OMType::Float:
            isNotANumber = std::isnan(thisNode->getFloat());
            break;
        case OMType::Int:
            isNotANumber = false;
            break;
        default:
            break;
        }
        SANITY_CHECK(retVal->set(isNotANumber));
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_parseInt(AccessType, const ScopePtr&,
                                              OMExpressionLValueResolution& resolution) {
    std::shared_ptr<OMStored> retVal = OMStored::nanFactory();
    do {
        if (! hasArguments(resolution, 1)) {
            break;
        }
        NodePtr thisNode = resolution.getArgument(0);
        SANITY_CHECK(thisNode);
        // Without a radix the parser's own rule: decimal, or hexadecimal after "0x".
        int base = OMStored::NUMBER_INTEGER;
        if (resolution.getArgumentCount() >= 2) {
            NodePtr radixNode = resolution.getArgument(1);
            SANITY_CHECK(radixNode);
            base = baseFromRadix(numberOf(radixNode));
        }
        parseNumberInto(*retVal, textOf(thisNode), base);
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_parseFloat(AccessType, const ScopePtr&,
                                                OMExpressionLValueResolution& resolution) {
    std::shared_ptr<OMStored> retVal = OMStored::nanFactory();
    do {
        if (! hasArguments(resolution, 1)) {
            break;
        }
        if (resolution.getArgumentCount() > 1) {
            ScriptErrorLog::report("too many arguments");
            break;
        }
        NodePtr thisNode = resolution.getArgument(0);
        SANITY_CHECK(thisNode);
        parseNumberInto(*retVal, textOf(thisNode), OMStored::NUMBER_DECIMAL);
    } while (false);
    return retVal;
}

// ---- text ----

NodePtr OMExpressionLValueToken::ftn_toString(AccessType, const ScopePtr&,
                                              OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! hasArguments(resolution, 1)) {
            break;
        }
        NodePtr thisNode = resolution.getArgument(0);
        SANITY_CHECK(thisNode);
        SANITY_CHECK(setText(*retVal, thisNode->toString()));
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_stringify(AccessType, const ScopePtr&,
                                               OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! hasArguments(resolution, 1)) {
            break;
        }
        NodePtr thisNode = resolution.getArgument(0);
        SANITY_CHECK(thisNode);
        SANITY_CHECK(setText(*retVal, OMAccessor(thisNode).stringify()));
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_toLowerCase(AccessType, const ScopePtr&,
                                                 OMExpressionLValueResolution& resolution) {
    return changeCaseOfThis(resolution, false);
}

NodePtr OMExpressionLValueToken::ftn_toUpperCase(AccessType, const ScopePtr&,
                                                 OMExpressionLValueResolution& resolution) {
    return changeCaseOfThis(resolution, true);
}

NodePtr OMExpressionLValueToken::ftn_enquote(AccessType, const ScopePtr&,
                                             OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! hasArguments(resolution, 1)) {
            break;
        }
        NodePtr thisNode = resolution.getArgument(0);
        SANITY_CHECK(thisNode);
        char quoteChar = '"';
        if (resolution.getArgumentCount() >= 2) {
            NodePtr quoteNode = resolution.getArgument(1);
            SANITY_CHECK(quoteNode);
            const std::string quoteText = textOf(quoteNode);
            quoteChar = quoteText.empty() ? '"' : quoteText[0];
        }
        SANITY_CHECK(setText(*retVal, Utils::enquote(textOf(thisNode), quoteChar)));
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_substr(AccessType, const ScopePtr&,
                                            OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! hasArguments(resolution, 1)) {
            break;
        }
        NodePtr thisNode = resolution.getArgument(0);
        NodePtr fromNode = resolution.getArgument(1);
        NodePtr lengthNode = resolution.getArgument(2);
        SANITY_CHECK(thisNode);
        SANITY_CHECK(fromNode);
        SANITY_CHECK(lengthNode);
        const std::string text = textOf(thisNode);
        const uint64_t from =
            resolution.getArgumentCount() >= 2 ? toUnsignedSaturated(numberOf(fromNode)) : 0;
        const uint64_t length = resolution.getArgumentCount() >= 3 ? toUnsignedSaturated(numberOf(lengthNode))
                                                                   : std::numeric_limits<uint64_t>::max();
        SANITY_CHECK(retVal->set(from >= text.size() ? std::string() : text.substr(from, length)));
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_indexOf(AccessType, const ScopePtr&,
                                             OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! hasArguments(resolution, 2)) {
            break;
        }
        NodePtr thisNode = resolution.getArgument(0);
        NodePtr needleNode = resolution.getArgument(1);
        NodePtr fromPosNode = resolution.getArgument(2);
        SANITY_CHECK(thisNode);
        SANITY_CHECK(needleNode);
        SANITY_CHECK(fromPosNode);
        const std::string text = textOf(thisNode);
        const std::string needle = textOf(needleNode);
        const uint64_t fromPos =
            resolution.getArgumentCount() >= 3 ? toUnsignedSaturated(numberOf(fromPosNode)) : 0;
        OMInt position = -1;
        if (! text.empty() && ! needle.empty() && fromPos < text.size()) {
            const size_t found = text.find(needle, fromPos);
            position = found == std::string::npos ? -1 : static_cast<OMInt>(found);
        }
        SANITY_CHECK(retVal->set(position));
    } while (false);
    return retVal;
}

// ---- containers ----

void OMExpressionLValueToken::ftn_length_yielding(const std::shared_ptr<Task>& task, NodePtr& result,
                                                  AccessType accessType, const ScopePtr& scope,
                                                  OMExpressionLValueResolution& resolution) {
    struct LocalVariableState : OMFunctionState {
        NodePtr thisNode;     // what is measured
        NodePtr member;       // the member "length" of anything else
        bool success = false; // the member was found
    };
    static const std::string LENGTH_MEMBER = "length";
    YIELDING_BEGIN(LocalVariableState, frame, result = OMStored::undefinedFactory());
    if (! hasArguments(resolution, 1)) {
        YIELDING_FINISH;
    }
    frame->thisNode = resolution.getArgument(0);
    YIELDING_CHECK(frame->thisNode);
    if (frame->thisNode->getType() == OMType::String) {
        YIELDING_CHECK(result->set(static_cast<OMInt>(frame->thisNode->getString().size())));
        YIELDING_FINISH;
    }
    if (frame->thisNode->getType() == OMType::Array) {
        YIELDING_CHECK(result->set(static_cast<OMInt>(frame->thisNode->getSize())));
        YIELDING_FINISH;
    }
    // A map may well have a member of that name: `{length: 5}.length`.
    YIELDING_CALL(frame->thisNode->accessOMNodeResolved_yielding(task, frame->success, scope, nullptr,
                                                                 accessType, LENGTH_MEMBER, frame->member));
    YIELDING_CHECK(frame->success);
    YIELDING_CHECK(frame->member);
    result = frame->member;
    YIELDING_END;
}

NodePtr OMExpressionLValueToken::ftn_size(AccessType, const ScopePtr&,
                                          OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! hasArguments(resolution, 1)) {
            break;
        }
        NodePtr thisNode = resolution.getArgument(0);
        SANITY_CHECK(thisNode);
        const bool isContainer = thisNode->getType() == OMType::Array || thisNode->getType() == OMType::Map;
        SANITY_CHECK(retVal->set(static_cast<OMInt>(isContainer ? thisNode->getSize() : 0)));
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_keys(AccessType, const ScopePtr&,
                                          OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! hasArguments(resolution, 1)) {
            break;
        }
        NodePtr thisNode = resolution.getArgument(0);
        SANITY_CHECK(thisNode);
        if (thisNode->getType() != OMType::Map) {
            break;
        }
        auto keyArray = std::make_shared<OMArray>();
        for (const std::string& key : thisNode->getKeys()) {
            keyArray->push_back(OMStored::factory(key));
        }
        SANITY_CHECK(retVal->set(keyArray));
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_push(AccessType, const ScopePtr&,
                                          OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! hasArguments(resolution, 2)) {
            break;
        }
        NodePtr thisNode = resolution.getArgument(0);
        NodePtr valueNode = resolution.getArgument(1);
        SANITY_CHECK(thisNode);
        SANITY_CHECK(valueNode);
        // A container is shared as an assignment shares it; anything else is copied, since the argument
        // may be a variable's own node or a literal of the tree, which must not become an element.
        const bool isContainer = valueNode->getType() == OMType::Array || valueNode->getType() == OMType::Map;
        NodePtr element = isContainer ? valueNode : valueNode->clone(0);
        SANITY_CHECK(element);
        if (! thisNode->push(element)) {
            ScriptErrorLog::report("push failed");
            SANITY_CHECK(retVal->setError());
            break;
        }
        retVal = element;
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_pop(AccessType, const ScopePtr&,
                                         OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! hasArguments(resolution, 1)) {
            break;
        }
        NodePtr thisNode = resolution.getArgument(0);
        SANITY_CHECK(thisNode);
        NodePtr popped = thisNode->pop();
        SANITY_CHECK(popped);
        retVal = popped;
    } while (false);
    return retVal;
}

// ---- script file and references ----

NodePtr OMExpressionLValueToken::ftn_scriptFilePath(AccessType, const ScopePtr& scope,
                                                    OMExpressionLValueResolution&) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        SANITY_CHECK(scope);
        SANITY_CHECK(retVal->set(scope->getScriptFilePath()));
    } while (false);
    return retVal;
}

// reference([base,] path [, "selectarray" | "selectfirst"]): the nodes a path selects below an array or
// a map, below the left part of `x.reference(path)`, or below the scope.
void OMExpressionLValueToken::ftn_reference_yielding(const std::shared_ptr<Task>& task, NodePtr& result,
                                                     AccessType accessType, const ScopePtr& scope,
                                                     OMExpressionLValueResolution& resolution) {
    struct LocalVariableState : OMFunctionState {
        OMAccessor accessor{NodePtr()}; // on the base
        NodePtr base;                   // where the path starts
        size_t pathIndex = 0;           // the argument that holds the path
        NodePtr referenceStrNode;       // that argument
        std::string reference;          // its text
        NodePtr referenceTypeNode;      // the argument after the path, if any
        ReferenceType referenceType = OM_REF_SELECTOR_SINGLE_ELEMENT_OR_ARRAY;
        NodePtr selected;     // the match, or an array of the matches
        bool success = false; // the path could be followed
    };
    YIELDING_BEGIN(LocalVariableState, frame, result = OMStored::undefinedFactory());
    if (! hasArguments(resolution, 1)) {
        YIELDING_FINISH;
    }
    frame->base = resolution.getArgument(0);
    YIELDING_CHECK(frame->base);
    if (frame->base->getType() == OMType::Array || frame->base->getType() == OMType::Map) {
        frame->pathIndex = 1;
    } else if (resolution.getThisNode()) {
        frame->base = resolution.getThisNode();
    } else {
        YIELDING_CHECK(scope);
        frame->base = scope;
    }
    frame->referenceStrNode = resolution.getArgument(frame->pathIndex);
    YIELDING_CHECK(frame->referenceStrNode);
    frame->reference = textOf(frame->referenceStrNode);
    if (resolution.getArgumentCount() > frame->pathIndex + 1) {
        frame->referenceTypeNode = resolution.getArgument(frame->pathIndex + 1);
        YIELDING_CHECK(frame->referenceTypeNode);
        if (frame->referenceTypeNode->getType() == OMType::String) {
            const std::string selector = frame->referenceTypeNode->getString();
            frame->referenceType = selector == "selectarray"   ? OM_REF_SELECTOR_ARRAY
                                   : selector == "selectfirst" ? OM_REF_SELECTOR_FIRST_MATCH
                                                               : frame->referenceType;
        }
    }
    frame->accessor = OMAccessor(frame->base);
    frame->accessor.setAccessorScope(scope);
    YIELDING_CALL(frame->accessor.accessOMNode_yielding(task, frame->success, accessType, frame->reference,
                                                        frame->selected, frame->referenceType));
    if (! frame->success || ! frame->selected) {
        result = reportUnreachable("cannot access reference");
        YIELDING_FINISH;
    }
    result = frame->selected;
    YIELDING_END;
}

} // namespace Brw
