#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace Brw {

// One packet as it travels and as it sits in memory: a 24-byte header, then up to 4072 bytes of data,
// every number little-endian whatever the machine.
//
//   offset 0  u64 string number   counts one writer's strings, the first is 1
//   offset 8  u64 packet number   0 for a string's first packet, then counting up
//   offset 16 u32 process id      the writer's own word; the reader trusts the kernel's instead
//   offset 20 u16 data size       bytes of data behind the header
//   offset 22 u16 padding         sent as it stands
//
// The data of packet 0 begins with the string's total length as a u64; its characters follow, there and
// in the next packets.
class PipePacket {
public:
    static constexpr const char* TYPENAME = "PipePacket";
    static constexpr size_t HEADER_SIZE = 24;
    static constexpr size_t MAX_PACKET_SIZE = 4096;
    static constexpr size_t MAX_DATA_SIZE = MAX_PACKET_SIZE - HEADER_SIZE;
    // The string's length at the start of packet 0's data.
    static constexpr size_t STRING_LENGTH_SIZE = sizeof(uint64_t);

    uint64_t getStringNumber() const { return readNumber(STRING_NUMBER_OFFSET, sizeof(uint64_t)); }
    uint64_t getPacketNumber() const { return readNumber(PACKET_NUMBER_OFFSET, sizeof(uint64_t)); }
    uint32_t getProcessId() const {
        return static_cast<uint32_t>(readNumber(PROCESS_ID_OFFSET, sizeof(uint32_t)));
    }
    uint16_t getDataSize() const {
        return static_cast<uint16_t>(readNumber(DATA_SIZE_OFFSET, sizeof(uint16_t)));
    }
    // The length at the start of the data: meaningful in packet 0 only.
    uint64_t getStringLength() const { return readNumber(HEADER_SIZE, STRING_LENGTH_SIZE); }

    void setStringNumber(uint64_t value) { writeNumber(STRING_NUMBER_OFFSET, sizeof(uint64_t), value); }
    void setPacketNumber(uint64_t value) { writeNumber(PACKET_NUMBER_OFFSET, sizeof(uint64_t), value); }
    void setProcessId(uint32_t value) { writeNumber(PROCESS_ID_OFFSET, sizeof(uint32_t), value); }
    void setDataSize(uint16_t value) { writeNumber(DATA_SIZE_OFFSET, sizeof(uint16_t), value); }
    void setStringLength(uint64_t value) { writeNumber(HEADER_SIZE, STRING_LENGTH_SIZE, value); }

    // The whole packet, header first.
    uint8_t* bytes() { return fBytes.data(); }
    const uint8_t* bytes() const { return fBytes.data(); }
    // The data part.
    uint8_t* data() { return fBytes.data() + HEADER_SIZE; }
    const uint8_t* data() const { return fBytes.data() + HEADER_SIZE; }

private:
    static constexpr size_t STRING_NUMBER_OFFSET = 0;
    static constexpr size_t PACKET_NUMBER_OFFSET = 8;
    static constexpr size_t PROCESS_ID_OFFSET = 16;
    static constexpr size_t DATA_SIZE_OFFSET = 20;

    uint64_t readNumber(size_t offset, size_t size) const;
    void writeNumber(size_t offset, size_t size, uint64_t value);

    std::array<uint8_t, MAX_PACKET_SIZE> fBytes{}; // header and data
};

} // namespace Brw
