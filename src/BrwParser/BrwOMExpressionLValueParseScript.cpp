// parseScript(script, unused, options...): script text run the way a standard-input session runs, its
// echoed values gathered into a string.
//
// `script` is the text, or [text, output]: an output that is a string is the text that the session's output
// is appended to; anything else, undefined included, means none. Argument 1 is taken by nothing and is
// ignored. Each option, from argument 2 on and in any order: a function is called with the output text when
// the session ends; an integer of 0 or more adds that many milliseconds to a deadline counted from the call;
// a string chooses how the caller waits:
//   "noWait"  (0)  start the session below the coordinator's main task and give true at once; the callback
//                  gets the output later.
//   "timeOut" (1)  wait for the end or the deadline, whichever comes first. The deadline is the call's time
//                  plus the milliseconds given (so, without any, the call's time itself). When it passes,
//                  the session is stopped, "parseScript: timed out" is reported, and the output gathered so
//                  far is the result.
//   "prompt"  (2)  the default: wait for the end. Only when milliseconds are given is there a deadline, and
//                  it acts as in "timeOut"; it stops a "noWait" session in the same way.
// Other strings are ignored, and the last of each kind of option wins.

#include <algorithm>
#include <vector>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwParser/BrwOMExpressionLValue.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwCallTask.h"
#include "BrwTask/BrwParseScriptTask.h"
#include "BrwTask/BrwYielding.h"
#include "BrwUtils/BrwClock.h"

