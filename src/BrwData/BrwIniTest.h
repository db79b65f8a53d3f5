#pragma once

#include "BrwData/BrwIni.h"
#include "BrwMain/BrwTest.h"

namespace Brw {

// Ini text: values quoted and not, placeholders with lists and cycles, the platform's keys, the text
// written back, linked Ini objects, and files read, changed and saved.
class IniTest : public Test {
public:
    IniTest() : Test("IniTest") {}
    std::string getClassTypeName() const override { return Ini::TYPENAME; }
    bool test() override;

private:
    static bool testValues();
    static bool testPlaceholders();
    static bool testWritingBack();
    static bool testLinkedInis();
    static bool testFiles();
};

} // namespace Brw
