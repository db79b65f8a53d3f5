#include "BrwUtils/BrwUtilsTest.h"

#include <cstdint>
#include <limits>

namespace Brw {

namespace {

// Lines logged while a case provokes failures on purpose. The logger can't forget an observer, so one is
// added once and records only while a case asks it to.
std::vector<std::string>* gRecordedLines = nullptr;

void recordLine(const std::string& line) {
    if (gRecordedLines != nullptr) {
        gRecordedLines->push_back(line);
    }
}

void addRecorderOnce() {
    static bool isObserverAdded = false;
    if (! isObserverAdded) {
        Logger::addLineObserver(recordLine);
        isObserverAdded = true;
    }
}

// Runs `provoke` with errors let through to the observers but not to standard error, and returns the
// lines it logged.
template <class Function>
std::vector<std::string> recordLogLines(Function provoke) {
    addRecorderOnce();
    const int32_t savedLevel = Logger::getLogLevel();
    const std::string savedLogFile = Logger::getLogFile();
    std::vector<std::string> lines;
    Logger::setLogLevel(1);
    Logger::setLogFile("/dev/null");
    gRecordedLines = &lines;
    provoke();
    gRecordedLines = nullptr;
    Logger::setLogFile(savedLogFile);
    Logger::setLogLevel(savedLevel);
    return lines;
}

// True when there is exactly one line and it is an error ending in `message`.
bool isOneErrorLine(const std::vector<std::string>& lines, const std::string& message) {
    const std::string ending = " " + message;
    return lines.size() == 1 && lines[0].find(" ERROR: in ") != std::string::npos &&
           lines[0].size() >= ending.size() &&
           lines[0].compare(lines[0].size() - ending.size(), ending.size(), ending) == 0;
}

std::string allBytes() {
    std::string bytes;
    for (int c = 0; c < 256; ++c) {
        bytes += static_cast<char>(c);
    }
    return bytes;
}

} // namespace

bool UtilsTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = testWildCards();
    allOK = testNames() && allOK;
    allOK = testByteEscapes() && allOK;
    allOK = testWideEscapes() && allOK;
    allOK = testBrokenUtf8() && allOK;
    allOK = testLineEscapes() && allOK;
    allOK = testSplitting() && allOK;
    allOK = testTrimAndReplace() && allOK;
    allOK = testConversions() && allOK;
    return allOK;
}

bool UtilsTest::testWildCards() {
    bool retVal = false;
    do {
        SANITY_CHECK(Utils::isWildCardMatch("", ""));
        SANITY_CHECK(Utils::isWildCardMatch("", "*"));
        SANITY_CHECK(! Utils::isWildCardMatch("a", ""));
        SANITY_CHECK(! Utils::isWildCardMatch("", "a"));
        SANITY_CHECK(! Utils::isWildCardMatch("", "?"));
        SANITY_CHECK(Utils::isWildCardMatch("a", "*a**"));
        SANITY_CHECK(Utils::isWildCardMatch("ab", "*a**b"));
        SANITY_CHECK(Utils::isWildCardMatch("acb", "a*b"));
        SANITY_CHECK(! Utils::isWildCardMatch("acb", "a*c"));
        SANITY_CHECK(! Utils::isWildCardMatch("a", "a?"));
        SANITY_CHECK(! Utils::isWildCardMatch("a", "?a"));
        SANITY_CHECK(Utils::isWildCardMatch("aac", "?a?"));
        SANITY_CHECK(! Utils::isWildCardMatch("bca", "?a?"));
        SANITY_CHECK(Utils::isWildCardMatch("dsdsaap", "*a?*"));
        SANITY_CHECK(! Utils::isWildCardMatch("dsdsdsdhsja", "*a?*"));
        SANITY_CHECK(Utils::isWildCardMatch("abbbbacbbba", "a*a*a"));
        SANITY_CHECK(! Utils::isWildCardMatch("test", "tos*"));
        // "?" takes a whole character, not one byte of it.
        SANITY_CHECK(Utils::isWildCardMatch("a\xE2\x86\x92z", "a?z"));
        SANITY_CHECK(! Utils::isWildCardMatch("a\xE2\x86\x92z", "a??z"));
        // Backtracking star by star would take ages here.
        const std::string longText(200000, 'a');
        std::string manyStars;
        for (int i = 0; i < 40; ++i) {
            manyStars += "*a";
        }
        SANITY_CHECK(! Utils::isWildCardMatch(longText, manyStars + "*b"));
        SANITY_CHECK(Utils::isWildCardMatch(longText + "b", manyStars + "*b"));
        retVal = true;
    } while (false);
    return retVal;
}

