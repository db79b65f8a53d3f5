#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Brw {

// FNV-1a over bytes: the hash of every table keyed by strings.
struct FNV1aHash {
    static constexpr uint64_t OFFSET_BASIS = 0xcbf29ce484222325ULL;
    static constexpr uint64_t PRIME = 0x100000001b3ULL;

    static uint64_t hashBytes(std::string_view bytes, uint64_t hash = OFFSET_BASIS) {
        for (unsigned char c : bytes) {
            hash ^= c;
            hash *= PRIME;
        }
        return hash;
    }

    size_t operator()(const std::string& str) const { return static_cast<size_t>(hashBytes(str)); }
};

// FNV-1a over the eight bytes of a pointer: the hash of tables keyed by interned GUIDs.
struct FNV1aPointerHash {
    size_t operator()(const void* pointer) const {
        const auto value = reinterpret_cast<uintptr_t>(pointer);
        return static_cast<size_t>(
            FNV1aHash::hashBytes(std::string_view(reinterpret_cast<const char*>(&value), sizeof(value))));
    }
};

// A hash computed on first request and kept, for values that don't change once made.
class CachedHash {
public:
    // Not computed yet: a hash that comes out as this is simply computed again.
    static constexpr uint64_t NOT_COMPUTED = 0;

    template <class Compute>
    uint64_t get(Compute compute) const {
        if (fHash == NOT_COMPUTED) {
            fHash = compute();
        }
        return fHash;
    }
    void reset() { fHash = NOT_COMPUTED; }

private:
    mutable uint64_t fHash = NOT_COMPUTED; // the hash, or NOT_COMPUTED
};

} // namespace Brw
