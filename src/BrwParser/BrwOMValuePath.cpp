#include "BrwParser/BrwOMValuePath.h"

#include <algorithm>

#include "BrwParser/BrwOMStored.h"
#include "BrwParser/BrwScriptLimits.h"

namespace Brw {

OMValuePath::Step::Step(OMValuePath& path, const IOMNode& container)
    : fPath(path), fIsEntered(false), fIsCycle(false) {
    const void* identity = identityOf(container);
    fIsCycle =
        std::find(path.fContainers.begin(), path.fContainers.end(), identity) != path.fContainers.end();
    if (! fIsCycle && path.fContainers.size() < ScriptLimits::NESTING_DEPTH) {
        path.fContainers.push_back(identity);
        fIsEntered = true;
    }
}

OMValuePath::Step::~Step() {
    if (fIsEntered) {
        fPath.fContainers.pop_back();
    }
}

const void* OMValuePath::identityOf(const IOMNode& container) {
    const OMStored* stored = container.getOMStoredRaw();
    if (stored != nullptr && stored->getArray()) {
        return stored->getArray().get();
    }
    if (stored != nullptr && stored->getMap()) {
        return stored->getMap().get();
    }
    return &container;
}

} // namespace Brw
