#include "BrwTask/BrwSessionEvaluator.h"

#include "BrwLogger/BrwCheck.h"
#include "BrwParser/BrwIOStreamPrompted.h"
#include "BrwParser/BrwInputStreamString.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwParser/BrwOutputStreamString.h"
#include "BrwTask/BrwCallTask.h"

namespace Brw {

std::string SessionEvaluator::evaluate(const std::string& text, const std::shared_ptr<OMScope>& scope,
                                       int64_t timeoutMicroseconds) {
    auto input = std::make_shared<InputStreamString>(text);
    input->setAtEOF();
    auto output = std::make_shared<OutputStreamString>();
    auto stream = std::make_shared<IOStreamPrompted>(input, output);
    stream->setPromptNode(OMStored::factory(""));
    stream->setContinuationPromptNode(OMStored::factory(""));
    auto node = OMStored::undefinedFactory();
    VERIFY(CallTask::call(
        "evaluate",
        [&](const std::shared_ptr<Task>& task) {
            bool success = false;
            node->parseAndEvalFrom_yielding(task, success, scope, stream);
        },
        timeoutMicroseconds, stream));
    return output->getText();
}

} // namespace Brw
