#include "gateway/GatewayErrorHandler.h"

#include "common/Log.h"
#include "kom/QRVException.h"
#include "qrv/HostException.h"

namespace vela::kom {

namespace host = vela::printer::communication;
using vela::common::Log;

namespace {

// Every mapped failure: one warning line, and the same line as the host exception's message.
template <class HostKind> [[noreturn]] void Raise(const std::wstring& line) {
    Log::LogWarning(line);
    throw HostKind(line);
}

// "<entry>: <what>: <message>"
std::wstring Line(const wchar_t* entry, const std::wstring& what, const vela::common::Exception& e) {
    return std::wstring(entry) + L": " + what + L": " + e.Message();
}

// "<entry> <what>: <message>" (the "Invalid" lines carry no colon after the entry)
std::wstring InvalidLine(const wchar_t* entry, const std::wstring& what, const vela::common::Exception& e) {
    return std::wstring(entry) + L" " + what + L": " + e.Message();
}

std::wstring Quote(const std::wstring& path) {
    return L" '" + path + L"'";
}

} // namespace

std::wstring GatewayErrorHandler::FileSubject::Quoted() const {
    if (m_rename) {
        return L": old file: '" + m_first + L"' new file: '" + m_second + L"' ";
    }
    return Quote(m_first);
}

void GatewayErrorHandler::ReportShort(const wchar_t* entry, std::exception_ptr failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const vela::common::InvalidOperationException& e) {
        Raise<host::PrinterNotFoundException>(Line(entry, L"Printer Not Found", e));
    } catch (const vela::common::OperationCancelledException& e) {
        Raise<host::OperationCancelledException>(Line(entry, L"Cancelled", e));
    } catch (const QRVException& e) {
        Raise<host::PrinterCommunicationException>(Line(entry, L"Printer Communication Error", e));
    } catch (const vela::common::Exception& e) {
        Raise<host::PrinterException>(Line(entry, L"Unknown Error", e));
    }
}

void GatewayErrorHandler::ReportFile(const wchar_t* entry, const FileSubject& subject,
                                     std::exception_ptr failure) {
    const std::wstring quoted = subject.Quoted();
    try {
        std::rethrow_exception(failure);
    } catch (const vela::common::InvalidOperationException& e) {
        Raise<host::PrinterNotFoundException>(Line(entry, L"Printer Not Found", e));
    } catch (const vela::common::OperationCancelledException& e) {
        Raise<host::OperationCancelledException>(Line(entry, L"Cancelled" + quoted, e));
    } catch (const NoPermissionException& e) {
        Raise<host::PrinterAccessViolationException>(
            Line(entry, L"No permission to access the file" + quoted, e));
    } catch (const FileNotFoundException& e) {
        Raise<host::FileNotFoundException>(Line(entry, L"File not Found" + quoted, e));
    } catch (const NoFreeDiskSpaceException& e) {
        Raise<host::OutOfDiskspaceException>(Line(entry, L"Out of Diskspace" + quoted, e));
    } catch (const PathException& e) {
        Raise<host::InvalidFileNameException>(InvalidLine(entry, L"Invalid Filename" + quoted, e));
    } catch (const QRVException& e) {
        Raise<host::PrinterCommunicationException>(Line(entry, L"Printer Communication Error", e));
    } catch (const vela::common::Exception& e) {
        Raise<host::PrinterException>(Line(entry, L"Unknown Error", e));
    }
}

void GatewayErrorHandler::ReportDirectory(const wchar_t* entry, const std::wstring* path,
                                          std::exception_ptr failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const vela::common::InvalidOperationException& e) {
        Raise<host::PrinterNotFoundException>(Line(entry, L"Printer Not Found", e));
    } catch (const NoPermissionException& e) {
        Raise<host::PrinterAccessViolationException>(
            Line(entry,
                 path ? L"No permission to access the directory" + Quote(*path)
                      : L"No permission to access log files",
                 e));
    } catch (const PathNotFoundException& e) {
        Raise<host::DirectoryNotFoundException>(
            Line(entry, path ? L"directory not Found" + Quote(*path) : L"Log file directory not Found", e));
    } catch (const PathException& e) {
        Raise<host::InvalidDirectoryNameException>(InvalidLine(
            entry, path ? L"Invalid directory" + Quote(*path) : L"Invalid Log File directory", e));
    } catch (const QRVException& e) {
        Raise<host::PrinterCommunicationException>(Line(entry, L"Printer Communication Error", e));
    } catch (const vela::common::Exception& e) {
        Raise<host::PrinterException>(Line(entry, L"Unknown Error", e));
    }
}

} // namespace vela::kom
