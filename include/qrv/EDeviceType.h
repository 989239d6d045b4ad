#pragma once

#include <cstdint>

namespace vela::printer::communication {

// The printer models the library drives.
enum class EDeviceType : uint32_t { unknown = 0, qrv210 = 1, qrv410 = 2 };

} // namespace vela::printer::communication
