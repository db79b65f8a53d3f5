#include "BrwEvent/BrwEvent.h"

#include "BrwLogger/BrwCheck.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

namespace {

// The name an event has until its serialized name has been read.
constexpr const char* UNREAD_NAME = "null";

// A data payload hashes by value; any other object compares by identity, so it hashes by its ID.
uint64_t payloadHash(const std::shared_ptr<IObject>& payloadObj) {
    if (! payloadObj) {
        return 0;
    }
    const auto payloadData = std::dynamic_pointer_cast<const IData>(payloadObj);
    return payloadData ? payloadData->hash() : payloadObj->getID();
}

} // namespace

std::shared_ptr<IObject> Event::factoryFromNamePayload(const std::string& name,
                                                       const std::shared_ptr<IObject>& payloadObj) {
    std::shared_ptr<IObject> retVal;
    do {
        SANITY_CHECK(! name.empty());
        retVal = Object::makeRegistered<Event>(name, payloadObj);
    } while (false);
    return retVal;
}

std::shared_ptr<IObject> Event::factoryFromSerialized(const std::shared_ptr<IObject>& serializerObj) {
    return deserializeInto(Object::makeRegistered<Event>(UNREAD_NAME, nullptr), serializerObj);
}

bool Event::registerDeregisterClass(RegisterDeregister registerDeregister) {
    // The check texts keep their established spacing.
    // clang-format off
    return Object::registerDeregister(registerDeregister,
        [] { return SANITY_CHECKED(Object::registerDeserializationFactory( TYPENAME, Event::factoryFromSerialized)); },
        [] { return SANITY_CHECKED(Object::deregisterDeserializationFactory( TYPENAME)); });
    // clang-format on
}

bool Event::setEventSource(IEventSource* source) {
    bool retVal = false;
    do {
        // An event fired again from one of its own listeners would lose its first source.
        SANITY_CHECK(source == nullptr || fEventSource == nullptr);
        fEventSource = source;
        retVal = true;
    } while (false);
    return retVal;
}

bool Event::serializeDeserializeContent(SerializeDeserialize mode,
                                        const std::shared_ptr<IObject>& serializerObj) {
    bool retVal = false;
    do {
        ASSIGN_TYPED(ISerializer, serializer, serializerObj);
        if (mode == SerializeDeserialize::SERIALIZE) {
            SANITY_CHECK(! fName.empty());
            SANITY_CHECK(serializer->putString(fName));
            SANITY_CHECK(Data_abstract::serialize(fPayloadObj, serializerObj));
        } else if (mode == SerializeDeserialize::DESERIALIZE) {
            SANITY_CHECK(readString(serializer, fName));
            SANITY_CHECK(! fName.empty());
            SANITY_CHECK(! serializer->atEnd());
            std::shared_ptr<IObject> payloadObj;
            SANITY_CHECK(Data_abstract::deserializeTypePrefixed(serializerObj, payloadObj));
            // What can't be written back is no payload: only data travel.
            SANITY_CHECK(! payloadObj || std::dynamic_pointer_cast<IData>(payloadObj));
            fPayloadObj = payloadObj;
            fHash.reset();
        } else {
            LOG_ERROR("no serializeDeserialize");
            break;
        }
        retVal = true;
    } while (false);
    return retVal;
}

uint64_t Event::hash() const {
    return fHash.get([this] {
        return FNV1aHash::hashBytes(TYPENAME) ^ FNV1aHash::hashBytes(fName) ^ payloadHash(fPayloadObj);
    });
}

bool Event::operator==(const IObject* other) const {
    const auto* otherEvent = dynamic_cast<const Event*>(other);
    if (otherEvent == nullptr || otherEvent->fName != fName) {
        return false;
    }
    const std::shared_ptr<IObject>& otherPayload = otherEvent->fPayloadObj;
    return fPayloadObj == otherPayload || (fPayloadObj && otherPayload && *fPayloadObj == otherPayload.get());
}

} // namespace Brw
