#pragma once

#include "BrwCoordinator/BrwRemote/BrwRemoteRequestTask_abstract.h"

namespace Brw {

// Runs a script on an object-model service elsewhere: sends it as EVAL and waits for the EVAL_RESULT.
class RunRemoteScriptTask : public RemoteRequestTask_abstract {
public:
    // `scriptText` is sent as it is; when it is empty the file at `scriptPath` is read here and its text
    // sent. `timeoutMicroseconds` bounds the wait for the reply (NO_WAIT: none).
    static std::shared_ptr<RunRemoteScriptTask>
    factory(const std::shared_ptr<const IObject>& targetAddressObj, const std::string& scriptPath,
            int64_t timeoutMicroseconds, OpCode opCode, const std::string& scriptText,
            uint64_t sequenceNumber, const std::shared_ptr<OMScope>& scope);

    const std::string& getScriptPath() const { return fScriptPath; }
    const std::string& getScriptText() const { return fScriptText; }
    // The run is the process's errand (-r): its end, reply or not, ends the coordinator.
    void setEndsCoordinator(bool isEndingCoordinator) { fIsEndingCoordinator = isEndingCoordinator; }
    void handleCompletion() override;

    RunRemoteScriptTask(std::shared_ptr<const IObject> targetAddressObj, std::string scriptPath,
                        int64_t timeoutMicroseconds, OpCode opCode, std::string scriptText,
                        uint64_t sequenceNumber, std::shared_ptr<OMScope> scope);

protected:
    void sendAndWait_yielding(const std::shared_ptr<Task>& task, bool& completed) override;

private:
    std::string fScriptPath;           // the script's file, read when there is no text
    std::string fScriptText;           // the script
    bool fIsEndingCoordinator = false; // see setEndsCoordinator
};

} // namespace Brw
