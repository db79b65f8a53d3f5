#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "BrwData/BrwData_abstract.h"
#include "BrwEvent/BrwIEvent.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

// A named event with an optional payload. Equal to another of the same name whose payload is equal (the
// payload's own operator==, identity for objects that are no data) or null as well.
class Event : public Data_abstract, public virtual IEvent {
public:
    static constexpr const char* TYPENAME = "Event";

    // An event of a non-empty name.
    static std::shared_ptr<IObject> factoryFromNamePayload(const std::string& name,
                                                           const std::shared_ptr<IObject>& payloadObj);
    static std::shared_ptr<IObject> factoryFromSerialized(const std::shared_ptr<IObject>& serializerObj);
    [[nodiscard]] static bool registerDeregisterClass(RegisterDeregister registerDeregister);

    std::string typeName() const override { return TYPENAME; }
    const std::string& getName() const override { return fName; }
    const std::shared_ptr<IObject>& getPayloadObj() const override { return fPayloadObj; }
    [[nodiscard]] bool setEventSource(IEventSource* source) override;
    IEventSource* getEventSource() const override { return fEventSource; }
    void setRootListenerCalled() override { fIsRootListenerCalled = true; }
    void clearRootListenerCalled() override { fIsRootListenerCalled = false; }
    bool wasRootListenerCalled() const override { return fIsRootListenerCalled; }

    // The name, then the payload with its type name: a null payload travels as the DataNull.
    bool serializeDeserializeContent(SerializeDeserialize mode,
                                     const std::shared_ptr<IObject>& serializerObj) override;
    // Computed on first request and kept.
    uint64_t hash() const override;
    bool operator==(const IObject* other) const override;

protected:
    Event(std::string name, std::shared_ptr<IObject> payloadObj)
        : fName(std::move(name)), fPayloadObj(std::move(payloadObj)) {}
    friend class Object;

private:
    std::string fName;                    // such as "messageReceived"
    std::shared_ptr<IObject> fPayloadObj; // what the event is about; may be null
    IEventSource* fEventSource = nullptr; // the source while it fires the event; not owned
    bool fIsRootListenerCalled = false;   // EventListener::handleEvent was reached for this listener
    CachedHash fHash;                     // of the type name, the name and the payload
};

} // namespace Brw
