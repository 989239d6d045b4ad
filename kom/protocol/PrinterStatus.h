#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vela::kom {

// Status enumerations. Only the numbers are fixed by the printer; the names say what they mean.
enum power_status_t : uint32_t { power_ok = 0, power_low = 1, power_critical = 2, power_unknown = 3 };
enum cassette_door_status_t : uint32_t {
    cassette_door_closed = 0,
    cassette_door_open = 1,
    cassette_door_error = 3,
    cassette_door_unknown = 4
};
enum cassette_presence_t : uint32_t {
    cassette_present = 0,
    cassette_absent = 1,
    cassette_present_unverified = 2,
    cassette_presence_unknown = 3
};
enum TPH_status_t : uint32_t { tph_ok = 0, tph_warm = 1, tph_hot = 2, tph_unknown = 3 };
enum cutter_status_t : uint32_t {
    cutter_ok = 0,
    cutter_busy = 1,
    cutter_jammed = 2,
    cutter_blade_error = 6,
    cutter_error = 7,
    cutter_unknown = 8
};
enum label_status_t : uint32_t {
    label_ok = 0,
    label_out = 1,
    label_jammed = 2,
    label_low = 3,
    label_not_taken = 6,
    label_error = 7,
    label_unknown = 8
};
enum cassette_memory_status_t : uint32_t {
    cassette_memory_ok = 0,
    cassette_memory_unreadable = 1,
    cassette_memory_error = 3,
    cassette_memory_unknown = 4
};
enum print_status_t : uint32_t {
    print_idle = 0,
    print_printing = 1,
    print_paused = 2,
    print_aborted = 3,
    print_cooling = 4,
    print_error = 7,
    print_unknown = 8
};
enum external_power_status_t : uint32_t {
    external_power_disconnected = 0,
    external_power_connected = 1,
    external_power_error = 3,
    external_power_unknown = 4
};
enum battery_status_t : uint32_t {
    battery_empty = 0,
    battery_level_1 = 1,
    battery_level_2 = 2,
    battery_level_3 = 3,
    battery_level_4 = 4,
    battery_full = 5,
    battery_error = 7,
    battery_unknown = 8
};
enum charging_status_t : uint32_t {
    charging_off = 0,
    charging_on = 1,
    charging_error = 3,
    charging_unknown = 4
};
// The decoder never stores operating_sleeping: a set operating bit leaves operating_unknown (2),
// which is what listeners and the host have always been given for it.
enum operating_status_t : uint32_t { operating_ready = 0, operating_sleeping = 1, operating_unknown = 2 };

// The printer's condition, decoded from an 8-byte status block (the status reply and the HID
// reports use the same decoder). Fields that the block carries no valid value for keep their
// defaults; a block that is not exactly 8 bytes gives the all-defaults record.
class PrinterStatus {
public:
    PrinterStatus(); // all defaults: 3, 4, 3, 3, 8, 8, 4, 8, 4, 8, 4, 2, 0
    explicit PrinterStatus(const std::vector<uint8_t>& block);
    // Builds a record field by field (the facade's fall-back record, the monitor's change record).
    PrinterStatus(uint32_t power, uint32_t door, uint32_t presence, uint32_t tph, uint32_t cutter,
                  uint32_t label, uint32_t memory, uint32_t print, uint32_t externalPower, uint32_t battery,
                  uint32_t charging, uint32_t operating, uint32_t value);

    power_status_t GetPowerStatus() const { return static_cast<power_status_t>(m_fields[0]); }
    cassette_door_status_t GetCassetteDoorStatus() const {
        return static_cast<cassette_door_status_t>(m_fields[1]);
    }
    cassette_presence_t GetCassettePresence() const { return static_cast<cassette_presence_t>(m_fields[2]); }
    TPH_status_t GetTphStatus() const { return static_cast<TPH_status_t>(m_fields[3]); }
    cutter_status_t GetCutterStatus() const { return static_cast<cutter_status_t>(m_fields[4]); }
    label_status_t GetLabelStatus() const { return static_cast<label_status_t>(m_fields[5]); }
    cassette_memory_status_t GetCassetteMemoryStatus() const {
        return static_cast<cassette_memory_status_t>(m_fields[6]);
    }
    print_status_t GetPrintStatus() const { return static_cast<print_status_t>(m_fields[7]); }
    external_power_status_t GetExternalPowerStatus() const {
        return static_cast<external_power_status_t>(m_fields[8]);
    }
    battery_status_t GetBatteryStatus() const { return static_cast<battery_status_t>(m_fields[9]); }
    charging_status_t GetChargingStatus() const { return static_cast<charging_status_t>(m_fields[10]); }
    operating_status_t GetOperatingStatus() const { return static_cast<operating_status_t>(m_fields[11]); }

    static constexpr size_t kFieldCount = 13;
    // Field i (0-based, in record order); the thirteenth is the 16-bit value, which the record
    // keeps but does not otherwise expose.
    uint32_t Field(size_t index) const { return m_fields[index]; }

    bool operator==(const PrinterStatus& other) const;
    bool operator!=(const PrinterStatus& other) const { return !(*this == other); }

private:
    uint32_t m_fields[kFieldCount];
};

} // namespace vela::kom
