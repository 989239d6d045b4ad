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
    // The device URI as the print scheduler's USB backend writes it, e.g.
    // "usb://VELA/QRV%20410?serial=SIM0001" (the queue's own when the printer has a queue).
    std::wstring deviceUri;
    // How the printer sits on the bus, for diagnosis (Linux; empty or true where unknown):
    std::wstring usbPort;            // the USB port path, e.g. "1-4.2"
    std::wstring driver;             // the driver of the printer interface ("usblp"); empty: none
    bool hasPrinterInterface = true; // the device shows a printer-class interface
    bool hasStatusInterface = false; // the device shows a HID (status report) interface
    // Why print queues could not be looked up for it (no scheduler answers, its client library
    // is not installed); empty when the scheduler answered or was not needed.
    std::wstring queueProblem;
};

// Every supported printer attached to this machine, real ones first, then the virtual printers
// of QRV_VIRTUAL_PRINTERS. Blocks on device enumeration and, on Linux, one request to the print
// scheduler (bounded by its 3 s connect and 5 s reply limits). Throws PrinterException when the
// system's device enumeration fails. Any thread.
QRV_API std::vector<PrinterInfo> ListPrinters();

// One discovery for a short program (a command-line tool that lists, picks and opens a printer):
// while an object lives, ListPrinters and the gateway's own look-ups in this process (Open, its
// status monitor) answer from the discovery its constructor made instead of asking the system
// (udev and the print scheduler, or SetupAPI and the spooler) again. Refresh() discovers anew.
// Printers that come or go meanwhile are not seen, so a long-running host does without it;
// virtual printers are read from the environment each time. The constructor and Refresh block
// and throw like ListPrinters. One at a time per process; the destructor never throws.
class QRV_API DiscoverySnapshot {
public:
    DiscoverySnapshot();
    ~DiscoverySnapshot();
    DiscoverySnapshot(const DiscoverySnapshot&) = delete;
    DiscoverySnapshot& operator=(const DiscoverySnapshot&) = delete;
    void Refresh();
};

// The printers of `printers` that `text` names, tried in this order, the first kind that names
// any wins: the exact name; the serial number; a usb:// device URI (compared as the scheduler's
// backends write them: letter case, percent escapes and extra parameters do not matter); a
// device path (the printer channel or the status node, also through symbolic links). Several
// results mean `text` is ambiguous. Pure apart from reading the file system for paths; never
// throws; any thread.
QRV_API std::vector<PrinterInfo> FindPrinters(const std::vector<PrinterInfo>& printers,
                                              const std::wstring& text);

} // namespace vela::printer::communication
