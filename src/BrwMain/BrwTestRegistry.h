#pragma once

namespace Brw {

// The one list of the program's self-test classes, registered once at start.
class TestRegistry {
public:
    [[nodiscard]] static bool registerAll();
};

} // namespace Brw
