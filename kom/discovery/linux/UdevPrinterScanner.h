#pragma once

#include "kom/discovery/QRVPrintersBase.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vela::kom {

// One supported USB printer as udev sees it: its usb_device and the nodes of its interfaces.
struct UsbPrinterNodes {
    std::string usbSyspath; // the usb_device, the key that joins the nodes
    std::string usbPort;    // its sysname, the port path ("1-1.2")
    uint32_t vendorId = 0;
    uint32_t productId = 0;
    std::string serialNumber; // USB strings; empty when the device has none
    std::string manufacturer;
    std::string product;
    std::string ieee1284Id;            // the printer interface's 1284 device id (usblp's ieee1284_id)
    std::string printerNode;           // /dev/usb/lpN; empty when the printer interface has no node
    std::vector<std::string> hidNodes; // /dev/hidrawN, in enumeration order
    // Listings only (ReportFailures::all): the device's interfaces as the USB bus shows them.
    bool hasPrinterInterface = false;
    bool hasHidInterface = false;
    std::string printerDriver; // bound to the printer interface; empty when none is
};

// Which nodes' read failures are reported. Both kinds are always read, so that a printer has the
// same identity (and name) whichever interface it is looked up by.
enum class ReportFailures { printerNodes, hidNodes, all };

// Lists the usblp ("usbmisc", lp*) and hidraw nodes through libudev, joins each to its
// usb_device and keeps the devices of the models in `models`, in udev's enumeration order (printers
// first, then devices that only have HID nodes). A node whose device cannot be read (no device
// node, not on USB, missing or malformed idVendor/idProduct) is skipped after the warning
// "UsbFilter() for '%s' failed: %s" (printer nodes) or "HidFilter() for '%s' failed: %s" (HID
// nodes; each only when `report` asks for that kind), with the node (or its syspath) and the
// reason; unsupported devices are skipped
// silently. With ReportFailures::all (listings) it also lists supported USB devices that have no
// such node (no driver bound, an interface missing) and reads their interfaces' classes and the
// printer interface's driver. Blocks on sysfs reads only. Throws Win32Error (context `origin`) when udev
// itself cannot be used. Any thread; each call has its own udev context.
std::vector<UsbPrinterNodes> ScanUsbPrinters(const QRVPrintersBase& models, ReportFailures report,
                                             const std::wstring& origin);

} // namespace vela::kom
