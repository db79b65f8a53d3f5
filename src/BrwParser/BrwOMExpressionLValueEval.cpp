#include <filesystem>

#include "BrwAddress/BrwAddress_abstract.h"
#include "BrwAddress/BrwInternalAddress.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwCoordinator/BrwRemote/BrwRunRemoteScriptTask.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwParser/BrwInputStreamString.h"
#include "BrwParser/BrwOMExpressionLValue.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwYielding.h"
#include "BrwUtils/BrwClock.h"

namespace Brw {

namespace {

using NodePtr = std::shared_ptr<IOMNode>;

// What eval and evalScript read from their arguments: where to run, and what.
struct EvalArguments {
    std::shared_ptr<OMScope> scope; // the caller's, or a new one over the map given first
    NodePtr script;                 // the text, or the path of the file
    bool hasTarget = false;         // a target address follows: another coordinator
    std::string targetURL;          // the address of the object-model service there
    int64_t timeoutMicroseconds =
        InternalCoordinator::fRemoteTimeoutMicroseconds; // of the wait for the reply
    std::shared_ptr<OMStored> callBack;                  // called with the result once it is there
    bool isNoWait = false;                               // don't wait: the result is true at once
};

// The options after the target address, by kind and in any order.
void readRemoteOptions(OMExpressionLValueResolution& resolution, size_t first, EvalArguments& arguments) {
    for (size_t index = first; index < resolution.getArgumentCount(); ++index) {
        const NodePtr option = resolution.getArgument(index);
        switch (option->getType()) {
        case OMType::Int:
            arguments.timeoutMicroseconds = option->getInt() * Clock::MICROSECONDS_PER_MILLISECOND;
            break;
        case OMType::Function:
            arguments.callBack = OMStored::rewrapFactory(*option);
            break;
        case OMType::Bool:
            arguments.isNoWait = option->getBool();
            break;
        default:
            break;
        }
    }
}

// Reads the arguments; false after a script error.
bool readEvalArguments(const std::shared_ptr<OMScope>& callerScope, OMExpressionLValueResolution& resolution,
                       EvalArguments& arguments) {
    bool retVal = false;
    do {
        SANITY_CHECK(callerScope);
        if (resolution.getArgumentCount() == 0) {
            ScriptErrorLog::report("insufficient arguments");
            break;
        }
        size_t next = 0;
        arguments.scope = callerScope;
        NodePtr first = resolution.getArgument(0);
        if (first->getType() == OMType::Map) {
            // The script sees the map's members as variables, and its assignments go to the map.
            std::shared_ptr<OMScope> thisScope = OMScope::factory(callerScope, OMScope::READS_PARENT);
            SANITY_CHECK(thisScope);
            SANITY_CHECK(thisScope->set(*first));
            arguments.scope = thisScope;
            next = 1;
        }
        if (next >= resolution.getArgumentCount()) {
            ScriptErrorLog::report("insufficient arguments");
            break;
        }
        arguments.script = resolution.getArgument(next);
        SANITY_CHECK(arguments.script);
        arguments.hasTarget = next + 1 < resolution.getArgumentCount() &&
                              resolution.getArgument(next + 1)->getType() == OMType::String;
        if (arguments.hasTarget) {
            arguments.targetURL = resolution.getArgument(next + 1)->getString();
            readRemoteOptions(resolution, next + 2, arguments);
        }
        retVal = true;
    } while (false);
    return retVal;
}

// The address of a target URL; an empty text is this coordinator. Null after a script error.
std::shared_ptr<IObject> targetAddressFactory(const std::string& targetURL) {
    std::string tail;
    std::shared_ptr<IObject> targetAddressObj = Address_abstract::factoryFromURL(targetURL, tail);
    if (! targetAddressObj && targetURL.empty()) {
        targetAddressObj = InternalAddress::factoryFromIndices("");
    }
    if (! targetAddressObj) {
        ScriptErrorLog::report("invalid target address");
    }
    return targetAddressObj;
}

// Runs the script (or the file, for EVAL_FILE) on the target and gives its value; without waiting when
// asked, and then the result is true at once.
void evalRemote_yielding(const std::shared_ptr<Task>& task, NodePtr& result, const EvalArguments& arguments,
                         OpCode opCode) {
    struct LocalVariableState : OMFunctionState {
        std::shared_ptr<RunRemoteScriptTask> runRemoteScriptTask;
        bool isDone = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    result = OMStored::undefinedFactory();
    {
        const std::shared_ptr<IObject> targetAddressObj = targetAddressFactory(arguments.targetURL);
        if (! targetAddressObj) {
            YIELDING_FINISH;
        }
        YIELDING_ASSIGN_TYPED(InternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        const std::string script = arguments.script->getAsString();
        frame->runRemoteScriptTask = RunRemoteScriptTask::factory(
            targetAddressObj, opCode == OpCode::EVAL_FILE ? script : "", arguments.timeoutMicroseconds,
            opCode, opCode == OpCode::EVAL_FILE ? "" : script, InternalCoordinator::nextSequenceNumber(),
            arguments.scope);
        YIELDING_CHECK(frame->runRemoteScriptTask);
        if (arguments.isNoWait || arguments.callBack) {
            // On its own below the coordinator: the caller may end first.
            frame->runRemoteScriptTask->setCallBack(arguments.callBack);
            YIELDING_CHECK(internalCoordinator->startRequestTask(frame->runRemoteScriptTask));
            YIELDING_CHECK(result->set(true));
            YIELDING_FINISH;
        }
        YIELDING_CHECK(frame->runRemoteScriptTask->startForCaller(task));
    }
    YIELDING_CALL(frame->runRemoteScriptTask->awaitCompletion_yielding(task, frame->isDone));
    {
        const std::string failure =
            frame->runRemoteScriptTask->getFailureText(arguments.targetURL, "the script did not run");
        if (failure.empty()) {
            result = frame->runRemoteScriptTask->getReplyNode();
        } else {
            ScriptErrorLog::report(std::string(opCode == OpCode::EVAL_FILE ? "evalScript: " : "eval: ") +
                                   failure);
        }
    }
    YIELDING_END;
}

} // namespace

void OMExpressionLValueToken::ftn_eval_yielding(const std::shared_ptr<Task>& task, NodePtr& result,
                                                AccessType, const std::shared_ptr<OMScope>& scope,
                                                OMExpressionLValueResolution& resolution) {
    struct LocalVariableState : OMFunctionState {
        EvalArguments arguments;
        std::shared_ptr<OMStored> parsed;
        std::shared_ptr<InputStream> stream;
        bool success = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    result = OMStored::undefinedFactory();
    if (! readEvalArguments(scope, resolution, frame->arguments)) {
        YIELDING_FINISH;
    }
    if (frame->arguments.hasTarget) {
        YIELDING_CALL(evalRemote_yielding(task, result, frame->arguments, OpCode::EVAL));
        YIELDING_FINISH;
    }
    {
        auto stream = std::make_shared<InputStreamString>(frame->arguments.script->getAsString());
        stream->setAtEOF();
        frame->stream = stream;
    }
    frame->parsed = OMStored::undefinedFactory();
    YIELDING_CALL(frame->parsed->parseExpressionList_yielding(task, frame->success, frame->stream));
    if (! frame->success) {
        ScriptErrorLog::report("cannot evaluate string");
        YIELDING_FINISH;
    }
    YIELDING_CALL(frame->parsed->eval_yielding(task, result, frame->arguments.scope, UNWRAP_RETURN_VALUE));
    if (! result) {
        result = OMStored::undefinedFactory();
    }
    YIELDING_END;
}

void OMExpressionLValueToken::ftn_evalScript_yielding(const std::shared_ptr<Task>& task, NodePtr& result,
                                                      AccessType, const std::shared_ptr<OMScope>& scope,
                                                      OMExpressionLValueResolution& resolution) {
    struct LocalVariableState : OMFunctionState {
        EvalArguments arguments;
        std::shared_ptr<OMStored> node;
        std::string path;
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    result = OMStored::undefinedFactory();
    if (! readEvalArguments(scope, resolution, frame->arguments)) {
        YIELDING_FINISH;
    }
    if (frame->arguments.hasTarget) {
        // The file is read where the script runs.
        YIELDING_CALL(evalRemote_yielding(task, result, frame->arguments, OpCode::EVAL_FILE));
        YIELDING_FINISH;
    }
    frame->path = frame->arguments.script->getAsString();
    {
        std::error_code error;
        if (! std::filesystem::is_regular_file(frame->path, error)) {
            ScriptErrorLog::report("evalScript: script file does not exist");
            YIELDING_FINISH;
        }
    }
    frame->node = OMStored::undefinedFactory();
    YIELDING_CALL(frame->node->evalScript_yielding(task, result, frame->arguments.scope, frame->path,
                                                   UNWRAP_RETURN_VALUE));
    if (! result) {
        ScriptErrorLog::report("evalScript: cannot evaluate string");
        result = OMStored::undefinedFactory();
    }
    YIELDING_END;
}

} // namespace Brw
