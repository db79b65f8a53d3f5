#include <algorithm>
#include <limits>

#include "BrwLogger/BrwCheck.h"
#include "BrwParser/BrwInputStreamString.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwYielding.h"

namespace Brw {

namespace {

constexpr int AT_END = InputStream::AT_END;
constexpr int NOTHING_YET = InputStream::NOTHING_YET;

// `base` to the power `n`, by halving the exponent.
// NOTE: scaling by an inexact power does not always give the double nearest to a decimal literal ("0.3"
// reads as 3 * (1 / 10), which is 0.30000000000000004); number literals are defined by this computation,
// so it stays.
double powerByHalving(double base, int64_t n) {
    if (n < 0) {
        return 1.0 / powerByHalving(base, -n);
    }
    if (n == 0) {
        return 1.0;
    }
    if (n == 1) {
        return base;
    }
    const double half = powerByHalving(base, n / 2);
    return n % 2 == 1 ? half * half * base : half * half;
}

// `value` times 10 to the power `n`, truncating for a negative `n`; wraps around like all unsigned
// arithmetic, so that an overlong literal is a defined (if useless) integer, compared and dropped later.
uint64_t scaleByPowerOfTen(uint64_t value, int64_t n) {
    // 10^64 is 0 modulo 2^64, and any 64-bit value divided by 10^20 is 0: no need to go further.
    for (int64_t i = 0; i < std::min<int64_t>(n, 64); ++i) {
        value *= 10;
    }
    if (n < -19) {
        return 0;
    }
    for (int64_t i = 0; i < -n; ++i) {
        value /= 10;
    }
    return value;
}

// The value of a digit in any base up to 36 ('a' and 'A' are 10); -1 for no digit.
int digitValue(int c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'z') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'Z') {
        return c - 'A' + 10;
    }
    return -1;
}

// The number reader that parseNum and parseNum_yielding share. It is fed the peeked characters one by
// one and says whether to consume each; the first one it refuses ends the number and stays unread.
// States: START (blanks, sign, prefix), AFTER_ZERO (a leading 0 that may begin "0x"), INTEGER, FRACTION,
// EXPONENT. Both a double and an unsigned integer accumulate the digits; the result takes the integer
// when the two agree.
class NumberScanner {
public:
    enum State { START, AFTER_ZERO, INTEGER, FRACTION, EXPONENT };

    static constexpr int SMALLEST_RADIX = 2;
    static constexpr int LARGEST_RADIX = 36;

    explicit NumberScanner(int base = OMStored::NUMBER_SCRIPT_LITERAL)
        : fRadix(base < 0 ? 10 : base), fIsPrefixAllowed(base == OMStored::NUMBER_SCRIPT_LITERAL ||
                                                         base == OMStored::NUMBER_INTEGER || base == 16),
          fIsFractionAllowed(base == OMStored::NUMBER_SCRIPT_LITERAL || base == OMStored::NUMBER_DECIMAL) {}

    static bool isValidBase(int base) {
        return base == OMStored::NUMBER_SCRIPT_LITERAL || base == OMStored::NUMBER_INTEGER ||
               base == OMStored::NUMBER_DECIMAL || (base >= SMALLEST_RADIX && base <= LARGEST_RADIX);
    }

    // Takes `c` (AT_END at the end): true to consume it and go on, false when the number has ended.
    bool feed(int c) {
        switch (fState) {
        case START:
            return feedStart(c);
        case AFTER_ZERO:
            if (c == 'x' || c == 'X') {
                fRadix = 16;
                fIsHexPrefixSeen = true;
                fIsFractionAllowed = false;
                fState = INTEGER;
                return true;
            }
            fState = INTEGER;
            return feedInteger(c);
        case INTEGER:
            return feedInteger(c);
        case FRACTION:
            return feedFraction(c);
        case EXPONENT:
            return feedExponent(c);
        }
        LOG_ERROR("unexpected state in switch");
        return false;
    }

