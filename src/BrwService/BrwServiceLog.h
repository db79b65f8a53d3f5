#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "BrwService/BrwService_abstract.h"

namespace Brw {

// Writes the payloads of LOG_* messages whose level it lets through: to a string when one is set, else to
// a file when one is set, else to standard error. Where they go can be saved and restored on a stack.
class ServiceLog : public Service_abstract {
public:
    static constexpr const char* TYPENAME = "ServiceLog";
    static constexpr const char* SERVICE_NAME = "net.braidwell.service.log";
    // The levels of the log messages: a message is written when the service's level is at least its own.
    static constexpr int32_t ERROR_LEVEL = 1;
    static constexpr int32_t WARNING_LEVEL = 2;
    static constexpr int32_t NOTE_LEVEL = 3;
    static constexpr int32_t TRACE_LEVEL = 4;

    // The one instance below the coordinator, made on the first call.
    static std::shared_ptr<IObject> factory();
    [[nodiscard]] static bool registerDeregisterClass(RegisterDeregister registerDeregister);

    std::string typeName() const override { return TYPENAME; }
    std::string getServiceName() const override { return SERVICE_NAME; }
    bool receiveMessage(const std::shared_ptr<IObject>& messageObj) override;

    // Writes `text` and a line feed where messages go now.
    [[nodiscard]] bool logMessage(const std::string& text);
    void pushState();
    [[nodiscard]] bool popState();
    // Back to standard error at the trace level.
    void resetState();
    // Messages are appended to `logStr` (which outlives its use here) until the state changes; null stops it.
    void setLogString(std::string* logStr) { fState.logString = logStr; }
    void setLogFilePath(const std::string& logFilePath) { fState.logFilePath = logFilePath; }
    void setLevel(int32_t level) { fState.level = level; }

protected:
    ServiceLog() = default;
    friend class Object;

private:
    struct State {
        std::string logFilePath;          // the file appended to; none when empty
        std::string* logString = nullptr; // the string appended to, before the file
        int32_t level = TRACE_LEVEL;      // the least level a message must ask for
    };

    State fState;                   // where messages go now
    std::vector<State> fStateStack; // saved by pushState
};

} // namespace Brw
