#include "qrv/PrinterListing.h"

#include "common/Log.h"
#include "gateway/GatewayErrorHandler.h"
#include "kom/discovery/QRVPrinters.h"

namespace vela::printer::communication {

std::vector<PrinterInfo> ListPrinters() {
    const wchar_t* entry = L"QRVDeviceGateway::ListPrinters()";
    vela::common::Log::LogInfo(entry);
    return vela::kom::GatewayErrorHandler::RunShort(entry, [] {
        std::vector<PrinterInfo> printers;
        for (const vela::kom::DiscoveredPrinter& found : vela::kom::QRVPrinters().ListPrinters()) {
            PrinterInfo info;
            info.name = found.printerName;
            info.model = found.modelName;
            info.vendorId = found.vendorId;
            info.productId = found.productId;
            info.serial = found.serialNumber;
            info.channelPath = found.printerPath;
            info.statusPath = found.hidPath;
            info.isQueueName = found.hasQueue;
            info.isVirtual = found.isVirtual;
            printers.push_back(std::move(info));
        }
        return printers;
    });
}

} // namespace vela::printer::communication
