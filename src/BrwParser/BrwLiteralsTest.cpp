#include "BrwParser/BrwLiteralsTest.h"

#include <cmath>
#include <functional>
#include <vector>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwParser/BrwInputStreamString.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwTask.h"

namespace Brw {

namespace {

using namespace std::string_literals;

// A stored node whose lexical helpers the test may call.
class LexingNode : public OMStored {
public:
    using OMStored::parseChars_yielding;
    using OMStored::parseComment_yielding;
    using OMStored::parseHereDocument_yielding;
    using OMStored::parseKeyword_yielding;
    using OMStored::parseString_yielding;
};

// A task whose body is whatever the test hands it.
class BodyTask : public Task {
public:
    using Body = std::function<void(const std::shared_ptr<Task>& task)>;

    explicit BodyTask(Body body) : Task("BodyTask", -2, nullptr), fBody(std::move(body)) {}

    static std::shared_ptr<BodyTask> factory(Body body) {
        auto task = std::make_shared<BodyTask>(std::move(body));
        Task::registerTask(task);
        return task;
    }

    void timeslice() override { fBody(shared_from_this()); }

private:
    Body fBody; // calls the function under test
};

// Characters typed by a person: before each one, the reader finds nothing a few times. Any position can
// be gone back to.
class SlowInputStream : public virtual InputStream {
public:
    SlowInputStream(std::string text, int gapPolls)
        : fText(std::move(text)), fGapPolls(gapPolls), fPollsLeft(gapPolls) {}

