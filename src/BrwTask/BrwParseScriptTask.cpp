#include "BrwTask/BrwParseScriptTask.h"

#include "BrwLogger/BrwCheck.h"
#include "BrwParser/BrwIOStreamPrompted.h"
#include "BrwParser/BrwInputStreamString.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwParser/BrwOutputStreamString.h"
#include "BrwTask/BrwInstrumentScriptStreamTask.h"

namespace Brw {

namespace {

// The standard-input mode shows no prompt, and neither does a session: its output is values only.
void silencePrompts(IOStreamPrompted& stream) {
    stream.setPromptNode(OMStored::factory(std::string()));
    stream.setContinuationPromptNode(OMStored::factory(std::string()));
}

} // namespace

std::shared_ptr<ParseScriptTask> ParseScriptTask::factory(const std::string& script,
                                                          const std::string& initialOutput,
                                                          const std::shared_ptr<OMScope>& callerScope) {
    std::shared_ptr<ParseScriptTask> retVal;
    do {
        SANITY_CHECK(callerScope);
        auto inputStreamString = std::make_shared<InputStreamString>(script);
        SANITY_CHECK(inputStreamString);
        // The whole text is there: its end is the end of input.
        inputStreamString->setAtEOF();
        auto statementStream = std::make_shared<OutputStreamString>();
        SANITY_CHECK(statementStream);
        auto outputStreamString = std::make_shared<OutputStreamString>();
        SANITY_CHECK(outputStreamString);
        auto rawIOStream = std::make_shared<IOStreamPrompted>(inputStreamString, statementStream);
        auto statementIOStream = std::make_shared<IOStreamPrompted>(statementStream, outputStreamString);
        silencePrompts(*rawIOStream);
        silencePrompts(*statementIOStream);
        std::shared_ptr<OMScope> parserScope = OMScope::factory(callerScope, OMScope::READS_PARENT);
        SANITY_CHECK(parserScope);
        std::shared_ptr<OMStored> node = OMStored::undefinedFactory();
        auto wrapped_this = std::make_shared<ParseScriptTask>(node, parserScope, statementIOStream,
                                                              outputStreamString, initialOutput);
        SANITY_CHECK(wrapped_this);
        std::shared_ptr<Task> instrumentScriptStreamTask =
            InstrumentScriptStreamTask::factory(node, parserScope, "", rawIOStream);
        SANITY_CHECK(instrumentScriptStreamTask);
        Task::registerTask(wrapped_this);
        wrapped_this->registerChildTask(instrumentScriptStreamTask);
        wrapped_this->fInstrumenter = instrumentScriptStreamTask;
        retVal = wrapped_this;
    } while (false);
    return retVal;
}

bool ParseScriptTask::start() {
    bool retVal = false;
    do {
        SANITY_CHECK(fInstrumenter);
        SANITY_CHECK(Task::startTask(shared_from_this()));
        SANITY_CHECK(Task::startTask(fInstrumenter));
        retVal = true;
    } while (false);
    return retVal;
}

const std::string& ParseScriptTask::getOutput() {
    if (fOutputStream) {
        for (int c = fOutputStream->getChar(); c >= 0; c = fOutputStream->getChar()) {
            fOutputText.push_back(static_cast<char>(c));
            fOutputStream->next();
        }
    }
    return fOutputText;
}

void ParseScriptTask::timeslice() {
    fNode->parseAndEvalStream_yielding(shared_from_this(), fSuccess, fScope);
}

} // namespace Brw
