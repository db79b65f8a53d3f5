#pragma once

#include <memory>
#include <string>
#include <vector>

#include "BrwAddress/BrwIAddress.h"
#include "BrwAddress/BrwICoordinatorNameAddress.h"
#include "BrwAddress/BrwIHostNameAddress.h"
#include "BrwData/BrwData_abstract.h"

namespace Brw {

class IInternalCoordinator;

// The base of the five address classes: one for each combination of what is known (a path or GUIDs, this
// coordinator or another, this machine or another). Addresses don't change once made; they hash, compare
// and travel as data objects.
class Address_abstract : public Data_abstract,
                         public virtual IAddress,
                         public virtual ICoordinatorNameAddress,
                         public virtual IHostNameAddress {
public:
    static constexpr const char* SCHEME = "brw";
    // What the address of the coordinator itself prints as.
    static constexpr const char* INTERNAL_COORDINATOR_URL = "brw:////";

    // The address of a `brw://` URL, or null when the scheme isn't "brw". What follows the first "//"
    // after the path is the receiving service's, and comes back in `tail`, without its outer slashes.
    static std::shared_ptr<IObject> factoryFromURL(const std::string& url, std::string& tail);

    // A local address: this machine.
    std::string getHostName() const override;
    std::string getHostAddress() const override;
    std::string toString() const override;

protected:
    // The coordinator singleton, or null (reported) when there is none.
    static std::shared_ptr<IInternalCoordinator> internalCoordinatorOf();
    // The hash of the class's type name folded with the fields' texts in order.
    static uint64_t hashOfFields(const char* typeName, const std::vector<std::string>& fields);
    // The object itself, reached through the registry as every writable self is.
    std::shared_ptr<IObject> getSelfObj() const;
    // The address of the service of this process that this address names, as the service gives it; null
    // when it names none.
    std::shared_ptr<IObject> resolvedThroughService() const;
    // Both addresses are of this one's concrete class.
    bool isSameClass(const IObject* other) const;
    // Of the two modes of serializeDeserializeContent; any other is reported ("no serializeDeserialize").
    static bool isKnownMode(SerializeDeserialize mode);
    // Reads a name that travels with an address; false, reported as "serializer at end", when none is there.
    [[nodiscard]] static bool readName(const std::shared_ptr<ISerializer>& serializer, std::string& name);
};

} // namespace Brw
