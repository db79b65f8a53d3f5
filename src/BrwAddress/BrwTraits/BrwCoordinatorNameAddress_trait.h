#pragma once

#include <memory>
#include <string>

#include "BrwSerializer/BrwISerializer.h"

namespace Brw {

// The coordinator of an address by its name, such as "net.braidwell.coordinator.main".
class CoordinatorNameAddress_trait {
public:
    // A name that fails the test is reported ("invalid coordinator name") and kept.
    explicit CoordinatorNameAddress_trait(std::string coordinatorName);

    // Dots and identifier characters, not empty, no digit first: the rule of service names too.
    static bool isCoordinatorName(const std::string& name);

protected:
    // The name as one line, both ways; a name read is tested as one given.
    [[nodiscard]] bool serializeDeserializeCoordinatorName(SerializeDeserialize mode,
                                                           const std::shared_ptr<ISerializer>& serializer);

    std::string fCoordinatorName; // as given, also when it failed the test
};

} // namespace Brw
