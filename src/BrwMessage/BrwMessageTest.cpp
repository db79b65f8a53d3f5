#include "BrwMessage/BrwMessageTest.h"

#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>

#include "BrwAddress/BrwInternalAddress.h"
#include "BrwAddress/BrwLocalResolvedAddress.h"
#include "BrwAddress/BrwLocalUnresolvedAddress.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwData/BrwDataNull.h"
#include "BrwMain/BrwLogRecorder.h"
#include "BrwMessage/BrwMessage.h"
#include "BrwObject/BrwGUIDClass.h"
#include "BrwParser/BrwOMAccessor.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwService/BrwServiceSampleForTests.h"

namespace Brw {

namespace {

using ObjectPtr = std::shared_ptr<IObject>;
using ConstObjectPtr = std::shared_ptr<const IObject>;

std::shared_ptr<IMessage> makeMessage(const ConstObjectPtr& sender, const ConstObjectPtr& receiver,
                                      OpCode opCode, const std::string& payload) {
    return std::dynamic_pointer_cast<IMessage>(
        Message::factoryFromSenderDestinationAddressOpCodePayloadStr(sender, receiver, opCode, payload));
}

bool isEqual(const ConstObjectPtr& left, const ConstObjectPtr& right) {
    return left && right && *left == right.get();
}

} // namespace

bool MessageTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = testMakingAMessage();
    allOK = testEqualityInItsFourCases() && allOK;
    allOK = testMessagesTravelUnchanged() && allOK;
    allOK = testTextForPeopleAndTheIPCLog() && allOK;
    return allOK;
}

bool MessageTest::testMakingAMessage() {
    bool retVal = false;
    do {
        // The coordinator passes itself as the sender; the destination need not be an address here.
        auto message =
            makeMessage(InternalCoordinator::factory(), DataNull::factory(), OpCode::NONE, "test1223");
        SANITY_CHECK(message);
        SANITY_CHECK(
            isEqual(message->getSenderAddressObj(),
                    LocalResolvedAddress::factoryFromGUIDs(InternalCoordinator::getOwnGUID(), nullptr)));
        CHECK_EQUAL(message->getPayloadStr(), "test1223");
        // A value as the payload comes back as an equal value.
        std::shared_ptr<OMStored> node = OMStored::mapFactory();
        SANITY_CHECK(node->setSync("a", OMStored::factory(OMInt(123))) &&
                     node->setSync("b", OMStored::factory("x")));
        auto fromNode =
            std::dynamic_pointer_cast<IMessage>(Message::factoryFromSenderDestinationAddressOpCodeOMNode(
                InternalAddress::factory(), InternalAddress::factory(), OpCode::EVAL_RESULT, node));
        SANITY_CHECK(fromNode);
        std::shared_ptr<IOMNode> value = fromNode->getAsOMNode();
        SANITY_CHECK(value);
        CHECK_EQUAL(OMAccessor(value).stringify(), OMAccessor(node).stringify());
        // Nothing to send from, to, or as.
        SANITY_CHECK(LogRecorder::failsWith(
            [] { return makeMessage(nullptr, InternalAddress::factory(), OpCode::PING, ""); },
            "SANITY_CHECK failed: 'senderAddress' evaluates to false"));
        SANITY_CHECK(LogRecorder::failsWith(
            [] { return makeMessage(InternalAddress::factory(), nullptr, OpCode::PING, ""); },
            "SANITY_CHECK failed: 'destinationAddressObj' evaluates to false"));
        SANITY_CHECK(LogRecorder::failsWith(
            [&] {
                return makeMessage(InternalAddress::factory(), InternalAddress::factory(), OpCode::PING, "")
                    ->getAsOMNode();
            },
            "SANITY_CHECK failed: '! fPayload.empty()' evaluates to false"));
        // The receiver alone changes, and not to nothing.
        const ObjectPtr resolved = InternalAddress::factoryFromIndices("x");
        SANITY_CHECK(message->setReceiverAddressObj(resolved) &&
                     message->getReceiverAddressObj() == resolved);
        SANITY_CHECK(LogRecorder::failsWith([&] { return message->setReceiverAddressObj(nullptr); },
                                            "'newReceiverAddressObj' evaluates to false"));
        CHECK_EQUAL(Object::opCodeToString(static_cast<int32_t>(OpCode::EVAL_RESULT)), "evalResult");
        CHECK_EQUAL(Object::opCodeToString(static_cast<int32_t>(OpCode::PING_REPLY)), "ping_reply");
        SANITY_CHECK(LogRecorder::hasLineWith(
            LogRecorder::record(1, [] { (void)Object::opCodeToString(17); }), "unknown opCode"));
        retVal = true;
    } while (false);
    return retVal;
}

