#include "common/StringConverter.h"
#include "qrv/ManagedQRVDeviceGateway.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <functional>

using namespace vela::kom;
namespace host = vela::printer::communication;
using vela::common::LogLevel;
using vela::test::LogCapture;

// Every operation that needs a printer, with the entry text of its log lines.
TEST(Gateway, EveryOperationWithoutAPrinterIsPrinterNotFound) {
    using G = ManagedQRVDeviceGateway;
    const struct Operation {
        const wchar_t* entry;
        std::function<void(G&)> call;
    } operations[] = {
        {L"QRVDeviceGateway::GetVersions()", [](G& g) { g.GetVersions(); }},
        {L"QRVDeviceGateway::ApplyUpdate()", [](G& g) { g.ApplyUpdate(L"C:\\update.pkg"); }},
        {L"QRVDeviceGateway::Reboot()", [](G& g) { g.Reboot(); }},
        {L"QRVDeviceGateway::GetDeviceID()", [](G& g) { g.GetDeviceID(); }},
        {L"QRVDeviceGateway::GetPrinterType()", [](G& g) { g.GetPrinterType(); }},
        {L"QRVDeviceGateway::GetUpdatePath()", [](G& g) { g.GetUpdateLibraryPath(); }},
        {L"QRVDeviceGateway::GetImageLibraryPath()", [](G& g) { g.GetImageLibraryPath(); }},
        {L"QRVDeviceGateway::GetJobfileLibraryPath()", [](G& g) { g.GetJobFileLibraryPath(); }},
        {L"QRVDeviceGateway::GetTemaplateLibraryPath()", [](G& g) { g.GetTemplateLibraryPath(); }},
        {L"QRVDeviceGateway::FeedForward()", [](G& g) { g.FeedForward(); }},
        {L"QRVDeviceGateway::CutLabel()", [](G& g) { g.CutLabel(); }},
        {L"QRVDeviceGateway::GetFile()", [](G& g) { g.GetFile(L"/images/a.png", L"a.png"); }},
        {L"QRVDeviceGateway::PutFile()", [](G& g) { g.PutFile(L"/images/a.png", L"a.png"); }},
        {L"QRVDeviceGateway::RenameFile()", [](G& g) { g.RenameFile(L"/images/a.png", L"/images/b.png"); }},
        {L"QRVDeviceGateway::DeleteFile()", [](G& g) { g.DeleteFile(L"/images/a.png"); }},
        {L"QRVDeviceGateway::GetFiles()", [](G& g) { g.GetFiles(L"/images"); }},
        {L"QRVDeviceGateway::GetLogFiles()", [](G& g) { g.GetLogFiles(); }},
        {L"QRVDeviceGateway::GetDiskSpaceKB()",
         [](G& g) {
             uint64_t free = 1, used = 2;
             g.GetDiskSpaceKB(free, used);
         }},
        {L"QRVDeviceGateway::GetPrinterStatus()", [](G& g) { g.GetPrinterStatus(); }},
        {L"QRVDeviceGateway::GetPrinterFilteredErrorStatus()",
         [](G& g) { g.GetFilteredPrinterErrorStatus(); }},
        {L"QRVDeviceGateway::GetBatteryChargedPercentage()", [](G& g) { g.GetBatteryChargedPercentage(); }},
        {L"QRVDeviceGateway::GetBatteryStatus()", [](G& g) { g.GetBatteryStatus(); }},
        {L"QRVDeviceGateway::GetChargingStatus()", [](G& g) { g.GetChargingStatus(); }},
        {L"QRVDeviceGateway::GetExternalPowerStatus()", [](G& g) { g.GetExternalPowerStatus(); }},
        {L"QRVDeviceGateway::GetCassetteIdentifier()", [](G& g) { g.GetCassetteIdentifier(); }},
        {L"QRVDeviceGateway::ResumePrinting()", [](G& g) { g.ResumePrinting(); }},
        {L"QRVDeviceGateway::ClearErrors()", [](G& g) { g.ClearErrors(); }},
        {L"QRVDeviceGateway::ClearCutterJamError()", [](G& g) { g.ClearCutterJamError(); }},
    };
    ManagedQRVDeviceGateway gateway;
    EXPECT_FALSE(gateway.IsOpen());
    for (const Operation& op : operations) {
        SCOPED_TRACE(vela::common::StringConverter::ToUtf8(op.entry));
        LogCapture log;
        const std::wstring line = std::wstring(op.entry) + L": Printer Not Found: Printer not found";
        try {
            op.call(gateway);
            ADD_FAILURE() << "no exception";
        } catch (const host::PrinterNotFoundException& e) {
            EXPECT_EQ(e.Message(), line);
        }
        EXPECT_EQ(log.Count(LogLevel::warning), 1u);
        EXPECT_TRUE(log.Contains(line));
    }
    gateway.Close(); // nothing to close
}
