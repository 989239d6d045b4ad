#pragma once

#include "qrv/Export.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vela::printer::communication {

// One attached (or simulated) QRV printer as discovery sees it.
struct PrinterInfo {
    // The name to open it by (ManagedQRVDeviceGateway::Open): its print-queue name, or, for a
    // printer without a queue (Linux only), the stable name "<model> (<serial>)".
    std::wstring name;
    std::wstring model; // "VELA QRV 410" or "VELA QRV 210"
    uint32_t vendorId = 0;
    uint32_t productId = 0;
    std::wstring serial;      // empty when the printer reports none
    std::wstring channelPath; // the printer channel; empty when its interface has no node
    std::wstring statusPath;  // the HID status node; empty when there is none
    bool isQueueName = false; // `name` is a print-queue name, not the fallback name
    bool isVirtual = false;   // registered through QRV_VIRTUAL_PRINTERS (a simulator)
};

// Every supported printer attached to this machine, real ones first, then the virtual printers
// of QRV_VIRTUAL_PRINTERS. Blocks on device enumeration and, on Linux, one request to the print
// scheduler (bounded by its 3 s connect and 5 s reply limits). Throws PrinterException when the
// system's device enumeration fails. Any thread.
QRV_API std::vector<PrinterInfo> ListPrinters();

} // namespace vela::printer::communication
