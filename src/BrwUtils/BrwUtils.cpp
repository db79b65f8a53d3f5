#include "BrwUtils/BrwUtils.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <limits>

#include "BrwLogger/BrwCheck.h"

namespace Brw {

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

void appendHexEscape(std::string& out, char kind, uint32_t value, int digits) {
    out += '\\';
    out += kind;
    for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) {
        out += kHexDigits[(value >> shift) & 0xF];
    }
}

// The escape of \r, \t or \n, or 0 for any other character.
char controlEscape(uint32_t c) {
    switch (c) {
    case '\r':
        return 'r';
    case '\t':
        return 't';
    case '\n':
        return 'n';
    default:
        return 0;
    }
}

// Appends one byte as encodeString writes it.
void appendEncodedByte(std::string& out, unsigned char c) {
    if (char escape = controlEscape(c)) {
        out += '\\';
        out += escape;
    } else if (c < 32 || c >= 127) {
        appendHexEscape(out, 'x', c, 2);
    } else {
        out += static_cast<char>(c);
    }
}

// Reads `digits` hexadecimal digits at `pos`; false when there are fewer.
bool readHex(const std::string& str, size_t pos, int digits, uint32_t& value) {
    if (pos + static_cast<size_t>(digits) > str.size()) {
        return false;
    }
    const char* first = str.data() + pos;
    auto [end, error] = std::from_chars(first, first + digits, value, 16);
    return error == std::errc() && end == first + digits;
}

bool isHighSurrogate(uint32_t c) {
    return c >= 0xD800 && c <= 0xDBFF;
}

bool isLowSurrogate(uint32_t c) {
    return c >= 0xDC00 && c <= 0xDFFF;
}

// Reads the escape that starts with the backslash at `pos` into `out`, the bytes of UTF-8; returns the
// length read, or 0 when it is no escape of the encoders. A surrogate pair of "\u" escapes is one
// character.
size_t decodeEscape(const std::string& str, size_t pos, std::string& out) {
    size_t length = 0;
    uint32_t value = 0;
    const char kind = pos + 1 < str.size() ? str[pos + 1] : 0;
    if (kind == 'r' || kind == 't' || kind == 'n') {
        out += kind == 'r' ? '\r' : (kind == 't' ? '\t' : '\n');
        length = 2;
    } else if (kind == '\\' || kind == '"' || kind == '\'') {
        // What enquote escapes: the backslash and both quotes.
        out += kind;
        length = 2;
    } else if (kind == 'x' && readHex(str, pos + 2, 2, value)) {
        out += static_cast<char>(value);
        length = 4;
    } else if (kind == 'u' && readHex(str, pos + 2, 4, value)) {
        length = 6;
        uint32_t low = 0;
        if (isHighSurrogate(value) && str.compare(pos + 6, 2, "\\u") == 0 && readHex(str, pos + 8, 4, low) &&
            isLowSurrogate(low)) {
            value = 0x10000 + ((value - 0xD800) << 10) + (low - 0xDC00);
            length = 12;
        }
        Utils::appendCodePoint(out, value);
    }
    return length;
}

// Bytes a UTF-8 sequence has after its lead byte; -1 for a byte that can't lead one.
int continuationCount(unsigned char lead) {
    int count = -1;
    if (lead < 0x80) {
        count = 0;
    } else if (lead >= 0xC0 && lead < 0xE0) {
        count = 1;
    } else if (lead >= 0xE0 && lead < 0xF0) {
        count = 2;
    } else if (lead >= 0xF0 && lead < 0xF8) {
        count = 3;
    }
    return count;
}

