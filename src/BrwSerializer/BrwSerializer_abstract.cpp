#include "BrwSerializer/BrwSerializer_abstract.h"

#include "BrwSerializer/BrwSimpleSerializer.h"

namespace Brw {

std::shared_ptr<IObject> Serializer_abstract::defaultSerializerFactory() {
    return SimpleSerializer::factory();
}

} // namespace Brw
