#pragma once

#include <string>

namespace vela::common {

// Root of every failure the native layers raise. Carries the reason and the operation that
// failed (by convention "Class::Function()"). Deliberately not derived from std::exception:
// callers catch these by the tree below, and the host boundary maps them by type.
// Thread-safety: instances are values; copy them freely between threads.
class Exception {
public:
    Exception(std::wstring message, std::wstring source)
        : m_message(std::move(message)), m_source(std::move(source)) {}
    Exception(const Exception&) = default;
    Exception& operator=(const Exception&) = default;
    virtual ~Exception() = default;

    virtual std::wstring ExceptionName() const { return L"Exception"; }

    std::wstring Message() const { return m_message; }
    std::wstring Source() const { return m_source; }

private:
    std::wstring m_message;
    std::wstring m_source;
};

#define VELA_DECLARE_EXCEPTION(Name, Base)                                                                   \
    class Name : public Base {                                                                               \
    public:                                                                                                  \
        using Base::Base;                                                                                    \
        std::wstring ExceptionName() const override { return L## #Name; }                                    \
    }

VELA_DECLARE_EXCEPTION(InvalidOperationException, Exception);
VELA_DECLARE_EXCEPTION(MD5Exception, Exception);
VELA_DECLARE_EXCEPTION(WinExceptionBase, Exception);
VELA_DECLARE_EXCEPTION(NotImplementedException, Exception);
VELA_DECLARE_EXCEPTION(InvalidIndexException, Exception);
VELA_DECLARE_EXCEPTION(ArgumentException, Exception);
VELA_DECLARE_EXCEPTION(UsbPrintDeviceException, Exception);
VELA_DECLARE_EXCEPTION(UsbPrintDeviceConnectionException, UsbPrintDeviceException);
VELA_DECLARE_EXCEPTION(UsbPrintDeviceWriteException, UsbPrintDeviceException);
VELA_DECLARE_EXCEPTION(UsbPrintDeviceReadException, UsbPrintDeviceException);
// The caller asked a running transfer to stop (ManagedQRVDeviceGateway::CancelTransfer).
VELA_DECLARE_EXCEPTION(OperationCancelledException, Exception);

} // namespace vela::common
