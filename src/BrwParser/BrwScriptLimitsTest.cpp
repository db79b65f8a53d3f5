#include "BrwParser/BrwScriptLimitsTest.h"

#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwScriptLimits.h"
#include "BrwTask/BrwSessionEvaluator.h"

namespace Brw {

namespace {

constexpr uint64_t TEST_TEXT_BYTES = 1000;
constexpr uint64_t TEST_CONTAINER_ELEMENTS = 100;

const std::string kTextTooLong = "text too long: more than 1000 bytes";
const std::string kTooManyElements = "too many elements: more than 100";

// What a session echoes for `text` in a scope of its own.
std::string echoed(const std::string& text) {
    return SessionEvaluator::evaluate(text, OMScope::factory(nullptr, OMScope::READS_PARENT));
}

std::string repeated(const std::string& piece, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += piece;
    }
    return text;
}

} // namespace

bool ScriptLimitsTest::setup() {
    ScriptLimits::fTextBytes = TEST_TEXT_BYTES;
    ScriptLimits::fContainerElements = TEST_CONTAINER_ELEMENTS;
    fScriptErrors = std::make_unique<ScriptErrorCapture>();
    return fScriptErrors->isCapturing();
}

bool ScriptLimitsTest::teardown() {
    fScriptErrors.reset();
    ScriptLimits::fTextBytes = ScriptLimits::TEXT_BYTES;
    ScriptLimits::fContainerElements = ScriptLimits::CONTAINER_ELEMENTS;
    return true;
}

bool ScriptLimitsTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = testTextsGrowingPastTheLimit();
    allOK = testTextsMadeByBuiltinsAndLiterals() && allOK;
    allOK = testContainersGrowingPastTheLimit() && allOK;
    return allOK;
}

bool ScriptLimitsTest::testTextsGrowingPastTheLimit() {
    bool retVal = false;
    do {
        // A text doubled in place: the loop runs to its end, and the text is an Error from the step that
        // passed the limit on, which no later step reports again.
        uint64_t before = ScriptErrorLog::getReportCount();
        CHECK_EQUAL(echoed("s = \"x\"; i = 0; while (i < 20) { s = s + s; i++ }; [typeof(s), i]\n"),
                    "[\"error\", 20]\n");
        CHECK_EQUAL(fScriptErrors->errorsSince(before), kTextTooLong);
        // Into a new text, in a function and in a sum of three; up to the limit is fine.
        before = ScriptErrorLog::getReportCount();
        CHECK_EQUAL(echoed("function twice(t) { return t + t }; h = \"0123456789\";\n"
                           "while (length(h) < 300) { h = h + h }; 0;\n"
                           "[length(twice(h)), typeof(twice(twice(h))), typeof(h + h + h + h)]\n"),
                    "[640, \"error\", \"error\"]\n");
        CHECK_EQUAL(fScriptErrors->errorsSince(before), kTextTooLong + " | " + kTextTooLong);
        retVal = true;
    } while (false);
    return retVal;
}

bool ScriptLimitsTest::testTextsMadeByBuiltinsAndLiterals() {
    bool retVal = false;
    do {
        const std::string longText(600, 'a');
        // A control character takes four bytes when quoted: 300 of them take more than the limit.
        const std::string controls = repeated("\\x01", 300);
        uint64_t before = ScriptErrorLog::getReportCount();
        CHECK_EQUAL(echoed("t = \"" + longText + "\"; a = [t, t]; c = \"" + controls + "\";\n" +
                           "[typeof(stringify(a)), typeof(toString(a)), typeof(enquote(c))]\n" +
                           "[length(stringify([t])), length(enquote(t))]\n"),
                    "[\"error\", \"error\", \"error\"]\n[604, 602]\n");
        CHECK_EQUAL(fScriptErrors->errorsSince(before),
                    kTextTooLong + " | " + kTextTooLong + " | " + kTextTooLong);
        // A literal past the limit is a parse error of its statement; the next one runs.
        before = ScriptErrorLog::getReportCount();
        CHECK_EQUAL(echoed("x = \"" + longText + longText + "\"\n7\n"), "7\n");
        SANITY_CHECK(fScriptErrors->errorsSince(before).starts_with(kTextTooLong));
        retVal = true;
    } while (false);
    return retVal;
}

bool ScriptLimitsTest::testContainersGrowingPastTheLimit() {
    bool retVal = false;
    do {
        // push stops at the limit; the loop goes on.
        uint64_t before = ScriptErrorLog::getReportCount();
        CHECK_EQUAL(echoed("a = []; i = 0; while (i < 101) { push(a, i); i++ }; [size(a), i]\n"),
                    "[100, 101]\n");
        CHECK_EQUAL(fScriptErrors->errorsSince(before), kTooManyElements + " | push failed");
        // An element past the limit, by a literal index and by a computed one, leaves the array as it was;
        // one within it is written.
        before = ScriptErrorLog::getReportCount();
        CHECK_EQUAL(echoed("b = []; b[100] = 1; k = 1000000000000; b[k] = 2; b[99] = 3;\n[size(b), b[99]]\n"),
                    "[100, 3]\n");
        SANITY_CHECK(fScriptErrors->errorsSince(before).starts_with(kTooManyElements));
        // A map takes no new key past the limit, by a quick loop's computed key too, but an existing key
        // is still written.
        before = ScriptErrorLog::getReportCount();
        CHECK_EQUAL(echoed("m = {}; i = 0; while (i < 150) { m[\"k\" + i] = i; i++ }; 0;\n"
                           "m.k0 = \"again\"; m.k100 = 1;\n[size(m), m.k0, m.k99]\n"),
                    "[100, \"again\", 99]\n");
        SANITY_CHECK(fScriptErrors->errorsSince(before).starts_with(kTooManyElements));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
