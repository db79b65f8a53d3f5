#include "BrwTask/BrwEvalTask.h"

#include "BrwParser/BrwInputStreamString.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwCallTask.h"

namespace Brw {

std::shared_ptr<IOMNode> EvalTask::call(const std::shared_ptr<IOMNode>& node,
                                        const std::shared_ptr<OMScope>& scope,
                                        HandleReturnValue handleReturnValue) {
    std::shared_ptr<IOMNode> result;
    CallTask::call("eval", [&](const std::shared_ptr<Task>& task) {
        node->eval_yielding(task, result, scope, handleReturnValue);
    });
    return result;
}

std::shared_ptr<IOMNode> EvalScriptTask::call(const std::shared_ptr<OMStored>& node,
                                              const std::shared_ptr<OMScope>& scope,
                                              const std::string& scriptFilePath,
                                              HandleReturnValue handleReturnValue) {
    std::shared_ptr<IOMNode> result;
    CallTask::call("evalScript", [&](const std::shared_ptr<Task>& task) {
        node->evalScript_yielding(task, result, scope, scriptFilePath, handleReturnValue);
    });
    return result;
}

bool ParseTask::call(const std::shared_ptr<OMStored>& node, const std::string& text) {
    bool success = false;
    auto stream = std::make_shared<InputStreamString>(text);
    stream->setAtEOF();
    const bool ran = CallTask::call("parse", [&](const std::shared_ptr<Task>& task) {
        node->parseExpressionList_yielding(task, success, stream);
    });
    return ran && success;
}

} // namespace Brw
