#include <filesystem>

#include "BrwLogger/BrwCheck.h"
#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwParser/BrwInputStreamString.h"
#include "BrwParser/BrwOMExpressionLValue.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwYielding.h"

namespace Brw {

namespace {

using NodePtr = std::shared_ptr<IOMNode>;

// What eval and evalScript read from their arguments: where to run, and what.
struct EvalArguments {
    std::shared_ptr<OMScope> scope; // the caller's, or a new one over the map given first
    NodePtr script;                 // the text, or the path of the file
    bool hasTarget = false;         // a target address follows: another coordinator
};

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
            ScriptErrorLog::report("eval on another coordinator is not available");
            break;
        }
        retVal = true;
    } while (false);
    return retVal;
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
