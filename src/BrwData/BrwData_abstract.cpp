#include "BrwData/BrwData_abstract.h"

#include <sstream>

#include "BrwData/BrwDataNull.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwSerializer/BrwSerializer_abstract.h"

namespace Brw {

namespace {

// Type-prefixed objects being read now, one inside the other.
int gNestedObjectCount = 0;

// Counts one level of nesting for as long as it lives.
class NestingScope {
public:
    NestingScope() { ++gNestedObjectCount; }
    ~NestingScope() { --gNestedObjectCount; }
    NestingScope(const NestingScope&) = delete;
    NestingScope& operator=(const NestingScope&) = delete;
};

// The object that the factories registered under `typeName` make: the deserialization factory reads the
// content, a plain factory reads nothing. Null when neither knows the name.
std::shared_ptr<IObject> factoryFromTypeName(const std::string& typeName,
                                             const std::shared_ptr<IObject>& serializerObj) {
    std::shared_ptr<IObject> object;
    const DeserializationFactoryWrapperClass deserializationFactory =
        Object::getDeserializationFactory(typeName);
    if (! deserializationFactory.wrappedFactoryIsNull()) {
        object = deserializationFactory.call(serializerObj);
    } else {
        LOG_NOTE_F("wrapped deserialization factory for %s is null", typeName.c_str());
        const FactoryWrapperClass factory = Object::getFactory(typeName);
        if (! factory.wrappedFactoryIsNull()) {
            object = factory.call();
        }
    }
    return object;
}

} // namespace

bool Data_abstract::serialize(const std::shared_ptr<IObject>& serializerObj) const {
    bool retVal = false;
    do {
        ASSIGN_TYPED(ISerializer, serializer, serializerObj);
        SANITY_CHECK(serializer->putString(typeName()));
        ASSIGN_TYPED(Data_abstract, data, Brw::Object::getObjectFromID(shared_from_this()->getID()));
        SANITY_CHECK(data->serializeDeserializeContent(SerializeDeserialize::SERIALIZE, serializerObj));
        retVal = true;
    } while (false);
    return retVal;
}

bool Data_abstract::serialize(std::shared_ptr<const IObject> data,
                              const std::shared_ptr<IObject>& serializerObj) {
    bool retVal = false;
    do {
        const std::shared_ptr<const IObject> dataOrNull = data ? data : DataNull::factory();
        ASSIGN_CONST_TYPED(IData, adjustedData, dataOrNull);
        SANITY_CHECK(adjustedData->serialize(serializerObj));
        retVal = true;
    } while (false);
    return retVal;
}

std::string Data_abstract::serializeToStr(std::shared_ptr<const IObject> data) {
    std::string retVal;
    do {
        ASSIGN_TYPED(ISerializer, serializer, Serializer_abstract::defaultSerializerFactory());
        std::ostringstream stream;
        SANITY_CHECK(serializer->startSerialize(&stream));
        const bool isSerialized = serialize(data, serializer);
        SANITY_CHECK(serializer->endSerialize());
        SANITY_CHECK(isSerialized);
        retVal = stream.str();
    } while (false);
    return retVal;
}

std::shared_ptr<IObject> Data_abstract::deserializeFromStr(const std::string& str) {
    std::shared_ptr<IObject> retVal;
    do {
        ASSIGN_TYPED(ISerializer, serializer, Serializer_abstract::defaultSerializerFactory());
        std::istringstream stream(str);
        SANITY_CHECK(serializer->startDeserialize(&stream));
        std::shared_ptr<IObject> object;
        const bool isRead = deserializeTypePrefixed(serializer, object);
        // Reports what is left over: an object followed by more is not the object of this text.
        if (! serializer->endDeserialize() || ! isRead) {
            break;
        }
        retVal = object;
    } while (false);
    return retVal;
}

std::shared_ptr<IObject>
Data_abstract::factoryFromTypePrefixedSerialized(const std::shared_ptr<IObject>& serializerObj) {
    std::shared_ptr<IObject> object;
    // A failure has been reported; it gives null like a serialized null.
    (void)deserializeTypePrefixed(serializerObj, object);
    return object;
}

bool Data_abstract::deserializeTypePrefixed(const std::shared_ptr<IObject>& serializerObj,
                                            std::shared_ptr<IObject>& object) {
    bool retVal = false;
    object.reset();
    do {
        ASSIGN_TYPED(ISerializer, serializer, serializerObj);
        SANITY_CHECK(! serializer->atEnd());
        const NestingScope nestingScope;
        SANITY_CHECK(gNestedObjectCount <= MAX_NESTED_OBJECTS);
        const std::string typeName = serializer->getString();
        std::shared_ptr<IObject> made = factoryFromTypeName(typeName, serializerObj);
        if (! made) {
            break;
        }
        // The reverse of the null rule of serialize: a serialized null comes back as null.
        ASSIGN_TYPED(IData, dataNull, DataNull::factory());
        if (made != dataNull) {
            object = made;
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool Data_abstract::readString(const std::shared_ptr<ISerializer>& serializer, std::string& value) {
    bool retVal = false;
    do {
        SANITY_CHECK(serializer);
        SANITY_CHECK(! serializer->atEnd());
        SANITY_CHECK(serializer->isStringAvailable());
        value = serializer->getString();
        retVal = true;
    } while (false);
    return retVal;
}

std::shared_ptr<IObject> Data_abstract::deserializeInto(const std::shared_ptr<IData>& data,
                                                        const std::shared_ptr<IObject>& serializerObj) {
    std::shared_ptr<IObject> retVal;
    do {
        SANITY_CHECK(data);
        if (! data->serializeDeserializeContent(SerializeDeserialize::DESERIALIZE, serializerObj)) {
            LOG_ERROR("cannot deserialize");
            break;
        }
        retVal = data;
    } while (false);
    return retVal;
}

} // namespace Brw
