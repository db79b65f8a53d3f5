#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// The scheduler and the task life cycle, under a test clock: budgets, order, time-outs and nesting.
class TaskTest : public Test {
public:
    TaskTest() : Test("TaskTest") {}
    std::string getClassTypeName() const override { return "Task"; }
    bool setup() override;
    bool teardown() override;
    bool test() override;

private:
    bool testEmptyListAndNegativeBudget();
    bool testBudgetSharingLastStartedFirst();
    bool testOverrunCostsNothingButTheRest();
    bool testTimeouts();
    bool testSweepOnlyAtDepthZero();
    bool testNestedRunSkipsRecentAndHoldingTasks();
    bool testRunToCompletionServesOthers();
    bool testChildrenAndNames();
    bool testInteractionLevelsAndNestLevel();
};

} // namespace Brw