    bool next() override {
        if (fPos >= fText.size()) {
            return false;
        }
        ++fPos;
        fPollsLeft = fGapPolls;
        return true;
    }
    bool clear() override { return true; }
    int getChar() override {
        if (fPollsLeft > 0) {
            --fPollsLeft;
            return NOTHING_YET;
        }
        return fPos < fText.size() ? static_cast<unsigned char>(fText[fPos]) : AT_END;
    }
    uint64_t getPos() const override { return fPos; }
    bool setPos(uint64_t pos) override {
        if (pos > fText.size()) {
            return false;
        }
        fPos = pos;
        return true;
    }

private:
    std::string fText; // all that will arrive
    int fGapPolls;     // empty polls before each character
    int fPollsLeft;    // empty polls before the next character
    uint64_t fPos = 0; // next character
};

enum class Lexer { NUMBER, CHARS, KEYWORD, STRING, HERE_DOCUMENT, COMMENT };

// One text for one lexical helper, and what it must come to: "ok" or "fail", the error message, the
// node's value for the helpers that set one, and "@" the stream position after.
struct LexCase {
    Lexer lexer;
    std::string text;     // the stream's content
    std::string argument; // the characters or keyword wanted, or the opening quote
    int base;             // for numbers
    std::string expected; // the outcome, as describeOutcome gives it
};

std::string describeValue(const OMStored& node) {
    switch (node.getType()) {
    case OMType::NaN:
        return "NaN";
    case OMType::Int:
        return "Int " + std::to_string(node.getInt());
    case OMType::Float:
        return Utils::format("Float %.17g", node.getFloat());
    case OMType::String:
        return "String \"" + Utils::encodeString(node.getString()) + "\"";
    default:
        return "another type";
    }
}

// Runs the task's slices until it completes; the number of slices it took.
int runToEnd(const std::shared_ptr<Task>& task) {
    int slices = 0;
    while (! task->isTaskCompleted() && slices < 100000) {
        ++slices;
        if (! task->runTimeslice(1000000)) {
            break;
        }
    }
    return slices;
}

// Runs one case over a string stream or over a slow one; `slices` is how many slices the helper needed
// (0 for the plain number parse, which runs without a task).
std::string runCase(const LexCase& lexCase, bool isSlow, int& slices) {
    std::shared_ptr<InputStream> stream;
    if (isSlow) {
        stream = std::make_shared<SlowInputStream>(lexCase.text, 2);
    } else {
        auto stringStream = std::make_shared<InputStreamString>(lexCase.text);
        stringStream->setAtEOF();
        stream = stringStream;
    }
    if (lexCase.lexer == Lexer::COMMENT) {
        // The caller has read the '/' already.
        while (stream->getChar() == InputStream::NOTHING_YET) {
        }
        stream->next();
    }
    auto node = std::make_shared<LexingNode>();
    bool success = false;
    std::string errorMessage;
    slices = 0;
    bool isCompleted = true;
    size_t framesLeft = 0;
    if (lexCase.lexer == Lexer::NUMBER && ! isSlow) {
        success = node->parseNum(stream, lexCase.base);
    } else {
        auto task = BodyTask::factory([&](const std::shared_ptr<Task>& self) {
            switch (lexCase.lexer) {
            case Lexer::NUMBER:
                node->parseNum_yielding(self, success, stream, lexCase.base);
                break;
            case Lexer::CHARS:
                node->parseChars_yielding(self, success, stream, lexCase.argument);
                break;
            case Lexer::KEYWORD:
                node->parseKeyword_yielding(self, success, stream, lexCase.argument);
                break;
            case Lexer::STRING:
                node->parseString_yielding(self, success, errorMessage, stream, lexCase.argument[0]);
                break;
            case Lexer::HERE_DOCUMENT:
                node->parseHereDocument_yielding(self, success, errorMessage, stream);
                break;
            case Lexer::COMMENT:
                node->parseComment_yielding(self, success, errorMessage, stream);
                break;
            }
        });
        if (isSlow) {
            task->pushInteractionLevel(ASYNC_IO_ON);
        }
        slices = runToEnd(task);
        isCompleted = task->isTaskCompleted();
        framesLeft = task->getFunctionStateCount();
    }
    std::string outcome = success ? "ok" : "fail";
    if (! errorMessage.empty()) {
        outcome += ": " + errorMessage;
    }
    const bool hasValue = lexCase.lexer == Lexer::NUMBER || lexCase.lexer == Lexer::STRING ||
                          lexCase.lexer == Lexer::HERE_DOCUMENT;
    if (success && hasValue) {
        outcome += " " + describeValue(*node);
    }
    outcome += " @" + std::to_string(stream->getPos());
    if (! isCompleted || framesLeft != 0) {
        outcome += " (task not finished cleanly)";
    }
    return outcome;
}

// Runs every case over both streams; logs each one that differs from its expectation, or whose slow run
// differs from its plain run or did not wait.
bool runCases(const std::vector<LexCase>& cases) {
    bool allOK = true;
    for (const LexCase& lexCase : cases) {
        int plainSlices = 0;
        int slowSlices = 0;
        const std::string plain = runCase(lexCase, false, plainSlices);
        const std::string slow = runCase(lexCase, true, slowSlices);
        const std::string label = "'" + Utils::encodeString(lexCase.text) + "'";
        if (plain != lexCase.expected) {
            LOG_ERROR(Test::describeMismatch(label.c_str(), plain, lexCase.expected));
            allOK = false;
        }
        if (slow != plain) {
            LOG_ERROR(Test::describeMismatch((label + " over a slow stream").c_str(), slow, plain));
            allOK = false;
        }
        if (slowSlices <= 1) {
            LOG_ERROR("no wait over the slow stream for " + label);
            allOK = false;
        }
    }
    return allOK;
}

} // namespace

bool LiteralsTest::setup() {
    fSavedSleepMicroseconds = InternalCoordinator::fEventLoopSleepMicroseconds;
    InternalCoordinator::fEventLoopSleepMicroseconds = 0;
    return true;
}

bool LiteralsTest::teardown() {
    InternalCoordinator::fEventLoopSleepMicroseconds = fSavedSleepMicroseconds;
    return true;
}

bool LiteralsTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = true;
    allOK = testTokenTable() && allOK;
    allOK = testNumbers() && allOK;
    allOK = testNumberFromText() && allOK;
    allOK = testKeywordsAndChars() && allOK;
    allOK = testStrings() && allOK;
    allOK = testHereDocuments() && allOK;
    allOK = testComments() && allOK;
    return allOK;
}

