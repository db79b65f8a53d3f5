#pragma once

#include "BrwMain/BrwObjectTest_abstract.h"

namespace Brw {

// The coordinator as a runtime class, its idle back-off and its event loop.
class InternalCoordinatorTest : public ObjectTest_abstract {
public:
    InternalCoordinatorTest() : ObjectTest_abstract("InternalCoordinatorTest") {}
    std::string getClassTypeName() const override { return "InternalCoordinator"; }
    bool classTest() override;

private:
    bool testIdleBackoff();
    bool testEventLoopServesStartedTasks();
    bool testCommandLine();
};

} // namespace Brw
