#include "BrwService/BrwServiceOM.h"

#include "BrwAddress/BrwIGUIDAddress.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwCoordinator/BrwRemote/BrwEvalThenSendMessageTask.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwMessage/BrwMessage.h"
#include "BrwObject/BrwGUIDClass.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwEvalTask.h"
#include "BrwUtils/BrwDirs.h"

namespace Brw {

namespace {

std::weak_ptr<ServiceOM> gDefaultServiceOM;

// A GUID of a request's map: the text of `key`, or null when the key is missing or no GUID.
GUIDClass* readGUID(const IOMNode& node, const char* key) {
    if (! node.containsAttr(key)) {
        return nullptr;
    }
    const std::string text = node.getOMNode(key)->getAsString();
    return GUIDClass::isGUIDString(text) ? GUIDClass::factory(text) : nullptr;
}

uint64_t readSequenceNumber(const IOMNode& node) {
    return node.containsAttr("clientSequenceNr")
               ? static_cast<uint64_t>(node.getOMNode("clientSequenceNr")->getInt())
               : 0;
}

} // namespace

std::shared_ptr<IObject> ServiceOM::factory() {
    std::shared_ptr<IObject> retVal = gDefaultServiceOM.lock();
    do {
        if (retVal) {
            break;
        }
        ASSIGN_TYPED(InternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        std::shared_ptr<ServiceOM> serviceOM;
        ASSIGN(serviceOM,
               factoryFromNameOMScope(DEFAULT_INSTANCE_NAME, internalCoordinator->getCoordinatorScope()));
        gDefaultServiceOM = serviceOM;
        retVal = serviceOM;
    } while (false);
    return retVal;
}

std::shared_ptr<ServiceOM> ServiceOM::factoryFromNameOMScope(const std::string& name,
                                                             const std::shared_ptr<OMScope>& scope) {
    std::shared_ptr<ServiceOM> retVal;
    do {
        SANITY_CHECK(scope);
        std::shared_ptr<IObject> internalCoordinator;
        ASSIGN(internalCoordinator, InternalCoordinator::factory());
        std::shared_ptr<ServiceOM> serviceOM = Object::makeRegistered<ServiceOM>(name, scope);
        SANITY_CHECK(serviceOM);
        if (! SANITY_CHECKED(serviceOM->attachToParent(internalCoordinator))) {
            VERIFY(serviceOM->deregisterObject());
            break;
        }
        retVal = serviceOM;
    } while (false);
    return retVal;
}

std::shared_ptr<ServiceOM> ServiceOM::sampleFactory() {
    std::shared_ptr<ServiceOM> retVal;
    do {
        std::shared_ptr<OMStored> sampleNode;
        ASSIGN(sampleNode, parseScript(SAMPLE_SCRIPT));
        std::shared_ptr<IOMNode> sampleValue;
        ASSIGN(sampleValue,
               EvalTask::call(sampleNode, OMScope::factory(nullptr, OMScope::ISOLATED), UNWRAP_RETURN_VALUE));
        std::shared_ptr<OMScope> scope;
        ASSIGN(scope, OMScope::factory(nullptr, OMScope::READS_PARENT));
        SANITY_CHECK(scope->set(*sampleValue));
        retVal = factoryFromNameOMScope(SAMPLE_INSTANCE_NAME, scope);
    } while (false);
    return retVal;
}

bool ServiceOM::registerDeregisterClass(RegisterDeregister registerDeregister) {
    // clang-format off
    return Object::registerDeregister(registerDeregister,
        [] { return SANITY_CHECKED(Object::registerFactory( TYPENAME, ServiceOM::factory)); },
        [] { return SANITY_CHECKED(Object::deregisterFactory( TYPENAME)); });
    // clang-format on
}

std::shared_ptr<OMStored> ServiceOM::parseScript(const std::string& script) {
    std::shared_ptr<OMStored> retVal;
    do {
        std::shared_ptr<OMStored> scriptNode = OMStored::undefinedFactory();
        SANITY_CHECK(ParseTask::call(scriptNode, script));
        retVal = scriptNode;
    } while (false);
    return retVal;
}

ServiceOM::Session* ServiceOM::findSession(const IOMNode& incomingMessageNode) {
    GUIDClass* clientSessionGUID = readGUID(incomingMessageNode, "clientSessionId");
    auto iter = clientSessionGUID != nullptr ? fSessions.find(clientSessionGUID) : fSessions.end();
    return iter != fSessions.end() ? &iter->second : nullptr;
}

bool ServiceOM::receiveMessage(const std::shared_ptr<IObject>& messageObj) {
    bool retVal = false;
    do {
        SANITY_CHECK(Service_abstract::receiveMessage(messageObj));
        ASSIGN_TYPED(IMessage, message, messageObj);
        const std::shared_ptr<IOMNode> incomingMessageNode = message->getAsOMNode();
        SANITY_CHECK(incomingMessageNode);
        std::shared_ptr<IOMNode> outgoingMessageNode = OMStored::mapFactory();
        outgoingMessageNode->setSync("success", OMStored::factory(false));
        outgoingMessageNode->setSync("clientSequenceNr", OMStored::factory(static_cast<OMInt>(
                                                             readSequenceNumber(*incomingMessageNode))));
        for (const char* key : {"clientSessionId", "serviceSessionId"}) {
            if (incomingMessageNode->containsAttr(key)) {
                outgoingMessageNode->setSyncToCloned(key, incomingMessageNode->getOMNode(key));
            }
        }
        bool isAnswered = false;
        const bool isHandled =
            handleRequest(*message, *incomingMessageNode, *outgoingMessageNode, isAnswered);
        if (isAnswered && isHandled) {
            retVal = true;
            break;
        }
        // A task answers what it runs; the rest, and every failure, is answered here.
        std::shared_ptr<IObject> resultMessage;
        ASSIGN(resultMessage,
               Message::factoryFromSenderDestinationAddressOpCodeOMNode(
                   getSelfObj(), message->getSenderAddressObj(), OpCode::EVAL_RESULT, outgoingMessageNode));
        ASSIGN_TYPED(InternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        SANITY_CHECK(internalCoordinator->queueMessage(resultMessage));
        retVal = isHandled;
    } while (false);
    return retVal;
}

bool ServiceOM::handleRequest(const IMessage& message, const IOMNode& incomingMessageNode,
                              IOMNode& outgoingMessageNode, bool& isAnswered) {
    bool retVal = false;
    do {
        switch (message.getOpCode()) {
        case OpCode::OPEN_SESSION:
            SANITY_CHECK(openSession(incomingMessageNode, outgoingMessageNode));
            break;
        case OpCode::CLOSE_SESSION:
            if (Session* session = findSession(incomingMessageNode)) {
                fSessions.erase(session->fClientSessionGUID);
            }
            outgoingMessageNode.setSync("success", OMStored::factory(true));
            break;
        case OpCode::EVAL:
        case OpCode::EVAL_FILE:
            SANITY_CHECK(startEval(message, incomingMessageNode));
            isAnswered = true;
            break;
        case OpCode::DATA_REQUEST:
            SANITY_CHECK(startDataRequest(message, incomingMessageNode));
            isAnswered = true;
            break;
        default:
            LOG_ERROR("unhandled opcode");
            break;
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool ServiceOM::openSession(const IOMNode& incomingMessageNode, IOMNode& outgoingMessageNode) {
    bool retVal = false;
    do {
        GUIDClass* clientSessionGUID = readGUID(incomingMessageNode, "clientSessionId");
        SANITY_CHECK(clientSessionGUID);
        Session session;
        session.fClientSessionGUID = clientSessionGUID;
        GUIDClass* serviceSessionGUID = GUIDClass::randomFactory();
        SANITY_CHECK(serviceSessionGUID);
        session.fServiceSessionGUID = serviceSessionGUID;
        session.fScope = OMScope::factory(fScope, OMScope::READS_PARENT);
        SANITY_CHECK(session.fScope);
        fSessions[clientSessionGUID] = session;
        outgoingMessageNode.setSync("clientSessionId",
                                    OMStored::factory(clientSessionGUID->toSectionedString()));
        outgoingMessageNode.setSync("serviceSessionId",
                                    OMStored::factory(serviceSessionGUID->toSectionedString()));
        outgoingMessageNode.setSync("success", OMStored::factory(true));
        retVal = true;
    } while (false);
    return retVal;
}

bool ServiceOM::startEval(const IMessage& message, const IOMNode& incomingMessageNode) {
    bool retVal = false;
    do {
        const auto& senderAddress = message.getSenderAddressObj();
        ASSIGN_CONST_TYPED(IGUIDAddress, senderGUIDAddress, senderAddress);
        GUIDClass* upstreamCoordinatorGUID = senderGUIDAddress->getUpstreamCoordinatorGUID();
        SANITY_CHECK(upstreamCoordinatorGUID);
        GUIDClass* senderGUID = senderGUIDAddress->getAddressedGUID();
        SANITY_CHECK(senderGUID);
        std::string script = incomingMessageNode.getOMNode("script")->getAsString();
        if (message.getOpCode() == OpCode::EVAL_FILE) {
            std::string fileText;
            if (Dirs::readFile(script, fileText) == FileReadResult::READ) {
                script = fileText;
            }
        }
        std::shared_ptr<OMStored> scriptNode;
        ASSIGN(scriptNode, parseScript(script));
        Session* session = findSession(incomingMessageNode);
        ASSIGN_TYPED(InternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        std::shared_ptr<EvalThenSendMessageTask> evalThenSendMessageTask;
        ASSIGN(evalThenSendMessageTask,
               EvalThenSendMessageTask::factory(
                   scriptNode, session != nullptr ? session->fScope : fScope, getSelfObj(), senderAddress,
                   InternalCoordinator::nextSequenceNumber(), readSequenceNumber(incomingMessageNode),
                   session != nullptr ? session->fClientSessionGUID : nullptr,
                   session != nullptr ? session->fServiceSessionGUID : nullptr, OpCode::EVAL_RESULT,
                   UNWRAP_RETURN_VALUE));
        SANITY_CHECK(internalCoordinator->startRequestTask(evalThenSendMessageTask));
        retVal = true;
    } while (false);
    return retVal;
}

bool ServiceOM::startDataRequest(const IMessage& message, const IOMNode& incomingMessageNode) {
    bool retVal = false;
    do {
        if (! incomingMessageNode.containsAttr("callBackID")) {
            LOG_ERROR("no callBackID");
            break;
        }
        const std::string callBackID = incomingMessageNode.getOMNode("callBackID")->getAsString();
        const std::shared_ptr<IOMNode> data = incomingMessageNode.getOMNode("data");
        Session* session = findSession(incomingMessageNode);
        ASSIGN_TYPED(InternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        std::shared_ptr<Task> handleDataRequestTask = internalCoordinator->handleDataRequest(
            message.getSenderAddressObj(), callBackID, data, readSequenceNumber(incomingMessageNode),
            session != nullptr ? session->fClientSessionGUID : nullptr,
            session != nullptr ? session->fServiceSessionGUID : nullptr);
        SANITY_CHECK(handleDataRequestTask);
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
