#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// Messages: how they are made, compared, printed and sent through the serializer.
class MessageTest : public Test {
public:
    MessageTest() : Test("MessageTest") {}
    std::string getClassTypeName() const override { return "Message"; }
    bool test() override;

private:
    bool testMakingAMessage();
    bool testEqualityInItsFourCases();
    bool testMessagesTravelUnchanged();
    bool testTextForPeopleAndTheIPCLog();
};

} // namespace Brw
