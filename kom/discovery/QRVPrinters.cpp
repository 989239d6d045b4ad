#include "kom/discovery/QRVPrinters.h"

#include "kom/discovery/PrintQueueMatcher.h"
#include "kom/discovery/VirtualPrinters.h"

namespace vela::kom {

std::vector<ConnectedPrinter> QRVPrinters::GetConnectedPrinters() {
    std::vector<ConnectedPrinter> printers = FindAttachedPrinters();
    for (const VirtualPrinter& printer : VirtualPrintersFromEnvironment()) {
        printers.push_back({printer.vendorId, printer.productId, printer.channelPath, printer.name});
    }
    return printers;
}

std::vector<ConnectedPrinter> QRVPrinters::GetConnectedHidDevices() {
    std::vector<ConnectedPrinter> devices = FindAttachedHidDevices();
    for (const VirtualPrinter& printer : VirtualPrintersFromEnvironment()) {
        if (!printer.hidPath.empty()) {
            devices.push_back({printer.vendorId, printer.productId, printer.hidPath, printer.name});
        }
    }
    return devices;
}

std::vector<DiscoveredPrinter> QRVPrinters::ListPrinters() {
    std::vector<DiscoveredPrinter> printers = ListAttachedPrinters();
    for (const VirtualPrinter& printer : VirtualPrintersFromEnvironment()) {
        DiscoveredPrinter row;
        row.printerName = printer.name;
        row.modelName = GetPrinterHardwareInfo(printer.vendorId, printer.productId).modelName;
        row.vendorId = printer.vendorId;
        row.productId = printer.productId;
        row.serialNumber = printer.serialNumber;
        row.printerPath = printer.channelPath;
        row.hidPath = printer.hidPath;
        row.isVirtual = true;
        row.hasQueue = false;
        row.hasStatusInterface = !printer.hidPath.empty();
        // A simulator stands for a printer on USB: the URI that printer would have.
        row.deviceUri = UsbDeviceUri(row.modelName, row.serialNumber);
        printers.push_back(std::move(row));
    }
    return printers;
}

} // namespace vela::kom
