#pragma once

#include "kom/device/ConnectedPrinter.h"
#include "kom/discovery/DiscoveredPrinter.h"
#include "kom/discovery/QRVPrintersBase.h"

#include <vector>

namespace vela::kom {

// Finds the attached supported printers and the print-queue names they go by.
//
// Windows: the USB printer interfaces (SetupAPI, configuration manager) joined to their
// Printer-class child devices and to the spooler queue whose "PnPData"/"DeviceInstanceId" names
// that child. A printer without a unique child device or without a queue is left out.
// Linux: the usblp ("usbmisc" lp*) and hidraw nodes (libudev) joined on their USB device; the
// queue is the local print-scheduler queue (CUPS) whose usb:// device URI names the printer's
// make, model and serial. A printer without a queue is still listed, under
// FallbackPrinterName() (see README "Finding printers"); no reachable scheduler means every
// printer goes by its fallback name. Two queues for one printer: the first, after a warning.
// Both: the virtual printers of QRV_VIRTUAL_PRINTERS (VirtualPrinters.h) follow the real ones.
//
// Rows follow the system's enumeration order; nothing sorts them. No state besides the model
// table: every call enumerates afresh and owns its handles, so any thread may call, several at
// the same time (the caller's thread and the status monitor thread do).
class QRVPrinters : public QRVPrintersBase {
public:
    // The supported printers with the path of their printer channel (the USB printer interface
    // path on Windows, the /dev/usb/lp* node on Linux; a virtual printer's channel path).
    // Blocks on: device enumeration and the spooler (Windows) or one request to the print
    // scheduler (Linux; bounded by a 3 s connect and a 5 s reply limit; not made when no
    // supported printer is attached).
    // Throws: Win32Error when a device set cannot be created or enumerated,
    // ConfigurationManagerError when a device id cannot be read (Windows). Unreadable single
    // devices and spooler or scheduler problems are logged and never thrown.
    std::vector<ConnectedPrinter> GetConnectedPrinters() override;

    // The same printers seen through their HID status interfaces: devicePath is the HID path
    // (\\?\hid#... on Windows, /dev/hidraw* on Linux; a virtual printer's HID path, virtual
    // printers without one are left out). Blocks and throws like GetConnectedPrinters().
    virtual std::vector<ConnectedPrinter> GetConnectedHidDevices();

    // Everything discovery knows about each printer, for listings (the command-line tool): one
    // row per physical printer with its printer and HID paths, model, serial and whether the
    // name is a queue name; virtual printers last. On Linux it also lists a supported printer
    // whose printer interface has no node (printerPath empty), which GetConnectedPrinters()
    // leaves out. Blocks and throws like GetConnectedPrinters().
    std::vector<DiscoveredPrinter> ListPrinters();

    // One discovery for a short program: until ForgetListing(), every enumeration of attached
    // printers in this process (these three, on any thread) answers from the listing this call
    // makes instead of asking udev and the print scheduler (or SetupAPI and the spooler) again.
    // Virtual printers are still read from the environment each time. Printers that come or go
    // meanwhile are not seen. Blocks and throws like ListPrinters().
    void KeepListing();
    static void ForgetListing();

private:
    // The real printers; bodies per operating system.
    std::vector<ConnectedPrinter> FindAttachedPrinters();
    std::vector<ConnectedPrinter> FindAttachedHidDevices();
    std::vector<DiscoveredPrinter> ListAttachedPrinters();
};

} // namespace vela::kom
