#include "BrwData/BrwDataString.h"

#include "BrwLogger/BrwCheck.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

std::shared_ptr<IObject> DataString::factoryFromString(const std::string& str) {
    return Object::makeRegistered<DataString>(str);
}

std::shared_ptr<IObject> DataString::factoryFromSerialized(const std::shared_ptr<IObject>& serializerObj) {
    return deserializeInto(Object::makeRegistered<DataString>(std::string()), serializerObj);
}

bool DataString::registerDeregisterClass(RegisterDeregister registerDeregister) {
    // The check texts keep their established spacing.
    // clang-format off
    return Object::registerDeregister(registerDeregister,
        [] { return SANITY_CHECKED(Object::registerDeserializationFactory( TYPENAME, DataString::factoryFromSerialized)); },
        [] { return SANITY_CHECKED(Object::deregisterDeserializationFactory( TYPENAME)); });
    // clang-format on
}

bool DataString::serializeDeserializeContent(SerializeDeserialize mode,
                                             const std::shared_ptr<IObject>& serializerObj) {
    bool retVal = false;
    do {
        ASSIGN_TYPED(ISerializer, serializer, serializerObj);
        if (mode == SerializeDeserialize::SERIALIZE) {
            SANITY_CHECK(serializer->putString(fString));
        } else if (mode == SerializeDeserialize::DESERIALIZE) {
            SANITY_CHECK(readString(serializer, fString));
            fHash.reset();
        } else {
            LOG_ERROR("no serializeDeserialize");
            break;
        }
        retVal = true;
    } while (false);
    return retVal;
}

uint64_t DataString::hash() const {
    return fHash.get([this] { return FNV1aHash::hashBytes(TYPENAME) ^ FNV1aHash::hashBytes(fString); });
}

bool DataString::operator==(const IObject* other) const {
    const auto* otherString = dynamic_cast<const DataString*>(other);
    return otherString != nullptr && otherString->fString == fString;
}

} // namespace Brw
