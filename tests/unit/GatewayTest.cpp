#include "common/StringConverter.h"
#include "gateway/CInterfaceCall.h"
#include "qrv/HostEvent.h"
#include "qrv/HostException.h"
#include "qrv/ManagedQRVDeviceGateway.h"
#include "qrv/qrv.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace vela::kom;
namespace host = vela::printer::communication;
using host::HostEvent;
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

TEST(HostEvent, RaisesSubscribersInOrderUntilRemoved) {
    HostEvent<const std::wstring&> event;
    std::vector<std::wstring> calls;
    auto first = event.Add([&](const std::wstring& s) { calls.push_back(L"1:" + s); });
    auto second = event.Add([&](const std::wstring& s) { calls.push_back(L"2:" + s); });
    EXPECT_NE(first, second);
    EXPECT_EQ(event.Add(nullptr), 0u);

    event.Raise(L"a");
    EXPECT_TRUE(event.Remove(first));
    EXPECT_FALSE(event.Remove(first));
    EXPECT_FALSE(event.Remove(0));
    event.Raise(L"b");
    EXPECT_EQ(calls, (std::vector<std::wstring>{L"1:a", L"2:a", L"2:b"}));
    EXPECT_EQ(event.Count(), 1u);
}

TEST(HostEvent, SubscribersMayChangeTheListWhileBeingCalled) {
    HostEvent<uint32_t> event;
    std::vector<int> calls;
    HostEvent<uint32_t>::Token self = 0, victim = 0;
    self = event.Add([&](uint32_t) {
        calls.push_back(1);
        event.Remove(self);   // itself
        event.Remove(victim); // one whose turn has not come yet: skipped in this raise
        event.Add([&](uint32_t) { calls.push_back(4); }); // joins from the next raise on
    });
    victim = event.Add([&](uint32_t) { calls.push_back(2); });
    event.Add([&](uint32_t) { calls.push_back(3); });

    event.Raise(0);
    EXPECT_EQ(calls, (std::vector<int>{1, 3}));
    event.Raise(0);
    EXPECT_EQ(calls, (std::vector<int>{1, 3, 3, 4}));
}

// A removal that finds the subscriber gone (it removed itself) still waits for its call to end.
TEST(HostEvent, ALateRemovalWaitsForASubscriberThatRemovedItselfAndStillRuns) {
    HostEvent<uint32_t> event(5000);
    std::atomic<bool> removedItself{false}, running{false};
    HostEvent<uint32_t>::Token token = 0;
    token = event.Add([&](uint32_t) {
        running = true;
        removedItself = event.Remove(token);
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        running = false;
    });
    std::thread raiser([&] { event.Raise(0); });
    while (!removedItself) {
        std::this_thread::yield();
    }
    EXPECT_FALSE(event.Remove(token));
    EXPECT_FALSE(running);
    raiser.join();
}

TEST(HostEvent, AFailingSubscriberDoesNotSilenceTheOthers) {
    HostEvent<uint32_t> event;
    int after = 0;
    event.Add([](uint32_t) { throw std::runtime_error("first"); });
    event.Add([](uint32_t) { throw std::logic_error("second"); });
    event.Add([&](uint32_t) { ++after; });
    try {
        event.Raise(1);
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "first");
    }
    EXPECT_EQ(after, 1);
}

namespace {

template <class Kind> std::function<void()> Throws() {
    return [] { throw Kind(L"QRVDeviceGateway::GetFile(): line \u00e9 '/x'"); };
}

qrv_result RunC(const std::function<void()>& body) {
    return CInterfaceCall::Run([&] {
        body();
        return QRV_OK;
    });
}

} // namespace

// One code per failure kind and misuse, the exact line as the thread's last message. Code names:
// tests/python; not-found, cancelled, null argument, emptied message: the C consumer.
TEST(CInterfaceResultTest, EachFailureKindHasItsCodeAndExactLine) {
    const std::string line = "QRVDeviceGateway::GetFile(): line \xc3\xa9 '/x'";
    const struct {
        std::function<void()> body;
        qrv_result code;
        std::string message;
    } rows[] = {
        {Throws<host::PrinterNotFoundException>(), QRV_ERROR_PRINTER_NOT_FOUND, line},
        {Throws<host::PrinterAccessViolationException>(), QRV_ERROR_ACCESS_VIOLATION, line},
        {Throws<host::DirectoryNotFoundException>(), QRV_ERROR_DIRECTORY_NOT_FOUND, line},
        {Throws<host::OutOfDiskspaceException>(), QRV_ERROR_OUT_OF_DISKSPACE, line},
        {Throws<host::InvalidFileNameException>(), QRV_ERROR_INVALID_FILE_NAME, line},
        {Throws<host::InvalidDirectoryNameException>(), QRV_ERROR_INVALID_DIRECTORY_NAME, line},
        {Throws<host::PrinterCommunicationException>(), QRV_ERROR_COMMUNICATION, line},
        {Throws<host::PrinterException>(), QRV_ERROR_PRINTER, line},
        {[] { CInterfaceCall::RequireZero(-1, "QRVDeviceGateway::PutFile()"); }, QRV_ERROR_NONZERO_RESULT,
         "QRVDeviceGateway::PutFile(): nonzero result -1"},
        {[] { throw std::bad_alloc(); }, QRV_ERROR_OUT_OF_MEMORY, "out of memory"},
        {[] { throw std::runtime_error("odd"); }, QRV_ERROR_INTERNAL, "odd"},
        {[] { throw 7; }, QRV_ERROR_INTERNAL, "unknown failure"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(qrv_result_name(row.code));
        EXPECT_EQ(RunC(row.body), row.code);
        EXPECT_EQ(qrv_last_error_message(), row.message);
    }
    EXPECT_EQ(qrv_set_log_level(3), QRV_ERROR_INVALID_ARGUMENT); // a real entry point's misuse
    uint64_t used = 0; // each out-argument is checked before anything is written through one
    EXPECT_EQ(qrv_get_disk_space(nullptr, nullptr, &used), QRV_ERROR_NULL_ARGUMENT);
    EXPECT_STREQ(qrv_result_name(QRV_ERROR_NULL_ARGUMENT), "NullArgument");
    EXPECT_STREQ(qrv_result_name(QRV_OK), "OK");
    EXPECT_STREQ(qrv_result_name(55), "Unknown");
}

TEST(CInterfaceResultTest, MessageIsPerThreadAndCutOnlyBetweenCharacters) {
    std::string longLine;
    for (int i = 0; i < 3000; ++i) {
        longLine += "\xc3\xa9"; // two bytes each: 6000 in all
    }
    EXPECT_EQ(RunC([&] { throw std::runtime_error(longLine); }), QRV_ERROR_INTERNAL);
    EXPECT_EQ(std::string(qrv_last_error_message()), longLine.substr(0, 4094));

    std::thread([] { EXPECT_STREQ(qrv_last_error_message(), ""); }).join();
}
