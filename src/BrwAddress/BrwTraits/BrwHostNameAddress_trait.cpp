#include "BrwAddress/BrwTraits/BrwHostNameAddress_trait.h"

#include "BrwData/BrwData_abstract.h"
#include "BrwLogger/BrwCheck.h"

namespace Brw {

bool HostNameAddress_trait::serializeDeserializeHostName(SerializeDeserialize mode,
                                                         const std::shared_ptr<ISerializer>& serializer) {
    bool retVal = false;
    do {
        if (mode == SerializeDeserialize::SERIALIZE) {
            SANITY_CHECK(serializer->putString(fHostName));
        } else {
            SANITY_CHECK(Data_abstract::readString(serializer, fHostName));
        }
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
