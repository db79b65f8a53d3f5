#include "BrwCoordinator/BrwRemote/BrwRunRemoteScriptTask.h"

#include <cstdio>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"

namespace Brw {

RunRemoteScriptTask::RunRemoteScriptTask(std::shared_ptr<const IObject> targetAddressObj,
                                         std::string scriptPath, int64_t timeoutMicroseconds, OpCode opCode,
                                         std::string scriptText, uint64_t sequenceNumber,
                                         std::shared_ptr<OMScope> scope)
    : RemoteRequestTask_abstract("RunRemoteScriptTask", std::move(targetAddressObj), opCode,
                                 timeoutMicroseconds, sequenceNumber, std::move(scope)),
      fScriptPath(std::move(scriptPath)), fScriptText(std::move(scriptText)) {}

std::shared_ptr<RunRemoteScriptTask>
RunRemoteScriptTask::factory(const std::shared_ptr<const IObject>& targetAddressObj,
                             const std::string& scriptPath, int64_t timeoutMicroseconds, OpCode opCode,
                             const std::string& scriptText, uint64_t sequenceNumber,
                             const std::shared_ptr<OMScope>& scope) {
    std::shared_ptr<RunRemoteScriptTask> retVal;
    do {
        SANITY_CHECK(targetAddressObj);
        auto runRemoteScriptTask = std::make_shared<RunRemoteScriptTask>(
            targetAddressObj, scriptPath, timeoutMicroseconds, opCode, scriptText, sequenceNumber, scope);
        Task::registerTask(runRemoteScriptTask);
        retVal = runRemoteScriptTask;
    } while (false);
    return retVal;
}

void RunRemoteScriptTask::sendAndWait_yielding(const std::shared_ptr<Task>& task, bool& completed) {
    auto internalCoordinator = std::dynamic_pointer_cast<InternalCoordinator>(InternalCoordinator::factory());
    if (! internalCoordinator) {
        completed = false;
        return;
    }
    internalCoordinator->runRemoteScript_yielding(task, completed);
}

void RunRemoteScriptTask::handleCompletion() {
    if (fIsEndingCoordinator) {
        const std::string failure = getFailureText(getTargetURL(), "the script did not run");
        if (! failure.empty()) {
            fprintf(stderr, "%s\n", failure.c_str());
        }
        if (auto internalCoordinator =
                std::dynamic_pointer_cast<InternalCoordinator>(InternalCoordinator::factory())) {
            internalCoordinator->terminate();
        }
    }
    RemoteRequestTask_abstract::handleCompletion();
}

} // namespace Brw
