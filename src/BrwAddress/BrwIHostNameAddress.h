#pragma once

#include <string>

#include "BrwObject/BrwIObject.h"

namespace Brw {

// An address that tells the machine of its coordinator.
class IHostNameAddress : public virtual IObject {
public:
    virtual std::string getHostName() const = 0;
    // The host's IP text, or its name when none is known.
    virtual std::string getHostAddress() const = 0;
};

} // namespace Brw