    // Sets `node` to the number read, or to NaN when there was none.
    bool storeInto(OMStored& node) const {
        if (fIsNaN || fDigitCount == 0) {
            return node.setNaN();
        }
        const int64_t scale = fExponent * fExponentSign - fFractionDigits;
        const uint64_t magnitude = scaleByPowerOfTen(fIntValue, scale);
        // Negated as unsigned and converted modulo 2^64: defined for every value.
        const auto intResult = static_cast<OMInt>(fSign < 0 ? 0 - magnitude : magnitude);
        const double floatResult = fSign * fValue * powerByHalving(fRadix, scale);
        if (floatResult == static_cast<double>(intResult)) {
            return node.set(intResult);
        }
        return node.set(static_cast<OMFloat>(floatResult));
    }

private:
    // Exponents beyond this give infinity or 0 anyway; the cap keeps the arithmetic in range.
    static constexpr int64_t kExponentCap = 1000000000;

    bool isDigit(int c) const {
        const int digit = digitValue(c);
        return digit >= 0 && digit < fRadix;
    }

    void addDigit(int c) {
        const int digit = digitValue(c);
        fValue = fValue * fRadix + digit;
        fIntValue = fIntValue * static_cast<uint64_t>(fRadix) + static_cast<uint64_t>(digit);
        ++fDigitCount;
    }

    // [blanks] [+|-] then 0, a digit or '.'
    bool feedStart(int c) {
        if (! fIsSignSeen && OMStored::isWhitespace(c)) {
            return true;
        }
        if (! fIsSignSeen && (c == '+' || c == '-')) {
            fIsSignSeen = true;
            fSign = c == '-' ? -1 : 1;
            return true;
        }
        if (fIsPrefixAllowed && c == '0') {
            addDigit(c);
            fState = AFTER_ZERO;
            return true;
        }
        if (isDigit(c)) {
            addDigit(c);
            fState = INTEGER;
            return true;
        }
        if (fIsFractionAllowed && c == '.') {
            fState = FRACTION;
            return true;
        }
        return false;
    }

    // digits, then '.' or 'e' where fractions are allowed
    bool feedInteger(int c) {
        if (isDigit(c)) {
            addDigit(c);
            return true;
        }
        // "0x" alone is no number. The leading 0 is counted, so a digit after the prefix makes two.
        if (fIsHexPrefixSeen && fDigitCount <= 1) {
            fIsNaN = true;
            return false;
        }
        if (! fIsFractionAllowed) {
            return false;
        }
        if (c == '.') {
            fState = FRACTION;
            return true;
        }
        if (c == 'e' || c == 'E') {
            fState = EXPONENT;
            return true;
        }
        return false;
    }

    // digits after the point, then 'e'
    bool feedFraction(int c) {
        if (isDigit(c)) {
            addDigit(c);
            ++fFractionDigits;
            return true;
        }
        if (c == 'e' || c == 'E') {
            fState = EXPONENT;
            return true;
        }
        return false;
    }

    // [+|-] decimal digits; they count as digits of the number too, so ".e5" reads as 0
    bool feedExponent(int c) {
        if (! fIsExponentStarted && (c == '+' || c == '-')) {
            fIsExponentStarted = true;
            fExponentSign = c == '-' ? -1 : 1;
            return true;
        }
        if (c >= '0' && c <= '9') {
            fIsExponentStarted = true;
            fExponent = std::min(fExponent * 10 + (c - '0'), kExponentCap);
            ++fDigitCount;
            return true;
        }
        return false;
    }

    State fState = START;            // where the scan stands
    int fRadix;                      // base of the digits: 10 for the decimal forms, 16 after "0x"
    bool fIsPrefixAllowed;           // a leading "0x" switches to hexadecimal
    bool fIsFractionAllowed;         // '.' and an exponent may follow the integer part
    bool fIsHexPrefixSeen = false;   // "0x" was read
    bool fIsSignSeen = false;        // a sign was read: no more blanks or signs
    bool fIsExponentStarted = false; // the exponent has its sign or a digit
    bool fIsNaN = false;             // the text is known to be no number
    double fValue = 0.0;             // the digits as a double
    uint64_t fIntValue = 0;          // the digits as an integer, modulo 2^64
    int64_t fDigitCount = 0;         // digits of all parts
    int fSign = 1;                   // -1 after a leading '-'
    int64_t fFractionDigits = 0;     // digits after the point
    int64_t fExponent = 0;           // the exponent's digits, capped
    int fExponentSign = 1;           // -1 after 'e-'
};

