// The three error handlers of the gateway, with native exceptions thrown on purpose. That an
// operation without a printer (InvalidOperationException) is "Printer Not Found" under each of
// them is checked for every operation in GatewayTest.
#include "common/StringConverter.h"
#include "common/SystemError.h"
#include "gateway/GatewayErrorHandler.h"
#include "kom/QRVException.h"
#include "qrv/HostException.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <typeindex>

using namespace vela::kom;
namespace host = vela::printer::communication;
using vela::common::LogLevel;
using vela::test::LogCapture;
using Communication = host::PrinterCommunicationException;
using Unknown = host::PrinterException;
using Denied = host::PrinterAccessViolationException;
using InvalidName = host::InvalidFileNameException;
using InvalidDirectory = host::InvalidDirectoryNameException;

namespace {

// The native message carries a "%s": a log line is a finished text and must reach the sink as is.
const std::wstring kReason = L"'Wrong reply' 100%s";

struct Row {
    const char* name;
    std::function<void()> call;
    std::type_index hostKind;
    std::wstring line;
};

// A row whose call throws the native kind with kReason.
template <class Native, class Host> Row R(const char* name, const std::wstring& line) {
    return {name, [] { throw Native(kReason, L"PrinterDevice::Somewhere()"); }, typeid(Host), line};
}

// Runs each failing call through a handler and checks the host kind, its message, the single
// warning line (equal to the message) and that nothing else reached the log at warning level.
template <size_t N>
void Expect(const Row (&rows)[N], const std::function<void(const std::function<void()>&)>& handler) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        LogCapture log;
        try {
            handler(row.call);
            ADD_FAILURE() << "no host exception";
        } catch (const host::HostException& e) {
            EXPECT_EQ(std::type_index(typeid(e)), row.hostKind);
            EXPECT_EQ(e.Message(), row.line);
            EXPECT_EQ(std::string(e.what()), vela::common::StringConverter::ToUtf8(row.line));
        }
        std::vector<std::wstring> warnings;
        for (const auto& l : log.Lines()) {
            if (l.level == LogLevel::warning) {
                warnings.push_back(l.text);
            }
        }
        EXPECT_EQ(warnings, std::vector<std::wstring>{row.line});
    }
}

} // namespace

TEST(GatewayErrorMapping, ShortHandlerKnowsOnlyNotFoundCommunicationAndUnknown) {
    const std::wstring e = L"QRVDeviceGateway::Reboot()";
    const std::wstring comm = e + L": Printer Communication Error: " + kReason;
    const std::wstring unknown = e + L": Unknown Error: " + kReason;
    // A system error of the access lock is not a communication error either.
    const vela::common::Win32Error win32(5, L"PrinterAccessSynchronizer::PrinterAccessSynchronizer()");
    const Row rows[] = {
        R<NoPermissionException, Communication>("no permission", comm),
        R<FileNotFoundException, Communication>("file not found", comm),
        R<PathNotFoundException, Communication>("path not found", comm),
        R<NoFreeDiskSpaceException, Communication>("disk full", comm),
        R<FileAlreadyExistsException, Communication>("already exists", comm),
        R<DeviceNotFoundException, Communication>("device not found", comm),
        R<PrinterBuzyException, Communication>("busy lock", comm),
        R<ReplyException, Communication>("reply", comm),
        R<vela::common::UsbPrintDeviceReadException, Unknown>("usb read", unknown),
        R<vela::common::UsbPrintDeviceConnectionException, Unknown>("usb connect", unknown),
        R<vela::common::MD5Exception, Unknown>("md5", unknown),
        R<vela::common::Exception, Unknown>("root", unknown),
        {"win32", [&] { throw win32; }, typeid(Unknown), e + L": Unknown Error: " + win32.Message()},
    };
    Expect(rows, [&](const std::function<void()>& call) { GatewayErrorHandler::RunShort(e.c_str(), call); });
}