// Reads the UTF-8 sequence at `pos` into `codePoint`; returns its length, or 0 when it is broken
// (a bad lead or continuation byte, cut short, or longer than the code point needs).
size_t readUtf8(const std::string& str, size_t pos, uint32_t& codePoint) {
    static constexpr uint32_t kSmallestOfLength[] = {0, 0x80, 0x800, 0x10000};
    const auto lead = static_cast<unsigned char>(str[pos]);
    const int count = continuationCount(lead);
    if (count < 0 || pos + static_cast<size_t>(count) >= str.size()) {
        return 0;
    }
    codePoint = count == 0 ? lead : lead & (0x3F >> count);
    for (int i = 1; i <= count; ++i) {
        const auto c = static_cast<unsigned char>(str[pos + static_cast<size_t>(i)]);
        if ((c & 0xC0) != 0x80) {
            return 0;
        }
        codePoint = (codePoint << 6) | (c & 0x3F);
    }
    return codePoint < kSmallestOfLength[count] ? 0 : static_cast<size_t>(count) + 1;
}

// Length of the character that starts at `pos`: its byte and the continuation bytes behind it.
size_t characterLength(const std::string& str, size_t pos) {
    size_t end = pos + 1;
    while (end < str.size() && (static_cast<unsigned char>(str[end]) & 0xC0) == 0x80) {
        ++end;
    }
    return end - pos;
}

bool isIdentifierCharacter(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '$';
}

// Splits at `separator`, keeping it at the end of each piece when `isKept`.
std::vector<std::string> splitPieces(const std::string& str, char separator, bool isKept) {
    std::vector<std::string> pieces;
    size_t start = 0;
    for (size_t end = str.find(separator); end != std::string::npos; end = str.find(separator, start)) {
        pieces.push_back(str.substr(start, end - start + (isKept ? 1 : 0)));
        start = end + 1;
    }
    pieces.push_back(str.substr(start));
    return pieces;
}

} // namespace

std::string Utils::encodeString(const std::string& str) {
    std::string encoded;
    encoded.reserve(str.size());
    for (char c : str) {
        appendEncodedByte(encoded, static_cast<unsigned char>(c));
    }
    return encoded;
}

// Characters beyond the first 65536 are written as a surrogate pair, which the decoders join again;
// values that are no Unicode character become U+FFFD.
std::string Utils::encodeWString(const std::wstring& wstr) {
    std::string encoded;
    encoded.reserve(wstr.size());
    for (wchar_t wc : wstr) {
        auto c = static_cast<uint32_t>(wc);
        if (c < 128) {
            appendEncodedByte(encoded, static_cast<unsigned char>(c));
        } else if (c <= 0xFFFF) {
            appendHexEscape(encoded, 'u', c, 4);
        } else if (c <= 0x10FFFF) {
            appendHexEscape(encoded, 'u', 0xD800 + ((c - 0x10000) >> 10), 4);
            appendHexEscape(encoded, 'u', 0xDC00 + ((c - 0x10000) & 0x3FF), 4);
        } else {
            appendHexEscape(encoded, 'u', 0xFFFD, 4);
        }
    }
    return encoded;
}

// A backslash that starts no escape of the encoders or of enquote stays as it is.
std::string Utils::decodeString(const std::string& str) {
    std::string decoded;
    decoded.reserve(str.size());
    for (size_t pos = 0; pos < str.size();) {
        size_t length = str[pos] == '\\' ? decodeEscape(str, pos, decoded) : 0;
        if (length == 0) {
            decoded += str[pos];
            length = 1;
        }
        pos += length;
    }
    return decoded;
}

// Decodes the escapes into UTF-8 first, so that escaped and literal bytes join alike. A broken sequence
// loses its first byte, a code point beyond wchar_t's (or Unicode's) range its whole sequence.
std::wstring Utils::decodeWString(const std::string& str) {
    static constexpr uint32_t kLargestCharacter =
        std::min<uint64_t>(0x10FFFF, static_cast<uint64_t>(std::numeric_limits<wchar_t>::max()));
    const std::string bytes = decodeString(str);
    std::wstring decoded;
    decoded.reserve(bytes.size());
    for (size_t pos = 0; pos < bytes.size();) {
        uint32_t codePoint = 0;
        const size_t length = readUtf8(bytes, pos, codePoint);
        if (length == 0) {
            LOG_ERROR("cannot decode UTF8");
            pos += 1;
        } else if (codePoint > kLargestCharacter) {
            LOG_ERROR("UTF char does not fit in wchar_t");
            pos += length;
        } else {
            decoded += static_cast<wchar_t>(codePoint);
            pos += length;
        }
    }
    return decoded;
}

