#include "BrwObject/BrwGUIDClass.h"

#include <random>
#include <unordered_map>

namespace Brw {

namespace {

struct GUIDKey {
    uint64_t fHigh;
    uint64_t fLow;
    bool operator==(const GUIDKey& other) const { return fHigh == other.fHigh && fLow == other.fLow; }
};

struct GUIDKeyHash {
    size_t operator()(const GUIDKey& key) const { return static_cast<size_t>(key.fHigh ^ key.fLow); }
};

// Interned GUIDs are never freed: pointers to them may be held anywhere for the life of the process.
std::unordered_map<GUIDKey, GUIDClass*, GUIDKeyHash>& internTable() {
    static auto* table = new std::unordered_map<GUIDKey, GUIDClass*, GUIDKeyHash>();
    return *table;
}

int hexDigitValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

} // namespace

GUIDClass::~GUIDClass() {
    delete fSectionedString;
    delete fSecondString;
}

GUIDClass* GUIDClass::factory(uint64_t high, uint64_t low) {
    if (high == 0 && low == 0) {
        static GUIDClass* nullGUID = new GUIDClass(0, 0);
        return nullGUID;
    }
    auto& table = internTable();
    auto [iter, isNew] = table.try_emplace(GUIDKey{high, low}, nullptr);
    if (isNew) {
        iter->second = new GUIDClass(high, low);
    }
    return iter->second;
}

GUIDClass* GUIDClass::factory(const std::string& text) {
    uint64_t high = 0;
    uint64_t low = 0;
    for (char c : text) {
        int digit = hexDigitValue(c);
        if (digit >= 0) {
            high = (high << 4) | (low >> 60);
            low = (low << 4) | static_cast<uint64_t>(digit);
        }
    }
    return factory(high, low);
}

bool GUIDClass::isGUIDString(const std::string& text) {
    static const std::string separators = "_-[]{}()";
    int digitCount = 0;
    for (char c : text) {
        if (hexDigitValue(c) >= 0) {
            if (++digitCount > 32) {
                return false;
            }
        } else if (separators.find(c) == std::string::npos) {
            return false;
        }
    }
    return digitCount == 32;
}

GUIDClass* GUIDClass::randomFactory() {
    static std::mt19937_64* engine = nullptr;
    if (engine == nullptr) {
        std::random_device device;
        uint64_t upper = device();
        uint64_t lower = device();
        static std::mt19937_64 seeded((upper << 32) | (lower & 0xFFFFFFFFu));
        engine = &seeded;
    }
    uint64_t high = (*engine)();
    uint64_t low = (*engine)();
    return factory(high, low);
}

const std::string& GUIDClass::toSectionedString() const {
    if (fSectionedString == nullptr) {
        static const char digits[] = "0123456789ABCDEF";
        auto* text = new std::string();
        text->reserve(36);
        for (int nibble = 0; nibble < 32; ++nibble) {
            uint64_t word = nibble < 16 ? fHigh : fLow;
            int shift = 60 - 4 * (nibble % 16);
            text->push_back(digits[(word >> shift) & 0xF]);
            if (nibble == 7 || nibble == 11 || nibble == 15 || nibble == 19) {
                text->push_back('-');
            }
        }
        fSectionedString = text;
    }
    return *fSectionedString;
}

} // namespace Brw
