#include "kom/discovery/QRVPrinters.h"

#include "kom/discovery/PrintQueueMatcher.h"
#include "kom/discovery/VirtualPrinters.h"

#include <mutex>
#include <optional>

namespace vela::kom {

namespace {

// The listing KeepListing() made, shared by every thread of the process.
std::mutex g_keptMutex;
std::optional<std::vector<DiscoveredPrinter>> g_kept;

std::optional<std::vector<DiscoveredPrinter>> Kept() {
    std::lock_guard<std::mutex> lock(g_keptMutex);
    return g_kept;
}

} // namespace

void QRVPrinters::KeepListing() {
    std::vector<DiscoveredPrinter> rows = ListAttachedPrinters();
    std::lock_guard<std::mutex> lock(g_keptMutex);
    g_kept = std::move(rows);
}

void QRVPrinters::ForgetListing() {
    std::lock_guard<std::mutex> lock(g_keptMutex);
    g_kept.reset();
}

std::vector<ConnectedPrinter> QRVPrinters::GetConnectedPrinters() {
    std::vector<ConnectedPrinter> printers;
    if (const auto kept = Kept()) {
        for (const DiscoveredPrinter& row : *kept) {
            if (!row.printerPath.empty()) {
                printers.push_back({row.vendorId, row.productId, row.printerPath, row.printerName});
            }
        }
    } else {
        printers = FindAttachedPrinters();
    }
    for (const VirtualPrinter& printer : VirtualPrintersFromEnvironment()) {
        printers.push_back({printer.vendorId, printer.productId, printer.channelPath, printer.name});
    }
    return printers;
}

std::vector<ConnectedPrinter> QRVPrinters::GetConnectedHidDevices() {
    std::vector<ConnectedPrinter> devices;
    if (const auto kept = Kept()) {
        for (const DiscoveredPrinter& row : *kept) {
            if (!row.hidPath.empty()) {
                devices.push_back({row.vendorId, row.productId, row.hidPath, row.printerName});
            }
        }
    } else {
        devices = FindAttachedHidDevices();
    }
    for (const VirtualPrinter& printer : VirtualPrintersFromEnvironment()) {
        if (!printer.hidPath.empty()) {
            devices.push_back({printer.vendorId, printer.productId, printer.hidPath, printer.name});
        }
    }
    return devices;
}

std::vector<DiscoveredPrinter> QRVPrinters::ListPrinters() {
    const auto kept = Kept();
    std::vector<DiscoveredPrinter> printers = kept ? *kept : ListAttachedPrinters();
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
