#include "BrwParser/BrwOMContainerRegistry.h"

#include <iterator>

namespace Brw {

OMContainerRegistry::Entry::Entry() : fPrevious(fNewest), fNext(nullptr), fSerial(++fLastSerial) {
    if (fNewest != nullptr) {
        fNewest->fNext = this;
    }
    fNewest = this;
    ++fCount;
}

OMContainerRegistry::Entry::~Entry() {
    if (fPrevious != nullptr) {
        fPrevious->fNext = fNext;
    }
    if (fNext != nullptr) {
        fNext->fPrevious = fPrevious;
    } else {
        fNewest = fPrevious;
    }
    --fCount;
}

void OMContainerRegistry::releaseElementsSince(uint64_t mark) {
    std::vector<std::shared_ptr<IOMNode>> taken;
    // Only elements move while the list is walked: no container goes away before the walk is over.
    for (Entry* entry = fNewest; entry != nullptr && entry->fSerial > mark; entry = entry->fPrevious) {
        entry->takeElements(taken);
    }
}

void OMArray::takeElements(std::vector<std::shared_ptr<IOMNode>>& taken) {
    std::move(begin(), end(), std::back_inserter(taken));
    clear();
}

void OMMap::takeElements(std::vector<std::shared_ptr<IOMNode>>& taken) {
    for (auto& [key, node] : *this) {
        taken.push_back(std::move(node));
    }
    clear();
}

} // namespace Brw
