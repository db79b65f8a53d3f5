#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// The tree of services below the internal coordinator: parents and children, numbers among namesakes,
// GUIDs handed out on request, and the time slice that carries events and the walk down the tree.
class ServiceTest : public Test {
public:
    ServiceTest() : Test("ServiceTest") {}
    std::string getClassTypeName() const override { return "Service_abstract"; }
    bool test() override;

private:
    bool testNamesakesAreNumberedByRank();
    bool testParentsAndChildren();
    bool testGUIDsAreHandedOutOnRequest();
    bool testEventsArriveInTheNextSlice();
    bool testIdlenessAndMessages();
};

} // namespace Brw
