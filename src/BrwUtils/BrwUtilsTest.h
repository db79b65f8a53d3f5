#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// The string and number helpers: wildcards, the escape encodings and their round trips, splitting,
// trimming and the conversions.
class UtilsTest : public Test {
public:
    UtilsTest() : Test("UtilsTest") {}

    std::string getClassTypeName() const override { return Utils::TYPENAME; }
    bool test() override;

private:
    static bool testWildCards();
    static bool testNames();
    static bool testByteEscapes();
    static bool testWideEscapes();
    static bool testBrokenUtf8();
    static bool testLineEscapes();
    static bool testSplitting();
    static bool testTrimAndReplace();
    static bool testConversions();
};

} // namespace Brw
