#pragma once

#include "common/Exception.h"

#include <exception>
#include <string>
#include <utility>

namespace vela::kom {

// Runs one gateway operation and turns its native failure into one warning line and one host
// exception (gateway/HostException.h) whose message is that same line. The first matching kind
// wins, in this order:
//
//   native kind                 phrase                                  host kind             handlers
//   InvalidOperationException   Printer Not Found                       PrinterNotFound       all
//   OperationCancelledException Cancelled                               OperationCancelled    all
//   NoPermissionException       No permission to access the file/...    PrinterAccessViolation file,
//   directory FileNotFoundException       File not Found                          FileNotFound          file
//   PathNotFoundException       directory not Found / Log file ...      DirectoryNotFound     directory
//   NoFreeDiskSpaceException    Out of Diskspace                        OutOfDiskspace        file
//   PathException               Invalid Filename / Invalid directory    InvalidFileName /     file /
//                               / Invalid Log File directory            InvalidDirectoryName  directory
//   QRVException                Printer Communication Error             PrinterCommunication  all
//   vela::common::Exception     Unknown Error                           Printer               all
//
// So a USB channel failure or a system error (not QRVException) is an "Unknown Error", a busy
// printer (PrinterBuzyException) a communication error, and a file that already exists on the
// printer (FileAlreadyExistsException, a PathException) an "Invalid Filename". Failures outside
// vela::common::Exception pass through unchanged. Lines:
//   short:      "<entry>: <phrase>: <native message>"
//   file/dir:   "<entry>: <phrase> '<path>': <native message>"
//   "Invalid":  "<entry> <phrase> '<path>': <native message>"     (no colon after the entry)
//   rename:     "<entry>: <phrase>: old file: '<old>' new file: '<new>' : <native message>"
// Thread-safety: stateless; callable from any thread.
class GatewayErrorHandler {
public:
    // What a file operation is about: one printer path, or the two names of a rename.
    class FileSubject {
    public:
        static FileSubject Path(std::wstring path) {
            return FileSubject(std::move(path), std::wstring(), false);
        }
        static FileSubject Rename(std::wstring oldName, std::wstring newName) {
            return FileSubject(std::move(oldName), std::move(newName), true);
        }
        // The text that follows a phrase: " '<path>'" or ": old file: '<old>' new file: '<new>' ".
        std::wstring Quoted() const;

    private:
        FileSubject(std::wstring first, std::wstring second, bool rename)
            : m_first(std::move(first)), m_second(std::move(second)), m_rename(rename) {}
        std::wstring m_first;
        std::wstring m_second;
        bool m_rename;
    };

    template <class F> static decltype(auto) RunShort(const wchar_t* entry, F&& call) {
        try {
            return call();
        } catch (const vela::common::Exception&) {
            ReportShort(entry, std::current_exception());
        }
    }

    template <class F>
    static decltype(auto) RunFile(const wchar_t* entry, const FileSubject& subject, F&& call) {
        try {
            return call();
        } catch (const vela::common::Exception&) {
            ReportFile(entry, subject, std::current_exception());
        }
    }

    // `path` null: the log-file listing, whose lines name no path.
    template <class F>
    static decltype(auto) RunDirectory(const wchar_t* entry, const std::wstring* path, F&& call) {
        try {
            return call();
        } catch (const vela::common::Exception&) {
            ReportDirectory(entry, path, std::current_exception());
        }
    }

    // Log the warning and throw the host kind for a caught native failure.
    [[noreturn]] static void ReportShort(const wchar_t* entry, std::exception_ptr failure);
    [[noreturn]] static void ReportFile(const wchar_t* entry, const FileSubject& subject,
                                        std::exception_ptr failure);
    [[noreturn]] static void ReportDirectory(const wchar_t* entry, const std::wstring* path,
                                             std::exception_ptr failure);
};

} // namespace vela::kom