std::string Utils::enquote(const std::string& str, char quoteChar) {
    std::string quoted(1, quoteChar);
    for (char c : str) {
        if (c == quoteChar || c == '\\') {
            quoted += '\\';
            quoted += c;
        } else {
            appendEncodedByte(quoted, static_cast<unsigned char>(c));
        }
    }
    quoted += quoteChar;
    return quoted;
}

std::string Utils::escapeIPC(const std::string& str) {
    std::string escaped;
    escaped.reserve(str.size());
    for (char c : str) {
        if (c == '-') {
            escaped += "--";
        } else if (c == '\n') {
            escaped += "-n";
        } else if (c == '\0') {
            escaped += "-z";
        } else {
            escaped += c;
        }
    }
    return escaped;
}

// A minus sign that starts no escape stays as it is.
std::string Utils::unescapeIPC(const std::string& str) {
    std::string unescaped;
    unescaped.reserve(str.size());
    for (size_t pos = 0; pos < str.size(); ++pos) {
        const char next = pos + 1 < str.size() ? str[pos + 1] : 0;
        if (str[pos] == '-' && (next == '-' || next == 'n' || next == 'z')) {
            unescaped += next == '-' ? '-' : (next == 'n' ? '\n' : '\0');
            ++pos;
        } else {
            unescaped += str[pos];
        }
    }
    return unescaped;
}

std::string Utils::escapeSerializer(const std::string& str, const EscapeTable& table) {
    std::string escaped;
    escaped.reserve(str.size());
    for (char c : str) {
        const unsigned char letter = table.letterFor(static_cast<unsigned char>(c));
        if (letter != EscapeTable::NO_ENTRY) {
            escaped += static_cast<char>(EscapeTable::ESCAPE_CHAR);
            escaped += static_cast<char>(letter);
        } else {
            escaped += c;
        }
    }
    return escaped;
}

// A letter the table doesn't know stands for itself, and a backslash at the very end is dropped: any
// text unescapes to something, and escaped text comes back exactly.
std::string Utils::unescapeSerializer(const std::string& str, const EscapeTable& table) {
    std::string unescaped;
    unescaped.reserve(str.size());
    bool isEscaped = false; // the previous byte was an escaping backslash
    for (char c : str) {
        const auto byte = static_cast<unsigned char>(c);
        if (isEscaped) {
            const unsigned char meant = table.byteFor(byte);
            unescaped += meant != EscapeTable::NO_ENTRY ? static_cast<char>(meant) : c;
            isEscaped = false;
        } else if (byte == EscapeTable::ESCAPE_CHAR) {
            isEscaped = true;
        } else {
            unescaped += c;
        }
    }
    return unescaped;
}

// One pass with a single resume point: on a mismatch only the last "*" takes one more character, since
// earlier stars can't help once a later one matched. So a long text with many stars stays quadratic at
// worst. "?" takes one UTF-8 character.
bool Utils::isWildCardMatch(const std::string& str, const std::string& pattern) {
    size_t s = 0;
    size_t p = 0;
    size_t starP = std::string::npos; // the last "*" seen
    size_t starS = 0;                 // where the text behind that "*" resumes
    while (s < str.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            starP = p++;
            starS = s;
        } else if (p < pattern.size() && pattern[p] == '?') {
            s += characterLength(str, s);
            ++p;
        } else if (p < pattern.size() && pattern[p] == str[s]) {
            ++s;
            ++p;
        } else if (starP != std::string::npos) {
            starS += characterLength(str, starS);
            s = starS;
            p = starP + 1;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') {
        ++p;
    }
    return p == pattern.size();
}

