// Compiling reference paths: the text of a path becomes a chain of match nodes, one per segment.
//
//   path       -> segment ("/" segment)*          "/" always splits unless escaped with "\"
//   segment    -> "!"? ( regexp | function | bracket | comparison )
//   regexp     -> ("$" | "?" | "*" | "+" | "{" digits? ("," digits?)? "}") ECMAScript-expression
//   function   -> name "()"
//   bracket    -> "[" ( "" | digits | digits? "-" digits? | quoted-or-plain-name ) "]"
//   comparison -> ("<" | "<=" | "=<" | ">" | ">=" | "=>" | "=")? name

#include <algorithm>

#include "BrwLogger/BrwCheck.h"
#include "BrwParser/BrwMatchNodeCompareMatch.h"
#include "BrwParser/BrwMatchNodeExactMatch.h"
#include "BrwParser/BrwMatchNodeFunction.h"
#include "BrwParser/BrwMatchNodeRange.h"
#include "BrwParser/BrwMatchNodeRegExp.h"
#include "BrwParser/BrwOMAccessor.h"

namespace Brw {

namespace {

constexpr size_t MAX_SEGMENT_COUNT = 1000;

bool isRegExpPrefix(char c) {
    return c == '$' || c == '*' || c == '+' || c == '?' || c == '{';
}

// `!` flips a comparison: every key that the plain one would not take.
BinOp negated(BinOp binOp) {
    switch (binOp) {
    case COMPARE_LT:
        return COMPARE_GE;
    case COMPARE_LE:
        return COMPARE_GT;
    case COMPARE_GT:
        return COMPARE_LE;
    case COMPARE_GE:
        return COMPARE_LT;
    case COMPARE_EQ:
        return COMPARE_NE;
    case COMPARE_IDENTICAL:
        return COMPARE_NOT_IDENTICAL;
    default:
        return binOp;
    }
}

// The comparison a segment starts with, and the length of its prefix.
BinOp comparisonPrefix(const std::string& text, size_t& prefixLength) {
    const std::string two = text.substr(0, 2);
    prefixLength = 2;
    if (two == "<=" || two == "=<") {
        return COMPARE_LE;
    }
    if (two == ">=" || two == "=>") {
        return COMPARE_GE;
    }
    prefixLength = 1;
    switch (text.empty() ? '\0' : text[0]) {
    case '<':
        return COMPARE_LT;
    case '>':
        return COMPARE_GT;
    case '=':
        return COMPARE_EQ;
    default:
        prefixLength = 0;
        return COMPARE_EQ;
    }
}

std::shared_ptr<MatchNode> compileComparison(bool isInverted, const std::string& text) {
    std::shared_ptr<MatchNode> retVal;
    do {
        size_t prefixLength = 0;
        BinOp binOp = comparisonPrefix(text, prefixLength);
        const std::string name = text.substr(prefixLength);
        if (name.empty()) {
            LOG_ERROR("empty comparison segment");
            break;
        }
        if (isInverted) {
            binOp = negated(binOp);
        }
        if (binOp == COMPARE_EQ) {
            retVal = MatchNodeExactMatch::factory(name);
        } else {
            retVal = MatchNodeCompareMatch::factory(binOp, name, 1, 1);
        }
    } while (false);
    return retVal;
}

// Reads one side of a range: digits, or nothing for `emptyValue`; false when it is something else.
bool readRangeBound(const std::string& text, uint64_t emptyValue, uint64_t& bound) {
    if (text.empty()) {
        bound = emptyValue;
        return true;
    }
    if (! Utils::isNumeric(text)) {
        return false;
    }
    bound = Utils::toUInt64(text);
    return true;
}

// The text between "[" and "]": all elements, an index, a range of indices, or a name, quoted or not.
// NOTE: an index and a name take no "!"; `![1]` means `[1]`.
std::shared_ptr<MatchNode> compileBracket(bool isInverted, const std::string& inner) {
    if (inner.empty()) {
        return MatchNodeRange::factory(isInverted, 0, MatchNode::NO_LIMIT);
    }
    if (Utils::isNumeric(inner)) {
        return MatchNodeExactMatch::factory(inner);
    }
    const size_t dash = inner.find('-');
    uint64_t first = 0;
    uint64_t last = 0;
    if (dash != std::string::npos && inner.find('-', dash + 1) == std::string::npos &&
        readRangeBound(inner.substr(0, dash), 0, first) &&
        readRangeBound(inner.substr(dash + 1), MatchNode::NO_LIMIT, last)) {
        // NOTE: `[5-2]` is no range but the attribute "5-2".
        if (first < last) {
            return MatchNodeRange::factory(isInverted, first, last);
        }
        return MatchNodeExactMatch::factory(inner);
    }
    std::string name = inner;
    if (name.size() >= 2 && (name.front() == '"' || name.front() == '\'') && name.back() == name.front()) {
        name = name.substr(1, name.size() - 2);
    }
    return MatchNodeExactMatch::factory(name);
}

std::shared_ptr<MatchNode> compileSegment(const std::string& segment) {
    std::shared_ptr<MatchNode> retVal;
    do {
        if (segment.empty()) {
            LOG_ERROR("empty segment");
            break;
        }
        const bool isInverted = segment[0] == '!';
        const std::string text = isInverted ? segment.substr(1) : segment;
        if (text.empty()) {
            LOG_ERROR("empty inverted segment");
            break;
        }
        if (isRegExpPrefix(text[0])) {
            uint64_t min = 1;
            uint64_t max = 1;
            std::string regExpStr;
            if (! OMAccessor::extractRegExpStr(text, min, max, regExpStr)) {
                LOG_ERROR("invalid regexp segment");
                break;
            }
            retVal = MatchNodeRegExp::factory(isInverted, regExpStr, min, max);
        } else if (text.size() >= 2 && text.compare(text.size() - 2, 2, "()") == 0) {
            retVal = MatchNodeFunction::factory(text.substr(0, text.size() - 2));
        } else if (text.size() >= 2 && text.front() == '[' && text.back() == ']') {
            retVal = compileBracket(isInverted, text.substr(1, text.size() - 2));
        } else {
            retVal = compileComparison(isInverted, text);
        }
    } while (false);
    return retVal;
}

} // namespace

std::vector<std::string> OMAccessor::parseReferenceSegments(const std::string& reference, size_t position) {
    std::vector<std::string> segments;
    std::string segment;
    bool isEscaped = false;
    bool isRegExpSegment = false;
    for (;;) {
        const char c = position < reference.size() ? reference[position] : '\0';
        if (isEscaped && c != '\0') {
            segment += c;
            isEscaped = false;
            ++position;
            continue;
        }
        if (segment.empty() && isRegExpPrefix(c)) {
            // Inside a regular expression "[" is a character class, not a new segment.
            isRegExpSegment = true;
        }
        if (c == '\0' || c == '/' || (c == '[' && ! isRegExpSegment)) {
            isRegExpSegment = false;
            segment = Utils::trim(segment);
            if (! segment.empty()) {
                segments.push_back(segment);
                segment.clear();
            }
            if (segments.size() >= MAX_SEGMENT_COUNT) {
                LOG_ERROR("max segment count reached");
                break;
            }
            if (c == '\0') {
                break;
            }
        }
        if (c == '\\' || c == '/') {
            isEscaped = c == '\\';
            ++position;
            continue;
        }
        // "[" stays: it starts the bracket segment.
        segment += c;
        isEscaped = false;
        ++position;
    }
    return segments;
}

bool OMAccessor::extractRegExpStr(const std::string& segmentRegExpStr, uint64_t& min, uint64_t& max,
                                  std::string& regExpStr) {
    bool retVal = false;
    do {
        SANITY_CHECK(! segmentRegExpStr.empty());
        size_t position = 1;
        switch (segmentRegExpStr[0]) {
        case '$':
            min = 1;
            max = 1;
            break;
        case '?':
            min = 0;
            max = 1;
            break;
        case '*':
            min = 0;
            max = MatchNode::NO_LIMIT;
            break;
        case '+':
            min = 1;
            max = MatchNode::NO_LIMIT;
            break;
        case '{': {
            // NOTE: "," keeps the digits read so far: `{1,1}` ends with max 11, `{2,3}` with 23. Paths rely
            // on the notation as it is.
            bool hasComma = false;
            min = 0;
            max = 0;
            for (; position < segmentRegExpStr.size(); ++position) {
                const char c = segmentRegExpStr[position];
                if (c >= '0' && c <= '9') {
                    max = max * 10 + static_cast<uint64_t>(c - '0');
                } else if (c == ',') {
                    min = max;
                    hasComma = true;
                } else {
                    position += c == '}' ? 1 : 0;
                    break;
                }
            }
            if (max == 0) {
                max = 1;
            }
            if (! hasComma) {
                min = max;
            }
            break;
        }
        default:
            position = 0;
            break;
        }
        if (position == 0) {
            LOG_ERROR("unexpected first char");
            break;
        }
        regExpStr = segmentRegExpStr.substr(position);
        retVal = true;
    } while (false);
    return retVal;
}

std::string OMAccessor::functionPhaseToStr(int32_t functionPhase) {
    switch (functionPhase) {
    case FUNCTION_PHASE_NONE:
        return "none";
    case FUNCTION_PHASE_IGNORE:
        return "ignore";
    case FUNCTION_PHASE_PROCESS:
        return "process";
    default:
        LOG_ERROR("unxpected functionPhase");
        return "none";
    }
}

std::shared_ptr<MatchNode> OMAccessor::parseReference(const std::string& reference) {
    std::shared_ptr<MatchNode> retVal;
    do {
        const std::vector<std::string> segments = parseReferenceSegments(reference, 0);
        if (segments.empty()) {
            LOG_ERROR("empty reference");
            break;
        }
        std::shared_ptr<MatchNode> head;
        std::shared_ptr<MatchNode> previous;
        bool allOK = true;
        for (const std::string& segment : segments) {
            std::shared_ptr<MatchNode> matchNode = compileSegment(segment);
            allOK = matchNode && (! previous || MatchNode::setParent(previous, matchNode));
            if (! allOK) {
                break;
            }
            head = head ? head : matchNode;
            previous = matchNode;
        }
        if (! allOK) {
            break;
        }
        retVal = head;
    } while (false);
    return retVal;
}

} // namespace Brw
