#include "BrwCoordinator/BrwRoutingTest.h"

#include "BrwAddress/BrwInternalAddress.h"
#include "BrwAddress/BrwLocalResolvedAddress.h"
#include "BrwAddress/BrwLocalUnresolvedAddress.h"
#include "BrwAddress/BrwRemoteResolvedAddress.h"
#include "BrwAddress/BrwRemoteUnresolvedAddress.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwCoordinator/BrwSiblingCoordinator.h"
#include "BrwData/BrwData_abstract.h"
#include "BrwMain/BrwLogRecorder.h"
#include "BrwMessage/BrwMessage.h"
#include "BrwObject/BrwGUIDClass.h"
#include "BrwService/BrwServiceLog.h"
#include "BrwService/BrwServiceNull.h"
#include "BrwService/BrwServicePing.h"
#include "BrwService/BrwServiceSampleForTests.h"

namespace Brw {

namespace {

using ObjectPtr = std::shared_ptr<IObject>;

std::shared_ptr<InternalCoordinator> coordinator() {
    return std::dynamic_pointer_cast<InternalCoordinator>(InternalCoordinator::factory());
}

ObjectPtr addressOf(const ObjectPtr& service) {
    auto addressable = std::dynamic_pointer_cast<IAddressable>(service);
    return addressable ? addressable->getAddressObj() : nullptr;
}

bool isSameObject(const std::shared_ptr<const IObject>& left, const std::shared_ptr<const IObject>& right) {
    return left && right && left->getID() == right->getID();
}

// Queues a message from `sender` to `receiver` and routes what is queued once.
bool sendAndRoute(const ObjectPtr& sender, const ObjectPtr& receiver, OpCode opCode,
                  const std::string& payload) {
    const ObjectPtr message =
        Message::factoryFromSenderDestinationAddressOpCodePayloadStr(sender, receiver, opCode, payload);
    return message && coordinator()->queueMessage(message) && coordinator()->processMessageQueues();
}

std::shared_ptr<IMessage> lastMessageOf(const std::shared_ptr<ServiceSampleForTests>& sample) {
    const auto& messages = sample->getReceivedMessages();
    return messages.empty() ? nullptr : std::dynamic_pointer_cast<IMessage>(messages.back());
}

// Where the gateway send function of the test puts what it is given.
struct GatewayCall {
    std::string hostName;
    std::string messageText;
};
GatewayCall gGatewayCall;

bool recordGatewaySend(const std::string& hostName, const std::string& messageText) {
    gGatewayCall = {hostName, messageText};
    return true;
}

} // namespace

bool RoutingTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = true;
    allOK = testSimpleServices() && allOK;
    allOK = testDeliveryAndTheNextWalk() && allOK;
    allOK = testMessagesFromOutside() && allOK;
    allOK = testMessagesLeavingTheProcess() && allOK;
    allOK = testIdlenessOnTheWayOut() && allOK;
    return allOK;
}

bool RoutingTest::testSimpleServices() {
    bool retVal = false;
    do {
        const ObjectPtr serviceNull = ServiceNull::factory();
        SANITY_CHECK(serviceNull && ServiceNull::factory() == serviceNull);
        SANITY_CHECK(coordinator()->ownsChild(serviceNull));
        for (const char* indices : {"net.braidwell.service.null/0", "net.braidwell.service.null"}) {
            auto address = std::dynamic_pointer_cast<IAddress>(InternalAddress::factoryFromIndices(indices));
            SANITY_CHECK(address &&
                         isSameObject(coordinator()->resolveAddress(address->resolved()), serviceNull));
        }
        // A ping is answered to its sender, with the payload it came with.
        SampleTree tree;
        auto sample = tree.add("pinger");
        const ObjectPtr ping = ServicePing::factory();
        SANITY_CHECK(sample && ping);
        SANITY_CHECK(sendAndRoute(sample, addressOf(ping), OpCode::PING, "are you there"));
        CHECK_EQUAL(sample->getReceivedMessages().size(), 0u);
        SANITY_CHECK(coordinator()->processMessageQueues());
        auto reply = lastMessageOf(sample);
        SANITY_CHECK(reply && reply->getOpCode() == OpCode::PING_REPLY);
        CHECK_EQUAL(reply->getPayloadStr(), "are you there");
        SANITY_CHECK(*reply->getSenderAddressObj() == addressOf(ping).get());
        SANITY_CHECK(*reply->getReceiverAddressObj() == addressOf(sample).get());
        // The log service writes what its level lets through, where it is told to.
        auto serviceLog = std::dynamic_pointer_cast<ServiceLog>(ServiceLog::factory());
        SANITY_CHECK(serviceLog);
        std::string logString;
        serviceLog->pushState();
        serviceLog->setLogString(&logString);
        const ObjectPtr logAddress = InternalAddress::factoryFromIndices(ServiceLog::SERVICE_NAME);
        SANITY_CHECK(sendAndRoute(sample, logAddress, OpCode::LOG_TRACE, "testlog"));
        CHECK_EQUAL(logString, "testlog\n");
        serviceLog->setLevel(ServiceLog::WARNING_LEVEL);
        SANITY_CHECK(sendAndRoute(sample, logAddress, OpCode::LOG_NOTE, "too chatty"));
        SANITY_CHECK(sendAndRoute(sample, logAddress, OpCode::LOG_ERROR, "grave"));
        CHECK_EQUAL(logString, "testlog\ngrave\n");
        SANITY_CHECK(LogRecorder::failsWith(
            [&] { return sendAndRoute(sample, logAddress, OpCode::PING, ""); }, "unexpected opcode"));
        SANITY_CHECK(serviceLog->popState());
        SANITY_CHECK(
            LogRecorder::failsWith([&] { return serviceLog->popState(); },
                                   "SANITY_CHECK failed: '! fStateStack.empty()' evaluates to false"));
        retVal = true;
    } while (false);
    return retVal;
}

