#pragma once

#include <string>
#include <vector>

#include "BrwObject/BrwIObject.h"

namespace Brw {

// An address by the path of a service below its coordinator: child name and child number in turn.
class IIndexedAddress : public virtual IObject {
public:
    // The path joined by "/", such as "net.braidwell.service.null/0/top/0"; empty for the coordinator.
    virtual const std::string& getIndices() const = 0;
    // The same path as a list.
    virtual const std::vector<std::string>& getIndexList() const = 0;
};

} // namespace Brw
