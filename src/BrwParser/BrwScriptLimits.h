#pragma once

#include <cstdint>
#include <string>

namespace Brw {

// What one script may ask of the process, in one place. Past a limit the script gets a script error (and
// an Error value where a value is due) and goes on; nothing grows until the process runs out of memory or
// stack.
class ScriptLimits {
public:
    // Levels of nesting in one statement: brackets, blocks, calls, branches, prefix operators, and the
    // operators of one expression but `+`, `,` and `;`, whose chains stay flat.
    static constexpr uint64_t NESTING_DEPTH = 1000;
    // Calls in progress at once (the native stack may end recursion earlier).
    static constexpr int64_t CALL_DEPTH = 2000;
    // Bytes of one text: 256 MiB.
    static constexpr uint64_t TEXT_BYTES = uint64_t{1} << 28;
    // Elements of one array, or attributes of one map.
    static constexpr uint64_t CONTAINER_ELEMENTS = uint64_t{1} << 24;

    // The limits in force: those above, but smaller while a test reaches them cheaply, or while a fuzzer
    // would otherwise spend its time in deep recursions.
    static inline int64_t fCallDepth = CALL_DEPTH;
    static inline uint64_t fTextBytes = TEXT_BYTES;
    static inline uint64_t fContainerElements = CONTAINER_ELEMENTS;

    static bool isTextWithinLimit(uint64_t byteCount) { return byteCount <= fTextBytes; }
    static bool isContainerWithinLimit(uint64_t elementCount) { return elementCount <= fContainerElements; }
    // An element at `index` makes an array of index + 1 elements (said without the overflow of the sum).
    static bool isIndexWithinLimit(uint64_t index) { return index < fContainerElements; }
    // True when a text of `byteCount` bytes may be made; otherwise reports "text too long" and false.
    [[nodiscard]] static bool isTextAllowed(uint64_t byteCount);
    // The script error of a text past the limit.
    static std::string textTooLongMessage();
    // True when a container may hold `elementCount` elements; otherwise reports "too many elements" and
    // false.
    [[nodiscard]] static bool isContainerAllowed(uint64_t elementCount);
    // isContainerAllowed for an element at `index`.
    [[nodiscard]] static bool isIndexAllowed(uint64_t index);
};

} // namespace Brw
