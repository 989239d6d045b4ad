#include "common/SystemError.h"
#include "gateway/GatewayErrorHandler.h"
#include "gateway/HostException.h"
#include "kom/QRVException.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <typeindex>

using namespace vela::kom;
namespace host = vela::printer::communication;
using vela::common::LogLevel;
using vela::test::LogCapture;

namespace {

// The native message carries a "%s": a log line is a finished text and must reach the sink as is.
const std::wstring kReason = L"'Wrong reply' 100%s";

template <class Native> std::function<void()> Throw() {
    return [] { throw Native(kReason, L"PrinterDevice::Somewhere()"); };
}

struct Row {
    const char* name;
    std::function<void()> call;
    std::type_index hostKind;
    std::wstring line;
};

// Runs one failing call through a handler and checks the host kind, its message, the single
// warning line (equal to the message) and that nothing else reached the log at warning level.
void Expect(const Row& row, const std::function<void(const std::function<void()>&)>& handler) {
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
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_EQ(warnings[0], row.line);
}

std::type_index K(const std::type_info& t) {
    return std::type_index(t);
}

} // namespace

TEST(GatewayErrorMapping, ShortHandlerKnowsOnlyNotFoundCommunicationAndUnknown) {
    const std::wstring e = L"QRVDeviceGateway::Reboot()";
    const std::wstring comm = e + L": Printer Communication Error: " + kReason;
    const std::wstring unknown = e + L": Unknown Error: " + kReason;
    const Row rows[] = {
        {"invalid operation", Throw<vela::common::InvalidOperationException>(),
         K(typeid(host::PrinterNotFoundException)), e + L": Printer Not Found: " + kReason},
        {"no permission", Throw<NoPermissionException>(), K(typeid(host::PrinterCommunicationException)),
         comm},
        {"file not found", Throw<FileNotFoundException>(), K(typeid(host::PrinterCommunicationException)),
         comm},
        {"path not found", Throw<PathNotFoundException>(), K(typeid(host::PrinterCommunicationException)),
         comm},
        {"disk full", Throw<NoFreeDiskSpaceException>(), K(typeid(host::PrinterCommunicationException)),
         comm},
        {"already exists", Throw<FileAlreadyExistsException>(),
         K(typeid(host::PrinterCommunicationException)), comm},
        {"device not found", Throw<DeviceNotFoundException>(), K(typeid(host::PrinterCommunicationException)),
         comm},
        {"busy lock", Throw<PrinterBuzyException>(), K(typeid(host::PrinterCommunicationException)), comm},
        {"reply", Throw<ReplyException>(), K(typeid(host::PrinterCommunicationException)), comm},
        {"usb read", Throw<vela::common::UsbPrintDeviceReadException>(), K(typeid(host::PrinterException)),
         unknown},
        {"usb connect", Throw<vela::common::UsbPrintDeviceConnectionException>(),
         K(typeid(host::PrinterException)), unknown},
        {"md5", Throw<vela::common::MD5Exception>(), K(typeid(host::PrinterException)), unknown},
        {"root", Throw<vela::common::Exception>(), K(typeid(host::PrinterException)), unknown},
    };
    for (const Row& row : rows) {
        Expect(row, [&](const std::function<void()>& call) {
            GatewayErrorHandler::RunShort(L"QRVDeviceGateway::Reboot()", call);
        });
    }

    // A system error of the access lock is not a communication error either.
    vela::common::Win32Error win32(5, L"PrinterAccessSynchronizer::PrinterAccessSynchronizer()");
    Expect({"win32", [&] { throw win32; }, K(typeid(host::PrinterException)),
            e + L": Unknown Error: " + win32.Message()},
           [&](const std::function<void()>& call) { GatewayErrorHandler::RunShort(e.c_str(), call); });
}

TEST(GatewayErrorMapping, FileHandlerQuotesThePrinterPath) {
    const std::wstring e = L"QRVDeviceGateway::PutFile()";
    const std::wstring q = L" '/images/logo%d.png'";
    const std::wstring invalid = e + L" Invalid Filename" + q + L": " + kReason;
    const std::wstring comm = e + L": Printer Communication Error: " + kReason;
    const Row rows[] = {
        {"invalid operation", Throw<vela::common::InvalidOperationException>(),
         K(typeid(host::PrinterNotFoundException)), e + L": Printer Not Found: " + kReason},
        {"no permission", Throw<NoPermissionException>(), K(typeid(host::PrinterAccessViolationException)),
         e + L": No permission to access the file" + q + L": " + kReason},
        {"file not found", Throw<FileNotFoundException>(), K(typeid(host::FileNotFoundException)),
         e + L": File not Found" + q + L": " + kReason},
        {"disk full", Throw<NoFreeDiskSpaceException>(), K(typeid(host::OutOfDiskspaceException)),
         e + L": Out of Diskspace" + q + L": " + kReason},
        {"already exists", Throw<FileAlreadyExistsException>(), K(typeid(host::InvalidFileNameException)),
         invalid},
        {"host folder missing", Throw<PathNotFoundException>(), K(typeid(host::InvalidFileNameException)),
         invalid},
        {"bad chars", Throw<InvalidPathCharsException>(), K(typeid(host::InvalidFileNameException)), invalid},
        {"separator", Throw<PathSeparatorException>(), K(typeid(host::InvalidFileNameException)), invalid},
        {"path length", Throw<PathException>(), K(typeid(host::InvalidFileNameException)), invalid},
        {"device not found", Throw<DeviceNotFoundException>(), K(typeid(host::PrinterCommunicationException)),
         comm},
        {"device", Throw<DeviceException>(), K(typeid(host::PrinterCommunicationException)), comm},
        {"busy lock", Throw<PrinterBuzyException>(), K(typeid(host::PrinterCommunicationException)), comm},
        {"usb write", Throw<vela::common::UsbPrintDeviceWriteException>(), K(typeid(host::PrinterException)),
         e + L": Unknown Error: " + kReason},
    };
    for (const Row& row : rows) {
        Expect(row, [&](const std::function<void()>& call) {
            GatewayErrorHandler::RunFile(e.c_str(),
                                         GatewayErrorHandler::FileSubject::Path(L"/images/logo%d.png"), call);
        });
    }
}