bool UtilsTest::testNames() {
    bool retVal = false;
    do {
        SANITY_CHECK(Utils::isIdentifierName("a$b_9_"));
        SANITY_CHECK(Utils::isIdentifierName("$abc"));
        SANITY_CHECK(Utils::isIdentifierName("_"));
        SANITY_CHECK(! Utils::isIdentifierName(""));
        SANITY_CHECK(! Utils::isIdentifierName("123"));
        SANITY_CHECK(! Utils::isIdentifierName("1a"));
        SANITY_CHECK(! Utils::isIdentifierName("a b"));
        SANITY_CHECK(! Utils::isIdentifierName("a-b"));
        SANITY_CHECK(Utils::isNumeric("00"));
        SANITY_CHECK(! Utils::isNumeric(""));
        SANITY_CHECK(! Utils::isNumeric("a"));
        SANITY_CHECK(! Utils::isNumeric("1a"));
        SANITY_CHECK(! Utils::isNumeric("1."));
        SANITY_CHECK(! Utils::isNumeric("1,2"));
        SANITY_CHECK(! Utils::isNumeric("1 2"));
        SANITY_CHECK(! Utils::isNumeric("-1"));
        retVal = true;
    } while (false);
    return retVal;
}

bool UtilsTest::testByteEscapes() {
    bool retVal = false;
    do {
        CHECK_EQUAL(Utils::encodeString("\r\t\n\x11"), "\\r\\t\\n\\x11");
        CHECK_EQUAL(Utils::encodeString("\xE2\x86\x92"), "\\xE2\\x86\\x92");
        CHECK_EQUAL(Utils::encodeString(std::string("a\0~\x7F", 4)), "a\\x00~\\x7F");
        CHECK_EQUAL(Utils::decodeString("\\r\\t\\n\\x11\\u0011"), "\r\t\n\x11\x11");
        CHECK_EQUAL(Utils::decodeString("\\u2192"), "\xE2\x86\x92");
        // The first and last code point of each UTF-8 length.
        const std::string fromCodePoints = Utils::decodeString("a\\u0080\\u07FF\\u0800\\uFFFFb");
        CHECK_EQUAL(fromCodePoints.size(), 12u);
        CHECK_EQUAL(fromCodePoints,
                    Utils::decodeString("a\\xC2\\x80\\xDF\\xBF\\xE0\\xA0\\x80\\xEF\\xBF\\xBFb"));
        CHECK_EQUAL(Utils::decodeString("\\uD83D\\uDE00"), "\xF0\x9F\x98\x80");
        // Lower-case digits are read too; what is no escape stays as written.
        CHECK_EQUAL(Utils::decodeString("\\xe2\\x86\\x92"), "\xE2\x86\x92");
        CHECK_EQUAL(Utils::decodeString("\\q\\x4\\u12G4\\"), "\\q\\x4\\u12G4\\");
        const std::string bytes = allBytes();
        CHECK_EQUAL(Utils::decodeString(Utils::encodeString(bytes)), bytes);
        std::string appended;
        for (uint32_t codePoint : {0x7Fu, 0x80u, 0x7FFu, 0x800u, 0xFFFFu, 0x10000u, 0x10FFFFu}) {
            Utils::appendCodePoint(appended, codePoint);
        }
        CHECK_EQUAL(Utils::encodeString(appended), "\\x7F\\xC2\\x80\\xDF\\xBF\\xE0\\xA0\\x80\\xEF\\xBF\\xBF"
                                                   "\\xF0\\x90\\x80\\x80\\xF4\\x8F\\xBF\\xBF");
        CHECK_EQUAL(Utils::enquote("a\"b\\c\n", '"'), "\"a\\\"b\\\\c\\n\"");
        CHECK_EQUAL(Utils::enquote("it's", '\''), "'it\\'s'");
        retVal = true;
    } while (false);
    return retVal;
}

