#pragma once

#include <memory>
#include <string>

#include "BrwTask/BrwTask.h"

namespace Brw {

class OMScope;
class OMStored;
class OutputStreamString;

// One session of script text run the way the standard-input mode runs standard input: an instrumenter, a
// child of this task, turns the raw text into statements, and this task evaluates them in a scope of its
// own below the caller's, echoing the values of statements not closed by `;` into an output text. Unlike
// the process's own evaluator, its end ends only the session.
class ParseScriptTask : public Task {
public:
    static constexpr const char* TYPENAME = "ParseScriptTask";

    ParseScriptTask(const std::shared_ptr<OMStored>& node, const std::shared_ptr<OMScope>& parserScope,
                    const std::shared_ptr<InputStream>& statementStream,
                    const std::shared_ptr<OutputStreamString>& outputStream, const std::string& initialOutput)
        : Task(TYPENAME, NO_TIMEOUT, statementStream), fNode(node), fScope(parserScope),
          fOutputStream(outputStream), fOutputText(initialOutput) {}

    // A session over `script` whose statements see the variables of `callerScope`; its output text starts
    // with `initialOutput`. Registered, not started.
    static std::shared_ptr<ParseScriptTask> factory(const std::string& script,
                                                    const std::string& initialOutput,
                                                    const std::shared_ptr<OMScope>& callerScope);

    // Starts the evaluator and then the instrumenter: the active list runs last-first, so the instrumenter
    // hands on its statements before the evaluator looks for them in each turn.
    [[nodiscard]] bool start();
    // Ends the session at the end of its next slice, and its instrumenter with it.
    void stop() { exit(); }
    // The initial text and every value echoed so far.
    const std::string& getOutput();
    const std::shared_ptr<Task>& getInstrumenter() const { return fInstrumenter; }

    void timeslice() override;

private:
    std::shared_ptr<OMStored> fNode;                   // holds the value of the last statement
    std::shared_ptr<OMScope> fScope;                   // where the statements run
    std::shared_ptr<Task> fInstrumenter;               // the first stage, a child of this task
    std::shared_ptr<OutputStreamString> fOutputStream; // where the values are echoed
    std::string fOutputText;                           // what has been taken out of fOutputStream so far
    bool fSuccess = false;                             // the statements were read to their end
};

} // namespace Brw
