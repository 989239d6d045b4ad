#pragma once

#include "qrv/Export.h"

#include <exception>
#include <string>

namespace vela::printer::communication {

// Root of the failures a host sees. The gateway logs one warning line per failure and that same
// line becomes the message, so what a host shows or stores matches the library's log.
// Message() is the wide text; what() the same text in UTF-8. Values; copy them freely.
class QRV_API HostException : public std::exception {
public:
    explicit HostException(std::wstring message);

    const char* what() const noexcept override { return m_utf8.c_str(); }
    const std::wstring& Message() const noexcept { return m_message; }

private:
    std::wstring m_message;
    std::string m_utf8;
};

#define VELA_DECLARE_HOST_EXCEPTION(Name)                                                                    \
    class QRV_API Name : public HostException {                                                              \
    public:                                                                                                  \
        using HostException::HostException;                                                                  \
    }

// No printer is open, or the facade reported the printer as unusable.
VELA_DECLARE_HOST_EXCEPTION(PrinterNotFoundException);
// The printer or the host refused access to a file, folder or the log files.
VELA_DECLARE_HOST_EXCEPTION(PrinterAccessViolationException);
// A file named in a file operation does not exist (on the printer or on the host).
VELA_DECLARE_HOST_EXCEPTION(FileNotFoundException);
// A folder to list does not exist.
VELA_DECLARE_HOST_EXCEPTION(DirectoryNotFoundException);
// The printer has no room left for a file.
VELA_DECLARE_HOST_EXCEPTION(OutOfDiskspaceException);
// A file path was rejected (bad characters, length, separator, or the file already exists).
VELA_DECLARE_HOST_EXCEPTION(InvalidFileNameException);
// A folder path was rejected.
VELA_DECLARE_HOST_EXCEPTION(InvalidDirectoryNameException);
// The printer answered wrongly, was busy, or was not found when opening it.
VELA_DECLARE_HOST_EXCEPTION(PrinterCommunicationException);
// The caller cancelled a file transfer (ManagedQRVDeviceGateway::CancelTransfer); the printer
// stored nothing and is ready for the next operation.
VELA_DECLARE_HOST_EXCEPTION(OperationCancelledException);
// Any other native failure: the USB channel, a system call, the access lock's system errors.
VELA_DECLARE_HOST_EXCEPTION(PrinterException);

#undef VELA_DECLARE_HOST_EXCEPTION

} // namespace vela::printer::communication
