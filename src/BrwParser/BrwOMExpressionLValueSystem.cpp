// The built-in functions by which a script touches its process, members of OMExpressionLValueToken:
// information on the system, the environment, ending, waiting, the task's streams and the log.

#include <cstdlib>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwParser/BrwIOStreamPrompted.h"
#include "BrwParser/BrwOMAccessor.h"
#include "BrwParser/BrwOMExpressionLValue.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwParser/BrwOutputStream.h"
#include "BrwTask/BrwYielding.h"
#include "BrwUtils/BrwClock.h"

namespace Brw {

namespace {

using NodePtr = std::shared_ptr<IOMNode>;
using ScopePtr = std::shared_ptr<OMScope>;

// The shortest wait of yield(): even yield(0) gives the thread away for this long.
constexpr int64_t SHORTEST_YIELD_MILLISECONDS = 1;

std::string textOf(const NodePtr& node) {
    return OMAccessor(node).getAsString();
}

// The wait that yield() was asked for, in milliseconds: the whole part of the number, the shortest wait for
// anything below it (NaN and no argument too), at most the longest time a script may ask for.
int64_t yieldMilliseconds(const NodePtr& timeoutNode) {
    const double milliseconds = OMAccessor(timeoutNode).getAsNum();
    if (! (milliseconds >= static_cast<double>(SHORTEST_YIELD_MILLISECONDS))) {
        return SHORTEST_YIELD_MILLISECONDS;
    }
    if (milliseconds >= static_cast<double>(Clock::LONGEST_MILLISECONDS)) {
        return Clock::LONGEST_MILLISECONDS;
    }
    return static_cast<int64_t>(milliseconds);
}

// A clock time in whole seconds, for the notes of yield().
long long toSeconds(int64_t nanoseconds) {
    return static_cast<long long>(nanoseconds / Clock::NANOSECONDS_PER_SECOND);
}

// Where output() writes when no stream is given: the running task's stream, or the process's standard
// output for a task whose stream can't be written.
std::shared_ptr<OutputStream> taskOutputStream(const std::shared_ptr<Task>& task) {
    std::shared_ptr<OutputStream> retVal = std::dynamic_pointer_cast<OutputStream>(task->getIOStream());
    do {
        if (retVal) {
            break;
        }
        std::shared_ptr<InternalCoordinator> internalCoordinator;
        ASSIGN(internalCoordinator,
               std::dynamic_pointer_cast<Brw::InternalCoordinator>(Brw::InternalCoordinator::factory()));
        retVal = internalCoordinator->outputStreamFactory();
    } while (false);
    return retVal;
}

// Where stdIn() reads: the running task's console, or, for a task that reads text of its own, the
// process's input stream behind a console made for the call.
std::shared_ptr<IOStreamPrompted> taskLineSource(const std::shared_ptr<Task>& task) {
    std::shared_ptr<IOStreamPrompted> retVal =
        std::dynamic_pointer_cast<IOStreamPrompted>(task->getIOStream());
    do {
        if (retVal) {
            break;
        }
        std::shared_ptr<InternalCoordinator> internalCoordinator;
        ASSIGN(internalCoordinator,
               std::dynamic_pointer_cast<Brw::InternalCoordinator>(Brw::InternalCoordinator::factory()));
        retVal = std::make_shared<IOStreamPrompted>(internalCoordinator->inputStreamFactory(), nullptr);
    } while (false);
    return retVal;
}

// The line without its line end: "\n", "\r" or "\r\n".
std::string withoutLineEnd(std::string line) {
    if (! line.empty() && line.back() == '\n') {
        line.pop_back();
    }
    if (! line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return line;
}

// NOTE: a line that a carriage return ended takes a line feed right behind it along, so that "\r\n" ends one
// line as "\n" does; only what has arrived is looked at, since a keyboard sends the carriage return alone.
void takeLineFeedAfterCarriageReturn(const IOStreamPrompted& stream, const std::string& line) {
    const std::shared_ptr<InputStream> input = stream.getInputStream();
    if (line.ends_with('\r') && input && input->getChar() == '\n') {
        VERIFY(input->next());
    }
}

using LogCall = void (*)(const char* file, int32_t line, const char* function, const char* message);

// One of the log built-ins: argument 0's string form goes to `logCall` with the place of the built-in
// that called.
NodePtr logArgument(const OMExpressionLValueResolution& resolution, LogCall logCall, const char* file,
                    int32_t line, const char* function) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! resolution.hasArguments(1)) {
            break;
        }
        NodePtr thisNode = resolution.getArgument(0);
        SANITY_CHECK(thisNode);
        logCall(file, line, function, textOf(thisNode).c_str());
    } while (false);
    return retVal;
}

} // namespace

