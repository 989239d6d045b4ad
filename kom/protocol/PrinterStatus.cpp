#include "kom/protocol/PrinterStatus.h"

#include <initializer_list>

namespace vela::kom {

namespace {

constexpr size_t kBlockSize = 8;

// Field defaults in record order: what a field keeps when the block has no valid value for it.
constexpr uint32_t kDefaults[PrinterStatus::kFieldCount] = {power_unknown,
                                                            cassette_door_unknown,
                                                            cassette_presence_unknown,
                                                            tph_unknown,
                                                            cutter_unknown,
                                                            label_unknown,
                                                            cassette_memory_unknown,
                                                            print_unknown,
                                                            external_power_unknown,
                                                            battery_unknown,
                                                            charging_unknown,
                                                            operating_unknown,
                                                            0};

// Stores `value` in `field` when it is one of the values the printer may report for it.
void SetIfAccepted(uint32_t& field, uint32_t value, std::initializer_list<uint32_t> accepted) {
    for (uint32_t candidate : accepted) {
        if (candidate == value) {
            field = value;
            return;
        }
    }
}

} // namespace

PrinterStatus::PrinterStatus() {
    for (size_t i = 0; i < kFieldCount; ++i) {
        m_fields[i] = kDefaults[i];
    }
}

PrinterStatus::PrinterStatus(const std::vector<uint8_t>& block) : PrinterStatus() {
    if (block.size() != kBlockSize) {
        return;
    }
    const uint32_t b0 = block[0], b1 = block[1], b2 = block[2], b3 = block[3];
    SetIfAccepted(m_fields[0], b0 & 0x03, {0, 1, 2, 3});
    SetIfAccepted(m_fields[1], (b0 >> 2) & 0x03, {0, 1, 3});
    SetIfAccepted(m_fields[2], (b0 >> 4) & 0x03, {0, 1, 2, 3});
    SetIfAccepted(m_fields[3], (b0 >> 6) & 0x03, {0, 1, 2, 3});
    SetIfAccepted(m_fields[4], b1 & 0x07, {0, 1, 2, 6, 7});
    SetIfAccepted(m_fields[5], (b1 >> 3) & 0x07, {0, 1, 2, 3, 6, 7});
    SetIfAccepted(m_fields[6], (b1 >> 6) & 0x03, {0, 1, 3});
    SetIfAccepted(m_fields[7], b2 & 0x07, {0, 1, 2, 3, 4, 7});
    SetIfAccepted(m_fields[8], (b2 >> 3) & 0x03, {0, 1, 3});
    SetIfAccepted(m_fields[9], (b2 >> 5) & 0x07, {0, 1, 2, 3, 4, 5, 7});
    SetIfAccepted(m_fields[10], b3 & 0x03, {0, 1, 3});
    // Only a clear bit is ever stored: the printer's "sleeping" flag has always been reported as
    // unknown (2), never as 1, and the listeners and the host rely on that.
    if ((b3 & 0x80) == 0) {
        m_fields[11] = operating_ready;
    }
    m_fields[12] = uint32_t(block[6]) + 256u * uint32_t(block[7]);
}

PrinterStatus::PrinterStatus(uint32_t power, uint32_t door, uint32_t presence, uint32_t tph, uint32_t cutter,
                             uint32_t label, uint32_t memory, uint32_t print, uint32_t externalPower,
                             uint32_t battery, uint32_t charging, uint32_t operating, uint32_t value)
    : m_fields{power, door,          presence, tph,      cutter,    label,          memory,
               print, externalPower, battery,  charging, operating, value & 0xFFFFu} {}

bool PrinterStatus::operator==(const PrinterStatus& other) const {
    for (size_t i = 0; i < kFieldCount; ++i) {
        if (m_fields[i] != other.m_fields[i]) {
            return false;
        }
    }
    return true;
}

} // namespace vela::kom
