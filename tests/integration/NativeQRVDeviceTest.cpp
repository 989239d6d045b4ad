// The facade where the tool's tests do not reach it: retries, fall-backs, null paths, the probe.
#include "support/SimulatedPrinter.h"

#include "ExpectThrown.h"
#include "kom/QRVException.h"
#include "support/PauseRecorder.h"
#include "support/RecordingListener.h"
#include "support/TestSupport.h"

#include <algorithm>
#include <cwctype>
#include <functional>
#include <tuple>

using vela::common::WaitResult;
using vela::kom::NativeQRVDevice;
using vela::sim::Fault;
using vela::sim::RequestKind;
using vela::test::ExpectThrown;
using vela::test::Fields;
using vela::test::OnSimulatedPrinter;
using vela::test::PauseRecorder;

using NativeQRVDeviceSim = OnSimulatedPrinter;

TEST_F(NativeQRVDeviceSim, ChoosesThePrinterByItsExactName) {
    std::wstring other = Name();
    std::transform(other.begin(), other.end(), other.begin(), [](wchar_t c) { return std::towupper(c); });
    NativeQRVDevice facade(0);
    ExpectThrown<vela::kom::DeviceNotFoundException>([&] { facade.SetPrinterName(other); }, other,
                                                     L"NativeQRVDevice::SetPrinterName()");
    EXPECT_EQ(facade.GetPrinterName(), other);
    EXPECT_THROW(facade.GetPrinterStatus(), vela::common::InvalidOperationException) << "still unbound";

    // A second binding replaces the first; the probe asked for the image folder once.
    Facade().SetPrinterName(Name());
    EXPECT_EQ(Printer().CountRequests(RequestKind::folderDetail), 1u);
}

// Orders are not retried: one that goes unanswered fails at once.
TEST_F(NativeQRVDeviceSim, ControlOrdersAreNotRetried) {
    PauseRecorder pauses;
    Printer().InjectFault(Fault::Silence().For(RequestKind::printControl));
    EXPECT_THROW(Facade().CutLabel(), vela::common::UsbPrintDeviceReadException);
    EXPECT_EQ(Printer().CountRequests(RequestKind::printControl), 1u);
}

TEST_F(NativeQRVDeviceSim, NullPathsAreMinusOneAndAMissingFileIsNotRetried) {
    PauseRecorder pauses;
    vela::test::TempDir dir;
    vela::test::WriteHostFile(dir.File("label.png"), {1, 2, 3});
    const std::wstring host = dir.WFile("label.png");
    EXPECT_EQ(Facade().PutFile(nullptr, host.c_str()), -1);
    EXPECT_EQ(Facade().PutFile(L"/mnt/data/images/x", nullptr), -1);
    EXPECT_EQ(Facade().GetFile(L"/mnt/data/images/x", nullptr), -1);
    EXPECT_EQ(Facade().Rename(nullptr, L"/mnt/data/images/x"), -1);
    EXPECT_EQ(Facade().Delete(nullptr), -1);
    EXPECT_EQ(Facade().ApplyUpdate(nullptr), -1);
    EXPECT_TRUE(Printer().Requests().empty());

    EXPECT_THROW(Facade().Delete(L"/mnt/data/images/b.png"), vela::kom::FileNotFoundException);
    EXPECT_EQ(Printer().CountRequests(RequestKind::deleteFile), 1u);
}

// Every query is retried ten times; a version query's last failure leaves as the root kind.
TEST_F(NativeQRVDeviceSim, QueriesAreRetriedTenTimesThenFail) {
    PauseRecorder pauses;
    const std::tuple<RequestKind, std::function<void()>, const wchar_t*> rows[] = {
        {RequestKind::statusQuery, [&] { Facade().GetPrinterStatus(); }, L"ReplyException"},
        {RequestKind::cassetteMemory, [&] { Facade().GetCassetteIdentifier(); }, L"ReplyException"},
        {RequestKind::versionQuery, [&] { Facade().GetPrinterVersion(); }, L"Exception"},
    };
    for (const auto& [kind, query, exceptionName] : rows) {
        SCOPED_TRACE(vela::sim::RequestKindName(kind));
        pauses.Clear();
        Printer().ClearRequests();
        Printer().InjectFault(Fault::WrongCommandByte().For(kind).Persistent());
        try {
            query();
            ADD_FAILURE() << "no exception";
        } catch (const vela::common::Exception& e) {
            EXPECT_EQ(e.ExceptionName(), exceptionName);
            EXPECT_EQ(e.Message(), L"'Wrong reply'");
            if (kind == RequestKind::versionQuery) {
                EXPECT_EQ(e.Source(), L"PrinterDevice::GetPrinterVersion()");
            }
        }
        EXPECT_EQ(Printer().CountRequests(kind), 10u);
        EXPECT_EQ(pauses.Pauses(), std::vector<uint32_t>(9, 500));
        Printer().ClearFaults();
    }
}

TEST_F(NativeQRVDeviceSim, ACutShortRetryPauseAnswersTheFallBack) {
    PauseRecorder pauses;
    Printer().InjectFault(Fault::WrongCommandByte().Persistent());
    pauses.SetResultAt(0, WaitResult::signalled);
    EXPECT_EQ(Fields(Facade().GetPrinterStatus()),
              (std::vector<uint32_t>{3, 4, 3, 3, 8, 8, 4, 8, 4, 8, 4, 2, 0}));
    pauses.SetResultAt(2, WaitResult::signalled);
    EXPECT_EQ(Facade().GetChargingStatus(), 4u);
    pauses.SetResultAt(0, WaitResult::failed);
    EXPECT_EQ(Facade().GetCassetteIdentifier(), L"");
    pauses.SetResultAt(0, WaitResult::signalled);
    EXPECT_EQ(Facade().GetDeviceID(), L"");
    pauses.SetResultAt(0, WaitResult::signalled);
    EXPECT_EQ(Facade().GetPrinterVersion().GetFWVersion(), L"");
}

TEST(NativeQRVDeviceProbe, AChannelThatFailsCostsFourSecondsOnceAndNoError) {
    vela::test::ScopedEnvironment ghost(
        "QRV_VIRTUAL_PRINTERS",
#ifdef _WIN32
        L"Ghost Printer|\\\\.\\pipe\\qrv-ghost-nothing|\\\\.\\pipe\\qrv-ghost-hid|410"
#else
        L"Ghost Printer|/nonexistent/qrv-ghost|/nonexistent/qrv-ghost-hid|410"
#endif
    );
    PauseRecorder pauses;
    NativeQRVDevice facade(L"Ghost Printer", 0);
    EXPECT_NO_THROW(facade.SetPrinterName(L"Ghost Printer"));
    EXPECT_EQ(pauses.Pauses(), std::vector<uint32_t>{4000});

    // With a monitor thread (here one that could not open its device and ended), no probe.
    vela::test::RecordingListener listener;
    facade.RegisterListener(&listener);
    pauses.Clear();
    EXPECT_NO_THROW(facade.SetPrinterName(L"Ghost Printer"));
    EXPECT_TRUE(pauses.Pauses().empty());
    facade.DeregisterListener(&listener);
}
