#pragma once

#include <cstdint>
#include <string>

namespace vela::kom {

// One printer as the command-line tool shows it: everything discovery knows about it.
struct DiscoveredPrinter {
    // The name to open the printer by: its print-queue name; when no queue was found (Linux
    // only), the fallback name "<model> (<serial>)" described in the README.
    std::wstring printerName;
    std::wstring modelName; // from the model table, e.g. "VELA QRV 410"
    uint32_t vendorId = 0;
    uint32_t productId = 0;
    std::wstring serialNumber; // empty when the printer reports none
    std::wstring printerPath;  // the channel to open; empty when the printer interface has no node
    std::wstring hidPath;      // the HID status node; empty when there is none
    bool isVirtual = false;    // added through QRV_VIRTUAL_PRINTERS
    bool hasQueue = false;     // printerName is a print-queue name (not a fallback name)
};

} // namespace vela::kom
