#include "BrwCoordinator/BrwPipes/BrwPipePacket.h"

namespace Brw {

namespace {
constexpr unsigned BITS_PER_BYTE = 8;
} // namespace

uint64_t PipePacket::readNumber(size_t offset, size_t size) const {
    uint64_t value = 0;
    for (size_t i = size; i > 0; --i) {
        value = (value << BITS_PER_BYTE) | fBytes[offset + i - 1];
    }
    return value;
}

void PipePacket::writeNumber(size_t offset, size_t size, uint64_t value) {
    for (size_t i = 0; i < size; ++i) {
        fBytes[offset + i] = static_cast<uint8_t>(value >> (BITS_PER_BYTE * i));
    }
}

} // namespace Brw
