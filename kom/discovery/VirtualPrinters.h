#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vela::kom {

// A printer that is not on USB (a simulator), added to discovery through the environment:
//
//   QRV_VIRTUAL_PRINTERS = entry[;entry...]
//   entry                = name|channelPath|hidPath|model[|serial]
//
// model is "210" or "410" (product 0x0024 or 0x0025, vendor 0x0922); hidPath may be empty
// (then the printer has no HID device). The simulator prints a ready value in this format.
struct VirtualPrinter {
    std::wstring name;
    std::wstring channelPath;
    std::wstring hidPath;
    uint32_t vendorId = 0;
    uint32_t productId = 0;
    std::wstring serialNumber;
};

// Parses a value of the format above. Empty entries (a trailing ';') are ignored; a malformed
// entry is skipped after one warning line that names it. Never throws.
std::vector<VirtualPrinter> ParseVirtualPrinters(const std::wstring& value);

// ParseVirtualPrinters of the current QRV_VIRTUAL_PRINTERS value (none when it is unset).
// Reads the environment on every call, so a change is seen by the next enumeration.
std::vector<VirtualPrinter> VirtualPrintersFromEnvironment();

} // namespace vela::kom
