#pragma once

#include <array>
#include <cstddef>

namespace Brw {

// One backslash escape scheme as a pair of 256-entry lookup tables: for each byte the letter that stands
// for it behind a backslash, and for each letter the byte it stands for. The tables are built from a list
// of pairs by a constant expression, so they are complete before the program's first instruction runs.
class EscapeTable {
public:
    // Starts every escape.
    static constexpr unsigned char ESCAPE_CHAR = '\\';
    // An entry without a partner; every real entry is below 128.
    static constexpr unsigned char NO_ENTRY = 0xFF;

    struct Pair {
        unsigned char fByte;   // the byte of the value
        unsigned char fLetter; // what follows the backslash in the escaped text
    };

    template <size_t N>
    constexpr explicit EscapeTable(const Pair (&pairs)[N]) {
        fLetters.fill(NO_ENTRY);
        fBytes.fill(NO_ENTRY);
        for (const Pair& pair : pairs) {
            fLetters[pair.fByte] = pair.fLetter;
            fBytes[pair.fLetter] = pair.fByte;
        }
    }

    // The letter that stands for `byte`, or NO_ENTRY when the byte stands for itself.
    constexpr unsigned char letterFor(unsigned char byte) const { return fLetters[byte]; }
    // The byte that `letter` stands for behind a backslash, or NO_ENTRY.
    constexpr unsigned char byteFor(unsigned char letter) const { return fBytes[letter]; }
    // Every escaped byte comes back from its letter, and the backslash escapes itself.
    constexpr bool isConsistent() const {
        for (size_t byte = 0; byte < fLetters.size(); ++byte) {
            const unsigned char letter = fLetters[byte];
            if (letter != NO_ENTRY && (letter >= 128 || fBytes[letter] != byte)) {
                return false;
            }
        }
        return fLetters[ESCAPE_CHAR] == ESCAPE_CHAR;
    }

    // The lines of the serializer: every control byte below 0x20, both quotes and the backslash.
    static const EscapeTable& serializerLines();
    // The ini and script forms: line feed as "\n", NUL as "\z", the double quote and the backslash.
    static const EscapeTable& textForms();

private:
    std::array<unsigned char, 256> fLetters{}; // byte -> letter
    std::array<unsigned char, 256> fBytes{};   // letter -> byte
};

} // namespace Brw
