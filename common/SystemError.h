#pragma once

#include "common/Exception.h"
#include "common/NativeHandle.h"

#include <cstdint>
#include <string>

namespace vela::common {

// The calling thread's last system error: GetLastError() on Windows, errno on Linux.
uint32_t LastSystemError();
// Sets the value LastSystemError() returns (tests, and code that must report a specific cause).
void SetLastSystemError(uint32_t code);

// The system's own description of an error code, trimmed of white space at both ends;
// empty when the system has no text for the code. FormatMessageW on Windows, strerror_r on Linux.
std::wstring SystemErrorText(uint32_t code);

// A failed system call. The class keeps its Windows name on every platform so that log readers
// see the same lines; on Linux the code is an errno value.
class Win32Error : public WinExceptionBase {
public:
    Win32Error(uint32_t errorCode, std::wstring source);
    std::wstring ExceptionName() const override { return L"Win32Error"; }

    uint32_t ErrorCode() const { return m_errorCode; }
    // Rebuilds "Win32 error 0x%x (%s)" from the stored code.
    std::wstring FormattedMessage() const;
    static std::wstring Format(uint32_t errorCode);

private:
    uint32_t m_errorCode;
};

class ConfigurationManagerError : public WinExceptionBase {
public:
    ConfigurationManagerError(int32_t errorCode, std::wstring source);
    std::wstring ExceptionName() const override { return L"ConfigurationManagerError"; }

    int32_t ErrorCode() const { return m_errorCode; }

private:
    int32_t m_errorCode;
};

// Check-and-throw helpers; each throws through LogAndThrow.
void ThrowIfFalse(bool result, const std::wstring& source); // code: last system error
void ThrowIfInvalidHandle(NativeHandle handle,
                          const std::wstring& source); // null or all-ones (Windows), < 0 (Linux)
void ThrowIfLastError(const std::wstring& source);     // throws when last error != 0
void ThrowIfConfigurationManagerError(int32_t result, const std::wstring& source);

} // namespace vela::common