// The text of a here-document body. It is fed the characters after the header and ends at a line that
// starts with the delimiter followed by a non-name character. A line end is held back as pending until it
// is clear whether the delimiter follows, since the text excludes the line end before the delimiter.
class HereDocumentText {
public:
    explicit HereDocumentText(std::string delimiter = std::string()) : fDelimiter(std::move(delimiter)) {}

    // Takes `c` (AT_END at the end): true to consume it and go on, false when the text has ended. The
    // character after the delimiter stays unread.
    bool feed(int c) {
        if (c == AT_END) {
            if (! isDelimiterMatched()) {
                dropMatch();
            }
            return false;
        }
        if (fIsMatching) {
            if (isDelimiterMatched()) {
                if (! OMStored::isIdentifierChar(c, 1)) {
                    return false;
                }
                dropMatch();
            } else if (c == static_cast<unsigned char>(fDelimiter[fMatched])) {
                ++fMatched;
                return true;
            } else if (fMatched > 0 || ! isLineEnd(c)) {
                dropMatch();
            }
        }
        if (isLineEnd(c)) {
            if (fPendingLineEnd == "\r" && c == '\n') {
                fPendingLineEnd += '\n';
            } else {
                fText += fPendingLineEnd;
                fPendingLineEnd.assign(1, static_cast<char>(c));
            }
            fIsMatching = true;
            fMatched = 0;
            return true;
        }
        fText += static_cast<char>(c);
        return true;
    }

    const std::string& getText() const { return fText; }

private:
    static bool isLineEnd(int c) { return c == '\n' || c == '\r'; }
    bool isDelimiterMatched() const { return fIsMatching && fMatched == fDelimiter.size(); }

    // The line did not end the text after all: what was held back belongs to it.
    void dropMatch() {
        fText += fPendingLineEnd;
        fText.append(fDelimiter, 0, fMatched);
        fPendingLineEnd.clear();
        fMatched = 0;
        fIsMatching = false;
    }

    std::string fDelimiter;      // the name that ends the text
    std::string fText;           // the text so far
    std::string fPendingLineEnd; // "\n", "\r" or "\r\n" held back before a possible delimiter
    size_t fMatched = 0;         // characters of the delimiter matched on this line
    bool fIsMatching = true;     // at the start of a line, and the line is the delimiter so far
};

} // namespace

std::unordered_map<Token, std::string> OMStored::fTokenToStrMap;
std::unordered_map<std::string, Token, FNV1aHash> OMStored::fStrToTokenMap;

namespace {

// The tables are filled before anything can be parsed; they are defined above, in this file, so they
// exist by then.
[[maybe_unused]] const bool kAreTokensDefined = OMStored::initTokens();

} // namespace

// ---- tokens ----

