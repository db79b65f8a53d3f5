#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "BrwTask/BrwTask.h"

namespace Brw {

class IOStreamPrompted;
class OMScope;
class OMStored;
class OutputStreamString;

// The first stage of the standard-input pipeline: reads raw script text, strips comments, shrinks runs of
// whitespace to one blank, joins the lines of one statement and writes each finished statement as one
// line to the output side of its stream, where the evaluator task reads it. A statement ends at a line
// end outside every `(` and `{`: counting, not parsing, so that a person's statement runs as soon as its
// line is complete.
class InstrumentScriptStreamTask : public Task {
public:
    static constexpr const char* TYPENAME = "InstrumentScriptStreamTask";

    // The scan states: what the characters read so far have opened.
    enum ScanState : int32_t {
        SCAN_PLAIN = 0,                // plain text
        SCAN_SLASH = 1,                // after `/`: a comment or a plain slash
        SCAN_BLOCK_COMMENT = 2,        // inside `/* */`
        SCAN_DOUBLE_QUOTED = 3,        // inside "..."
        SCAN_DOUBLE_QUOTED_ESCAPE = 4, // after `\` inside "..."
        SCAN_SINGLE_QUOTED = 5,        // inside '...'
        SCAN_SINGLE_QUOTED_ESCAPE = 6, // after `\` inside '...'
        SCAN_AFTER_DOUBLE_SLASH = 7,   // after `//`: a line comment or a `//@` directive
        SCAN_BLOCK_COMMENT_STAR = 8,   // after `*` inside `/* */`
        SCAN_LINE_COMMENT = 9,         // inside `// ...`
        SCAN_SLASH_DIRECTIVE = 10,     // the text of a `//@` directive
        SCAN_HASH_DIRECTIVE = 11,      // the text of a `#` directive
    };

    // `stream` should be an IOStreamPrompted whose input side is standard input or a string stream and
    // whose output side is an OutputStreamString.
    InstrumentScriptStreamTask(const std::shared_ptr<OMStored>& node, const std::shared_ptr<OMScope>& scope,
                               const std::string& scriptFilePath, const std::shared_ptr<InputStream>& stream);

    static std::shared_ptr<Task> factory(const std::shared_ptr<OMStored>& node,
                                         const std::shared_ptr<OMScope>& scope,
                                         const std::string& scriptFilePath,
                                         std::shared_ptr<InputStream> inputStream);

    void timeslice() override;
    // Whatever ends the task also ends the pipeline's text, so that the evaluator can't wait for ever.
    void handleCompletion() override;

    // Reads the stream to its end; `success` is false for unbalanced brackets at the end.
    void instrumentScript_yielding(const std::shared_ptr<Task>& task, bool& success);
    // Hands one statement on: writes it and a line end to the output side of the task's stream.
    void runStatement_yielding(const std::shared_ptr<Task>& task, bool& success,
                               const std::string& statement);
    // True when the input side already holds the next character, so that a line end need not be decided
    // yet. The character stays buffered in the stream.
    bool isInputPending();

    const std::string& getScriptFilePath() const { return fScriptFilePath; }
    bool isYieldOn() const { return fIsYieldOn; }
    bool getSuccess() const { return fSuccess; }

private:
    // Takes the peeked character `c` in the current state, consuming it unless another state is to see
    // it. True when a line end was decided without waiting for the next character.
    bool scanChar(const std::shared_ptr<Task>& task, int c);
    bool scanPlain(const std::shared_ptr<Task>& task, int c);
    void scanAfterSlash(const std::shared_ptr<Task>& task, int c);
    void scanBlockComment(int c);
    void scanQuoted(int c, char quote, ScanState escapeState);
    void scanAfterDoubleSlash(int c);
    void scanDirective(int c);
    // A character that belongs to the statement arrives in plain text: pending line ends and blanks are
    // settled first, then brackets are counted and the character copied.
    void takeRealChar(const std::shared_ptr<Task>& task, int c);
    // Settles the line ends seen since the last character: at depth 0 they end the statement, deeper
    // they become one line feed.
    void takePendingLineEnds();
    void countBracket(const std::shared_ptr<Task>& task, int c);
    // A directive line is complete: `yieldon` and `yieldoff` switch the splitting, anything else goes on
    // to the evaluator as written.
    void finishDirective();
    // The input has ended: what is left is settled.
    void takeEnd(const std::shared_ptr<Task>& task);
    // The statement collected so far is finished and queued for the evaluator.
    void takeStatement();
    void consume();

    std::shared_ptr<OMStored> fNode;                     // node given at creation
    std::shared_ptr<OMScope> fScope;                     // parser scope
    std::string fScriptFilePath;                         // path given at creation, empty for standard input
    std::string fStatement;                              // the statement being collected
    std::deque<std::string> fFinishedStatements;         // statements not yet handed on, oldest first
    std::shared_ptr<IOStreamPrompted> fIOStreamPrompted; // this task's stream
    std::shared_ptr<OutputStreamString> fOutputStreamString; // the stream's output side: the pipeline's text
    bool fIsYieldOn = false;                                 // split at `;` within the current brace level
    std::string fDirectiveText;                              // the text of a directive line
    int32_t fParensCountGlobal = 0;                          // open `(` and `{` in all
    int32_t fParensCountLocal = 0;                           // open `(` within the current brace level
    std::vector<int> fParensCountStack;                      // saved fParensCountLocal per open `{`
    int32_t fPendingNewLines = 0;                            // line ends seen and not yet copied
    int32_t fPendingSpaces = 0;                              // blanks seen and not yet copied
    int32_t fScanState = SCAN_PLAIN;                         // one of ScanState
    bool fIsAtEnd = false;                                   // end of input reached
    bool fSuccess = false;                                   // the top-level function's result
};

} // namespace Brw
