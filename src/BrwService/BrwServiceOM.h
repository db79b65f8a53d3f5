#pragma once

#include <memory>
#include <string>
#include <unordered_map>

#include "BrwService/BrwService_abstract.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

class GUIDClass;
class IMessage;
class IOMNode;
class OMScope;
class OMStored;

// Makes a scope reachable by messages: a remote party opens sessions on it, sends scripts and data
// requests, and gets the results back as EVAL_RESULT (data replies come from the handler's script). A
// script runs as a task beside the event loop, so a message is taken at once and answered later.
class ServiceOM : public Service_abstract {
public:
    static constexpr const char* TYPENAME = "ServiceOM";
    static constexpr const char* SERVICE_NAME = "net.braidwell.service.objectmodel";
    // The instance around the coordinator's scope, where the coordinator's scripts run.
    static constexpr const char* DEFAULT_INSTANCE_NAME = "default";
    // The instance around a small sample value, for trying a connection.
    static constexpr const char* SAMPLE_INSTANCE_NAME = "sample.test";
    static constexpr const char* SAMPLE_SCRIPT = "{abc: \"sampleValue\", def: \"a\"}";

    // The "default" instance, made on the first call below the coordinator.
    static std::shared_ptr<IObject> factory();
    // An instance named `name` around `scope`, below the coordinator.
    static std::shared_ptr<ServiceOM> factoryFromNameOMScope(const std::string& name,
                                                             const std::shared_ptr<OMScope>& scope);
    // The "sample.test" instance around a scope that holds the sample's members.
    static std::shared_ptr<ServiceOM> sampleFactory();
    [[nodiscard]] static bool registerDeregisterClass(RegisterDeregister registerDeregister);

    // A new node parsed from `script`; null (reported) when it doesn't parse.
    static std::shared_ptr<OMStored> parseScript(const std::string& script);

    std::string typeName() const override { return TYPENAME; }
    std::string getServiceName() const override { return SERVICE_NAME; }
    const std::shared_ptr<OMScope>& getOMScope() const { return fScope; }
    size_t getSessionCount() const { return fSessions.size(); }
    bool receiveMessage(const std::shared_ptr<IObject>& messageObj) override;

protected:
    ServiceOM(std::string name, std::shared_ptr<OMScope> scope)
        : Service_abstract(std::move(name)), fScope(std::move(scope)) {}
    friend class Object;

private:
    // One for each client session.
    struct Session {
        GUIDClass* fClientSessionGUID = nullptr;  // key given by the client
        GUIDClass* fServiceSessionGUID = nullptr; // made here
        std::shared_ptr<OMScope> fScope;          // a child of the service's scope
    };

    // The session of the request's "clientSessionId", or null.
    Session* findSession(const IOMNode& incomingMessageNode);
    // Acts on one request; false when it failed and the reply says so.
    [[nodiscard]] bool handleRequest(const IMessage& message, const IOMNode& incomingMessageNode,
                                     IOMNode& outgoingMessageNode, bool& isAnswered);
    [[nodiscard]] bool openSession(const IOMNode& incomingMessageNode, IOMNode& outgoingMessageNode);
    [[nodiscard]] bool startEval(const IMessage& message, const IOMNode& incomingMessageNode);
    [[nodiscard]] bool startDataRequest(const IMessage& message, const IOMNode& incomingMessageNode);

    std::shared_ptr<OMScope> fScope;                                     // the scope served
    std::unordered_map<GUIDClass*, Session, FNV1aPointerHash> fSessions; // by client session GUID
};

} // namespace Brw
