#pragma once

#include <memory>
#include <string>

#include "BrwService/BrwService_abstract.h"

namespace Brw {

// Takes every message and does nothing with it but tell its listeners.
class ServiceNull : public Service_abstract {
public:
    static constexpr const char* TYPENAME = "ServiceNull";
    static constexpr const char* SERVICE_NAME = "net.braidwell.service.null";

    // The one instance below the coordinator, made on the first call.
    static std::shared_ptr<IObject> factory();
    [[nodiscard]] static bool registerDeregisterClass(RegisterDeregister registerDeregister);

    std::string typeName() const override { return TYPENAME; }
    std::string getServiceName() const override { return SERVICE_NAME; }

protected:
    ServiceNull() = default;
    friend class Object;
};

} // namespace Brw