bool UtilsTest::testWideEscapes() {
    bool retVal = false;
    do {
        const std::wstring controls = Utils::decodeWString("\\r\\t\\n\\x11");
        CHECK_EQUAL(controls.size(), 4u);
        const std::wstring wide = controls + L"\x7F\x80\x7FF\x800\xFFFF" + L"abc";
        const std::string encoded = "\\r\\t\\n\\x11\\x7F\\u0080\\u07FF\\u0800\\uFFFFabc";
        CHECK_EQUAL(Utils::encodeWString(wide), encoded);
        SANITY_CHECK(Utils::decodeWString(encoded) == wide);
        // Escaped code point, escaped UTF-8 bytes and plain UTF-8 are the same text.
        const std::wstring arrow = L"\x2192";
        SANITY_CHECK(Utils::decodeWString("\\u2192") == arrow);
        SANITY_CHECK(Utils::decodeWString("\\xE2\\x86\\x92") == arrow);
        SANITY_CHECK(Utils::decodeWString("\xE2\x86\x92") == arrow);
        CHECK_EQUAL(Utils::encodeWString(arrow), "\\u2192");
        // Beyond the first 65536 characters: a surrogate pair that decodes to one character.
        const std::wstring face = L"\U0001F600";
        CHECK_EQUAL(Utils::encodeWString(face), "\\uD83D\\uDE00");
        SANITY_CHECK(Utils::decodeWString("\\uD83D\\uDE00") == face);
        SANITY_CHECK(Utils::decodeWString("\\xF0\\x9F\\x98\\x80") == face);
        retVal = true;
    } while (false);
    return retVal;
}

bool UtilsTest::testBrokenUtf8() {
    bool retVal = false;
    do {
        std::wstring decoded;
        // A lead byte without its continuation loses itself only.
        auto lines = recordLogLines([&decoded]() { decoded = Utils::decodeWString("a\\xE2b"); });
        SANITY_CHECK(decoded == L"ab");
        SANITY_CHECK(isOneErrorLine(lines, "cannot decode UTF8"));
        lines = recordLogLines([&decoded]() { decoded = Utils::decodeWString("\\x80z"); });
        SANITY_CHECK(decoded == L"z");
        SANITY_CHECK(isOneErrorLine(lines, "cannot decode UTF8"));
        // An overlong form and a sequence cut short are broken byte by byte.
        lines = recordLogLines([&decoded]() {
            decoded = Utils::decodeWString("\\xC0\\x80") + L"|" + Utils::decodeWString("\\xE2\\x86");
        });
        SANITY_CHECK(decoded == L"|");
        CHECK_EQUAL(lines.size(), 4u);
        // Past the last code point nothing is a character, whatever the width of wchar_t.
        lines = recordLogLines([&decoded]() { decoded = Utils::decodeWString("\\xF4\\x90\\x80\\x80x"); });
        SANITY_CHECK(decoded == L"x");
        SANITY_CHECK(isOneErrorLine(lines, "UTF char does not fit in wchar_t"));
        retVal = true;
    } while (false);
    return retVal;
}

bool UtilsTest::testLineEscapes() {
    bool retVal = false;
    do {
        const std::string text("a-b\nc\0d", 7);
        CHECK_EQUAL(Utils::escapeIPC(text), "a--b-nc-zd");
        CHECK_EQUAL(Utils::unescapeIPC(Utils::escapeIPC(text)), text);
        // A text that looks escaped already must come back as it was.
        CHECK_EQUAL(Utils::unescapeIPC(Utils::escapeIPC("-n--z")), "-n--z");
        CHECK_EQUAL(Utils::unescapeIPC("-x-"), "-x-");
        const std::string serialized("q\"b\\n\n\0", 7);
        CHECK_EQUAL(Utils::escapeSerializer(serialized), "q\\\"b\\\\n\\n\\z");
        CHECK_EQUAL(Utils::unescapeSerializer(Utils::escapeSerializer(serialized)), serialized);
        // An unknown letter stands for itself; a backslash at the end is dropped.
        CHECK_EQUAL(Utils::unescapeSerializer("\\q\\"), "q");
        const std::string bytes = allBytes();
        CHECK_EQUAL(Utils::unescapeIPC(Utils::escapeIPC(bytes)), bytes);
        CHECK_EQUAL(Utils::unescapeSerializer(Utils::escapeSerializer(bytes)), bytes);
        retVal = true;
    } while (false);
    return retVal;
}

