#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// Events fired through a source to its listeners, the checks of attach, detach and firing, and events
// through the serializer and back.
class EventTest : public Test {
public:
    EventTest() : Test("EventTest") {}

    std::string getClassTypeName() const override;
    bool test() override;

private:
    static bool testFiringReachesListeners();
    static bool testListenerThatSkipsTheBase();
    static bool testAttachAndDetachChecks();
    static bool testEventRoundTrip();
    static bool testNestedPayloads();
};

} // namespace Brw
