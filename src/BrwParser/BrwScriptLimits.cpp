#include "BrwParser/BrwScriptLimits.h"

#include "BrwLogger/BrwScriptErrorLog.h"

namespace Brw {

namespace {

bool reportTooManyElements() {
    ScriptErrorLog::report("too many elements: more than " +
                           std::to_string(ScriptLimits::fContainerElements));
    return false;
}

} // namespace

std::string ScriptLimits::textTooLongMessage() {
    return "text too long: more than " + std::to_string(fTextBytes) + " bytes";
}

bool ScriptLimits::isTextAllowed(uint64_t byteCount) {
    if (isTextWithinLimit(byteCount)) {
        return true;
    }
    ScriptErrorLog::report(textTooLongMessage());
    return false;
}

bool ScriptLimits::isContainerAllowed(uint64_t elementCount) {
    return isContainerWithinLimit(elementCount) || reportTooManyElements();
}

bool ScriptLimits::isIndexAllowed(uint64_t index) {
    return isIndexWithinLimit(index) || reportTooManyElements();
}

} // namespace Brw
