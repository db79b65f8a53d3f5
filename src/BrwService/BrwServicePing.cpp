#include "BrwService/BrwServicePing.h"

#include "BrwMessage/BrwMessage.h"
#include "BrwService/BrwServiceSingleton.h"

namespace Brw {

namespace {

std::weak_ptr<ServicePing> gServicePing;

} // namespace

std::shared_ptr<IObject> ServicePing::factory() {
    return singletonServiceFactory(
        gServicePing, [](const auto& servicePing, const auto& internalCoordinator) {
            return SANITY_CHECKED(servicePing->attachToParent(internalCoordinator));
        });
}

bool ServicePing::registerDeregisterClass(RegisterDeregister registerDeregister) {
    // clang-format off
    return Object::registerDeregister(registerDeregister,
        [] { return SANITY_CHECKED(Object::registerFactory( TYPENAME, ServicePing::factory)); },
        [] { return SANITY_CHECKED(Object::deregisterFactory( TYPENAME)); });
    // clang-format on
}

bool ServicePing::receiveMessage(const std::shared_ptr<IObject>& messageObj) {
    bool retVal = false;
    do {
        SANITY_CHECK(Service_abstract::receiveMessage(messageObj));
        ASSIGN_TYPED(IMessage, message, messageObj);
        ASSIGN_TYPED(InternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        std::shared_ptr<IObject> pingMessage;
        ASSIGN(pingMessage, Message::factoryFromSenderDestinationAddressOpCodePayloadStr(
                                getSelfObj(), message->getSenderAddressObj(), OpCode::PING_REPLY,
                                message->getPayloadStr()));
        SANITY_CHECK(internalCoordinator->queueMessage(pingMessage));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
