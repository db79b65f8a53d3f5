#pragma once

#include <memory>
#include <string>
#include <vector>

#include "BrwSerializer/BrwISerializer.h"

namespace Brw {

// The path of a service below its coordinator, as child name and child number in turn:
// "net.braidwell.service.null/0/top/0/subtest/1". Empty means the coordinator itself.
class IndexedAddress_trait {
public:
    // The number of a child that a path leaves out: a name alone means its first namesake.
    static constexpr const char* FIRST_CHILD = "0";
    static constexpr char SEPARATOR = '/';

    // `indices` is split and normalised once, here.
    explicit IndexedAddress_trait(std::string indices);

    // Splits `indices` on "/" into `indexList`. The first name is taken as it is; every later name must
    // be a service name ("invalid index name") and every number digits ("invalid index number"): a
    // failure is reported and the split goes on. A path that ends in a name gets the number 0, in the
    // list and in `indices`.
    static void splitIndices(std::string& indices, std::vector<std::string>& indexList);
    // Dots and identifier characters, not empty, no digit first.
    static bool isServiceName(const std::string& name);

protected:
    // The path as one line, both ways; a path read is split as one given.
    [[nodiscard]] bool serializeDeserializeIndices(SerializeDeserialize mode,
                                                   const std::shared_ptr<ISerializer>& serializer);

    std::string fIndices;                // normalised
    std::vector<std::string> fIndexList; // the same, split
};

} // namespace Brw
