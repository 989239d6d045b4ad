#pragma once

#include "qrv/StatusEnumerations.h"

#include <cstdint>

namespace vela::printer::communication {

// Which status field an item describes; the number is the host's.
enum class EPrintStatusItem : uint32_t {
    powerStatus = 0,
    cassetteDoorStatus = 1,
    cassettePresence = 2,
    printHeadTemperature = 3,
    cutterStatus = 4,
    labelStatus = 5,
    cassetteMemoryStatus = 6,
    printStatus = 7,
    externalPowerSupplyStatus = 8,
    batteryStatus = 9,
    chargingStatus = 10
};

// One status field in host terms: its kind and the value of the host enumeration that belongs to
// the kind (EPowerStatus for powerStatus, ECassetteDoorStatus for cassetteDoorStatus, ...).
class PrinterStatusItem {
public:
    PrinterStatusItem(EPrintStatusItem kind, uint32_t value) : m_kind(kind), m_value(value) {}

    EPrintStatusItem Kind() const { return m_kind; }
    uint32_t Value() const { return m_value; }
    // The value as the kind's enumeration, e.g. item.As<ECutterStatus>().
    template <class E> E As() const { return static_cast<E>(m_value); }

    bool operator==(const PrinterStatusItem& other) const {
        return m_kind == other.m_kind && m_value == other.m_value;
    }
    bool operator!=(const PrinterStatusItem& other) const { return !(*this == other); }

private:
    EPrintStatusItem m_kind;
    uint32_t m_value;
};

} // namespace vela::printer::communication