bool OMStored::initTokens() {
    bool retVal = false;
    do {
        if (! fTokenToStrMap.empty()) {
            retVal = true;
            break;
        }
        // The language's words
        SANITY_CHECK(defineToken(Token::_break, "break"));
        SANITY_CHECK(defineToken(Token::_debugger, "debugger"));
        SANITY_CHECK(defineToken(Token::_do, "do"));
        SANITY_CHECK(defineToken(Token::_else, "else"));
        SANITY_CHECK(defineToken(Token::_false, "false"));
        SANITY_CHECK(defineToken(Token::_for, "for"));
        SANITY_CHECK(defineToken(Token::_function, "function"));
        SANITY_CHECK(defineToken(Token::_if, "if"));
        SANITY_CHECK(defineToken(Token::_NaN, "NaN"));
        SANITY_CHECK(defineToken(Token::_null, "null"));
        SANITY_CHECK(defineToken(Token::_return, "return"));
        SANITY_CHECK(defineToken(Token::_true, "true"));
        SANITY_CHECK(defineToken(Token::_typeof, "typeof"));
        SANITY_CHECK(defineToken(Token::_undefined, "undefined"));
        SANITY_CHECK(defineToken(Token::_var, "var"));
        SANITY_CHECK(defineToken(Token::_while, "while"));
        // The built-in functions' names
        SANITY_CHECK(defineToken(Token::_abs, "abs"));
        SANITY_CHECK(defineToken(Token::_dirExists, "dirExists"));
        SANITY_CHECK(defineToken(Token::_enquote, "enquote"));
        SANITY_CHECK(defineToken(Token::_eval, "eval"));
        SANITY_CHECK(defineToken(Token::_evalScript, "evalScript"));
        SANITY_CHECK(defineToken(Token::_exit, "exit"));
        SANITY_CHECK(defineToken(Token::_fileClose, "fileClose"));
        SANITY_CHECK(defineToken(Token::_fileExists, "fileExists"));
        SANITY_CHECK(defineToken(Token::_fileOpen, "fileOpen"));
        SANITY_CHECK(defineToken(Token::_fileRead, "fileRead"));
        SANITY_CHECK(defineToken(Token::_fileWrite, "fileWrite"));
        SANITY_CHECK(defineToken(Token::_getEnv, "getEnv"));
        SANITY_CHECK(defineToken(Token::_indexOf, "indexOf"));
        SANITY_CHECK(defineToken(Token::_isNaN, "isNaN"));
        SANITY_CHECK(defineToken(Token::_keys, "keys"));
        SANITY_CHECK(defineToken(Token::_length, "length"));
        SANITY_CHECK(defineToken(Token::_logError, "logError"));
        SANITY_CHECK(defineToken(Token::_logNote, "logNote"));
        SANITY_CHECK(defineToken(Token::_logTrace, "logTrace"));
        SANITY_CHECK(defineToken(Token::_logWarning, "logWarning"));
        SANITY_CHECK(defineToken(Token::_output, "output"));
        SANITY_CHECK(defineToken(Token::_parentPath, "parentPath"));
        SANITY_CHECK(defineToken(Token::_parseFloat, "parseFloat"));
        SANITY_CHECK(defineToken(Token::_parseInt, "parseInt"));
        SANITY_CHECK(defineToken(Token::_parseScript, "parseScript"));
        SANITY_CHECK(defineToken(Token::_pathSegmentFromLeft, "pathSegmentFromLeft"));
        SANITY_CHECK(defineToken(Token::_pathSegmentFromRight, "pathSegmentFromRight"));
        SANITY_CHECK(defineToken(Token::_pop, "pop"));
        SANITY_CHECK(defineToken(Token::_push, "push"));
        SANITY_CHECK(defineToken(Token::_quit, "quit"));
        SANITY_CHECK(defineToken(Token::_readFile, "readFile"));
        SANITY_CHECK(defineToken(Token::_reference, "reference"));
        SANITY_CHECK(defineToken(Token::_scriptFilePath, "scriptFilePath"));
        SANITY_CHECK(defineToken(Token::_sendData, "sendData"));
        SANITY_CHECK(defineToken(Token::_setDataRequestCallBack, "setDataRequestCallBack"));
        SANITY_CHECK(defineToken(Token::_size, "size"));
        SANITY_CHECK(defineToken(Token::_sqr, "sqr"));
        SANITY_CHECK(defineToken(Token::_sqrt, "sqrt"));
        SANITY_CHECK(defineToken(Token::_stdErr, "stdErr"));
        SANITY_CHECK(defineToken(Token::_stdIn, "stdIn"));
        SANITY_CHECK(defineToken(Token::_stdOut, "stdOut"));
        SANITY_CHECK(defineToken(Token::_stringify, "stringify"));
        SANITY_CHECK(defineToken(Token::_substr, "substr"));
        SANITY_CHECK(defineToken(Token::_sysInfo, "sysInfo"));
        SANITY_CHECK(defineToken(Token::_toLowerCase, "toLowerCase"));
        SANITY_CHECK(defineToken(Token::_toString, "toString"));
        SANITY_CHECK(defineToken(Token::_toUpperCase, "toUpperCase"));
        SANITY_CHECK(defineToken(Token::_writeFile, "writeFile"));
        SANITY_CHECK(defineToken(Token::_yield, "yield"));
        retVal = true;
    } while (false);
    return retVal;
}

bool OMStored::defineToken(Token token, const std::string& tokenStr) {
    bool retVal = false;
    do {
        SANITY_CHECK(fTokenToStrMap.find(token) == fTokenToStrMap.end());
        SANITY_CHECK(fStrToTokenMap.find(tokenStr) == fStrToTokenMap.end());
        fTokenToStrMap.emplace(token, tokenStr);
        fStrToTokenMap.emplace(tokenStr, token);
        retVal = true;
    } while (false);
    return retVal;
}

Token OMStored::getToken(const std::string& tokenStr) {
    const auto iter = fStrToTokenMap.find(tokenStr);
    return iter == fStrToTokenMap.end() ? Token::_NO_TOKEN : iter->second;
}

