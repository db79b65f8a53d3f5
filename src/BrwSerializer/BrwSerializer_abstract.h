#pragma once

#include <memory>

#include "BrwObject/BrwObject.h"
#include "BrwSerializer/BrwISerializer.h"

namespace Brw {

// The common object behaviour of every serializer.
class Serializer_abstract : public virtual ISerializer, public Object {
public:
    // A new serializer of the kind that everything travels in: a SimpleSerializer.
    static std::shared_ptr<IObject> defaultSerializerFactory();
};

} // namespace Brw
