#include "BrwAddress/BrwTraits/BrwCoordinatorNameAddress_trait.h"

#include "BrwAddress/BrwTraits/BrwIndexedAddress_trait.h"
#include "BrwData/BrwData_abstract.h"
#include "BrwLogger/BrwCheck.h"

namespace Brw {

namespace {

void testCoordinatorName(const std::string& name) {
    if (! CoordinatorNameAddress_trait::isCoordinatorName(name)) {
        LOG_ERROR("invalid coordinator name");
    }
}

} // namespace

CoordinatorNameAddress_trait::CoordinatorNameAddress_trait(std::string coordinatorName)
    : fCoordinatorName(std::move(coordinatorName)) {
    testCoordinatorName(fCoordinatorName);
}

bool CoordinatorNameAddress_trait::isCoordinatorName(const std::string& name) {
    return IndexedAddress_trait::isServiceName(name);
}

bool CoordinatorNameAddress_trait::serializeDeserializeCoordinatorName(
    SerializeDeserialize mode, const std::shared_ptr<ISerializer>& serializer) {
    bool retVal = false;
    do {
        if (mode == SerializeDeserialize::SERIALIZE) {
            SANITY_CHECK(serializer->putString(fCoordinatorName));
        } else {
            SANITY_CHECK(Data_abstract::readString(serializer, fCoordinatorName));
            testCoordinatorName(fCoordinatorName);
        }
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
