#pragma once

#include <cstdint>
#include <string>

namespace vela::kom {

// One attached (or virtual) printer: its USB ids, the path the channel opens (for the HID
// variant: the HID node) and the print-queue name its users know it by.
struct ConnectedPrinter {
    uint32_t vendorId = 0;
    uint32_t productId = 0;
    std::wstring devicePath;
    std::wstring printerName;
};

} // namespace vela::kom
