#include "BrwData/BrwDataOM.h"

#include "BrwLogger/BrwCheck.h"
#include "BrwParser/BrwOMAccessor.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwEvalTask.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

std::shared_ptr<IObject> DataOM::factoryFromOMNode(const std::shared_ptr<IOMNode>& node) {
    return Object::makeRegistered<DataOM>(node);
}

std::shared_ptr<IObject> DataOM::factoryFromJSONStr(const std::string& text) {
    std::shared_ptr<IObject> retVal;
    do {
        std::shared_ptr<IOMNode> node;
        SANITY_CHECK(parseNode(text, node));
        retVal = factoryFromOMNode(node);
    } while (false);
    return retVal;
}

std::shared_ptr<IObject> DataOM::factoryFromSerialized(const std::shared_ptr<IObject>& serializerObj) {
    return deserializeInto(Object::makeRegistered<DataOM>(nullptr), serializerObj);
}

bool DataOM::registerDeregisterClass(RegisterDeregister registerDeregister) {
    // The check texts keep their established spacing.
    // clang-format off
    return Object::registerDeregister(registerDeregister,
        [] { return SANITY_CHECKED(Object::registerDeserializationFactory( TYPENAME, DataOM::factoryFromSerialized)); },
        [] { return SANITY_CHECKED(Object::deregisterDeserializationFactory( TYPENAME)); });
    // clang-format on
}

bool DataOM::serializeDeserializeContent(SerializeDeserialize mode,
                                         const std::shared_ptr<IObject>& serializerObj) {
    bool retVal = false;
    do {
        ASSIGN_TYPED(ISerializer, serializer, serializerObj);
        if (mode == SerializeDeserialize::SERIALIZE) {
            SANITY_CHECK(serializer->putString(getContentText()));
        } else if (mode == SerializeDeserialize::DESERIALIZE) {
            std::string jsonString;
            SANITY_CHECK(readString(serializer, jsonString));
            std::shared_ptr<IOMNode> omNode;
            SANITY_CHECK(parseNode(jsonString, omNode));
            fOMNode = omNode;
        } else {
            LOG_ERROR("unexpected serializeDeserialize");
            break;
        }
        retVal = true;
    } while (false);
    return retVal;
}

uint64_t DataOM::hash() const {
    return FNV1aHash::hashBytes(TYPENAME) ^ FNV1aHash::hashBytes(getContentText());
}

// NOTE: not the script's ==, which is loose and finds NaN unequal to itself: what counts for data is
// what arrives.
bool DataOM::operator==(const IObject* other) const {
    const auto* otherOM = dynamic_cast<const DataOM*>(other);
    return otherOM != nullptr && (otherOM == this || otherOM->getContentText() == getContentText());
}

std::string DataOM::toString() const {
    const std::string valueText =
        fOMNode ? OMAccessor(fOMNode).toString().substr(0, TO_STRING_LENGTH) : "nullptr";
    return Object::toString() + " OM = " + valueText;
}

std::string DataOM::getContentText() const {
    return fOMNode ? OMAccessor(fOMNode).stringify() : NULL_TEXT;
}

bool DataOM::parseNode(const std::string& jsonString, std::shared_ptr<IOMNode>& node) {
    bool retVal = false;
    do {
        std::shared_ptr<OMStored> omNode = OMStored::undefinedFactory();
        SANITY_CHECK(omNode);
        SANITY_CHECK(ParseTask::call(omNode, jsonString));
        node = omNode;
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
