#pragma once

#include <memory>
#include <string>

#include "BrwData/BrwData_abstract.h"
#include "BrwMessage/BrwIMessage.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

// A message. Nothing in it changes after it is made but its receiver, which the router replaces by the
// resolved form.
//
// NOTE: equality has a shape of its own that other parts rely on: the same sender object makes two
// messages equal whatever else differs; with value-equal senders the same receiver object does; otherwise
// value-equal receivers and equal payloads do. The opcode never counts. The hash covers the fields, so it
// tells apart messages that this equality finds equal.
class Message : public Data_abstract, public virtual IMessage {
public:
    static constexpr const char* TYPENAME = "Message";

    // `senderObj` is an address, or anything addressable (a service may pass itself). Null when either
    // side is missing.
    static std::shared_ptr<IObject> factoryFromSenderDestinationAddressOpCodePayloadStr(
        const std::shared_ptr<const IObject>& senderObj,
        const std::shared_ptr<const IObject>& destinationAddressObj, OpCode opCode,
        const std::string& payload);
    // The same with a value as payload, in its stringified form.
    static std::shared_ptr<IObject> factoryFromSenderDestinationAddressOpCodeOMNode(
        const std::shared_ptr<const IObject>& senderObj,
        const std::shared_ptr<const IObject>& destinationAddressObj, OpCode opCode,
        const std::shared_ptr<IOMNode>& messageNode);
    static std::shared_ptr<IObject> factoryFromSerialized(const std::shared_ptr<IObject>& serializerObj);
    [[nodiscard]] static bool registerDeregisterClass(RegisterDeregister registerDeregister);
    // Writes the message to the IPC log when that is on: to its file, else to standard error.
    static void logIPCMessage(const std::shared_ptr<const IObject>& ipcMessageObj);

    std::string typeName() const override { return TYPENAME; }
    const std::shared_ptr<const IObject>& getSenderAddressObj() const override { return fSenderAddressObj; }
    const std::shared_ptr<const IObject>& getReceiverAddressObj() const override {
        return fReceiverAddressObj;
    }
    OpCode getOpCode() const override { return fOpCode; }
    const std::string& getPayloadStr() const override { return fPayload; }
    std::shared_ptr<IOMNode> getAsOMNode() const override;
    [[nodiscard]] bool
    setReceiverAddressObj(const std::shared_ptr<const IObject>& newReceiverAddressObj) override;
    // Sender, receiver (each with its type name), opcode as decimal text, payload.
    bool serializeDeserializeContent(SerializeDeserialize mode,
                                     const std::shared_ptr<IObject>& serializerObj) override;
    uint64_t hash() const override;
    bool operator==(const IObject* other) const override;
    // A block for people, GUIDs replaced by short aliases, each alias explained the first time.
    std::string toString() const override;

protected:
    Message(std::shared_ptr<const IObject> senderAddressObj,
            std::shared_ptr<const IObject> receiverAddressObj, OpCode opCode, std::string payload)
        : fSenderAddressObj(std::move(senderAddressObj)), fReceiverAddressObj(std::move(receiverAddressObj)),
          fOpCode(opCode), fPayload(std::move(payload)) {}
    friend class Object;

private:
    std::shared_ptr<const IObject> fSenderAddressObj;   // an address
    std::shared_ptr<const IObject> fReceiverAddressObj; // an address; the one field that may change
    OpCode fOpCode;                                     // the kind
    std::string fPayload;                               // script text, or empty
    CachedHash fHash;                                   // of the fields
};

} // namespace Brw
