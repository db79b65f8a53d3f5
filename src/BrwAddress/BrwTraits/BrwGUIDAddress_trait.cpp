#include "BrwAddress/BrwTraits/BrwGUIDAddress_trait.h"

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwObject/BrwGUIDClass.h"
#include "BrwObject/BrwObject.h"
#include "BrwService/BrwIAddressable.h"
#include "BrwService/BrwIInternalCoordinator.h"

namespace Brw {

namespace {

std::string textOf(GUIDClass* guid) {
    return guid != nullptr ? guid->toSectionedString() : std::string();
}

} // namespace

std::string GUIDAddress_trait::getGUIDAddressURL(const std::string& tail) const {
    std::string url = "brw://" + textOf(fUpstreamCoordinatorGUID) + "/" + textOf(fAddressedGUID);
    if (! tail.empty()) {
        url += "/" + tail;
    }
    return url;
}

bool GUIDAddress_trait::isGUIDOfInternalCoordinator() const {
    return fAddressedGUID != nullptr && fAddressedGUID == InternalCoordinator::getOwnGUID();
}

std::shared_ptr<IObject> GUIDAddress_trait::resolvedByGUIDs(const std::shared_ptr<IObject>& self) const {
    std::shared_ptr<IObject> retVal;
    do {
        ASSIGN_TYPED(IInternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        if (fUpstreamCoordinatorGUID != nullptr &&
            fUpstreamCoordinatorGUID == InternalCoordinator::getOwnGUID()) {
            auto service =
                std::dynamic_pointer_cast<const IAddressable>(Object::getRegisteredObject(fAddressedGUID));
            if (service) {
                retVal = service->getAddressObj();
            }
            break;
        }
        // A coordinator that exists here, or that has been heard from.
        if (Object::getRegisteredObject(fUpstreamCoordinatorGUID) ||
            ! internalCoordinator->getCoordinatorName(fUpstreamCoordinatorGUID).empty()) {
            retVal = self;
        }
    } while (false);
    return retVal;
}

std::vector<std::string> GUIDAddress_trait::getGUIDTexts() const {
    return {textOf(fAddressedGUID), textOf(fUpstreamCoordinatorGUID)};
}

bool GUIDAddress_trait::serializeDeserializeGUIDs(SerializeDeserialize mode,
                                                  const std::shared_ptr<ISerializer>& serializer) {
    bool retVal = false;
    do {
        if (mode == SerializeDeserialize::SERIALIZE) {
            SANITY_CHECK(serializer->putGUID(fAddressedGUID));
            SANITY_CHECK(serializer->putGUID(fUpstreamCoordinatorGUID));
        } else {
            SANITY_CHECK(serializer->isStringAvailable());
            fAddressedGUID = serializer->getGUID();
            SANITY_CHECK(serializer->isStringAvailable());
            fUpstreamCoordinatorGUID = serializer->getGUID();
        }
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
