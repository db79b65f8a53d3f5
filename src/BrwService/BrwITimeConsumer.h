#pragma once

#include <memory>

#include "BrwObject/BrwIObject.h"

namespace Brw {

class Task;

// Something that gets a share of the thread: a resumable function called once in every round.
class ITimeConsumer : public virtual IObject {
public:
    virtual void timeslice_yielding(const std::shared_ptr<Task>& task, bool& completed) = 0;
};

} // namespace Brw
