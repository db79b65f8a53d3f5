#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "BrwUtils/BrwEscapeTable.h"

namespace Brw {

// Static helpers on strings, which are bytes of UTF-8 (std::wstring for the wide forms).
class Utils {
public:
    static constexpr const char* TYPENAME = "Utils";

    // Escapes: control bytes and bytes from 127 on as "\xHH"; \r \t \n as their two-character escapes.
    static std::string encodeString(const std::string& str);
    // As encodeString, with characters from 128 on as "\uHHHH".
    static std::string encodeWString(const std::wstring& wstr);
    // The reverse of both encoders, into UTF-8 bytes.
    static std::string decodeString(const std::string& str);
    // The reverse into wide text; "\x" bytes that form UTF-8 join into one character.
    static std::wstring decodeWString(const std::string& str);
    // quoteChar, the encoded text with quoteChar and backslash escaped, quoteChar.
    static std::string enquote(const std::string& str, char quoteChar);
    // Pipe lines: "-" becomes "--", a line feed "-n", a NUL byte "-z".
    static std::string escapeIPC(const std::string& str);
    static std::string unescapeIPC(const std::string& str);
    // Backslash escapes by `table`: by default the ini and script forms (line feed as \n, NUL as \z, quote
    // and backslash with a backslash); the serializer's lines use EscapeTable::serializerLines().
    static std::string escapeSerializer(const std::string& str,
                                        const EscapeTable& table = EscapeTable::textForms());
    static std::string unescapeSerializer(const std::string& str,
                                          const EscapeTable& table = EscapeTable::textForms());

    // "?" matches one character, "*" any run; the whole string must match.
    static bool isWildCardMatch(const std::string& str, const std::string& pattern);
    // Letters, digits, "_" and "$", not empty, not starting with a digit.
    static bool isIdentifierName(const std::string& str);
    // Digits only, not empty.
    static bool isNumeric(const std::string& str);
    // Digits only, not empty, and a number no larger than `largest`.
    static bool isNumberUpTo(const std::string& str, uint64_t largest);

    // Drops blanks, tabs, carriage returns and line feeds at both ends.
    static std::string trim(const std::string& str);
    // Replaces every occurrence; an empty `from` changes nothing.
    static std::string replaceSubStr(const std::string& str, const std::string& from, const std::string& to);
    // Splits at line feeds and carriage returns; empty lines are dropped.
    static std::vector<std::string> splitIntoLines(const std::string& str);
    // Splits at `separator`; a trailing separator gives a last empty piece.
    static std::vector<std::string> split(const std::string& str, char separator);
    // As split, with the separator kept at the end of each piece.
    static std::vector<std::string> splitAfter(const std::string& str, char separator);
    // The words of a command line as a POSIX shell splits them, without any expansion: blanks separate,
    // single quotes keep all, double quotes keep all but the escapes of \\, ", $ and `, and a backslash
    // outside quotes takes the next character as it is. False, with `words` empty, for an unclosed quote
    // or a backslash at the end.
    [[nodiscard]] static bool splitCommandWords(const std::string& str, std::vector<std::string>& words);
    // printf into a string.
    static std::string format(const char* formatStr, ...) __attribute__((format(printf, 1, 2)));

    static bool toBool(const std::string& str);
    static std::string toString(bool value);
    // The standard conversions; a failure is logged and gives 0.
    static int64_t toInt64(const std::string& str);
    static uint64_t toUInt64(const std::string& str);
    static std::string toLower(const std::string& str);

    // Local time as "%d-%m-%Y %H:%M:%S".
    static std::string getTimeStamp();
    // Appends the UTF-8 form of a code point.
    static void appendCodePoint(std::string& str, uint32_t codePoint);
};

} // namespace Brw
