#pragma once

// The lines that the pipe test programs send and check: each says which writer sent it and its place in
// that writer's order, and the rest of it follows from those two, so that a line cut, mixed up or
// half repeated doesn't pass.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

namespace BrwTests {

constexpr size_t LETTER_COUNT = 26;

// The alphabet over and over, long enough for the filling of any line from any place in it.
inline const std::string& letterCycle() {
    static const std::string cycle = [] {
        constexpr size_t length = (1 << 20) + LETTER_COUNT;
        std::string letters(length, ' ');
        for (size_t index = 0; index < length; ++index) {
            letters[index] = static_cast<char>('a' + index % LETTER_COUNT);
        }
        return letters;
    }();
    return cycle;
}

// Where in the cycle the filling of a line begins; the index counts from the line's start.
inline size_t fillOffset(uint32_t writer, uint64_t sequence, size_t index) {
    return static_cast<size_t>((writer * 31 + sequence * 7 + index) % LETTER_COUNT);
}

// "WRITER SEQUENCE " and filling up to `size` characters with the line feed; never shorter than the
// prefix and the line feed.
inline std::string makeLine(uint32_t writer, uint64_t sequence, size_t size) {
    std::string line = std::to_string(writer) + " " + std::to_string(sequence) + " ";
    const size_t prefixSize = line.size();
    if (size > prefixSize + 1) {
        line.append(letterCycle(), fillOffset(writer, sequence, prefixSize), size - prefixSize - 1);
    }
    return line + "\n";
}

inline bool parseNumber(const std::string& text, uint64_t& number) {
    number = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
        number = number * 10 + static_cast<uint64_t>(c - '0');
    }
    return ! text.empty();
}

// True for a line that makeLine made; gives its writer and sequence.
inline bool checkLine(const std::string& line, uint32_t& writer, uint64_t& sequence) {
    size_t firstBlank = line.find(' ');
    size_t secondBlank = firstBlank == std::string::npos ? firstBlank : line.find(' ', firstBlank + 1);
    if (secondBlank == std::string::npos || line.empty() || line.back() != '\n') {
        return false;
    }
    if (! parseNumber(line.substr(0, firstBlank), sequence)) {
        return false;
    }
    writer = static_cast<uint32_t>(sequence);
    if (! parseNumber(line.substr(firstBlank + 1, secondBlank - firstBlank - 1), sequence)) {
        return false;
    }
    const size_t fillSize = line.size() - secondBlank - 2;
    return line.compare(secondBlank + 1, fillSize, letterCycle(),
                        fillOffset(writer, sequence, secondBlank + 1), fillSize) == 0;
}

// Sizes from 1 to `largest`, spread evenly over their orders of magnitude: many short lines and some
// long ones, as messages come. `state` is the generator's, advanced by each call.
inline size_t lineSize(uint64_t& state, size_t largest) {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    const double fraction = static_cast<double>(state >> 11) / static_cast<double>(1ULL << 53);
    return static_cast<size_t>(std::exp(fraction * std::log(static_cast<double>(largest))));
}

} // namespace BrwTests