bool UtilsTest::testSplitting() {
    bool retVal = false;
    do {
        using Pieces = std::vector<std::string>;
        SANITY_CHECK(Utils::splitIntoLines("\nabc\rabc\ndef\n\nghi") == Pieces({"abc", "abc", "def", "ghi"}));
        SANITY_CHECK(Utils::splitIntoLines("a\r\nb\r\n") == Pieces({"a", "b"}));
        SANITY_CHECK(Utils::splitIntoLines("\r\n").empty());
        const std::string text = "1234\nabc\nabc\n1a12\n";
        SANITY_CHECK(Utils::split(text, '\n') == Pieces({"1234", "abc", "abc", "1a12", ""}));
        SANITY_CHECK(Utils::split(text, 'a') == Pieces({"1234\n", "bc\n", "bc\n1", "12\n"}));
        SANITY_CHECK(Utils::split("", ',') == Pieces({""}));
        SANITY_CHECK(Utils::split(",,", ',') == Pieces({"", "", ""}));
        SANITY_CHECK(Utils::splitAfter(text, 'a') == Pieces({"1234\na", "bc\na", "bc\n1a", "12\n"}));
        SANITY_CHECK(Utils::splitAfter(text, '\n') == Pieces({"1234\n", "abc\n", "abc\n", "1a12\n", ""}));
        Pieces words;
        SANITY_CHECK(Utils::splitCommandWords("  /bin/app\t-s  -n x\n", words) &&
                     words == Pieces({"/bin/app", "-s", "-n", "x"}));
        // Quotes group and may meet in one word; empty quotes make an empty word; nothing is expanded.
        SANITY_CHECK(Utils::splitCommandWords("'/my dir/app' a\"b c\"'d' \"\" '$HOME' ~ *", words) &&
                     words == Pieces({"/my dir/app", "ab cd", "", "$HOME", "~", "*"}));
        SANITY_CHECK(Utils::splitCommandWords("a\\ b \\'c \"\\\"\\$\\x\" 'x\\y' d\\\ne", words) &&
                     words == Pieces({"a b", "'c", "\"$\\x", "x\\y", "de"}));
        SANITY_CHECK(Utils::splitCommandWords("", words) && words.empty());
        SANITY_CHECK(! Utils::splitCommandWords("a 'b", words) && words.empty());
        SANITY_CHECK(! Utils::splitCommandWords("a \"b", words));
        SANITY_CHECK(! Utils::splitCommandWords("a\\", words));
        retVal = true;
    } while (false);
    return retVal;
}

bool UtilsTest::testTrimAndReplace() {
    bool retVal = false;
    do {
        CHECK_EQUAL(Utils::trim("  123\t   b\t  "), "123\t   b");
        CHECK_EQUAL(Utils::trim("\r\n x\n"), "x");
        CHECK_EQUAL(Utils::trim(""), "");
        CHECK_EQUAL(Utils::trim(" \t\r\n"), "");
        CHECK_EQUAL(Utils::replaceSubStr("abcabc", "bc", "X"), "aXaX");
        CHECK_EQUAL(Utils::replaceSubStr("abc", "x", "y"), "abc");
        CHECK_EQUAL(Utils::replaceSubStr("abc", "", "y"), "abc");
        // The replacement is not searched again.
        CHECK_EQUAL(Utils::replaceSubStr("aa", "a", "aa"), "aaaa");
        CHECK_EQUAL(Utils::replaceSubStr("aaa", "aa", ""), "a");
        retVal = true;
    } while (false);
    return retVal;
}

bool UtilsTest::testConversions() {
    bool retVal = false;
    do {
        SANITY_CHECK(Utils::toBool("true"));
        SANITY_CHECK(! Utils::toBool("false"));
        CHECK_EQUAL(Utils::toString(true), "true");
        CHECK_EQUAL(Utils::toString(false), "false");
        CHECK_EQUAL(Utils::toLower("AbC1"), "abc1");
        CHECK_EQUAL(Utils::toInt64(" 42"), 42);
        CHECK_EQUAL(Utils::toInt64("-9223372036854775808"), std::numeric_limits<int64_t>::min());
        CHECK_EQUAL(Utils::toUInt64("18446744073709551615"), std::numeric_limits<uint64_t>::max());
        int64_t signedValue = -1;
        auto lines =
            recordLogLines([&signedValue]() { signedValue = Utils::toInt64("9223372036854775808"); });
        CHECK_EQUAL(signedValue, 0);
        SANITY_CHECK(isOneErrorLine(lines, "stoll argument out of range"));
        lines = recordLogLines([&signedValue]() { signedValue = Utils::toInt64("x1"); });
        CHECK_EQUAL(signedValue, 0);
        SANITY_CHECK(isOneErrorLine(lines, "invalid stoll argument"));
        uint64_t unsignedValue = 1;
        lines =
            recordLogLines([&unsignedValue]() { unsignedValue = Utils::toUInt64("18446744073709551616"); });
        CHECK_EQUAL(unsignedValue, 0u);
        SANITY_CHECK(isOneErrorLine(lines, "stoull argument out of range"));
        // The standard's conversion would wrap "-1" round to the largest number.
        unsignedValue = 1;
        lines = recordLogLines([&unsignedValue]() { unsignedValue = Utils::toUInt64("-1"); });
        CHECK_EQUAL(unsignedValue, 0u);
        SANITY_CHECK(isOneErrorLine(lines, "invalid stoull argument"));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