bool RoutingTest::testDeliveryAndTheNextWalk() {
    bool retVal = false;
    do {
        SampleTree tree;
        auto sender = tree.add("sender");
        auto receiver = tree.add("receiver");
        SANITY_CHECK(sender && receiver);
        // By name and number, and by GUID.
        SANITY_CHECK(
            sendAndRoute(sender, InternalAddress::factoryFromIndices("receiver/0"), OpCode::NONE, "a"));
        SANITY_CHECK(sendAndRoute(sender, addressOf(receiver), OpCode::NONE, "b"));
        CHECK_EQUAL(receiver->getReceivedMessages().size(), 2u);
        CHECK_EQUAL(lastMessageOf(receiver)->getPayloadStr(), "b");
        // An address that names nothing: the message is dropped, and that is no failure.
        SANITY_CHECK(
            sendAndRoute(sender, InternalAddress::factoryFromIndices("nobody/0"), OpCode::NONE, "c"));
        SANITY_CHECK(
            sendAndRoute(sender, InternalAddress::factoryFromIndices("receiver/1"), OpCode::NONE, "d"));
        CHECK_EQUAL(receiver->getReceivedMessages().size(), 2u);
        // The ping's answer, queued during the walk, waits for the next one.
        SANITY_CHECK(sendAndRoute(sender, addressOf(ServicePing::factory()), OpCode::PING, "e"));
        CHECK_EQUAL(sender->getReceivedMessages().size(), 0u);
        SANITY_CHECK(coordinator()->processMessageQueues());
        CHECK_EQUAL(sender->getReceivedMessages().size(), 1u);
        // Only messages go into the queue.
        SANITY_CHECK(LogRecorder::failsWith([&] { return coordinator()->queueMessage(sender); },
                                            "std::dynamic_pointer_cast<IMessage>(messageObj)"));
        retVal = true;
    } while (false);
    return retVal;
}

bool RoutingTest::testMessagesFromOutside() {
    bool retVal = false;
    do {
        SampleTree tree;
        auto receiver = tree.add("inbox");
        SANITY_CHECK(receiver);
        const std::string ownName = InternalCoordinator::getCoordinatorName();
        GUIDClass* siblingGUID = GUIDClass::randomFactory();
        GUIDClass* siblingServiceGUID = GUIDClass::randomFactory();
        // From a sibling on this machine: its sender is learnt, and the message is delivered.
        const ObjectPtr fromSibling = LocalResolvedAddress::factoryFromGUIDs(siblingServiceGUID, siblingGUID);
        SANITY_CHECK(
            coordinator()->registerUpstreamCoordinator("", "net.braidwell.coordinator.sibling", siblingGUID));
        const ObjectPtr message = Message::factoryFromSenderDestinationAddressOpCodePayloadStr(
            fromSibling, LocalUnresolvedAddress::factoryFromCoordinatorNameIndices(ownName, "inbox/0"),
            OpCode::NONE, "over the pipe");
        const std::string text = Data_abstract::serializeToStr(message);
        SANITY_CHECK(coordinator()->receiveMessageStr(text));
        SANITY_CHECK(coordinator()->processMessageQueues());
        SANITY_CHECK(lastMessageOf(receiver) && lastMessageOf(receiver)->getPayloadStr() == "over the pipe");
        CHECK_EQUAL(coordinator()->getCoordinatorName(siblingGUID), "net.braidwell.coordinator.sibling");
        // A coordinator doesn't hear itself through its own pipe; what isn't a message is refused.
        const ObjectPtr fromItself = Message::factoryFromSenderDestinationAddressOpCodePayloadStr(
            receiver, addressOf(receiver), OpCode::NONE, "echo");
        SANITY_CHECK(LogRecorder::failsWith(
            [&] { return coordinator()->receiveMessageStr(Data_abstract::serializeToStr(fromItself)); },
            "SANITY_CHECK failed: 'coordinatorNameAddress->getCoordinatorName() != fCoordinatorName' "
            "evaluates to "
            "false"));
        SANITY_CHECK(LogRecorder::failsWith(
            [&] { return coordinator()->receiveMessageStr(Data_abstract::serializeToStr(fromSibling)); },
            "ASSIGN_TYPED failed"));
        SANITY_CHECK(LogRecorder::failsWith([&] { return coordinator()->receiveMessageStr("Message\n1\n"); },
                                            "ASSIGN_TYPED failed"));
        CHECK_EQUAL(receiver->getReceivedMessages().size(), 1u);
        // From another machine through the gateway: the receiver is taken as an address of this machine and
        // the sender as one on the machine it came from.
        GUIDClass* farCoordinator = GUIDClass::randomFactory();
        GUIDClass* farService = GUIDClass::randomFactory();
        const ObjectPtr farMessage = Message::factoryFromSenderDestinationAddressOpCodePayloadStr(
            LocalResolvedAddress::factoryFromGUIDs(farService, farCoordinator),
            RemoteUnresolvedAddress::factoryFromCoordinatorNameIndicesHostName(ownName, "inbox/0",
                                                                               "thishost"),
            OpCode::EVAL, "from afar");
        SANITY_CHECK(
            coordinator()->receiveGatewayMessageStr("farhost", Data_abstract::serializeToStr(farMessage)));
        SANITY_CHECK(coordinator()->processMessageQueues());
        auto arrived = lastMessageOf(receiver);
        SANITY_CHECK(arrived && arrived->getPayloadStr() == "from afar" &&
                     arrived->getOpCode() == OpCode::EVAL);
        auto farSender =
            std::dynamic_pointer_cast<const RemoteResolvedAddress>(arrived->getSenderAddressObj());
        SANITY_CHECK(farSender && farSender->getHostName() == "farhost");
        SANITY_CHECK(farSender->getAddressedGUID() == farService);
        CHECK_EQUAL(InternalCoordinator::getHostAddress("LOCALHOST"), "127.0.0.1");
        retVal = true;
    } while (false);
    return retVal;
}

