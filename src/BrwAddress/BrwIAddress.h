#pragma once

#include <memory>
#include <string>

#include "BrwObject/BrwIObject.h"

namespace Brw {

// Names a service inside a coordinator process, with or without the knowledge needed to reach it, and
// prints as a `brw://` URL.
class IAddress : public virtual IObject {
public:
    // The address in the best form known now, or null when it can't reach anything.
    virtual std::shared_ptr<IObject> resolved() const = 0;
    virtual std::string getURL() const = 0;
};

} // namespace Brw
