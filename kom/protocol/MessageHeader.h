#pragma once

#include <cstdint>
#include <vector>

namespace vela::kom {

// The 7 bytes that open every message in both directions:
//   offset 0  start byte, always 0xC3
//   offset 1  total message length, header included, unsigned 32-bit big-endian
//   offset 5  group (0x60 for every request the library sends)
//   offset 6  unit: the part of the printer addressed (file system, device control, ...)
// Group and unit are kept in 32-bit fields; only their low 8 bits go on the wire.
// A plain value: no I/O, never throws except for memory; usable from any thread.
class MessageHeader {
public:
    static constexpr uint8_t kStartByte = 0xC3;
    static constexpr uint32_t kSize = 7;
    static constexpr uint32_t kRequestGroup = 0x60;

    // Units addressed by the requests.
    static constexpr uint32_t kUnitFileSystem = 0x04; // file system and the completion poll
    static constexpr uint32_t kUnitDevice = 0x06;     // device control, update status report
    static constexpr uint32_t kUnitVersion = 0x07;    // version query
    static constexpr uint32_t kUnitPrinter = 0x10;    // status, print control, cassette memory

    MessageHeader(uint32_t totalLength, uint32_t group, uint32_t unit, uint8_t start = kStartByte)
        : m_start(start), m_totalLength(totalLength), m_group(group), m_unit(unit) {}

    // The header of a request to `unit` carrying `payloadLength` bytes after the header.
    static MessageHeader ForRequest(uint32_t unit, uint32_t payloadLength) {
        return MessageHeader(payloadLength + kSize, kRequestGroup, unit);
    }

    uint8_t Start() const { return m_start; }
    uint32_t TotalLength() const { return m_totalLength; }
    uint32_t Group() const { return m_group; }
    uint32_t Unit() const { return m_unit; }
    uint32_t PayloadLength() const { return m_totalLength - kSize; } // wraps below 7, like the wire

    // The 7 wire bytes; the sender appends the payload to this vector.
    std::vector<uint8_t> Serialize() const;
    // Appends the 7 wire bytes to `out`.
    void AppendTo(std::vector<uint8_t>& out) const;

private:
    uint8_t m_start;
    uint32_t m_totalLength;
    uint32_t m_group;
    uint32_t m_unit;
};

} // namespace vela::kom