namespace Brw {

namespace {

using NodePtr = std::shared_ptr<IOMNode>;

enum class ParseScriptWait : int32_t {
    NO_WAIT = 0,  // give true at once
    TIME_OUT = 1, // wait for the end or the deadline, which always exists
    PROMPT = 2,   // wait for the end, or for a deadline that was given
};

// One call: what it asked for and the session that does it. Shared by whoever waits for the session.
struct ParseScriptCall {
    std::string script;                             // the text to run
    std::string initialOutput;                      // what the output text starts with
    std::shared_ptr<OMStored> callBack;             // called with the output text at the end; null for none
    std::shared_ptr<OMScope> callerScope;           // where the session's scope hangs and the callback runs
    ParseScriptWait wait = ParseScriptWait::PROMPT; // how the caller waits
    bool hasDeadline = false;                       // the session is stopped at `deadline`
    int64_t deadline = 0;                           // clock time in nanoseconds
    std::shared_ptr<ParseScriptTask> session;       // the instrumenter and the evaluator
    std::string output;                             // the result text, once the session has ended
    bool isDone = false;                            // the session has ended and the callback has returned
};

// Reads argument 0, the text or [text, output]; false after a script error.
[[nodiscard]] bool readScript(const NodePtr& scriptNode, ParseScriptCall& call) {
    bool retVal = false;
    do {
        SANITY_CHECK(scriptNode);
        NodePtr textNode = scriptNode;
        if (scriptNode->getType() == OMType::Array) {
            textNode = scriptNode->getSize() > 0 ? scriptNode->getOMNode(uint64_t{0}) : nullptr;
            const NodePtr outputNode =
                scriptNode->getSize() > 1 ? scriptNode->getOMNode(uint64_t{1}) : nullptr;
            if (outputNode && outputNode->getType() == OMType::String) {
                call.initialOutput = outputNode->getString();
            }
        }
        if (! textNode || textNode->getType() != OMType::String) {
            ScriptErrorLog::report("parseScript: the script must be a string or an array [text, output]");
            break;
        }
        call.script = textNode->getString();
        retVal = true;
    } while (false);
    return retVal;
}

void readWaitMode(const std::string& text, ParseScriptCall& call) {
    if (text == "noWait") {
        call.wait = ParseScriptWait::NO_WAIT;
    } else if (text == "timeOut") {
        call.wait = ParseScriptWait::TIME_OUT;
    } else if (text == "prompt") {
        call.wait = ParseScriptWait::PROMPT;
    }
}

// Reads the options from argument 2 on, and sets the deadline.
void readOptions(const OMExpressionLValueResolution& resolution, ParseScriptCall& call) {
    const int64_t start = Clock::now();
    int64_t milliseconds = 0;
    bool hasMilliseconds = false;
    for (size_t i = 2; i < resolution.getArgumentCount(); ++i) {
        const NodePtr option = resolution.getArgument(i);
        const OMType type = option->getType();
        if (type == OMType::String) {
            readWaitMode(option->getString(), call);
        } else if (type == OMType::Int) {
            if (option->getInt() >= 0) {
                milliseconds +=
                    std::min<int64_t>(option->getInt(), Clock::LONGEST_MILLISECONDS - milliseconds);
                hasMilliseconds = true;
            }
        } else {
            std::shared_ptr<OMStored> callBackFunction;
            if (type == OMType::Function) {
                callBackFunction = OMStored::rewrapFactory(*option);
            }
            EXPECTED(callBackFunction);
            if (callBackFunction) {
                call.callBack = callBackFunction;
            }
        }
    }
    call.hasDeadline = hasMilliseconds || call.wait == ParseScriptWait::TIME_OUT;
    call.deadline = start + milliseconds * Clock::NANOSECONDS_PER_MILLISECOND;
}

// Waits for the session to end, stopping it once the deadline has passed; then `call.output` holds its
// text, and the callback, if any, has been called with it.
void awaitSession_yielding(const std::shared_ptr<Task>& task, bool& done,
                           const std::shared_ptr<ParseScriptCall>& call) {
    struct LocalVariableState : OMFunctionState {
        bool isStopped = false;   // the deadline has passed and the session was told to stop
        OMArgs callBackArguments; // the output text, the callback's one argument
        NodePtr callBackResult;   // dropped
    };
    YIELDING_BEGIN(LocalVariableState, frame, done = false);
    YIELDING_CHECK(call && call->session);
    while (! call->session->isTaskCompleted()) {
        if (call->hasDeadline && ! frame->isStopped && Clock::now() >= call->deadline) {
            // A session in an endless loop stops at the end of its slice.
            frame->isStopped = true;
            call->session->stop();
            ScriptErrorLog::report("parseScript: timed out");
        }
        YIELDING_WAIT(task->yield());
    }
    call->output = call->session->getOutput();
    if (call->callBack) {
        frame->callBackArguments = std::make_shared<std::vector<NodePtr>>(1, OMStored::factory(call->output));
        YIELDING_CALL(call->callBack->callNodeAsFunction_yielding(
            task, frame->callBackResult, false, nullptr, frame->callBackArguments, call->callerScope));
    }
    done = true;
    YIELDING_END;
}

// noWait: a task of its own waits for the session and calls the callback. It hangs below the coordinator's
// main task rather than below the caller, so that a session that never ends holds up no caller that runs
// to completion; without a main task the caller is the parent.
[[nodiscard]] bool startWithoutWaiting(const std::shared_ptr<Task>& task,
                                       const std::shared_ptr<ParseScriptCall>& call) {
    bool retVal = false;
    do {
        std::shared_ptr<Task> parent = task;
        auto internalCoordinator =
            std::dynamic_pointer_cast<InternalCoordinator>(InternalCoordinator::factory());
        if (internalCoordinator && internalCoordinator->getMainTask() &&
            ! internalCoordinator->getMainTask()->isTaskCompleted()) {
            parent = internalCoordinator->getMainTask();
        }
        std::shared_ptr<CallTask> waiter =
            CallTask::factory("parseScript", [call](const std::shared_ptr<Task>& waiterTask) {
                awaitSession_yielding(waiterTask, call->isDone, call);
            });
        SANITY_CHECK(waiter);
        parent->registerChildTask(waiter);
        waiter->registerChildTask(call->session);
        SANITY_CHECK(Task::startTask(waiter));
        SANITY_CHECK(call->session->start());
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace

void OMExpressionLValueToken::ftn_parseScript_yielding(const std::shared_ptr<Task>& task, NodePtr& result,
                                                       AccessType, const std::shared_ptr<OMScope>& scope,
                                                       OMExpressionLValueResolution& resolution) {
    struct LocalVariableState : OMFunctionState {
        std::shared_ptr<ParseScriptCall> call; // shared with the session's waiter
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    result = OMStored::undefinedFactory();
    YIELDING_CHECK(scope);
    if (resolution.getArgumentCount() == 0) {
        ScriptErrorLog::report("insufficient arguments");
        YIELDING_FINISH;
    }
    frame->call = std::make_shared<ParseScriptCall>();
    frame->call->callerScope = scope;
    if (! readScript(resolution.getArgument(0), *frame->call)) {
        YIELDING_FINISH;
    }
    readOptions(resolution, *frame->call);
    frame->call->session = ParseScriptTask::factory(frame->call->script, frame->call->initialOutput, scope);
    YIELDING_CHECK(frame->call->session);
    if (frame->call->wait == ParseScriptWait::NO_WAIT) {
        YIELDING_CHECK(startWithoutWaiting(task, frame->call));
        YIELDING_CHECK(result->set(true));
        YIELDING_FINISH;
    }
    // A child of the caller: should the caller end first, the session ends with it.
    task->registerChildTask(frame->call->session);
    YIELDING_CHECK(frame->call->session->start());
    YIELDING_CALL(awaitSession_yielding(task, frame->call->isDone, frame->call));
    YIELDING_CHECK(result->set(frame->call->output));
    YIELDING_END;
}

} // namespace Brw
