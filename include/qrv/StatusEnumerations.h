#pragma once

#include <cstdint>

namespace vela::printer::communication {

// The host's view of the printer status fields. The numbers are the host's; the native values
// are translated by StatusConversion (some pairs swap on purpose, e.g. native door status 3 is
// the host's error 2). "unknown" is what a field reads when the printer gave no valid value;
// "invalid" is reserved for values the native record can never hold.

enum class EPowerStatus : uint32_t { ok = 0, low = 1, critical = 2, unknown = 3 };

enum class ECassetteDoorStatus : uint32_t { closed = 0, open = 1, error = 2, unknown = 3 };

enum class ECassettePresence : uint32_t {
    present = 0,
    absent = 1,
    presentUnverified = 2,
    unknown = 3,
    invalid = 4
};

enum class EPrintHeadTemperature : uint32_t { normal = 0, warm = 1, hot = 2, unknown = 3, invalid = 4 };

enum class ECutterStatus : uint32_t { ok = 0, busy = 1, jammed = 2, bladeError = 3, error = 4, unknown = 5 };

enum class ELabelStatus : uint32_t {
    ok = 0,
    out = 1,
    jammed = 2,
    low = 3,
    notTaken = 4,
    error = 5,
    unknown = 6
};

enum class ECassetteMemoryStatus : uint32_t { ok = 0, unreadable = 1, error = 2, unknown = 3 };

enum class EPrintStatus : uint32_t {
    idle = 0,
    printing = 1,
    paused = 2,
    aborted = 3,
    cooling = 4,
    error = 5,
    unknown = 6
};

enum class EExternalPowerSupplyStatus : uint32_t { disconnected = 0, connected = 1, error = 2, unknown = 3 };

enum class EBatteryStatus : uint32_t {
    empty = 0,
    level1 = 1,
    level2 = 2,
    level3 = 3,
    level4 = 4,
    full = 5,
    error = 6,
    unknown = 7
};

enum class EChargingStatus : uint32_t { notCharging = 0, charging = 1, error = 2, unknown = 3 };

} // namespace vela::printer::communication
