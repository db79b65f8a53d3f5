#include "BrwTask/BrwInstrumentScriptStreamTask.h"

#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwParser/BrwIOStreamPrompted.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwParser/BrwOutputStreamString.h"
#include "BrwTask/BrwYielding.h"

namespace Brw {

namespace {

bool isBlank(int c) {
    return c == ' ' || c == '\t';
}

bool isLineEndChar(int c) {
    return c == '\n' || c == '\r';
}

} // namespace

InstrumentScriptStreamTask::InstrumentScriptStreamTask(const std::shared_ptr<OMStored>& node,
                                                       const std::shared_ptr<OMScope>& scope,
                                                       const std::string& scriptFilePath,
                                                       const std::shared_ptr<InputStream>& stream)
    : Task(TYPENAME, NO_TIMEOUT, stream), fNode(node), fScope(scope), fScriptFilePath(scriptFilePath),
      fIOStreamPrompted(std::dynamic_pointer_cast<IOStreamPrompted>(stream)) {
    if (fIOStreamPrompted) {
        fOutputStreamString =
            std::dynamic_pointer_cast<OutputStreamString>(fIOStreamPrompted->getOutputStream());
    }
}

std::shared_ptr<Task> InstrumentScriptStreamTask::factory(const std::shared_ptr<OMStored>& node,
                                                          const std::shared_ptr<OMScope>& scope,
                                                          const std::string& scriptFilePath,
                                                          std::shared_ptr<InputStream> inputStream) {
    std::shared_ptr<Task> retVal;
    do {
        auto wrapped_this =
            std::make_shared<InstrumentScriptStreamTask>(node, scope, scriptFilePath, inputStream);
        SANITY_CHECK(wrapped_this);
        Task::registerTask(wrapped_this);
        retVal = wrapped_this;
    } while (false);
    return retVal;
}

void InstrumentScriptStreamTask::timeslice() {
    instrumentScript_yielding(shared_from_this(), fSuccess);
}

void InstrumentScriptStreamTask::handleCompletion() {
    if (fOutputStreamString) {
        fOutputStreamString->setAtEOF();
    }
    Task::handleCompletion();
}

void InstrumentScriptStreamTask::instrumentScript_yielding(const std::shared_ptr<Task>& task, bool& success) {
    struct LocalVariableState : OMFunctionState {
        int c = InputStream::NOTHING_YET; // the character peeked
        std::string statement;            // the statement being handed on
        bool isEvaluatorDue = false;      // let the evaluator run before reading on
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    YIELDING_CHECK(fScope);
    YIELDING_CHECK(fIOStreamPrompted);
    YIELDING_CHECK(fOutputStreamString);
    while (! fIsAtEnd || ! fFinishedStatements.empty()) {
        if (! fFinishedStatements.empty()) {
            frame->statement = std::move(fFinishedStatements.front());
            fFinishedStatements.pop_front();
            YIELDING_CALL(runStatement_yielding(task, success, frame->statement));
            YIELDING_CHECK(success);
        } else if (frame->isEvaluatorDue) {
            frame->isEvaluatorDue = false;
            YIELDING_WAIT(task->yield());
        } else {
            YIELDING_CALL(fIOStreamPrompted->getChar_yielding(task, frame->c));
            if (frame->c == InputStream::AT_END ||
                (frame->c == InputStream::NOTHING_YET && fIOStreamPrompted->atEOF())) {
                takeEnd(task);
            } else {
                // Nothing there yet, or a line end decided now: the evaluator gets its turn first.
                frame->isEvaluatorDue = frame->c == InputStream::NOTHING_YET || scanChar(task, frame->c);
            }
        }
    }
    success = fParensCountGlobal == 0;
    if (! success) {
        ScriptErrorLog::report("unbalanced parensCountGlobal");
        LOG_ERROR("unbalanced parensCountGlobal");
    }
    fOutputStreamString->setAtEOF();
    YIELDING_END;
}

void InstrumentScriptStreamTask::runStatement_yielding(const std::shared_ptr<Task>& task, bool& success,
                                                       const std::string& statement) {
    struct LocalVariableState : OMFunctionState {
        std::shared_ptr<OutputStream> outputStream; // where the evaluator reads
        std::string line;                           // the statement and its line end
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    {
        std::shared_ptr<IOStreamPrompted> ioStream =
            std::dynamic_pointer_cast<IOStreamPrompted>(task->getIOStream());
        YIELDING_CHECK(ioStream);
        std::shared_ptr<OutputStream> outputStream = ioStream->getOutputStream();
        YIELDING_CHECK(outputStream);
        frame->outputStream = outputStream;
    }
    // The line end is what makes the evaluator echo the value.
    frame->line = statement + "\n";
    YIELDING_CALL(frame->outputStream->write_yielding(task, success, frame->line));
    YIELDING_END;
}

bool InstrumentScriptStreamTask::isInputPending() {
    bool retVal = false;
    do {
        SANITY_CHECK(fIOStreamPrompted);
        // Any stream will do: standard input tells what has arrived, a string stream holds all of its
        // text until its end.
        std::shared_ptr<InputStream> inputStream = fIOStreamPrompted->getInputStream();
        SANITY_CHECK(inputStream);
        retVal = inputStream->getChar() >= 0;
    } while (false);
    return retVal;
}

bool InstrumentScriptStreamTask::scanChar(const std::shared_ptr<Task>& task, int c) {
    bool isDecided = false;
    switch (fScanState) {
    case SCAN_PLAIN:
        isDecided = scanPlain(task, c);
        break;
    case SCAN_SLASH:
        scanAfterSlash(task, c);
        break;
    case SCAN_BLOCK_COMMENT:
    case SCAN_BLOCK_COMMENT_STAR:
        scanBlockComment(c);
        break;
    case SCAN_DOUBLE_QUOTED:
        scanQuoted(c, '"', SCAN_DOUBLE_QUOTED_ESCAPE);
        break;
    case SCAN_SINGLE_QUOTED:
        scanQuoted(c, '\'', SCAN_SINGLE_QUOTED_ESCAPE);
        break;
    case SCAN_DOUBLE_QUOTED_ESCAPE:
    case SCAN_SINGLE_QUOTED_ESCAPE:
        fStatement.push_back(static_cast<char>(c));
        fScanState = fScanState == SCAN_DOUBLE_QUOTED_ESCAPE ? SCAN_DOUBLE_QUOTED : SCAN_SINGLE_QUOTED;
        consume();
        break;
    case SCAN_AFTER_DOUBLE_SLASH:
        scanAfterDoubleSlash(c);
        break;
    case SCAN_LINE_COMMENT:
        // The line end is left to plain text, which decides the statement.
        if (isLineEndChar(c)) {
            fScanState = SCAN_PLAIN;
        } else {
            consume();
        }
        break;
    case SCAN_SLASH_DIRECTIVE:
    case SCAN_HASH_DIRECTIVE:
        scanDirective(c);
        break;
    default:
        LOG_ERROR("unknown fScanState");
        fScanState = SCAN_PLAIN;
        break;
    }
    return isDecided;
}

// plain text: blanks and line ends wait; anything else belongs to the statement
bool InstrumentScriptStreamTask::scanPlain(const std::shared_ptr<Task>& task, int c) {
    if (isBlank(c)) {
        ++fPendingSpaces;
        consume();
        return false;
    }
    if (isLineEndChar(c)) {
        fPendingSpaces = 0;
        ++fPendingNewLines;
        consume();
        if (isInputPending()) {
            return false;
        }
        // Nothing follows yet: decide now rather than at the next keystroke.
        takePendingLineEnds();
        return true;
    }
    consume();
    if (c == '/') {
        fScanState = SCAN_SLASH;
    } else {
        takeRealChar(task, c);
    }
    return false;
}

// `/` then: `/` a line comment, `*` a block comment, else a plain slash
void InstrumentScriptStreamTask::scanAfterSlash(const std::shared_ptr<Task>& task, int c) {
    if (c == '/') {
        fScanState = SCAN_AFTER_DOUBLE_SLASH;
        consume();
    } else if (c == '*') {
        fScanState = SCAN_BLOCK_COMMENT;
        consume();
    } else {
        // The slash was plain text after all; `c` is left for plain text to read.
        fScanState = SCAN_PLAIN;
        takeRealChar(task, '/');
    }
}

// `/* ... */`: vanishes, counting as one blank
void InstrumentScriptStreamTask::scanBlockComment(int c) {
    if (fScanState == SCAN_BLOCK_COMMENT_STAR && c == '/') {
        fScanState = SCAN_PLAIN;
        ++fPendingSpaces;
    } else {
        fScanState = c == '*' ? SCAN_BLOCK_COMMENT_STAR : SCAN_BLOCK_COMMENT;
    }
    consume();
}

// "..." or '...': copied as it stands; a line end inside ends the line all the same
void InstrumentScriptStreamTask::scanQuoted(int c, char quote, ScanState escapeState) {
    consume();
    if (isLineEndChar(c)) {
        fScanState = SCAN_PLAIN;
        if (fParensCountGlobal == 0 && ! fStatement.empty()) {
            takeStatement();
        } else {
            fStatement.push_back('\n');
        }
        return;
    }
    fStatement.push_back(static_cast<char>(c));
    if (c == '\\') {
        fScanState = escapeState;
    } else if (c == quote) {
        fScanState = SCAN_PLAIN;
    }
}

// `//` then: blanks, `@` a directive, a line end an empty comment, anything else a line comment
void InstrumentScriptStreamTask::scanAfterDoubleSlash(int c) {
    if (isLineEndChar(c)) {
        fScanState = SCAN_PLAIN;
        return;
    }
    consume();
    if (c == '@') {
        takePendingLineEnds();
        fDirectiveText.clear();
        fScanState = SCAN_SLASH_DIRECTIVE;
    } else if (! isBlank(c)) {
        fScanState = SCAN_LINE_COMMENT;
    }
}

// the text of `//@...` or `#...` up to the line end
void InstrumentScriptStreamTask::scanDirective(int c) {
    consume();
    if (isLineEndChar(c)) {
        finishDirective();
    } else {
        fDirectiveText.push_back(static_cast<char>(c));
    }
}

void InstrumentScriptStreamTask::takeRealChar(const std::shared_ptr<Task>& task, int c) {
    takePendingLineEnds();
    if (c == '#') {
        fDirectiveText.clear();
        fScanState = SCAN_HASH_DIRECTIVE;
        return;
    }
    if (fIsYieldOn && c == ';' && fParensCountLocal == 0) {
        // Split here: the statement so far goes on without its semicolon.
        fPendingSpaces = 0;
        takeStatement();
        return;
    }
    // Runs of blanks shrink to one; none before the statement's first character.
    if (fPendingSpaces > 0 && ! fStatement.empty()) {
        fStatement.push_back(' ');
    }
    fPendingSpaces = 0;
    countBracket(task, c);
    fStatement.push_back(static_cast<char>(c));
    if (c == '"') {
        fScanState = SCAN_DOUBLE_QUOTED;
    } else if (c == '\'') {
        fScanState = SCAN_SINGLE_QUOTED;
    }
}

void InstrumentScriptStreamTask::takePendingLineEnds() {
    if (fPendingNewLines == 0) {
        return;
    }
    fPendingNewLines = 0;
    fPendingSpaces = 0;
    if (fStatement.empty()) {
        return;
    }
    if (fParensCountGlobal == 0) {
        takeStatement();
    } else {
        fStatement.push_back('\n');
    }
}

void InstrumentScriptStreamTask::countBracket(const std::shared_ptr<Task>& task, int c) {
    // The task's nest level is what a prompt shows; it never goes below 0 whatever the input holds.
    const bool opens = c == '{' || c == '(';
    const bool closes = c == '}' || c == ')';
    if (opens) {
        ++fParensCountGlobal;
        VERIFY(task->updateParsingNestLevel(1));
    } else if (closes) {
        --fParensCountGlobal;
        if (task->getParsingNestLevel() > 0) {
            VERIFY(task->updateParsingNestLevel(-1));
        }
    }
    if (c == '{') {
        fParensCountStack.push_back(fParensCountLocal);
        fParensCountLocal = 0;
    } else if (c == '}' && ! fParensCountStack.empty()) {
        fParensCountLocal = fParensCountStack.back();
        fParensCountStack.pop_back();
    } else if (c == '(') {
        ++fParensCountLocal;
    } else if (c == ')') {
        --fParensCountLocal;
    }
}

void InstrumentScriptStreamTask::finishDirective() {
    const bool isSlashDirective = fScanState == SCAN_SLASH_DIRECTIVE;
    fScanState = SCAN_PLAIN;
    const std::string directive = Utils::toLower(Utils::trim(fDirectiveText));
    if (directive == "yieldon") {
        fIsYieldOn = true;
    } else if (directive == "yieldoff") {
        fIsYieldOn = false;
    } else {
        // For the evaluator to see, as it was written.
        if (fPendingSpaces > 0 && ! fStatement.empty()) {
            fStatement.push_back(' ');
        }
        fStatement += (isSlashDirective ? "//@" : "#") + fDirectiveText;
    }
    fPendingSpaces = 0;
    fDirectiveText.clear();
    if (fParensCountGlobal != 0) {
        fStatement.push_back('\n');
    } else if (! fStatement.empty()) {
        takeStatement();
    }
}

void InstrumentScriptStreamTask::takeEnd(const std::shared_ptr<Task>& task) {
    fIsAtEnd = true;
    if (fScanState == SCAN_SLASH_DIRECTIVE || fScanState == SCAN_HASH_DIRECTIVE) {
        finishDirective();
    } else if (fScanState == SCAN_SLASH) {
        takeRealChar(task, '/');
    }
    fScanState = SCAN_PLAIN;
    fPendingNewLines = 0;
    if (fParensCountGlobal == 0 && ! fStatement.empty()) {
        takeStatement();
    }
}

void InstrumentScriptStreamTask::takeStatement() {
    if (! fStatement.empty()) {
        fFinishedStatements.push_back(std::move(fStatement));
    }
    fStatement.clear();
}

void InstrumentScriptStreamTask::consume() {
    VERIFY(fIOStreamPrompted->next());
}

} // namespace Brw
