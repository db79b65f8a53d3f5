// The accessor's text forms: `toString`, the short human form, and `stringify`, the exchange form that
// parses back. Map attributes always print in byte order of their names; strings are never escaped.

#include <algorithm>
#include <utility>

#include "BrwLogger/BrwCheck.h"
#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwParser/BrwOMAccessor.h"
#include "BrwParser/BrwOMNode.h"
#include "BrwParser/BrwOMValuePath.h"
#include "BrwUtils/BrwUtils.h"

namespace Brw {

namespace {

using NodePtr = std::shared_ptr<IOMNode>;
using Entry = std::pair<std::string, NodePtr>;

// The children of a container with their names, map attributes sorted by name.
std::vector<Entry> entriesOf(const IOMNode& omNode) {
    std::vector<Entry> entries;
    for (auto iterator = omNode.getIterator(); iterator && ! iterator->isAtEnd(); ++*iterator) {
        entries.emplace_back(iterator->getKey(), **iterator);
    }
    if (omNode.getType() == OMType::Map) {
        std::sort(entries.begin(), entries.end(),
                  [](const Entry& left, const Entry& right) { return left.first < right.first; });
    }
    return entries;
}

// What the human form shows for a container that holds itself, or is nested deeper than it goes.
constexpr const char* VALUE_NOT_SHOWN = "...";

// The exchange form can't show such a container: it is reported and stands as null.
std::string unstringifiable(const OMValuePath::Step& step) {
    ScriptErrorLog::report(step.isCycle() ? "cannot stringify a value that holds itself"
                                          : "cannot stringify a value nested too deeply");
    return "null";
}

} // namespace

std::string OMAccessor::toStringNode(const IOMNode& omNode) {
    static OMValuePath path;
    switch (omNode.getType()) {
    case OMType::Undefined:
    case OMType::Null:
    case OMType::Bool:
    case OMType::Date:
    case OMType::Int:
    case OMType::Float:
    case OMType::Expression:
    case OMType::Error:
    case OMType::Function:
    case OMType::NaN:
    case OMType::GUID:
        return omNode.toString();
    case OMType::String:
        return omNode.getString();
    case OMType::Array: {
        OMValuePath::Step step(path, omNode);
        if (! step.isEntered()) {
            return VALUE_NOT_SHOWN;
        }
        // An element that can't be read is left out.
        std::string text = "[ ";
        bool isFirst = true;
        for (const auto& [key, child] : entriesOf(omNode)) {
            if (child) {
                text += (isFirst ? "" : ", ") + toStringNode(*child);
                isFirst = false;
            }
        }
        return text + " ]";
    }
    case OMType::Map: {
        OMValuePath::Step step(path, omNode);
        if (! step.isEntered()) {
            return VALUE_NOT_SHOWN;
        }
        std::string text = "{ ";
        bool isFirst = true;
        for (const auto& [key, child] : entriesOf(omNode)) {
            if (child) {
                text += (isFirst ? "" : ",") + key + ": " + toStringNode(*child);
                isFirst = false;
            }
        }
        return text + " }";
    }
    }
    LOG_ERROR("unknown type");
    return std::string();
}

namespace {

// The text of a string as the parser reads it back: the quote and the backslash escaped, and the control
// characters; other bytes, UTF-8 among them, as they are.
std::string escapedText(const std::string& text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (char c : text) {
        if (c == '"' || c == '\\') {
            escaped += '\\';
            escaped += c;
        } else if (static_cast<unsigned char>(c) < ' ') {
            escaped += Utils::encodeString(std::string(1, c));
        } else {
            escaped += c;
        }
    }
    return escaped;
}

} // namespace

std::string OMAccessor::stringifyNode(const IOMNode& omNode, StringForm stringForm) {
    static OMValuePath path;
    const auto quoted = [stringForm](const std::string& text) {
        return "\"" + (stringForm == StringForm::ESCAPED ? escapedText(text) : text) + "\"";
    };
    switch (omNode.getType()) {
    case OMType::Undefined:
    case OMType::Null:
    case OMType::Bool:
    case OMType::Int:
    case OMType::Float:
    case OMType::Error:
    case OMType::Function:
    case OMType::NaN:
    case OMType::GUID:
        return omNode.toString();
    case OMType::Date:
        return std::to_string(omNode.getDate());
    case OMType::String:
        return quoted(omNode.getString());
    case OMType::Expression:
        return "{" + omNode.toString() + "}";
    case OMType::Array: {
        OMValuePath::Step step(path, omNode);
        if (! step.isEntered()) {
            return unstringifiable(step);
        }
        // An element that can't be read prints as null.
        std::string text = "[";
        bool isFirst = true;
        for (const auto& [key, child] : entriesOf(omNode)) {
            text += (isFirst ? "" : ", ") + (child ? stringifyNode(*child, stringForm) : std::string("null"));
            isFirst = false;
        }
        return text + "]";
    }
    case OMType::Map: {
        OMValuePath::Step step(path, omNode);
        if (! step.isEntered()) {
            return unstringifiable(step);
        }
        std::string text = "{";
        bool isFirst = true;
        for (const auto& [key, child] : entriesOf(omNode)) {
            text += (isFirst ? "" : ", ") + quoted(key) + ":" +
                    (child ? stringifyNode(*child, stringForm) : std::string("null"));
            isFirst = false;
        }
        return text + "}";
    }
    }
    LOG_ERROR("unknown type");
    return std::string();
}

std::string OMAccessor::typeOfNode(const IOMNode& omNode) {
    switch (omNode.getType()) {
    case OMType::Undefined:
        return "undefined";
    case OMType::Null:
    case OMType::Date:
    case OMType::Array:
    case OMType::Map:
        return "object";
    case OMType::Bool:
        return "boolean";
    case OMType::Int:
    case OMType::Float:
    case OMType::NaN:
        return "number";
    case OMType::String:
        return "string";
    case OMType::Expression:
        return "expression";
    case OMType::Error:
        return "error";
    case OMType::Function:
        return "function";
    case OMType::GUID:
        return "GUID";
    }
    LOG_ERROR("unexpected type");
    return "error";
}

// The three shapes of a text form; a node-less accessor and a missing child print as undefined.
#define BRW_ACCESSOR_TEXT_FORMS(name, ofNode)                                                                \
    std::string OMAccessor::name(uint64_t idx) const {                                                       \
        NodePtr omNode = readChild(idx);                                                                     \
        return omNode ? ofNode(*omNode) : std::string("undefined");                                          \
    }                                                                                                        \
    std::string OMAccessor::name(const std::string& attr) const {                                            \
        NodePtr omNode = readChild(attr);                                                                    \
        return omNode ? ofNode(*omNode) : std::string("undefined");                                          \
    }                                                                                                        \
    std::string OMAccessor::name() const {                                                                   \
        return fOMNode ? ofNode(*fOMNode) : std::string("undefined");                                        \
    }

BRW_ACCESSOR_TEXT_FORMS(stringify, stringifyNode)
BRW_ACCESSOR_TEXT_FORMS(toString, toStringNode)
BRW_ACCESSOR_TEXT_FORMS(typeOf, typeOfNode)

#undef BRW_ACCESSOR_TEXT_FORMS

} // namespace Brw