void OMExpressionLValueToken::registerSystemBuiltins() {
    registerBuiltin(_exit, nullptr, ftn_exit_yielding);
    registerBuiltin(_getEnv, ftn_getEnv, nullptr);
    registerBuiltin(_logError, ftn_logError, nullptr);
    registerBuiltin(_logNote, ftn_logNote, nullptr);
    registerBuiltin(_logTrace, ftn_logTrace, nullptr);
    registerBuiltin(_logWarning, ftn_logWarning, nullptr);
    registerBuiltin(_output, nullptr, ftn_output_yielding);
    registerBuiltin(_quit, ftn_quit, nullptr);
    registerBuiltin(_stdIn, nullptr, ftn_stdIn_yielding);
    registerBuiltin(_sysInfo, ftn_sysInfo, nullptr);
    registerBuiltin(_yield, nullptr, ftn_yield_yielding);
}

// ---- the system and the process ----

NodePtr OMExpressionLValueToken::ftn_sysInfo(AccessType, const ScopePtr& scope,
                                             OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        SANITY_CHECK(scope);
        std::shared_ptr<InternalCoordinator> internalCoordinator;
        ASSIGN(internalCoordinator,
               std::dynamic_pointer_cast<Brw::InternalCoordinator>(Brw::InternalCoordinator::factory()));
        NodePtr sysInfo;
        ASSIGN(sysInfo, internalCoordinator->buildSysInfo());
        if (resolution.getArgumentCount() == 0) {
            retVal = sysInfo;
            break;
        }
        // An unknown key leaves the result undefined.
        NodePtr member = OMAccessor(sysInfo).getOMNode(textOf(resolution.getArgument(0)));
        if (member) {
            retVal = member;
        }
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_getEnv(AccessType, const ScopePtr&,
                                            OMExpressionLValueResolution& resolution) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        if (! resolution.hasArguments(1)) {
            break;
        }
        NodePtr thisNode = resolution.getArgument(0);
        SANITY_CHECK(thisNode);
        const char* value = std::getenv(textOf(thisNode).c_str());
        if (value == nullptr) {
            break;
        }
        SANITY_CHECK(retVal->set(std::string(value)));
    } while (false);
    return retVal;
}

NodePtr OMExpressionLValueToken::ftn_quit(AccessType, const ScopePtr&, OMExpressionLValueResolution&) {
    NodePtr retVal = OMStored::undefinedFactory();
    do {
        std::shared_ptr<InternalCoordinator> internalCoordinator;
        ASSIGN(internalCoordinator,
               std::dynamic_pointer_cast<Brw::InternalCoordinator>(Brw::InternalCoordinator::factory()));
        SANITY_CHECK(internalCoordinator->terminate());
    } while (false);
    return retVal;
}

void OMExpressionLValueToken::ftn_exit_yielding(const std::shared_ptr<Task>& task, NodePtr& result,
                                                AccessType, const ScopePtr&, OMExpressionLValueResolution&) {
    struct LocalVariableState : OMFunctionState {};
    YIELDING_BEGIN(LocalVariableState, frame, result = OMStored::undefinedFactory());
    task->exit();
    // The task ends at the end of its slice: the slice must end here, or the statements behind the call
    // would run in it.
    YIELDING_WAIT(task->yield());
    YIELDING_END;
}

// Each turn: the time first, then the callback; a wait that neither ends gives the thread away until the
// next slice.
void OMExpressionLValueToken::ftn_yield_yielding(const std::shared_ptr<Task>& task, NodePtr& result,
                                                 AccessType, const ScopePtr& scope,
                                                 OMExpressionLValueResolution& resolution) {
    struct LocalVariableState : OMFunctionState {
        int64_t yieldUntil = 0;             // clock time in nanoseconds at which the wait ends
        std::shared_ptr<OMStored> callBack; // asked each turn whether the wait is over; null for none
        OMArgs callBackArguments;           // none
        NodePtr callBackResult;             // true ends the wait
    };
    YIELDING_BEGIN(LocalVariableState, frame, result = OMStored::undefinedFactory());
    {
        NodePtr timeoutNode = resolution.getArgument(0);
        YIELDING_CHECK(timeoutNode);
        frame->yieldUntil =
            Clock::now() + yieldMilliseconds(timeoutNode) * Clock::NANOSECONDS_PER_MILLISECOND;
        NodePtr callBackNode = resolution.getArgument(1);
        YIELDING_CHECK(callBackNode);
        if (callBackNode->getType() == OMType::Function) {
            frame->callBack = OMStored::rewrapFactory(*callBackNode);
        }
    }
    LOG_NOTE_F("init: yieldUntil = %lld", toSeconds(frame->yieldUntil));
    for (;;) {
        LOG_NOTE_F("now = %lld", toSeconds(Clock::now()));
        if (Clock::now() >= frame->yieldUntil) {
            break;
        }
        if (frame->callBack) {
            frame->callBackResult = nullptr;
            YIELDING_CALL(frame->callBack->callNodeAsFunction_yielding(
                task, frame->callBackResult, false, nullptr, frame->callBackArguments, scope));
            if (frame->callBackResult && frame->callBackResult->getAsBool()) {
                break;
            }
        }
        YIELDING_WAIT(task->yieldAndSleep());
    }
    YIELDING_END;
}

