#include "BrwTask/BrwParseAndEvalStreamTask.h"

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwParser/BrwOMStored.h"

namespace Brw {

std::shared_ptr<Task> ParseAndEvalStreamTask::factory(const std::shared_ptr<OMStored>& node,
                                                      const std::shared_ptr<OMScope>& scope,
                                                      const std::shared_ptr<InputStream>& stream) {
    std::shared_ptr<Task> retVal;
    do {
        auto wrapped_this = std::make_shared<ParseAndEvalStreamTask>(node, scope, stream);
        SANITY_CHECK(wrapped_this);
        Task::registerTask(wrapped_this);
        retVal = wrapped_this;
    } while (false);
    return retVal;
}

void ParseAndEvalStreamTask::timeslice() {
    fNode->parseAndEvalStream_yielding(shared_from_this(), fSuccess, fScope);
}

void ParseAndEvalStreamTask::exit() {
    Task::exit();
    do {
        ASSIGN_TYPED(InternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        internalCoordinator->terminate();
    } while (false);
}

} // namespace Brw
