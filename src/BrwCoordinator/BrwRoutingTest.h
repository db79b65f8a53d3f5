#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// The router inside one process and the services every coordinator has: delivery by address, what a walk
// queues waits for the next, messages to nowhere, messages from pipes and from the gateway, the
// coordinator's idleness on the way out, and the null, ping and log services.
class RoutingTest : public Test {
public:
    RoutingTest() : Test("RoutingTest") {}
    std::string getClassTypeName() const override { return "InternalCoordinator"; }
    bool test() override;

private:
    bool testSimpleServices();
    bool testDeliveryAndTheNextWalk();
    bool testMessagesFromOutside();
    bool testMessagesLeavingTheProcess();
    bool testIdlenessOnTheWayOut();
};

} // namespace Brw
