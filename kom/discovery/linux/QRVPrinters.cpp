#include "kom/discovery/QRVPrinters.h"

#include "common/Log.h"
#include "common/StringConverter.h"
#include "kom/discovery/Ieee1284DeviceId.h"
#include "kom/discovery/PrintQueueMatcher.h"
#include "kom/discovery/linux/PrintSchedulerQueues.h"
#include "kom/discovery/linux/UdevPrinterScanner.h"

namespace vela::kom {

using common::StringConverter;

namespace {

// A supported USB printer with the name it goes by.
struct NamedPrinter {
    UsbPrinterNodes nodes;
    std::wstring modelName;
    std::wstring serialNumber;
    std::wstring name;
    bool hasQueue = false;
    std::string deviceUri;
    std::string queueProblem;
};

// The make and model the scheduler's USB backend puts into the URI: the device id's, else the
// USB strings; a model that repeats the make loses it ("VELA QRV 410" -> "QRV 410").
std::string BackendUri(const Ieee1284DeviceId& deviceId, const UsbPrinterNodes& nodes,
                       const std::wstring& modelName, const std::wstring& serialNumber) {
    std::string make = !deviceId.Manufacturer().empty() ? deviceId.Manufacturer() : nodes.manufacturer;
    std::string model = !deviceId.Model().empty() ? deviceId.Model() : nodes.product;
    const std::string table = StringConverter::ToUtf8(modelName);
    if (make.empty()) {
        make = table.substr(0, table.find(' '));
    }
    if (model.empty()) {
        model = table;
    }
    if (model.size() > make.size() + 1 && model.compare(0, make.size(), make) == 0 &&
        model[make.size()] == ' ') {
        model.erase(0, make.size() + 1);
    }
    return UsbDeviceUri(make, model, StringConverter::ToUtf8(serialNumber));
}

std::string QuotedList(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "'" : ", '") + name + "'";
    }
    return text;
}

// Gives each printer its queue name, or its fallback name when no local queue prints to it.
// The scheduler is asked once, and only when there is a printer to name.
std::vector<NamedPrinter> NamePrinters(const QRVPrintersBase& models, std::vector<UsbPrinterNodes> printers,
                                       const std::wstring& origin) {
    std::vector<NamedPrinter> named;
    if (printers.empty()) {
        return named;
    }
    PrintSchedulerListing listing = ListPrintSchedulerQueues();
    if (!listing.reachable) {
        common::Log::LogInfo(
            L"%s: no print scheduler answers at '%s' (%s); printers go by their model and serial", origin,
            listing.server, listing.problem);
    }
    for (UsbPrinterNodes& nodes : printers) {
        Ieee1284DeviceId deviceId(nodes.ieee1284Id);
        UsbPrinterIdentity identity{{deviceId.Manufacturer(), nodes.manufacturer},
                                    {deviceId.Model(), nodes.product},
                                    {deviceId.SerialNumber(), nodes.serialNumber}};
        std::vector<std::string> queues = PrintQueueMatcher(identity).MatchingQueues(listing.queues);

        NamedPrinter printer;
        printer.modelName = models.GetPrinterHardwareInfo(nodes.vendorId, nodes.productId).modelName;
        printer.serialNumber = StringConverter::FromUtf8(nodes.serialNumber.empty() ? deviceId.SerialNumber()
                                                                                    : nodes.serialNumber);
        printer.deviceUri = BackendUri(deviceId, nodes, printer.modelName, printer.serialNumber);
        if (!listing.reachable) {
            printer.queueProblem =
                "no print scheduler answers at '" + listing.server + "' (" + listing.problem + ")";
        }
        if (queues.empty()) {
            printer.name = FallbackPrinterName(printer.modelName, printer.serialNumber,
                                               StringConverter::FromUtf8(nodes.usbPort));
        } else {
            if (queues.size() > 1) {
                common::Log::LogWarning(L"%s: printer %s has %i print queues: %s; using '%s'", origin,
                                        nodes.printerNode.empty() ? nodes.usbSyspath : nodes.printerNode,
                                        queues.size(), QuotedList(queues), queues.front());
            }
            printer.name = StringConverter::FromUtf8(queues.front());
            printer.hasQueue = true;
            for (const PrintQueue& queue : listing.queues) {
                if (queue.name == queues.front()) {
                    printer.deviceUri = queue.deviceUri;
                    break;
                }
            }
        }
        printer.nodes = std::move(nodes);
        named.push_back(std::move(printer));
    }
    return named;
}

} // namespace

std::vector<ConnectedPrinter> QRVPrinters::FindAttachedPrinters() {
    const std::wstring origin = L"Printers::GetConnectedPrinters()";
    std::vector<UsbPrinterNodes> withPrinterNode;
    for (UsbPrinterNodes& nodes : ScanUsbPrinters(*this, ReportFailures::printerNodes, origin)) {
        if (!nodes.printerNode.empty()) {
            withPrinterNode.push_back(std::move(nodes));
        }
    }
    std::vector<ConnectedPrinter> result;
    for (const NamedPrinter& printer : NamePrinters(*this, std::move(withPrinterNode), origin)) {
        result.push_back({printer.nodes.vendorId, printer.nodes.productId,
                          StringConverter::FromUtf8(printer.nodes.printerNode), printer.name});
    }
    return result;
}

std::vector<ConnectedPrinter> QRVPrinters::FindAttachedHidDevices() {
    const std::wstring origin = L"Printers::GetConnectedHidDevices()";
    std::vector<UsbPrinterNodes> withHidNode;
    for (UsbPrinterNodes& nodes : ScanUsbPrinters(*this, ReportFailures::hidNodes, origin)) {
        if (!nodes.hidNodes.empty()) {
            withHidNode.push_back(std::move(nodes));
        }
    }
    std::vector<ConnectedPrinter> result;
    for (const NamedPrinter& printer : NamePrinters(*this, std::move(withHidNode), origin)) {
        for (const std::string& hidNode : printer.nodes.hidNodes) {
            result.push_back({printer.nodes.vendorId, printer.nodes.productId,
                              StringConverter::FromUtf8(hidNode), printer.name});
        }
    }
    return result;
}

std::vector<DiscoveredPrinter> QRVPrinters::ListAttachedPrinters() {
    const std::wstring origin = L"Printers::ListPrinters()";
    std::vector<DiscoveredPrinter> result;
    for (const NamedPrinter& printer :
         NamePrinters(*this, ScanUsbPrinters(*this, ReportFailures::all, origin), origin)) {
        DiscoveredPrinter row;
        row.printerName = printer.name;
        row.modelName = printer.modelName;
        row.vendorId = printer.nodes.vendorId;
        row.productId = printer.nodes.productId;
        row.serialNumber = printer.serialNumber;
        row.printerPath = StringConverter::FromUtf8(printer.nodes.printerNode);
        row.hidPath = printer.nodes.hidNodes.empty()
                          ? std::wstring()
                          : StringConverter::FromUtf8(printer.nodes.hidNodes.front());
        row.isVirtual = false;
        row.hasQueue = printer.hasQueue;
        row.deviceUri = StringConverter::FromUtf8(printer.deviceUri);
        row.usbPort = StringConverter::FromUtf8(printer.nodes.usbPort);
        row.printerDriver = StringConverter::FromUtf8(printer.nodes.printerDriver);
        row.hasPrinterInterface = printer.nodes.hasPrinterInterface;
        row.hasStatusInterface = printer.nodes.hasHidInterface;
        row.queueProblem = StringConverter::FromUtf8(printer.queueProblem);
        result.push_back(std::move(row));
    }
    return result;
}

} // namespace vela::kom
