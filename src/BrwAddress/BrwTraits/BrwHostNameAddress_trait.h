#pragma once

#include <memory>
#include <string>

#include "BrwSerializer/BrwISerializer.h"

namespace Brw {

// The machine of an address by its host name or IP text.
class HostNameAddress_trait {
public:
    explicit HostNameAddress_trait(std::string hostName) : fHostName(std::move(hostName)) {}

protected:
    // The host as one line, both ways.
    [[nodiscard]] bool serializeDeserializeHostName(SerializeDeserialize mode,
                                                    const std::shared_ptr<ISerializer>& serializer);

    std::string fHostName; // as given
};

} // namespace Brw