bool Utils::isIdentifierName(const std::string& str) {
    return ! str.empty() && ! (str[0] >= '0' && str[0] <= '9') &&
           std::all_of(str.begin(), str.end(), [](unsigned char c) { return isIdentifierCharacter(c); });
}

std::string Utils::trim(const std::string& str) {
    static const char* const kBlanks = " \t\r\n";
    const size_t first = str.find_first_not_of(kBlanks);
    if (first == std::string::npos) {
        return std::string();
    }
    return str.substr(first, str.find_last_not_of(kBlanks) - first + 1);
}

std::string Utils::replaceSubStr(const std::string& str, const std::string& from, const std::string& to) {
    if (from.empty()) {
        return str;
    }
    std::string replaced;
    size_t start = 0;
    for (size_t found = str.find(from); found != std::string::npos; found = str.find(from, start)) {
        replaced.append(str, start, found - start);
        replaced += to;
        start = found + from.size();
    }
    replaced.append(str, start, std::string::npos);
    return replaced;
}

std::vector<std::string> Utils::splitIntoLines(const std::string& str) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < str.size()) {
        size_t end = str.find_first_of("\r\n", start);
        if (end == std::string::npos) {
            end = str.size();
        }
        if (end > start) {
            lines.push_back(str.substr(start, end - start));
        }
        start = end + 1;
    }
    return lines;
}

// An empty string is one empty piece.
std::vector<std::string> Utils::split(const std::string& str, char separator) {
    return splitPieces(str, separator, false);
}

// The pieces join to the whole string again.
std::vector<std::string> Utils::splitAfter(const std::string& str, char separator) {
    return splitPieces(str, separator, true);
}

namespace {

// Where splitCommandWords stands between two characters.
enum class WordState {
    BETWEEN,       // between words
    PLAIN,         // in a word, outside quotes
    SINGLE_QUOTED, // inside '...'
    DOUBLE_QUOTED, // inside "..."
};

bool isWordBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n';
}

// The characters a backslash escapes inside double quotes; before any other it stays itself.
bool isEscapedInDoubleQuotes(char c) {
    return c == '\\' || c == '"' || c == '$' || c == '`' || c == '\n';
}

} // namespace

bool Utils::splitCommandWords(const std::string& str, std::vector<std::string>& words) {
    words.clear();
    WordState state = WordState::BETWEEN;
    std::string word;
    bool isComplete = true;
    for (size_t i = 0; i < str.size() && isComplete; ++i) {
        const char c = str[i];
        if (state == WordState::SINGLE_QUOTED) {
            state = c == '\'' ? WordState::PLAIN : state;
            if (c != '\'') {
                word += c;
            }
            continue;
        }
        if (c == '\\') {
            isComplete = i + 1 < str.size();
            const char next = isComplete ? str[++i] : 0;
            if (state == WordState::DOUBLE_QUOTED && ! isEscapedInDoubleQuotes(next)) {
                word += c;
            }
            // A backslash before a line feed joins the lines.
            if (isComplete && next != '\n') {
                word += next;
            }
            if (state == WordState::BETWEEN && next != '\n') {
                state = WordState::PLAIN;
            }
        } else if (state == WordState::DOUBLE_QUOTED) {
            state = c == '"' ? WordState::PLAIN : state;
            if (c != '"') {
                word += c;
            }
        } else if (isWordBlank(c)) {
            if (state == WordState::PLAIN) {
                words.push_back(word);
                word.clear();
            }
            state = WordState::BETWEEN;
        } else if (c == '\'' || c == '"') {
            state = c == '\'' ? WordState::SINGLE_QUOTED : WordState::DOUBLE_QUOTED;
        } else {
            word += c;
            state = WordState::PLAIN;
        }
    }
    isComplete = isComplete && (state == WordState::BETWEEN || state == WordState::PLAIN);
    if (state == WordState::PLAIN) {
        words.push_back(word);
    }
    if (! isComplete) {
        words.clear();
    }
    return isComplete;
}

