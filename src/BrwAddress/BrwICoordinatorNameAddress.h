#pragma once

#include <string>

#include "BrwObject/BrwIObject.h"

namespace Brw {

// An address that tells its coordinator by name.
class ICoordinatorNameAddress : public virtual IObject {
public:
    virtual std::string getCoordinatorName() const = 0;
    // True when the address names this process's coordinator itself, not a service below it.
    virtual bool isInternalCoordinatorAddress() const = 0;
};

} // namespace Brw
