#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// The lexical rules of the stored node: the token table, number literals in every base, keywords, string
// literals, here-documents and comments. Each lexical case runs twice, over a string stream and over a
// stream that keeps its reader waiting before every character, and must come out the same.
class LiteralsTest : public Test {
public:
    LiteralsTest() : Test("LiteralsTest") {}
    std::string getClassTypeName() const override { return "OMStored"; }
    bool setup() override;
    bool teardown() override;
    bool test() override;

private:
    bool testTokenTable();
    bool testNumbers();
    bool testNumberFromText();
    bool testKeywordsAndChars();
    bool testStrings();
    bool testHereDocuments();
    bool testComments();

    int64_t fSavedSleepMicroseconds = 0; // the event loop's sleep, set to 0 for the test
};

} // namespace Brw