std::string Utils::format(const char* formatStr, ...) {
    std::string result;
    va_list args;
    va_start(args, formatStr);
    va_list argsCopy;
    va_copy(argsCopy, args);
    int length = vsnprintf(nullptr, 0, formatStr, argsCopy);
    va_end(argsCopy);
    if (length > 0) {
        result.resize(static_cast<size_t>(length) + 1);
        vsnprintf(result.data(), result.size(), formatStr, args);
        result.resize(static_cast<size_t>(length));
    }
    va_end(args);
    return result;
}

bool Utils::isNumeric(const std::string& str) {
    return ! str.empty() &&
           std::all_of(str.begin(), str.end(), [](unsigned char c) { return std::isdigit(c); });
}

bool Utils::isNumberUpTo(const std::string& str, uint64_t largest) {
    uint64_t value = 0;
    const char* last = str.data() + str.size();
    auto [end, error] = std::from_chars(str.data(), last, value);
    return isNumeric(str) && error == std::errc() && end == last && value <= largest;
}

std::string Utils::toLower(const std::string& str) {
    std::string lower = str;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

int64_t Utils::toInt64(const std::string& str) {
    int64_t value = 0;
    const char* first = str.data();
    const char* last = first + str.size();
    while (first != last && std::isspace(static_cast<unsigned char>(*first))) {
        ++first;
    }
    if (first != last && *first == '+') {
        ++first;
    }
    auto [end, error] = std::from_chars(first, last, value);
    if (error == std::errc::invalid_argument) {
        LOG_ERROR("invalid stoll argument");
        value = 0;
    } else if (error == std::errc::result_out_of_range) {
        LOG_ERROR("stoll argument out of range");
        value = 0;
    }
    (void)end;
    return value;
}

std::string Utils::getTimeStamp() {
    char buffer[80] = {0};
    time_t now = time(nullptr);
    struct tm local {};
    if (localtime_r(&now, &local) != nullptr) {
        strftime(buffer, sizeof(buffer), "%d-%m-%Y %H:%M:%S", &local);
    }
    return buffer;
}

bool Utils::toBool(const std::string& str) {
    return str == "true";
}

std::string Utils::toString(bool value) {
    return value ? "true" : "false";
}

// As the standard's stoull, but a minus sign is an invalid argument instead of a wrapped-around number.
uint64_t Utils::toUInt64(const std::string& str) {
    uint64_t value = 0;
    const char* first = str.data();
    const char* last = first + str.size();
    while (first != last && std::isspace(static_cast<unsigned char>(*first))) {
        ++first;
    }
    if (first != last && *first == '+') {
        ++first;
    }
    auto [end, error] = std::from_chars(first, last, value);
    if (error == std::errc::invalid_argument) {
        LOG_ERROR("invalid stoull argument");
        value = 0;
    } else if (error == std::errc::result_out_of_range) {
        LOG_ERROR("stoull argument out of range");
        value = 0;
    }
    (void)end;
    return value;
}

// Values beyond Unicode's last code point are written as U+FFFD.
void Utils::appendCodePoint(std::string& str, uint32_t codePoint) {
    if (codePoint > 0x10FFFF) {
        codePoint = 0xFFFD;
    }
    if (codePoint < 0x80) {
        str += static_cast<char>(codePoint);
    } else if (codePoint < 0x800) {
        str += static_cast<char>(0xC0 | (codePoint >> 6));
        str += static_cast<char>(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
        str += static_cast<char>(0xE0 | (codePoint >> 12));
        str += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
        str += static_cast<char>(0x80 | (codePoint & 0x3F));
    } else {
        str += static_cast<char>(0xF0 | (codePoint >> 18));
        str += static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F));
        str += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
        str += static_cast<char>(0x80 | (codePoint & 0x3F));
    }
}

} // namespace Brw
