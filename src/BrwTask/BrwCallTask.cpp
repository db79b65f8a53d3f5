#include "BrwTask/BrwCallTask.h"

#include "BrwLogger/BrwCheck.h"

namespace Brw {

std::shared_ptr<CallTask> CallTask::factory(const char* name, Body body, int64_t timeoutMicroseconds,
                                            const std::shared_ptr<InputStream>& stream) {
    std::shared_ptr<CallTask> retVal;
    do {
        auto wrapped_this = std::make_shared<CallTask>(name, std::move(body), timeoutMicroseconds, stream);
        SANITY_CHECK(wrapped_this);
        Task::registerTask(wrapped_this);
        retVal = wrapped_this;
    } while (false);
    return retVal;
}

bool CallTask::call(const char* name, Body body, int64_t timeoutMicroseconds,
                    const std::shared_ptr<InputStream>& stream) {
    bool retVal = false;
    do {
        std::shared_ptr<CallTask> callTask;
        ASSIGN(callTask, factory(name, std::move(body), timeoutMicroseconds, stream));
        SANITY_CHECK(callTask->runToCompletion());
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
