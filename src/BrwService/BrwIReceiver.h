#pragma once

#include <memory>

#include "BrwObject/BrwIObject.h"

namespace Brw {

// Something that takes messages.
class IReceiver : public virtual IObject {
public:
    virtual bool receiveMessage(const std::shared_ptr<IObject>& messageObj) = 0;
};

} // namespace Brw
