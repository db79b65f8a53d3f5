#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// The character streams: positions across discarded text, a pipe that never blocks, the wait of a
// missing character, and the prompted stream's lines, prompts and echo.
class StreamTest : public Test {
public:
    StreamTest() : Test("StreamTest") {}
    std::string getClassTypeName() const override { return "InputStream"; }
    bool setup() override;
    bool teardown() override;
    bool test() override;

private:
    bool testStringPositionsAcrossDiscardedText();
    bool testStdInPipeNeverBlocks();
    bool testMissingCharacterWaitsOrEnds();
    bool testPromptedHandsOutWholeLines();
    bool testPromptedBackspaceAndEcho();
    bool testPromptWaitsForIdleConsumer();
    bool testPromptNodeOrConfiguredPrompt();

    int64_t fSavedSleepMicroseconds = 0; // the event loop's sleep, set to 0 for the test
    std::string fSavedPrompt;            // the configured prompts, replaced for the test
    std::string fSavedPromptContinuation;
};

} // namespace Brw