TEST(GatewayErrorMapping, FileHandlerQuotesThePrinterPathAndRenameLinesNameBothFiles) {
    const std::wstring e = L"QRVDeviceGateway::PutFile()";
    const std::wstring q = L" '/images/logo%d.png': " + kReason;
    const std::wstring invalid = e + L" Invalid Filename" + q;
    const std::wstring comm = e + L": Printer Communication Error: " + kReason;
    const Row rows[] = {
        R<NoPermissionException, Denied>("no permission", e + L": No permission to access the file" + q),
        R<FileNotFoundException, host::FileNotFoundException>("file not found", e + L": File not Found" + q),
        R<NoFreeDiskSpaceException, host::OutOfDiskspaceException>("disk full",
                                                                   e + L": Out of Diskspace" + q),
        R<FileAlreadyExistsException, InvalidName>("already exists", invalid),
        R<PathNotFoundException, InvalidName>("host folder missing", invalid),
        R<InvalidPathCharsException, InvalidName>("bad chars", invalid),
        R<PathSeparatorException, InvalidName>("separator", invalid),
        R<PathException, InvalidName>("path length", invalid),
        R<DeviceNotFoundException, Communication>("device not found", comm),
        R<DeviceException, Communication>("device", comm),
        R<PrinterBuzyException, Communication>("busy lock", comm),
        R<vela::common::UsbPrintDeviceWriteException, Unknown>("usb write",
                                                               e + L": Unknown Error: " + kReason),
    };
    Expect(rows, [&](const std::function<void()>& call) {
        GatewayErrorHandler::RunFile(e.c_str(), GatewayErrorHandler::FileSubject::Path(L"/images/logo%d.png"),
                                     call);
    });

    const std::wstring r = L"QRVDeviceGateway::RenameFile()";
    const std::wstring both = L": old file: '/jobs/a.job' new file: '/jobs/b.job' : " + kReason;
    const Row renameRows[] = {
        R<FileNotFoundException, host::FileNotFoundException>("file not found",
                                                              r + L": File not Found" + both),
        R<NoPermissionException, Denied>("no permission", r + L": No permission to access the file" + both),
        R<FileAlreadyExistsException, InvalidName>("already exists", r + L" Invalid Filename" + both),
    };
    Expect(renameRows, [&](const std::function<void()>& call) {
        GatewayErrorHandler::RunFile(
            r.c_str(), GatewayErrorHandler::FileSubject::Rename(L"/jobs/a.job", L"/jobs/b.job"), call);
    });
}

TEST(GatewayErrorMapping, DirectoryHandlerForAFolderAndForTheLogFiles) {
    const std::wstring f = L"QRVDeviceGateway::GetFiles()";
    const std::wstring q = L" '/templates': " + kReason;
    const std::wstring folder = L"/templates";
    const Row folderRows[] = {
        R<NoPermissionException, Denied>("no permission", f + L": No permission to access the directory" + q),
        R<PathNotFoundException, host::DirectoryNotFoundException>("path not found",
                                                                   f + L": directory not Found" + q),
        R<PathSeparatorException, InvalidDirectory>("separator", f + L" Invalid directory" + q),
        // Kinds only the file handler knows are communication errors here.
        R<FileNotFoundException, Communication>("file not found",
                                                f + L": Printer Communication Error: " + kReason),
        R<NoFreeDiskSpaceException, Communication>("disk full",
                                                   f + L": Printer Communication Error: " + kReason),
        R<vela::common::UsbPrintDeviceException, Unknown>("usb", f + L": Unknown Error: " + kReason),
    };
    Expect(folderRows, [&](const std::function<void()>& call) {
        GatewayErrorHandler::RunDirectory(f.c_str(), &folder, call);
    });

    const std::wstring l = L"QRVDeviceGateway::GetLogFiles()";
    const Row logRows[] = {
        R<NoPermissionException, Denied>("no permission",
                                         l + L": No permission to access log files: " + kReason),
        R<PathNotFoundException, host::DirectoryNotFoundException>(
            "path not found", l + L": Log file directory not Found: " + kReason),
        R<InvalidPathCharsException, InvalidDirectory>("bad chars",
                                                       l + L" Invalid Log File directory: " + kReason),
        R<ReplyException, Communication>("reply", l + L": Printer Communication Error: " + kReason),
    };
    Expect(logRows, [&](const std::function<void()>& call) {
        GatewayErrorHandler::RunDirectory(l.c_str(), nullptr, call);
    });
}

TEST(GatewayErrorMapping, ResultsAndForeignFailuresPassThroughUntouched) {
    LogCapture log;
    EXPECT_EQ(GatewayErrorHandler::RunShort(L"X()", [] { return std::wstring(L"ok"); }), L"ok");
    EXPECT_EQ(
        GatewayErrorHandler::RunFile(L"X()", GatewayErrorHandler::FileSubject::Path(L"/a"), [] { return 7; }),
        7);
    EXPECT_THROW(GatewayErrorHandler::RunShort(L"X()", []() -> int { throw std::runtime_error("boom"); }),
                 std::runtime_error);
    EXPECT_THROW(GatewayErrorHandler::RunDirectory(L"X()", nullptr, [] { throw 42; }), int);
    EXPECT_EQ(log.Count(LogLevel::warning), 0u);
}
