#include "kom/discovery/VirtualPrinters.h"

#include "common/Log.h"
#include "common/StringConverter.h"
#include "kom/discovery/QRVDeviceInfo.h"

#include <cstdlib>

namespace vela::kom {

namespace {

std::vector<std::wstring> Split(const std::wstring& text, wchar_t separator) {
    std::vector<std::wstring> parts;
    size_t start = 0;
    for (;;) {
        size_t end = text.find(separator, start);
        parts.push_back(text.substr(start, end == std::wstring::npos ? std::wstring::npos : end - start));
        if (end == std::wstring::npos) {
            return parts;
        }
        start = end + 1;
    }
}

bool IsBlank(const std::wstring& text) {
    return text.find_first_not_of(L" \t\r\n") == std::wstring::npos;
}

void Reject(const std::wstring& entry, const wchar_t* reason) {
    common::Log::LogWarning(L"Printers: QRV_VIRTUAL_PRINTERS entry '%s' skipped: %s", entry, reason);
}

} // namespace

std::vector<VirtualPrinter> ParseVirtualPrinters(const std::wstring& value) {
    std::vector<VirtualPrinter> printers;
    for (const std::wstring& entry : Split(value, L';')) {
        if (IsBlank(entry)) {
            continue;
        }
        std::vector<std::wstring> fields = Split(entry, L'|');
        if (fields.size() < 4 || fields.size() > 5) {
            Reject(entry, L"expected name|channelPath|hidPath|model[|serial]");
            continue;
        }
        VirtualPrinter printer;
        printer.name = fields[0];
        printer.channelPath = fields[1];
        printer.hidPath = fields[2];
        printer.vendorId = QRVDeviceInfo::VelaVendorId;
        if (fields.size() == 5) {
            printer.serialNumber = fields[4];
        }
        if (printer.name.empty()) {
            Reject(entry, L"the name is empty");
            continue;
        }
        if (printer.channelPath.empty()) {
            Reject(entry, L"the channel path is empty");
            continue;
        }
        if (fields[3] == L"210") {
            printer.productId = 0x0024;
        } else if (fields[3] == L"410") {
            printer.productId = 0x0025;
        } else {
            Reject(entry, L"the model is neither 210 nor 410");
            continue;
        }
        printers.push_back(std::move(printer));
    }
    return printers;
}

std::vector<VirtualPrinter> VirtualPrintersFromEnvironment() {
#ifdef _WIN32
    // The wide environment keeps names in any script, whatever the process code page is.
    const wchar_t* value = _wgetenv(L"QRV_VIRTUAL_PRINTERS");
    return value == nullptr ? std::vector<VirtualPrinter>() : ParseVirtualPrinters(value);
#else
    const char* value = std::getenv("QRV_VIRTUAL_PRINTERS");
    return value == nullptr ? std::vector<VirtualPrinter>()
                            : ParseVirtualPrinters(common::StringConverter::FromUtf8(value));
#endif
}

} // namespace vela::kom
