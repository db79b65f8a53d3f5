#include "BrwData/BrwDataNull.h"

#include "BrwLogger/BrwCheck.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

namespace {

std::shared_ptr<IObject> gDataNull; // the one object, once made
bool gIsDataNullReleased = false;   // deregistered: no object until the class is registered again

} // namespace

std::shared_ptr<IObject> DataNull::factory() {
    if (! gDataNull && ! gIsDataNullReleased) {
        gDataNull = Object::makeRegistered<DataNull>();
    }
    return gDataNull;
}

std::shared_ptr<IObject> DataNull::factoryFromSerialized(const std::shared_ptr<IObject>& serializerObj) {
    std::shared_ptr<IObject> retVal;
    do {
        ASSIGN_TYPED(DataNull, dataNull, DataNull::factory());
        retVal = deserializeInto(dataNull, serializerObj);
    } while (false);
    return retVal;
}

bool DataNull::registerDeregisterClass(RegisterDeregister registerDeregister) {
    // The check texts keep their established spacing.
    // clang-format off
    return Object::registerDeregister(registerDeregister,
        [] {
            gIsDataNullReleased = false;
            return SANITY_CHECKED(Object::registerDeserializationFactory( TYPENAME, DataNull::factoryFromSerialized));
        },
        [] {
            gIsDataNullReleased = true;
            gDataNull.reset();
            return SANITY_CHECKED(Object::deregisterDeserializationFactory( TYPENAME));
        });
    // clang-format on
}

bool DataNull::serializeDeserializeContent(SerializeDeserialize,
                                           const std::shared_ptr<IObject>& serializerObj) {
    bool retVal = false;
    do {
        ASSIGN_TYPED(ISerializer, serializer, serializerObj);
        retVal = true;
    } while (false);
    return retVal;
}

uint64_t DataNull::hash() const {
    return FNV1aHash::hashBytes(TYPENAME);
}

} // namespace Brw