bool RoutingTest::testMessagesLeavingTheProcess() {
    bool retVal = false;
    do {
        SampleTree tree;
        auto sender = tree.add("outbox");
        SANITY_CHECK(sender);
        // With a gateway send function, a message for another machine is handed to it.
        coordinator()->setGatewaySendFunction(recordGatewaySend);
        gGatewayCall = {};
        const ObjectPtr farAddress = RemoteUnresolvedAddress::factoryFromCoordinatorNameIndicesHostName(
            InternalCoordinator::MAIN_COORDINATOR_NAME, "inbox/0", "otherhost");
        const bool isSent = sendAndRoute(sender, farAddress, OpCode::EVAL, "6 * 7");
        coordinator()->setGatewaySendFunction(nullptr);
        SANITY_CHECK(isSent);
        CHECK_EQUAL(gGatewayCall.hostName, "otherhost");
        auto sent =
            std::dynamic_pointer_cast<IMessage>(Data_abstract::deserializeFromStr(gGatewayCall.messageText));
        SANITY_CHECK(sent && sent->getPayloadStr() == "6 * 7");
        // Without one, it goes to the gateway coordinator of this machine, through main.
        const auto lines =
            LogRecorder::record(4, [&] { (void)sendAndRoute(sender, farAddress, OpCode::EVAL, ""); });
        SANITY_CHECK(
            LogRecorder::hasLineWith(lines, "forwardToCoordinatorName: net.braidwell.coordinator.gateway"));
        SANITY_CHECK(LogRecorder::hasLineWith(lines, "relaying to sibling coordinator"));
        // The proxy of the gateway, or of main that passes it on, holds the message; the coordinator is
        // idle again without it.
        const std::string& proxyName =
            InternalCoordinator::getCoordinatorName() == InternalCoordinator::MAIN_COORDINATOR_NAME
                ? InternalCoordinator::GATEWAY_COORDINATOR_NAME
                : InternalCoordinator::MAIN_COORDINATOR_NAME;
        const std::shared_ptr<SiblingCoordinator> proxy =
            SiblingCoordinator::getSiblingCoordinator(proxyName);
        SANITY_CHECK(proxy && proxy->getQueuedMessageCount() == 1);
        SANITY_CHECK(proxy->deregisterObject());
        retVal = true;
    } while (false);
    return retVal;
}

bool RoutingTest::testIdlenessOnTheWayOut() {
    bool retVal = false;
    do {
        SampleTree tree;
        auto sample = tree.add("busy");
        SANITY_CHECK(sample);
        SANITY_CHECK(coordinator()->isIdle());
        sample->setBusy(true);
        SANITY_CHECK(! coordinator()->isIdle());
        sample->setBusy(false);
        SANITY_CHECK(coordinator()->queueMessage(Message::factoryFromSenderDestinationAddressOpCodePayloadStr(
            sample, addressOf(sample), OpCode::NONE, "")));
        SANITY_CHECK(! coordinator()->isIdle());
        SANITY_CHECK(coordinator()->processMessageQueues());
        SANITY_CHECK(coordinator()->isIdle());
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