bool LiteralsTest::testTokenTable() {
    bool retVal = false;
    do {
        // Every number but the free ones and _NO_TOKEN is a token whose text leads back to it.
        int tokenCount = 0;
        bool isRoundTrip = true;
        for (int32_t value = 0; value <= 67; ++value) {
            const auto token = static_cast<Token>(value);
            const std::string text = OMStored::getTokenStr(token);
            if (value == 29 || value == 57) {
                isRoundTrip = isRoundTrip && text.empty();
                continue;
            }
            ++tokenCount;
            isRoundTrip = isRoundTrip && ! text.empty() && OMStored::getToken(text) == token;
        }
        SANITY_CHECK(isRoundTrip);
        CHECK_EQUAL(tokenCount, 66);
        // The numbers are stored in expression trees: a shift would change saved scripts' meaning.
        CHECK_EQUAL(OMStored::getToken("abs"), Token::_abs);
        CHECK_EQUAL(OMStored::getToken("NaN"), Token::_NaN);
        CHECK_EQUAL(static_cast<int>(OMStored::getToken("null")), 30);
        CHECK_EQUAL(static_cast<int>(OMStored::getToken("parseFloat")), 34);
        CHECK_EQUAL(static_cast<int>(OMStored::getToken("toLowerCase")), 58);
        CHECK_EQUAL(static_cast<int>(OMStored::getToken("yield")), 67);
        // Case matters, and words of other languages are plain names.
        CHECK_EQUAL(OMStored::getToken("nan"), Token::_NO_TOKEN);
        CHECK_EQUAL(OMStored::getToken("Length"), Token::_NO_TOKEN);
        CHECK_EQUAL(OMStored::getToken("continue"), Token::_NO_TOKEN);
        CHECK_EQUAL(OMStored::getToken(""), Token::_NO_TOKEN);
        {
            LogLevelScope quiet(0);
            SANITY_CHECK(! OMStored::defineToken(Token::_break, "brk"));
            SANITY_CHECK(! OMStored::defineToken(static_cast<Token>(57), "while"));
        }
        CHECK_EQUAL(OMStored::getTokenStr(Token::_break), "break");
        CHECK_EQUAL(OMStored::getToken("brk"), Token::_NO_TOKEN);
        SANITY_CHECK(OMStored::initTokens());
        retVal = true;
    } while (false);
    return retVal;
}

