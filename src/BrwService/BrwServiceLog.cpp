#include "BrwService/BrwServiceLog.h"

#include <cstdio>

#include "BrwMessage/BrwIMessage.h"
#include "BrwService/BrwServiceSingleton.h"

namespace Brw {

namespace {

std::weak_ptr<ServiceLog> gServiceLog;

struct LogOpCodeEntry {
    OpCode opCode;
    int32_t level; // the least level of the service that writes it
};

constexpr LogOpCodeEntry kLogOpCodes[] = {
    {OpCode::LOG_TRACE, ServiceLog::TRACE_LEVEL},
    {OpCode::LOG_NOTE, ServiceLog::NOTE_LEVEL},
    {OpCode::LOG_WARNING, ServiceLog::WARNING_LEVEL},
    {OpCode::LOG_ERROR, ServiceLog::ERROR_LEVEL},
};

} // namespace

std::shared_ptr<IObject> ServiceLog::factory() {
    return singletonServiceFactory(gServiceLog, [](const auto& serviceLog, const auto& internalCoordinator) {
        return SANITY_CHECKED(serviceLog->attachToParent(internalCoordinator));
    });
}

bool ServiceLog::registerDeregisterClass(RegisterDeregister registerDeregister) {
    // clang-format off
    return Object::registerDeregister(registerDeregister,
        [] { return SANITY_CHECKED(Object::registerFactory( TYPENAME, ServiceLog::factory)); },
        [] { return SANITY_CHECKED(Object::deregisterFactory( TYPENAME)); });
    // clang-format on
}

bool ServiceLog::receiveMessage(const std::shared_ptr<IObject>& messageObj) {
    bool retVal = false;
    do {
        SANITY_CHECK(Service_abstract::receiveMessage(messageObj));
        ASSIGN_TYPED(IMessage, message, messageObj);
        const LogOpCodeEntry* entry = nullptr;
        for (const LogOpCodeEntry& candidate : kLogOpCodes) {
            if (candidate.opCode == message->getOpCode()) {
                entry = &candidate;
            }
        }
        if (entry == nullptr) {
            LOG_ERROR("unexpected opcode");
            break;
        }
        if (fState.level >= entry->level) {
            SANITY_CHECK(logMessage(message->getPayloadStr()));
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool ServiceLog::logMessage(const std::string& text) {
    bool retVal = false;
    do {
        if (fState.logString != nullptr) {
            *fState.logString += text + "\n";
        } else if (! fState.logFilePath.empty()) {
            FILE* logFile = nullptr;
            SANITY_CHECK((logFile = std::fopen(fState.logFilePath.c_str(), "a")) != nullptr);
            const std::string line = text + "\n";
            const bool isWritten = std::fwrite(line.data(), 1, line.size(), logFile) == line.size();
            const bool isClosed = std::fclose(logFile) == 0;
            SANITY_CHECK(isWritten && isClosed);
        } else {
            const std::string line = text + "\n";
            std::fwrite(line.data(), 1, line.size(), stderr);
            std::fflush(stderr);
        }
        retVal = true;
    } while (false);
    return retVal;
}

void ServiceLog::pushState() {
    fStateStack.push_back(fState);
}

bool ServiceLog::popState() {
    bool retVal = false;
    do {
        SANITY_CHECK(! fStateStack.empty());
        fState = fStateStack.back();
        fStateStack.pop_back();
        retVal = true;
    } while (false);
    return retVal;
}

void ServiceLog::resetState() {
    fState = State();
}

} // namespace Brw
