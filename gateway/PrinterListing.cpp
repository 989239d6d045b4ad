#include "qrv/PrinterListing.h"

#include "common/Log.h"
#include "common/StringConverter.h"
#include "gateway/GatewayErrorHandler.h"
#include "kom/discovery/PrintQueueMatcher.h"
#include "kom/discovery/QRVPrinters.h"

#include <filesystem>
#include <functional>
#include <system_error>

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
            info.deviceUri = found.deviceUri;
            info.usbPort = found.usbPort;
            info.driver = found.printerDriver;
            info.hasPrinterInterface = found.hasPrinterInterface;
            info.hasStatusInterface = found.hasStatusInterface;
            info.queueProblem = found.queueProblem;
            printers.push_back(std::move(info));
        }
        return printers;
    });
}

DiscoverySnapshot::DiscoverySnapshot() {
    Refresh();
}

DiscoverySnapshot::~DiscoverySnapshot() {
    vela::kom::QRVPrinters::ForgetListing();
}

void DiscoverySnapshot::Refresh() {
    const wchar_t* entry = L"QRVDeviceGateway::ListPrinters()";
    vela::kom::GatewayErrorHandler::RunShort(entry, [] { vela::kom::QRVPrinters().KeepListing(); });
}

namespace {

bool SamePath(const std::wstring& path, const std::wstring& text) {
    if (path.empty()) {
        return false;
    }
    if (path == text) {
        return true;
    }
#ifdef _WIN32
    // Comparing files opens them, and opening a named pipe would take one of its instances.
    return false;
#else
    std::error_code error;
    return std::filesystem::equivalent(std::filesystem::path(path), std::filesystem::path(text), error) &&
           !error;
#endif
}

} // namespace

std::vector<PrinterInfo> FindPrinters(const std::vector<PrinterInfo>& printers, const std::wstring& text) {
    using vela::common::StringConverter;
    const std::string uri = StringConverter::ToUtf8(text);
    const std::function<bool(const PrinterInfo&)> rules[] = {
        [&](const PrinterInfo& p) { return p.name == text; },
        [&](const PrinterInfo& p) { return !p.serial.empty() && p.serial == text; },
        [&](const PrinterInfo& p) {
            return vela::kom::PrintQueueMatcher::SameDevice(uri, StringConverter::ToUtf8(p.deviceUri));
        },
        [&](const PrinterInfo& p) { return SamePath(p.channelPath, text) || SamePath(p.statusPath, text); },
    };
    for (const auto& rule : rules) {
        std::vector<PrinterInfo> found;
        for (const PrinterInfo& printer : printers) {
            if (rule(printer)) {
                found.push_back(printer);
            }
        }
        if (!found.empty()) {
            return found;
        }
    }
    return {};
}

} // namespace vela::printer::communication
