#include <fstream>
#include <sstream>

#include "BrwLogger/BrwCheck.h"
#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwParser/BrwExpressionParser.h"
#include "BrwParser/BrwIOStreamPrompted.h"
#include "BrwParser/BrwInputStreamString.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwCallTask.h"
#include "BrwTask/BrwYielding.h"

namespace Brw {

void OMStored::parseExpression_yielding(const TaskPtr& task, bool& success,
                                        const std::shared_ptr<InputStream>& stream, uint64_t parenNesting,
                                        int32_t parseType) {
    struct LocalVariableState : OMFunctionState {
        NodePtr result;
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    YIELDING_CALL(ExpressionParser::parseExpression_yielding(
        task, success, frame->result, stream, parenNesting, static_cast<ParseType>(parseType)));
    if (success) {
        YIELDING_CHECK(set(frame->result));
    }
    YIELDING_END;
}

void OMStored::parseExpressionList_yielding(const TaskPtr& task, bool& success,
                                            const std::shared_ptr<InputStream>& stream) {
    struct LocalVariableState : OMFunctionState {
        NodePtr result;
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    YIELDING_CALL(ExpressionParser::parseExpressionList_yielding(task, success, frame->result, stream));
    if (! success) {
        setUndefined();
        YIELDING_FINISH;
    }
    YIELDING_CHECK(set(frame->result));
    YIELDING_END;
}

void OMStored::parseAndEvalStream_yielding(const TaskPtr& task, bool& success, const ScopePtr& scope) {
    // The stream is the task's, taken on every entry: it doesn't change while the task lives.
    std::shared_ptr<InputStream> stream = task->getIOStream();
    if (! SANITY_CHECKED(stream)) {
        success = false;
        return;
    }
    parseAndEvalFrom_yielding(task, success, scope, stream);
}

void OMStored::parseAndEvalFrom_yielding(const TaskPtr& task, bool& success, const ScopePtr& scope,
                                         const std::shared_ptr<InputStream>& stream) {
    struct LocalVariableState : OMFunctionState {
        std::shared_ptr<IOStreamPrompted> ioStream; // the stream when it is a prompted one: values echo
        NodePtr pendingNode;                        // value of the last statement, not yet echoed
        NodePtr parsed;
        NodePtr result;
        uint64_t startPos = 0;
        int c = InputStream::AT_END;
        bool ok = false;
        bool wasAbandoned = false; // the parser gave the statement up: it isn't run
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    frame->ioStream = std::dynamic_pointer_cast<IOStreamPrompted>(stream);
    YIELDING_CHECK(scope);
    for (;;) {
        YIELDING_CALL(peekChar_yielding(task, frame->c, stream));
        if (frame->c == InputStream::AT_END) {
            break;
        }
        if (frame->c == ' ' || frame->c == '\t') {
            stream->next();
            continue;
        }
        if (frame->c == ';') {
            // A statement closed by a semicolon is not echoed.
            frame->pendingNode.reset();
            stream->next();
            continue;
        }
        if (frame->c == '\n' || frame->c == '\r') {
            if (frame->pendingNode && frame->ioStream) {
                YIELDING_CALL(
                    frame->ioStream->write_yielding(task, frame->ok, frame->pendingNode->toString() + "\n"));
                frame->ioStream->showPrompt(task, false);
            }
            frame->pendingNode.reset();
            stream->next();
            continue;
        }
        frame->startPos = stream->getPos();
        YIELDING_CHECK(task->updateParsingNestLevel(1));
        YIELDING_CALL(ExpressionParser::parseExpression_yielding(task, frame->ok, frame->parsed, stream, 0,
                                                                 PARSE_STATEMENT));
        YIELDING_CHECK(task->updateParsingNestLevel(-1));
        frame->pendingNode.reset();
        YIELDING_CALL(ExpressionParser::takeBackAbandonedStatement_yielding(task, frame->wasAbandoned,
                                                                            frame->ok, stream));
        if (frame->wasAbandoned) {
            continue;
        }
        if (stream->getPos() == frame->startPos) {
            // Nothing could be read: step over one character, so that bad input can't stop the loop.
            ScriptErrorLog::report("parsing failed");
            stream->next();
            continue;
        }
        if (frame->ok && frame->parsed) {
            YIELDING_CALL(frame->parsed->eval_yielding(task, frame->result, scope, UNWRAP_RETURN_VALUE));
            frame->pendingNode = frame->result;
            if (frame->result) {
                set(frame->result);
            }
        }
    }
    success = true;
    YIELDING_END;
}

void OMStored::evalScript_yielding(const TaskPtr& task, NodePtr& out, const ScopePtr& scope,
                                   const std::string& scriptFilePath, HandleReturnValue handleReturnValue) {
    struct LocalVariableState : OMFunctionState {
        std::shared_ptr<InputStream> stream; // the script's text
        bool ok = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    YIELDING_CHECK(scope);
    {
        std::ifstream file(scriptFilePath, std::ios::binary);
        if (! file) {
            ScriptErrorLog::report("cannot read script file " + scriptFilePath);
            out = errorFactory();
            YIELDING_FINISH;
        }
        std::ostringstream text;
        text << file.rdbuf();
        auto stream = std::make_shared<InputStreamString>(text.str());
        stream->setAtEOF();
        frame->stream = stream;
    }
    setUndefined();
    scope->pushScriptFilePath(scriptFilePath);
    YIELDING_CALL(parseAndEvalFrom_yielding(task, frame->ok, scope, frame->stream));
    VERIFY(scope->popScriptFilePath());
    out = shared_from_this();
    if (handleReturnValue == UNWRAP_RETURN_VALUE) {
        out = out->unwrapReturnValue();
    }
    YIELDING_END;
}

} // namespace Brw