// ---- the task's streams ----

void OMExpressionLValueToken::ftn_output_yielding(const std::shared_ptr<Task>& task, NodePtr& result,
                                                  AccessType accessType, const ScopePtr& scope,
                                                  OMExpressionLValueResolution& resolution) {
    ftn_output_yielding(task, result, accessType, scope, resolution, nullptr);
}

void OMExpressionLValueToken::ftn_output_yielding(const std::shared_ptr<Task>& task, NodePtr& result,
                                                  AccessType, const ScopePtr&,
                                                  OMExpressionLValueResolution& resolution,
                                                  const std::shared_ptr<OutputStream>& outputStream) {
    struct LocalVariableState : OMFunctionState {
        std::shared_ptr<OutputStream> stream; // where the text goes
        size_t index = 0;                     // the argument being written
        std::string text;                     // its string form
        bool success = false;                 // the stream took it
    };
    YIELDING_BEGIN(LocalVariableState, frame, result = OMStored::undefinedFactory());
    frame->stream = outputStream ? outputStream : taskOutputStream(task);
    YIELDING_CHECK(frame->stream);
    for (frame->index = 0; frame->index < resolution.getArgumentCount(); ++frame->index) {
        {
            NodePtr expression = resolution.getArgument(frame->index);
            YIELDING_CHECK(expression);
            frame->text = textOf(expression);
        }
        YIELDING_CALL(frame->stream->write_yielding(task, frame->success, frame->text));
        YIELDING_CHECK(frame->success);
    }
    YIELDING_END;
}

void OMExpressionLValueToken::ftn_stdIn_yielding(const std::shared_ptr<Task>& task, NodePtr& result,
                                                 AccessType, const ScopePtr&, OMExpressionLValueResolution&) {
    struct LocalVariableState : OMFunctionState {
        std::shared_ptr<IOStreamPrompted> stream; // where the line comes from
        std::string line;                         // the line, with its line end
    };
    YIELDING_BEGIN(LocalVariableState, frame, result = OMStored::undefinedFactory());
    frame->stream = taskLineSource(task);
    YIELDING_CHECK(frame->stream);
    // Waiting for input lets the event loop sleep until standard input has something.
    task->setWaitingForInput(true);
    YIELDING_CALL(frame->stream->readLine_yielding(task, frame->line));
    task->setWaitingForInput(false);
    takeLineFeedAfterCarriageReturn(*frame->stream, frame->line);
    // Every line but one cut short by the end of the input has its line end: empty is the end.
    if (! frame->line.empty()) {
        YIELDING_CHECK(result->set(withoutLineEnd(frame->line)));
    }
    YIELDING_END;
}

// ---- the log ----

NodePtr OMExpressionLValueToken::ftn_logError(AccessType, const ScopePtr&,
                                              OMExpressionLValueResolution& resolution) {
    return logArgument(resolution, Logger::logError, __FILE__, __LINE__, __PRETTY_FUNCTION__);
}

NodePtr OMExpressionLValueToken::ftn_logWarning(AccessType, const ScopePtr&,
                                                OMExpressionLValueResolution& resolution) {
    return logArgument(resolution, Logger::logWarning, __FILE__, __LINE__, __PRETTY_FUNCTION__);
}

NodePtr OMExpressionLValueToken::ftn_logNote(AccessType, const ScopePtr&,
                                             OMExpressionLValueResolution& resolution) {
    return logArgument(resolution, Logger::logNote, __FILE__, __LINE__, __PRETTY_FUNCTION__);
}

NodePtr OMExpressionLValueToken::ftn_logTrace(AccessType, const ScopePtr&,
                                              OMExpressionLValueResolution& resolution) {
    return logArgument(resolution, Logger::logTrace, __FILE__, __LINE__, __PRETTY_FUNCTION__);
}

} // namespace Brw
