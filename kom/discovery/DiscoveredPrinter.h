#pragma once

#include <cstdint>
#include <string>

namespace vela::kom {

// One printer as listings show it: everything discovery knows about it.
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
    // The printer's device URI as the print scheduler's USB backend writes it
    // ("usb://VELA/QRV%20410?serial=SIM0001"): the queue's own when it has one.
    std::wstring deviceUri;
    std::wstring usbPort;            // the USB port path ("1-4.2"); empty where unknown (virtual, Windows)
    std::wstring printerDriver;      // the driver bound to the printer interface ("usblp"); empty: none
    bool hasPrinterInterface = true; // the USB device shows a printer-class interface
    bool hasStatusInterface = false; // the USB device shows a HID interface (hidPath may still be empty)
    // Why the print queues could not be looked up (no scheduler answers, its client library is
    // missing); empty when the scheduler answered or was not needed.
    std::wstring queueProblem;
};

} // namespace vela::kom
