#include "common/SystemError.h"

#include "common/Log.h"
#include "common/LogAndThrow.h"

namespace vela::common {

std::wstring Win32Error::Format(uint32_t errorCode) {
    return vela::common::Format(L"Win32 error 0x%x (%s)", errorCode, SystemErrorText(errorCode));
}

Win32Error::Win32Error(uint32_t errorCode, std::wstring source)
    : WinExceptionBase(Format(errorCode), std::move(source)), m_errorCode(errorCode) {}

std::wstring Win32Error::FormattedMessage() const {
    return Format(m_errorCode);
}

ConfigurationManagerError::ConfigurationManagerError(int32_t errorCode, std::wstring source)
    : WinExceptionBase(vela::common::Format(L"Configuration Manager Error %i", errorCode), std::move(source)),
      m_errorCode(errorCode) {}

void ThrowIfFalse(bool result, const std::wstring& source) {
    if (!result) {
        LogAndThrow(Win32Error(LastSystemError(), source));
    }
}

void ThrowIfInvalidHandle(NativeHandle handle, const std::wstring& source) {
    if (!IsValidNativeHandle(handle)) {
        LogAndThrow(Win32Error(LastSystemError(), source));
    }
}

void ThrowIfLastError(const std::wstring& source) {
    uint32_t code = LastSystemError();
    if (code != 0) {
        LogAndThrow(Win32Error(code, source));
    }
}

void ThrowIfConfigurationManagerError(int32_t result, const std::wstring& source) {
    if (result != 0) {
        LogAndThrow(ConfigurationManagerError(result, source));
    }
}

} // namespace vela::common