std::string OMStored::getTokenStr(Token token) {
    const auto iter = fTokenToStrMap.find(token);
    return iter == fTokenToStrMap.end() ? std::string() : iter->second;
}

// ---- character classes ----

bool OMStored::isWhitespace(int c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool OMStored::isIdentifierChar(int c, uint64_t position) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == '$' ||
           (position > 0 && c >= '0' && c <= '9');
}

// ---- numbers ----

double OMStored::numberFromText(const std::string& text) {
    double retVal = -std::numeric_limits<double>::quiet_NaN();
    do {
        auto stream = std::make_shared<InputStreamString>(text);
        stream->setAtEOF();
        auto node = std::make_shared<OMStored>();
        SANITY_CHECK(node->parseNum(stream, NUMBER_SCRIPT_LITERAL));
        retVal = node->getAsNum();
    } while (false);
    return retVal;
}

// A plain read cannot wait: a character that has not arrived ends the number as the end would.
bool OMStored::parseNum(const std::shared_ptr<InputStream>& stream, int base) {
    bool retVal = false;
    do {
        SANITY_CHECK(stream);
        SANITY_CHECK(NumberScanner::isValidBase(base));
        NumberScanner scanner(base);
        bool isConsumed = true;
        for (;;) {
            const int c = stream->getChar();
            if (! scanner.feed(c == NOTHING_YET ? AT_END : c)) {
                break;
            }
            isConsumed = stream->next();
            if (! isConsumed) {
                break;
            }
        }
        SANITY_CHECK(isConsumed);
        retVal = scanner.storeInto(*this);
    } while (false);
    return retVal;
}

