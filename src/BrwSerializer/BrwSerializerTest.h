#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// The line form of SimpleSerializer: every byte through the escapes, line ends, a stream that grows while
// it is read, GUID lines, the checks of the two runs, and random byte strings that must come back equal.
class SerializerTest : public Test {
public:
    SerializerTest() : Test("SerializerTest") {}

    std::string getClassTypeName() const override;
    bool test() override;

private:
    static bool testEveryByteThroughTheEscapes();
    static bool testLineEndsAndUnknownEscapes();
    static bool testGrowingStream();
    static bool testLeftOverData();
    static bool testGUIDLines();
    static bool testRunChecks();
    static bool testRandomStringsComeBackEqual();
};

} // namespace Brw
