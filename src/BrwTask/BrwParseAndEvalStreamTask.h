#pragma once

#include <memory>

#include "BrwTask/BrwTask.h"

namespace Brw {

class OMScope;
class OMStored;

// Reads its stream statement by statement and evaluates each: the evaluator of a console session and of
// the standard-input pipeline. Its end ends the process.
class ParseAndEvalStreamTask : public Task {
public:
    static constexpr const char* TYPENAME = "ParseAndEvalStreamTask";

    ParseAndEvalStreamTask(const std::shared_ptr<OMStored>& node, const std::shared_ptr<OMScope>& scope,
                           const std::shared_ptr<InputStream>& stream)
        : Task(TYPENAME, NO_TIMEOUT, stream), fNode(node), fScope(scope) {}

    // A null stream makes the task use the process's input stream, prompted.
    static std::shared_ptr<Task> factory(const std::shared_ptr<OMStored>& node,
                                         const std::shared_ptr<OMScope>& scope,
                                         const std::shared_ptr<InputStream>& stream);

    void timeslice() override;
    // Ends the task and, with it, the process.
    void exit() override;

private:
    std::shared_ptr<OMStored> fNode; // holds the value of the last statement
    std::shared_ptr<OMScope> fScope; // where statements run
    bool fSuccess = false;           // the stream was read to its end
};

} // namespace Brw
