#pragma once

#include <memory>

#include "BrwObject/BrwIObject.h"

namespace Brw {

// Something that messages can be sent to.
class IAddressable : public virtual IObject {
public:
    // Its address, made afresh on each call.
    virtual std::shared_ptr<IObject> getAddressObj() const = 0;
};

} // namespace Brw