TEST(GatewayErrorMapping, RenameLinesNameBothFiles) {
    const std::wstring e = L"QRVDeviceGateway::RenameFile()";
    const std::wstring both = L": old file: '/jobs/a.job' new file: '/jobs/b.job' ";
    const Row rows[] = {
        {"file not found", Throw<FileNotFoundException>(), K(typeid(host::FileNotFoundException)),
         e + L": File not Found" + both + L": " + kReason},
        {"no permission", Throw<NoPermissionException>(), K(typeid(host::PrinterAccessViolationException)),
         e + L": No permission to access the file" + both + L": " + kReason},
        {"already exists", Throw<FileAlreadyExistsException>(), K(typeid(host::InvalidFileNameException)),
         e + L" Invalid Filename" + both + L": " + kReason},
    };
    for (const Row& row : rows) {
        Expect(row, [&](const std::function<void()>& call) {
            GatewayErrorHandler::RunFile(
                e.c_str(), GatewayErrorHandler::FileSubject::Rename(L"/jobs/a.job", L"/jobs/b.job"), call);
        });
    }
    EXPECT_EQ(GatewayErrorHandler::FileSubject::Rename(L"/a", L"/b").Quoted(),
              L": old file: '/a' new file: '/b' ");
}

TEST(GatewayErrorMapping, DirectoryHandlerForAFolderAndForTheLogFiles) {
    const std::wstring f = L"QRVDeviceGateway::GetFiles()";
    const std::wstring q = L" '/templates'";
    const std::wstring folder = L"/templates";
    const Row folderRows[] = {
        {"no permission", Throw<NoPermissionException>(), K(typeid(host::PrinterAccessViolationException)),
         f + L": No permission to access the directory" + q + L": " + kReason},
        {"path not found", Throw<PathNotFoundException>(), K(typeid(host::DirectoryNotFoundException)),
         f + L": directory not Found" + q + L": " + kReason},
        {"separator", Throw<PathSeparatorException>(), K(typeid(host::InvalidDirectoryNameException)),
         f + L" Invalid directory" + q + L": " + kReason},
        // Kinds only the file handler knows are communication errors here.
        {"file not found", Throw<FileNotFoundException>(), K(typeid(host::PrinterCommunicationException)),
         f + L": Printer Communication Error: " + kReason},
        {"disk full", Throw<NoFreeDiskSpaceException>(), K(typeid(host::PrinterCommunicationException)),
         f + L": Printer Communication Error: " + kReason},
        {"usb", Throw<vela::common::UsbPrintDeviceException>(), K(typeid(host::PrinterException)),
         f + L": Unknown Error: " + kReason},
    };
    for (const Row& row : folderRows) {
        Expect(row, [&](const std::function<void()>& call) {
            GatewayErrorHandler::RunDirectory(f.c_str(), &folder, call);
        });
    }

    const std::wstring l = L"QRVDeviceGateway::GetLogFiles()";
    const Row logRows[] = {
        {"invalid operation", Throw<vela::common::InvalidOperationException>(),
         K(typeid(host::PrinterNotFoundException)), l + L": Printer Not Found: " + kReason},
        {"no permission", Throw<NoPermissionException>(), K(typeid(host::PrinterAccessViolationException)),
         l + L": No permission to access log files: " + kReason},
        {"path not found", Throw<PathNotFoundException>(), K(typeid(host::DirectoryNotFoundException)),
         l + L": Log file directory not Found: " + kReason},
        {"bad chars", Throw<InvalidPathCharsException>(), K(typeid(host::InvalidDirectoryNameException)),
         l + L" Invalid Log File directory: " + kReason},
        {"reply", Throw<ReplyException>(), K(typeid(host::PrinterCommunicationException)),
         l + L": Printer Communication Error: " + kReason},
    };
    for (const Row& row : logRows) {
        Expect(row, [&](const std::function<void()>& call) {
            GatewayErrorHandler::RunDirectory(l.c_str(), nullptr, call);
        });
    }
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
