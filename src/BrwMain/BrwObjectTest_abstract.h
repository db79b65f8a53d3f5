#pragma once

#include "BrwMain/BrwClassTest.h"

namespace Brw {

// The common checks of every runtime class: its factory works, and an object of it is registered by ID
// and GUID and found again through both.
class ObjectTest_abstract : public ClassTest {
public:
    using ClassTest::ClassTest;

    // Makes an object through the class's registered factory and checks it.
    bool classTest() override;
    bool objectTest(const std::shared_ptr<IObject>& object) override;

protected:
    // The object that classTest checks; by default one made through the factory table by type name.
    virtual std::shared_ptr<IObject> makeTestObject();
};

} // namespace Brw