bool LiteralsTest::testNumbers() {
    bool retVal = false;
    do {
        const Lexer N = Lexer::NUMBER;
        const std::vector<LexCase> cases = {
            // Script literals: decimal with fraction and exponent, or hexadecimal.
            {N, "0x1F", "", -3, "ok Int 31 @4"},
            {N, "0x", "", -3, "ok NaN @2"},
            {N, "0x;", "", -3, "ok NaN @2"},
            {N, "0x1.5", "", -3, "ok Int 1 @3"},
            {N, ".5", "", -3, "ok Float 0.5 @2"},
            {N, "5.", "", -3, "ok Int 5 @2"},
            {N, "1e", "", -3, "ok Int 1 @2"},
            {N, "1e3", "", -3, "ok Int 1000 @3"},
            {N, "123.45e5", "", -3, "ok Int 12345000 @8"},
            {N, "12abc", "", -3, "ok Int 12 @2"},
            {N, "007", "", -3, "ok Int 7 @3"},
            // NOTE: the scale is a product with an inexact power: 3 * (1 / 10) is not the double nearest
            // to 0.3, nor -12345 * (1 / 10^7) the one nearest to -0.0012345. 150 * (1 / 10) happens to be
            // exactly 15, which equals the integer result.
            {N, "0.3", "", -3, "ok Float 0.30000000000000004 @3"},
            {N, "-123.45E-5", "", -3, "ok Float -0.0012344999999999999 @10"},
            {N, "+0.45e-5", "", -3, "ok Float 4.5000000000000001e-06 @8"},
            {N, "1.50e1", "", -3, "ok Int 15 @6"},
            // Beyond 2^53 the integer is kept while the double, rounded at every digit, still agrees
            // with it; when it no longer does, or the integer wraps, the double is kept.
            {N, "9007199254740993", "", -3, "ok Int 9007199254740993 @16"},
            {N, "9223372036854775807", "", -3, "ok Float 9.2233720368547779e+18 @19"},
            {N, "18446744073709551617", "", -3, "ok Float 1.8446744073709552e+19 @20"},
            {N, "1e400", "", -3, "ok Float inf @5"},
            {N, "2e99999999999999999999", "", -3, "ok Float inf @22"},
            // No number at all.
            {N, "", "", -3, "ok NaN @0"},
            {N, "abc", "", -3, "ok NaN @0"},
            {N, "-", "", -3, "ok NaN @1"},
            {N, ".", "", -3, "ok NaN @1"},
            {N, "- 5", "", -3, "ok NaN @1"},
            // Integers, decimal or hexadecimal.
            {N, "0x1f;", "", -2, "ok Int 31 @4"},
            {N, "1.5", "", -2, "ok Int 1 @1"},
            {N, "-12e3", "", -2, "ok Int -12 @3"},
            // Decimal numbers: no prefix.
            {N, "  -42 ", "", -1, "ok Int -42 @5"},
            {N, "1.5e+2x", "", -1, "ok Int 150 @6"},
            {N, "0xff", "", -1, "ok Int 0 @1"},
            // Integers of a base.
            {N, "ff", "", 16, "ok Int 255 @2"},
            {N, "FF", "", 16, "ok Int 255 @2"},
            {N, "0xff", "", 16, "ok Int 255 @4"},
            {N, "9g", "", 16, "ok Int 9 @1"},
            {N, "0x", "", 16, "ok NaN @2"},
            {N, "1021", "", 2, "ok Int 2 @2"},
            {N, "zZ", "", 36, "ok Int 1295 @2"},
            {N, "0x10", "", 8, "ok Int 0 @1"},
        };
        SANITY_CHECK(runCases(cases));
        {
            LogLevelScope quiet(0);
            auto node = OMStored::undefinedFactory();
            auto stream = std::make_shared<InputStreamString>("12");
            SANITY_CHECK(! node->parseNum(stream, 1));
            SANITY_CHECK(! node->parseNum(stream, 37));
            SANITY_CHECK(! node->parseNum(nullptr, 10));
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool LiteralsTest::testNumberFromText() {
    bool retVal = false;
    do {
        CHECK_EQUAL(OMStored::numberFromText("12"), 12.0);
        CHECK_EQUAL(OMStored::numberFromText(" 0x1F"), 31.0);
        CHECK_EQUAL(OMStored::numberFromText("2.5e1 apples"), 25.0);
        SANITY_CHECK(std::isnan(OMStored::numberFromText("abc")));
        SANITY_CHECK(std::isnan(OMStored::numberFromText("")));
        SANITY_CHECK(std::isnan(OMStored::numberFromText("0x")));
        retVal = true;
    } while (false);
    return retVal;
}

bool LiteralsTest::testKeywordsAndChars() {
    bool retVal = false;
    do {
        const Lexer K = Lexer::KEYWORD;
        const Lexer C = Lexer::CHARS;
        const std::vector<LexCase> cases = {
            {K, "else{", "else", 0, "ok @4"},
            {K, "  \r\n\telse (", "else", 0, "ok @9"},
            {K, "else", "else", 0, "ok @4"},
            {K, "elsewhere", "else", 0, "fail @0"},
            {K, "else2", "else", 0, "fail @0"},
            {K, "else_x", "else", 0, "fail @0"},
            {K, "else$", "else", 0, "fail @0"},
            {K, " elif", "else", 0, "fail @0"},
            {C, " \t\n==x", "==", 0, "ok @5"},
            {C, "=x", "==", 0, "fail @0"},
            {C, " : ", ":", 0, "ok @2"},
            // Vertical tab and form feed are not whitespace.
            {C, "\v:", ":", 0, "fail @0"},
            {C, "\f:", ":", 0, "fail @0"},
            // Comments are the parser's business, not skipped here.
            {C, "/* c */:", ":", 0, "fail @0"},
        };
        SANITY_CHECK(runCases(cases));
        retVal = true;
    } while (false);
    return retVal;
}

bool LiteralsTest::testStrings() {
    bool retVal = false;
    do {
        const Lexer S = Lexer::STRING;
        // The escapes are decoded by the text utilities; here it matters that the whole raw text reaches
        // them.
        const auto decoded = [](const std::string& raw) {
            return Utils::encodeString(Utils::decodeString(raw));
        };
        const std::vector<LexCase> cases = {
            {S, "abc\"rest", "\"", 0, "ok String \"abc\" @4"},
            {S, "it's\"", "\"", 0, "ok String \"it's\" @5"},
            {S, "a\\tb\\x41\\u2192\"", "\"", 0, "ok String \"a\\tbA\\xE2\\x86\\x92\" @15"},
            {S, "it\\'s'", "'", 0, "ok String \"" + decoded("it\\'s") + "\" @6"},
            {S, "say \\\"hi\\\"\"", "\"", 0, "ok String \"" + decoded("say \\\"hi\\\"") + "\" @11"},
            {S, "back\\\\\"", "\"", 0, "ok String \"" + decoded("back\\\\") + "\" @7"},
            {S, "line1\nline2\"", "\"", 0, "ok String \"line1\\nline2\" @12"},
            {S, "\"", "\"", 0, "ok String \"\" @1"},
            {S, "ab\0cd\""s, "\"", 0, "fail: unexpected end of string in quoted string @2"},
            {S, "abc", "\"", 0, "fail: unexpected end of inputStream @3"},
            {S, "abc\\\"", "\"", 0, "fail: unexpected end of inputStream @5"},
        };
        SANITY_CHECK(runCases(cases));
        retVal = true;
    } while (false);
    return retVal;
}

bool LiteralsTest::testHereDocuments() {
    bool retVal = false;
    do {
        const Lexer H = Lexer::HERE_DOCUMENT;
        const std::vector<LexCase> cases = {
            {H, "EOT\nhello\nEOT;", "", 0, "ok String \"hello\" @13"},
            // The delimiter ends the text only as a whole word at the start of a line.
            {H, "EOT\nEOTX\nEOT", "", 0, "ok String \"EOTX\" @12"},
            {H, "EOT\n  EOT\nxEOT\nEOT_1\nEO\nEOT\n", "", 0, "ok String \"  EOT\\nxEOT\\nEOT_1\\nEO\" @27"},
            {H, " EOT \t\r\nA\r\nB\r\nEOT\n", "", 0, "ok String \"A\\r\\nB\" @17"},
            {H, "EOT\r\rEOT", "", 0, "ok String \"\" @8"},
            {H, "EOT\nEOT", "", 0, "ok String \"\" @7"},
            {H, "EOT\n\nEOT", "", 0, "ok String \"\" @8"},
            {H, "EOT\na\n\nEOT", "", 0, "ok String \"a\\n\" @10"},
            {H, "EOT\na\rEO\nEOT", "", 0, "ok String \"a\\rEO\" @12"},
            // The end of the stream ends the text too, with what was held back.
            {H, "EOT\nabc\nEO", "", 0, "ok String \"abc\\nEO\" @10"},
            {H, "EOT\r\n", "", 0, "ok String \"\" @5"},
            // Malformed headers.
            {H, "EOT x\nabc\nEOT", "", 0, "fail @4"},
            {H, "1EOT\nabc\nEOT", "", 0, "fail @0"},
            {H, "EOT", "", 0, "fail: unexpected end of inputStream @3"},
        };
        SANITY_CHECK(runCases(cases));
        retVal = true;
    } while (false);
    return retVal;
}

bool LiteralsTest::testComments() {
    bool retVal = false;
    do {
        const Lexer C = Lexer::COMMENT;
        const std::vector<LexCase> cases = {
            {C, "// note\nx", "", 0, "ok @8"},
            {C, "//\r\nx", "", 0, "ok @3"},
            {C, "// ab\0x"s, "", 0, "ok @6"},
            {C, "// to the end", "", 0, "ok @13"},
            {C, "/* a ** b **/x", "", 0, "ok @13"},
            {C, "/*/ not yet */x", "", 0, "ok @14"},
            {C, "/* no /* nesting */ x */", "", 0, "ok @19"},
            {C, "/* ab\0cd*/"s, "", 0, "ok @6"},
            {C, "/* open", "", 0, "fail: unexpected end of inputStream @7"},
            // No comment: the stream goes back to the '/', for a division.
            {C, "/ b", "", 0, "fail @0"},
            {C, "/b", "", 0, "fail @0"},
        };
        SANITY_CHECK(runCases(cases));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
