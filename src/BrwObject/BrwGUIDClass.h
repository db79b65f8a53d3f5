#pragma once

#include <cstdint>
#include <string>

namespace Brw {

// An interned 128-bit identifier: equal values are the same pointer, and a GUID lives as long as the
// process. Its text form is "A0000000-0000-0000-0123-456789ABCDEF".
class GUIDClass {
public:
    struct Value {
        uint64_t fHigh; // most significant 64 bits
        uint64_t fLow;  // least significant 64 bits
    };

    virtual ~GUIDClass();
    // The 128-bit value.
    virtual Value get() const { return {fHigh, fLow}; }

    // The interned GUID of this value; (0, 0) is the one static null GUID.
    static GUIDClass* factory(uint64_t high, uint64_t low);
    // Shifts in every hexadecimal digit of the text and skips everything else; of more than 32 digits
    // the last 32 count.
    static GUIDClass* factory(const std::string& text);
    // Exactly 32 hexadecimal digits, and nothing else but "_-[]{}()".
    static bool isGUIDString(const std::string& text);
    // A fresh GUID from the process's MT19937-64 engine.
    static GUIDClass* randomFactory();

    // Upper-case digits with "-" after the 8th, 12th, 16th and 20th; made on first use.
    const std::string& toSectionedString() const;

    bool isNull() const { return fHigh == 0 && fLow == 0; }
    bool operator<(const GUIDClass& other) const {
        return fHigh != other.fHigh ? fHigh < other.fHigh : fLow < other.fLow;
    }

    GUIDClass(const GUIDClass&) = delete;
    GUIDClass& operator=(const GUIDClass&) = delete;

private:
    GUIDClass(uint64_t high, uint64_t low) : fHigh(high), fLow(low) {}

    uint64_t fHigh;                                  // high 64 bits
    uint64_t fLow;                                   // low 64 bits
    mutable std::string* fSectionedString = nullptr; // cached text, owned
    std::string* fSecondString = nullptr;            // reserved second text, owned, never filled
};

} // namespace Brw
