#pragma once

#include "BrwObject/BrwIObject.h"

namespace Brw {

class GUIDClass;

// An address by GUIDs: the service's own and its coordinator's.
class IGUIDAddress : public virtual IObject {
public:
    // The coordinator that owns the service; null when it isn't known.
    virtual GUIDClass* getUpstreamCoordinatorGUID() const = 0;
    // The service; null when it isn't known.
    virtual GUIDClass* getAddressedGUID() const = 0;
};

} // namespace Brw
