#include "BrwMessage/BrwMessage.h"

#include <chrono>
#include <cstdio>
#include <limits>
#include <unordered_map>

#include "BrwAddress/BrwIAddress.h"
#include "BrwAddress/BrwIGUIDAddress.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwObject/BrwGUIDClass.h"
#include "BrwParser/BrwOMAccessor.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwService/BrwIAddressable.h"
#include "BrwTask/BrwEvalTask.h"
#include "BrwUtils/BrwUtils.h"

namespace Brw {

namespace {

// The address of a sender: the object itself when it is one, else what an addressable thing gives.
std::shared_ptr<const IObject> senderAddressOf(const std::shared_ptr<const IObject>& senderObj) {
    if (std::dynamic_pointer_cast<const IAddress>(senderObj)) {
        return senderObj;
    }
    auto addressable = std::dynamic_pointer_cast<const IAddressable>(senderObj);
    return addressable ? addressable->getAddressObj() : nullptr;
}

// The aliases of GUIDs in the text form of messages: "A1", "A2", ... for the process's life.
std::unordered_map<std::string, std::string>& guidAliases() {
    static auto* aliases = new std::unordered_map<std::string, std::string>();
    return *aliases;
}

// The URL of an address with the GUIDs of the address replaced by their aliases; a legend line for each
// GUID met for the first time goes to `legend`.
std::string aliasedURL(const std::shared_ptr<const IObject>& addressObj, std::string& legend) {
    auto address = std::dynamic_pointer_cast<const IAddress>(addressObj);
    if (! address) {
        return addressObj ? addressObj->toString() : std::string("null");
    }
    std::string url = address->getURL();
    auto guidAddress = std::dynamic_pointer_cast<const IGUIDAddress>(addressObj);
    if (! guidAddress) {
        return url;
    }
    static uint64_t aliasCounter = 0;
    for (GUIDClass* guid : {guidAddress->getUpstreamCoordinatorGUID(), guidAddress->getAddressedGUID()}) {
        if (guid == nullptr) {
            continue;
        }
        const std::string& text = guid->toSectionedString();
        auto [iter, isNew] = guidAliases().emplace(text, std::string());
        if (isNew) {
            iter->second = "A" + std::to_string(++aliasCounter);
            legend += "    " + iter->second + " = " + text + "\n";
        }
        url = Utils::replaceSubStr(url, text, iter->second);
    }
    return url;
}

} // namespace

std::shared_ptr<IObject> Message::factoryFromSenderDestinationAddressOpCodePayloadStr(
    const std::shared_ptr<const IObject>& senderObj,
    const std::shared_ptr<const IObject>& destinationAddressObj, OpCode opCode, const std::string& payload) {
    std::shared_ptr<IObject> retVal;
    do {
        std::shared_ptr<const IObject> senderAddress = senderAddressOf(senderObj);
        SANITY_CHECK(senderAddress);
        SANITY_CHECK(destinationAddressObj);
        retVal = Object::makeRegistered<Message>(senderAddress, destinationAddressObj, opCode, payload);
    } while (false);
    return retVal;
}

std::shared_ptr<IObject> Message::factoryFromSenderDestinationAddressOpCodeOMNode(
    const std::shared_ptr<const IObject>& senderObj,
    const std::shared_ptr<const IObject>& destinationAddressObj, OpCode opCode,
    const std::shared_ptr<IOMNode>& messageNode) {
    std::shared_ptr<IObject> retVal;
    do {
        SANITY_CHECK(messageNode);
        retVal = factoryFromSenderDestinationAddressOpCodePayloadStr(
            senderObj, destinationAddressObj, opCode,
            OMAccessor::stringifyNode(*messageNode, OMAccessor::StringForm::ESCAPED));
    } while (false);
    return retVal;
}

std::shared_ptr<IObject> Message::factoryFromSerialized(const std::shared_ptr<IObject>& serializerObj) {
    return deserializeInto(Object::makeRegistered<Message>(nullptr, nullptr, OpCode::NONE, std::string()),
                           serializerObj);
}

bool Message::registerDeregisterClass(RegisterDeregister registerDeregister) {
    // The check texts keep their established spacing.
    // clang-format off
    return Object::registerDeregister(registerDeregister,
        [] { return SANITY_CHECKED(Object::registerDeserializationFactory( TYPENAME, Message::factoryFromSerialized)); },
        [] { return SANITY_CHECKED(Object::deregisterDeserializationFactory( TYPENAME)); });
    // clang-format on
}

std::shared_ptr<IOMNode> Message::getAsOMNode() const {
    std::shared_ptr<IOMNode> retVal;
    do {
        SANITY_CHECK(! fPayload.empty());
        std::shared_ptr<OMStored> node = OMStored::undefinedFactory();
        SANITY_CHECK(ParseTask::call(node, fPayload));
        retVal = node;
    } while (false);
    return retVal;
}

bool Message::setReceiverAddressObj(const std::shared_ptr<const IObject>& newReceiverAddressObj) {
    bool retVal = false;
    do {
        SANITY_CHECK(newReceiverAddressObj);
        if (newReceiverAddressObj != fReceiverAddressObj) {
            fReceiverAddressObj = newReceiverAddressObj;
            fHash.reset();
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool Message::serializeDeserializeContent(SerializeDeserialize mode,
                                          const std::shared_ptr<IObject>& serializerObj) {
    bool retVal = false;
    do {
        std::shared_ptr<ISerializer> serializer = std::dynamic_pointer_cast<ISerializer>(serializerObj);
        SANITY_CHECK(serializer);
        if (mode == SerializeDeserialize::SERIALIZE) {
            SANITY_CHECK(Data_abstract::serialize(fSenderAddressObj, serializer));
            SANITY_CHECK(Data_abstract::serialize(fReceiverAddressObj, serializer));
            const std::string opCodeStr = std::to_string(static_cast<int32_t>(fOpCode));
            SANITY_CHECK(serializer->putString(opCodeStr));
            SANITY_CHECK(serializer->putString(fPayload));
        } else if (mode == SerializeDeserialize::DESERIALIZE) {
            SANITY_CHECK(! serializer->atEnd());
            std::shared_ptr<IObject> senderAddress;
            SANITY_CHECK(Data_abstract::deserializeTypePrefixed(serializer, senderAddress));
            std::shared_ptr<IObject> receiverAddress;
            SANITY_CHECK(Data_abstract::deserializeTypePrefixed(serializer, receiverAddress));
            std::string opCodeStr;
            SANITY_CHECK(readString(serializer, opCodeStr));
            if (opCodeStr.empty()) {
                opCodeStr = "0";
            }
            SANITY_CHECK(Utils::isNumeric(opCodeStr));
            SANITY_CHECK(Utils::isNumberUpTo(opCodeStr, std::numeric_limits<int32_t>::max()));
            SANITY_CHECK(readString(serializer, fPayload));
            fSenderAddressObj = senderAddress;
            fReceiverAddressObj = receiverAddress;
            fOpCode = static_cast<OpCode>(Utils::toInt64(opCodeStr));
        } else {
            LOG_ERROR("no serializeDeserialize");
            break;
        }
        fHash.reset();
        retVal = true;
    } while (false);
    return retVal;
}

uint64_t Message::hash() const {
    return fHash.get([this] {
        auto dataHash = [](const std::shared_ptr<const IObject>& object) {
            auto data = std::dynamic_pointer_cast<const IData>(object);
            return data ? data->hash() : 0;
        };
        uint64_t hash = FNV1aHash::hashBytes(TYPENAME) ^ dataHash(fSenderAddressObj);
        hash = hash * FNV1aHash::PRIME ^ dataHash(fReceiverAddressObj);
        hash = hash * FNV1aHash::PRIME ^ static_cast<uint64_t>(fOpCode);
        return FNV1aHash::hashBytes(fPayload, hash);
    });
}

bool Message::operator==(const IObject* other) const {
    const auto* message = dynamic_cast<const Message*>(other);
    if (message == this) {
        return true;
    }
    if (message == nullptr) {
        return false;
    }
    if (message->fSenderAddressObj == fSenderAddressObj) {
        return true;
    }
    const bool areSendersEqual = fSenderAddressObj && message->fSenderAddressObj &&
                                 *fSenderAddressObj == message->fSenderAddressObj.get();
    if (areSendersEqual && message->fReceiverAddressObj == fReceiverAddressObj) {
        return true;
    }
    return fReceiverAddressObj && message->fReceiverAddressObj &&
           *fReceiverAddressObj == message->fReceiverAddressObj.get() && message->fPayload == fPayload;
}

std::string Message::toString() const {
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    std::string legend;
    const std::string sender = aliasedURL(fSenderAddressObj, legend);
    const std::string receiver = aliasedURL(fReceiverAddressObj, legend);
    const int32_t opCode = static_cast<int32_t>(fOpCode);
    return Utils::format("%f", seconds) + "\n" + Object::toString() + ":\n" + legend +
           "  opcode = " + std::to_string(opCode) + " (" + Object::opCodeToString(opCode) + ")\n" +
           "  sender = " + sender + "\n" + "  receiver = " + receiver + "\n" + "  payload = " + fPayload +
           "\n\n";
}

void Message::logIPCMessage(const std::shared_ptr<const IObject>& ipcMessageObj) {
    if (! ipcMessageObj) {
        return;
    }
    // NOTE: the text is made whether or not it is logged.
    const std::string text = ipcMessageObj->toString();
    if (! InternalCoordinator::fLogIPC) {
        return;
    }
    const std::string& path = InternalCoordinator::fIpcMessageLogFile;
    FILE* output = path.empty() ? stderr : fopen(path.c_str(), "a");
    if (output == nullptr) {
        return;
    }
    fputs((text + "\n").c_str(), output);
    if (output != stderr) {
        fclose(output);
    }
}

} // namespace Brw