void OMStored::parseNum_yielding(const TaskPtr& task, bool& success,
                                 const std::shared_ptr<InputStream>& stream, int base) {
    struct LocalVariableState : OMFunctionState {
        NumberScanner scanner;  // the number so far
        int c = NOTHING_YET;    // the peeked character
        bool isConsumed = true; // the stream took the last character
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    YIELDING_CHECK(stream);
    YIELDING_CHECK(NumberScanner::isValidBase(base));
    frame->scanner = NumberScanner(base);
    while (frame->isConsumed) {
        YIELDING_CALL(peekChar_yielding(task, frame->c, stream));
        if (! frame->scanner.feed(frame->c)) {
            break;
        }
        frame->isConsumed = stream->next();
    }
    YIELDING_CHECK(frame->isConsumed);
    success = frame->scanner.storeInto(*this);
    YIELDING_END;
}

// ---- lexical helpers ----

void OMStored::peekChar_yielding(const TaskPtr& task, int& c, const std::shared_ptr<InputStream>& stream) {
    struct LocalVariableState : OMFunctionState {};
    YIELDING_BEGIN(LocalVariableState, frame, c = NOTHING_YET);
    YIELDING_CHECK(stream);
    // With asynchronous input the stream hands out NOTHING_YET after a wait: ask again then.
    do {
        YIELDING_CALL(stream->getChar_yielding(task, c));
    } while (c == NOTHING_YET);
    YIELDING_END;
}

void OMStored::skipWhitespace_yielding(const TaskPtr& task, int& c,
                                       const std::shared_ptr<InputStream>& stream) {
    struct LocalVariableState : OMFunctionState {
        bool isConsumed = true; // the stream took the last character
    };
    YIELDING_BEGIN(LocalVariableState, frame, c = NOTHING_YET);
    while (frame->isConsumed) {
        YIELDING_CALL(peekChar_yielding(task, c, stream));
        if (! isWhitespace(c)) {
            break;
        }
        frame->isConsumed = stream->next();
    }
    YIELDING_CHECK(frame->isConsumed);
    YIELDING_END;
}

void OMStored::parseName_yielding(const TaskPtr& task, std::string& name,
                                  const std::shared_ptr<InputStream>& stream) {
    struct LocalVariableState : OMFunctionState {
        int c = NOTHING_YET;    // the peeked character
        bool isConsumed = true; // the stream took the last character
    };
    YIELDING_BEGIN(LocalVariableState, frame, name.clear());
    while (frame->isConsumed) {
        YIELDING_CALL(peekChar_yielding(task, frame->c, stream));
        if (! isIdentifierChar(frame->c, name.size())) {
            break;
        }
        name.push_back(static_cast<char>(frame->c));
        frame->isConsumed = stream->next();
    }
    YIELDING_CHECK(frame->isConsumed);
    YIELDING_END;
}

void OMStored::parseChars_yielding(const TaskPtr& task, bool& success,
                                   const std::shared_ptr<InputStream>& stream, const std::string& chars) {
    struct LocalVariableState : OMFunctionState {
        uint64_t startPos = 0;  // where to go back to on a mismatch
        size_t matched = 0;     // characters of `chars` consumed
        int c = NOTHING_YET;    // the peeked character
        bool isConsumed = true; // the stream took the last character
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    YIELDING_CHECK(stream);
    frame->startPos = stream->getPos();
    YIELDING_CALL(skipWhitespace_yielding(task, frame->c, stream));
    while (frame->matched < chars.size() && frame->isConsumed) {
        YIELDING_CALL(peekChar_yielding(task, frame->c, stream));
        if (frame->c != static_cast<unsigned char>(chars[frame->matched])) {
            break;
        }
        ++frame->matched;
        frame->isConsumed = stream->next();
    }
    YIELDING_CHECK(frame->isConsumed);
    if (frame->matched < chars.size()) {
        stream->setPos(frame->startPos);
        YIELDING_FINISH;
    }
    success = true;
    YIELDING_END;
}

void OMStored::parseKeyword_yielding(const TaskPtr& task, bool& success,
                                     const std::shared_ptr<InputStream>& stream, const std::string& keyword) {
    struct LocalVariableState : OMFunctionState {
        uint64_t startPos = 0;  // where to go back to when the word goes on
        bool isMatched = false; // the keyword's characters were there
        int c = NOTHING_YET;    // the character after them
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    YIELDING_CHECK(stream);
    frame->startPos = stream->getPos();
    YIELDING_CALL(parseChars_yielding(task, frame->isMatched, stream, keyword));
    if (! frame->isMatched) {
        YIELDING_FINISH;
    }
    YIELDING_CALL(peekChar_yielding(task, frame->c, stream));
    if (isIdentifierChar(frame->c, 1)) {
        stream->setPos(frame->startPos);
        YIELDING_FINISH;
    }
    success = true;
    YIELDING_END;
}

// The raw text is collected first, a backslash taking the next character along unexamined (so that an
// escaped quote doesn't close the string), and decoded as a whole at the end.
void OMStored::parseString_yielding(const TaskPtr& task, bool& success, std::string& errorMessage,
                                    const std::shared_ptr<InputStream>& stream, int quote) {
    struct LocalVariableState : OMFunctionState {
        std::string raw;        // the characters between the quotes, decoded once the string ends
        bool isEscaped = false; // the last character was a backslash that takes this one along
        int c = NOTHING_YET;    // the peeked character
        bool isConsumed = true; // the stream took the last character
    };
    YIELDING_BEGIN(LocalVariableState, frame, (success = false, errorMessage.clear()));
    while (frame->isConsumed) {
        YIELDING_CALL(peekChar_yielding(task, frame->c, stream));
        if (frame->c == AT_END || (! frame->isEscaped && (frame->c == quote || frame->c == 0))) {
            break;
        }
        frame->isEscaped = ! frame->isEscaped && frame->c == '\\';
        frame->raw.push_back(static_cast<char>(frame->c));
        frame->isConsumed = stream->next();
    }
    YIELDING_CHECK(frame->isConsumed);
    if (frame->c == AT_END) {
        errorMessage = "unexpected end of inputStream";
        YIELDING_FINISH;
    }
    if (frame->c == 0) {
        errorMessage = "unexpected end of string in quoted string";
        YIELDING_FINISH;
    }
    YIELDING_CHECK(stream->next());
    frame->raw = Utils::decodeString(frame->raw);
    if (! ScriptLimits::isTextWithinLimit(frame->raw.size())) {
        errorMessage = ScriptLimits::textTooLongMessage();
        YIELDING_FINISH;
    }
    YIELDING_CHECK(set(frame->raw));
    success = true;
    YIELDING_END;
}

// <<< [blanks] NAME [spaces or tabs] line end, then the text, then NAME at the start of a line.
void OMStored::parseHereDocument_yielding(const TaskPtr& task, bool& success, std::string& errorMessage,
                                          const std::shared_ptr<InputStream>& stream) {
    struct LocalVariableState : OMFunctionState {
        std::string delimiter;  // the name that ends the text
        HereDocumentText text;  // the body so far
        int c = NOTHING_YET;    // the peeked character
        bool isConsumed = true; // the stream took the last character
    };
    YIELDING_BEGIN(LocalVariableState, frame, (success = false, errorMessage.clear()));
    YIELDING_CHECK(stream);
    YIELDING_CALL(skipWhitespace_yielding(task, frame->c, stream));
    YIELDING_CALL(parseName_yielding(task, frame->delimiter, stream));
    while (frame->isConsumed) {
        YIELDING_CALL(peekChar_yielding(task, frame->c, stream));
        if (frame->c != ' ' && frame->c != '\t') {
            break;
        }
        frame->isConsumed = stream->next();
    }
    YIELDING_CHECK(frame->isConsumed);
    if (frame->c == AT_END) {
        errorMessage = "unexpected end of inputStream";
        YIELDING_FINISH;
    }
    // An empty name or anything else on the header line: the caller's message is the only one.
    if (frame->delimiter.empty() || (frame->c != '\n' && frame->c != '\r')) {
        YIELDING_FINISH;
    }
    YIELDING_CHECK(stream->next());
    if (frame->c == '\r') {
        YIELDING_CALL(peekChar_yielding(task, frame->c, stream));
        if (frame->c == '\n') {
            YIELDING_CHECK(stream->next());
        }
    }
    frame->text = HereDocumentText(frame->delimiter);
    while (frame->isConsumed) {
        YIELDING_CALL(peekChar_yielding(task, frame->c, stream));
        if (! frame->text.feed(frame->c)) {
            break;
        }
        frame->isConsumed = stream->next();
    }
    YIELDING_CHECK(frame->isConsumed);
    if (! ScriptLimits::isTextWithinLimit(frame->text.getText().size())) {
        errorMessage = ScriptLimits::textTooLongMessage();
        YIELDING_FINISH;
    }
    YIELDING_CHECK(set(frame->text.getText()));
    success = true;
    YIELDING_END;
}

// "//" to a line end or NUL, which goes with it; "/*" to "*/", or to a NUL. Anything else after the '/'
// means it was no comment, and the stream goes back to the '/' for the caller to read as a division.
void OMStored::parseComment_yielding(const TaskPtr& task, bool& success, std::string& errorMessage,
                                     const std::shared_ptr<InputStream>& stream) {
    struct LocalVariableState : OMFunctionState {
        uint64_t slashPos = 0;    // position of the '/' already consumed
        bool isBlock = false;     // "/*" rather than "//"
        bool isAfterStar = false; // in a block comment, the last character was '*'
        int c = NOTHING_YET;      // the peeked character
        bool isConsumed = true;   // the stream took the last character
    };
    YIELDING_BEGIN(LocalVariableState, frame, (success = false, errorMessage.clear()));
    YIELDING_CHECK(stream);
    YIELDING_CHECK(stream->getPos() > 0);
    frame->slashPos = stream->getPos() - 1;
    YIELDING_CALL(peekChar_yielding(task, frame->c, stream));
    if (frame->c != '/' && frame->c != '*') {
        if (! stream->setPos(frame->slashPos)) {
            // The stream dropped the '/' already; without it the text would read differently.
            errorMessage = "cannot return to '/' in inputStream";
        }
        YIELDING_FINISH;
    }
    frame->isBlock = frame->c == '*';
    frame->isConsumed = stream->next();
    while (frame->isConsumed) {
        YIELDING_CALL(peekChar_yielding(task, frame->c, stream));
        if (frame->c == AT_END) {
            break;
        }
        frame->isConsumed = stream->next();
        const bool isClosed =
            frame->isBlock ? (frame->isAfterStar && frame->c == '/') : (frame->c == '\n' || frame->c == '\r');
        if (isClosed || frame->c == 0) {
            break;
        }
        frame->isAfterStar = frame->c == '*';
    }
    YIELDING_CHECK(frame->isConsumed);
    if (frame->isBlock && frame->c == AT_END) {
        errorMessage = "unexpected end of inputStream";
        YIELDING_FINISH;
    }
    success = true;
    YIELDING_END;
}

} // namespace Brw
