#pragma once

#include <memory>
#include <string>

#include "BrwMain/BrwTest.h"

namespace Brw {

class IObject;

// The test of one runtime class, found by the class's type name so that any object can check itself.
class ClassTest : public Test {
public:
    using Test::Test;

    // The checks of the class itself.
    virtual bool classTest() = 0;
    // The checks that any object of the class must pass.
    virtual bool objectTest(const std::shared_ptr<IObject>& object) = 0;
    bool test() override;

    [[nodiscard]] static bool registerClassTest(const std::shared_ptr<ClassTest>& test);
    static std::shared_ptr<ClassTest> getClassTest(const std::string& classTypeName);
    // Empties the table: part of the process's teardown.
    static void deregisterAll();
};

} // namespace Brw
