#pragma once

#include <cstdint>
#include <string>

namespace Brw {

// The string that one writer's connection is in the middle of sending.
struct ReadPipeBuffer {
    static constexpr const char* TYPENAME = "ReadPipeBuffer";
    // The string number before packet 0 has set it.
    static constexpr uint64_t STRING_NUMBER_NOT_SET = UINT64_MAX;
    // Room set aside at packet 0 at most: a length in a packet is the writer's word, not memory to hand out.
    static constexpr uint64_t RESERVE_LIMIT = 1 << 20;

    // Starts over for a string of `expectedLength` characters.
    void reset(uint64_t expectedLength) {
        fStringNumber = STRING_NUMBER_NOT_SET;
        fNextPacketNumber = 0;
        fExpectedLength = expectedLength;
        fCharacters.clear();
        fCharacters.reserve(expectedLength < RESERVE_LIMIT ? expectedLength : RESERVE_LIMIT);
    }

    uint64_t fStringNumber = STRING_NUMBER_NOT_SET; // the string being received
    uint64_t fNextPacketNumber = 0;                 // the packet expected next
    uint64_t fExpectedLength = 0;                   // from packet 0
    std::string fCharacters;                        // received so far
};

} // namespace Brw
