#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// The accessor: node-less and default accessors, the three shapes of the setters and getters, what
// setters make on the way, the text forms of every kind, equality and hash.
class AccessorTest : public Test {
public:
    AccessorTest() : Test("AccessorTest") {}
    std::string getClassTypeName() const override { return "OMAccessor"; }
    bool test() override;

private:
    bool testDefaultAndNodeless();
    bool testSettersByIndexAndOnTheNode();
    bool testSettersByPath();
    bool testGetters();
    bool testTextForms();
    bool testEqualityAndHash();
};

} // namespace Brw
