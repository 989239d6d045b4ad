#pragma once

#include "common/Option.h"

#include <string>

namespace vela::common {

// The name of the local print queue whose plug-and-play data ("PnPData" / "DeviceInstanceId")
// names this device instance (compared without regard to letter case), or None.
// Remote and connection queues are never opened. A queue without plug-and-play data is logged
// (information) and skipped. Blocks on the print spooler. Never throws: spooler failures are
// logged as a warning and give None. Any thread.
Option GetPrinterNameByDeviceInstanceId(const std::wstring& deviceInstanceId);

} // namespace vela::common
