#pragma once

#include <memory>
#include <string>

#include "BrwService/BrwService_abstract.h"

namespace Brw {

// Answers every message with a PING_REPLY to its sender that carries the request's payload back.
class ServicePing : public Service_abstract {
public:
    static constexpr const char* TYPENAME = "ServicePing";
    static constexpr const char* SERVICE_NAME = "net.braidwell.service.ping";

    // The one instance below the coordinator, made on the first call.
    static std::shared_ptr<IObject> factory();
    [[nodiscard]] static bool registerDeregisterClass(RegisterDeregister registerDeregister);

    std::string typeName() const override { return TYPENAME; }
    std::string getServiceName() const override { return SERVICE_NAME; }
    bool receiveMessage(const std::shared_ptr<IObject>& messageObj) override;

protected:
    ServicePing() = default;
    friend class Object;
};

} // namespace Brw