bool MessageTest::testEqualityInItsFourCases() {
    bool retVal = false;
    do {
        const ConstObjectPtr sender = InternalAddress::factoryFromIndices("s");
        const ConstObjectPtr receiver = InternalAddress::factoryFromIndices("r");
        const ConstObjectPtr senderTwin = InternalAddress::factoryFromIndices("s");
        const ConstObjectPtr receiverTwin = InternalAddress::factoryFromIndices("r");
        const ConstObjectPtr other = InternalAddress::factoryFromIndices("o");
        auto message = makeMessage(sender, receiver, OpCode::PING, "one");
        SANITY_CHECK(message);
        // The same sender object: equal, whatever else differs.
        SANITY_CHECK(isEqual(message, makeMessage(sender, other, OpCode::EVAL, "two")));
        // Equal senders and the same receiver object: equal.
        SANITY_CHECK(isEqual(message, makeMessage(senderTwin, receiver, OpCode::EVAL, "two")));
        // Otherwise equal receivers and payloads, senders aside; the opcode never counts.
        SANITY_CHECK(isEqual(message, makeMessage(other, receiverTwin, OpCode::TERMINATE, "one")));
        SANITY_CHECK(! isEqual(message, makeMessage(other, receiverTwin, OpCode::PING, "two")));
        SANITY_CHECK(! isEqual(message, makeMessage(senderTwin, other, OpCode::PING, "one")));
        SANITY_CHECK(! isEqual(message, InternalAddress::factoryFromIndices("s")));
        retVal = true;
    } while (false);
    return retVal;
}

bool MessageTest::testMessagesTravelUnchanged() {
    bool retVal = false;
    do {
        // Seeded, so that a failure can be run again.
        std::mt19937_64 random(11232026);
        auto service =
            ServiceSampleForTests::factoryFromParentName(InternalCoordinator::factory(), "traveller");
        SANITY_CHECK(service);
        bool allOK = true;
        for (int round = 0; round < 1000 && allOK; ++round) {
            std::string payload;
            for (uint64_t length = random() % 40; length > 0; --length) {
                payload.push_back(static_cast<char>(random() % 256));
            }
            const auto opCode = static_cast<OpCode>(random() % OPCODE_COUNT);
            const ConstObjectPtr receiver = LocalUnresolvedAddress::factoryFromCoordinatorNameIndices(
                "net.braidwell.coordinator.beta", "svc/" + std::to_string(random() % 9));
            auto message = makeMessage(service, receiver, opCode, payload);
            auto back = std::dynamic_pointer_cast<IMessage>(
                Data_abstract::deserializeFromStr(Data_abstract::serializeToStr(message)));
            allOK = back && isEqual(back->getSenderAddressObj(), message->getSenderAddressObj()) &&
                    isEqual(back->getReceiverAddressObj(), receiver) && back->getOpCode() == opCode &&
                    back->getPayloadStr() == payload;
        }
        SANITY_CHECK(allOK);
        // The opcode must be a number; an empty one reads as none.
        const std::string sender = Data_abstract::serializeToStr(InternalAddress::factory());
        auto empty = std::dynamic_pointer_cast<IMessage>(
            Data_abstract::deserializeFromStr("Message\n" + sender + sender + "\npayload\n"));
        SANITY_CHECK(empty && empty->getOpCode() == OpCode::NONE);
        SANITY_CHECK(LogRecorder::failsWith(
            [&] {
                return Data_abstract::deserializeFromStr("Message\n" + sender + sender + "x1\npayload\n");
            },
            "SANITY_CHECK failed: 'Utils::isNumeric(opCodeStr)' evaluates to false"));
        SANITY_CHECK(service->deregisterObject());
        retVal = true;
    } while (false);
    return retVal;
}

bool MessageTest::testTextForPeopleAndTheIPCLog() {
    bool retVal = false;
    do {
        GUIDClass* upstream = GUIDClass::randomFactory();
        GUIDClass* addressed = GUIDClass::randomFactory();
        auto message = makeMessage(LocalResolvedAddress::factoryFromGUIDs(addressed, upstream),
                                   InternalAddress::factoryFromIndices("svc"), OpCode::PING, "hello");
        SANITY_CHECK(message);
        // The GUIDs are explained once, then stand as their aliases.
        const std::string first = message->toString();
        SANITY_CHECK(first.find(upstream->toSectionedString()) != std::string::npos);
        SANITY_CHECK(first.find("  opcode = 2 (ping)\n") != std::string::npos);
        SANITY_CHECK(first.find("  receiver = brw:////svc/0\n") != std::string::npos);
        SANITY_CHECK(first.ends_with("  payload = hello\n\n"));
        const std::string second = message->toString();
        SANITY_CHECK(second.find(upstream->toSectionedString()) == std::string::npos);
        SANITY_CHECK(second.find("  sender = brw://A") != std::string::npos);
        // The log takes the text only while it is on.
        const std::string logFile = makeTemporaryFile("brw-ipc-log");
        SANITY_CHECK(! logFile.empty());
        const std::string savedFile = InternalCoordinator::fIpcMessageLogFile;
        InternalCoordinator::fIpcMessageLogFile = logFile;
        Message::logIPCMessage(message);
        InternalCoordinator::fLogIPC = true;
        Message::logIPCMessage(message);
        InternalCoordinator::fLogIPC = false;
        InternalCoordinator::fIpcMessageLogFile = savedFile;
        std::stringstream logged;
        logged << std::ifstream(logFile).rdbuf();
        std::remove(logFile.c_str());
        SANITY_CHECK(logged.str().find("  payload = hello\n\n\n") != std::string::npos);
        CHECK_EQUAL(logged.str().find("opcode = 2"), logged.str().rfind("opcode = 2"));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
