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

} // namespace Brw
