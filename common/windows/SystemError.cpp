#include "common/SystemError.h"

#include <windows.h>

namespace vela::common {

uint32_t LastSystemError() {
    return static_cast<uint32_t>(::GetLastError());
}
void SetLastSystemError(uint32_t code) {
    ::SetLastError(static_cast<DWORD>(code));
}

std::wstring SystemErrorText(uint32_t code) {
    DWORD saved = ::GetLastError();
    LPWSTR buffer = nullptr;
    DWORD length = ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS |
                                        FORMAT_MESSAGE_ALLOCATE_BUFFER,
                                    nullptr, code, 0, reinterpret_cast<LPWSTR>(&buffer), 0, nullptr);
    std::wstring text;
    if (length != 0 && buffer != nullptr) {
        text.assign(buffer, length);
    }
    if (buffer != nullptr) {
        ::LocalFree(buffer);
    }
    ::SetLastError(saved);
    size_t b = text.find_first_not_of(L" \t\r\n");
    size_t e = text.find_last_not_of(L" \t\r\n");
    return b == std::wstring::npos ? std::wstring() : text.substr(b, e - b + 1);
}

bool IsValidNativeHandle(NativeHandle handle) {
    return handle != nullptr && handle != INVALID_HANDLE_VALUE;
}

bool CloseNativeHandle(NativeHandle handle) {
    return ::CloseHandle(handle) != FALSE;
}

} // namespace vela::common
