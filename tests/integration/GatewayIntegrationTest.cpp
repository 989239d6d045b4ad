#include "common/StringConverter.h"
#include "kom/connection/PrinterStatusThread.h"
#include "kom/connection/StatusMonitorState.h"
#include "qrv/ManagedQRVDeviceGateway.h"
#include "qrv/qrv.h"
#include "sim/StatusFields.h"
#include "support/HostEventLog.h"
#include "support/PauseRecorder.h"
#include "support/SimulatedPrinter.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>

using namespace vela::kom;
namespace host = vela::printer::communication;
using std::chrono::milliseconds;
using vela::common::LogLevel;
using vela::sim::Fault;
using vela::sim::RequestKind;
using vela::test::LogCapture;
using vela::test::PauseRecorder;
using vela::test::TempDir;

namespace {

class GatewayOnSimulator : public ::testing::Test {
protected:
    void SetUp() override {
        // An interruption is told once per process until it clears: forget an earlier test's.
        StatusMonitorState::Instance()->lastInterruptCode = PrinterStatusThread::kNoInterruption;
        m_gateway.Open(m_printer.Name());
    }
    void TearDown() override { m_gateway.Close(); }

    // Expects `call` to fail with host kind E whose message, logged once as a warning, is `line`.
    template <class E, class F> void ExpectFailure(F call, const std::wstring& line) {
        LogCapture log;
        try {
            call();
            ADD_FAILURE() << "no exception";
        } catch (const E& e) {
            EXPECT_EQ(e.Message(), line) << e.what();
        }
        EXPECT_TRUE(log.Contains(line));
        EXPECT_EQ(log.Count(LogLevel::warning), 1u);
    }

    PauseRecorder m_pauses; // the fixed pauses of print orders, listings and updates return at once
    TempDir m_dir;
    vela::test::SimulatedPrinter m_printer{vela::test::SimulatedPrinter::Options{true}}; // with HID
    ManagedQRVDeviceGateway m_gateway;
};

} // namespace

TEST_F(GatewayOnSimulator, VersionsNameTheirComponentsAndDiskSpaceIsInWholeKiB) {
    m_gateway.Open(m_printer.Name()); // again: closes the first facade, binds a new one
    const vela::sim::PrinterVersions v = m_printer.Printer().GetVersions();
    const auto wide = [](const std::string& text) { return vela::common::StringConverter::FromUtf8(text); };
    EXPECT_EQ(m_gateway.GetVersions(),
              (ManagedQRVDeviceGateway::VersionList{{L"OS", wide(v.os)},
                                                    {L"Firmware", wide(v.firmware)},
                                                    {L"Application", wide(v.application)},
                                                    {L"Overall", wide(v.overall)},
                                                    {L"Auxiliary", wide(v.hardware)},
                                                    {L"DeviceID", wide(v.deviceId)},
                                                    {L"RootFS", wide(v.rootFs)}}));
    EXPECT_EQ(m_gateway.GetPrinterType(), L"Not implemented yet!");
    uint64_t freeKB = 0, usedKB = 0;
    m_gateway.GetDiskSpaceKB(freeKB, usedKB);
    EXPECT_EQ(freeKB, (m_printer.Printer().DiskCapacity() - m_printer.Printer().DiskUsed()) >> 10);
    EXPECT_EQ(usedKB, m_printer.Printer().DiskUsed() >> 10);
    m_gateway.Close();
    EXPECT_THROW(m_gateway.GetImageLibraryPath(), host::PrinterNotFoundException);
}

TEST_F(GatewayOnSimulator, PrinterFailuresBecomeHostKinds) {
    m_printer.Printer().WriteFile("/mnt/data/jobs/a.job", {1, 2, 3});
    vela::test::WriteHostFile(m_dir.File("a.job"), {1, 2, 3});

    ExpectFailure<host::InvalidFileNameException>(
        [&] { m_gateway.PutFile(L"/mnt/data/jobs/a.job", m_dir.WFile("a.job")); },
        L"QRVDeviceGateway::PutFile() Invalid Filename '/mnt/data/jobs/a.job': 'Duplicate file'");

    ExpectFailure<host::FileNotFoundException>(
        [&] { m_gateway.RenameFile(L"/mnt/data/jobs/x.job", L"/mnt/data/jobs/y.job"); },
        L"QRVDeviceGateway::RenameFile(): File not Found: old file: '/mnt/data/jobs/x.job' new file: "
        L"'/mnt/data/jobs/y.job' : 'Wrong file name'");

    ExpectFailure<host::PrinterAccessViolationException>(
        [&] { m_gateway.DeleteFile(L"/mnt/data/settings/syslog"); },
        L"QRVDeviceGateway::DeleteFile(): No permission to access the file '/mnt/data/settings/syslog': "
        L"'Access denied'");

    m_printer.Printer().SetDiskCapacity(m_printer.Printer().DiskUsed() + 2);
    ExpectFailure<host::OutOfDiskspaceException>(
        [&] { m_gateway.PutFile(L"/mnt/data/jobs/b.job", m_dir.WFile("a.job")); },
        L"QRVDeviceGateway::PutFile(): Out of Diskspace '/mnt/data/jobs/b.job': 'Out of disk space'");

    ExpectFailure<host::InvalidDirectoryNameException>(
        [&] { m_gateway.GetFiles(L"mnt/data"); },
        L"QRVDeviceGateway::GetFiles() Invalid directory 'mnt/data': 'PATH_DELIMITER not found'");

    const std::wstring withZero(L"/mnt/data/jobs/a\0b.job", 22);
    ExpectFailure<host::InvalidFileNameException>([&] { m_gateway.DeleteFile(withZero); },
                                                  L"QRVDeviceGateway::DeleteFile() Invalid Filename '" +
                                                      withZero + L"': 'Invalid path characters found'");
    EXPECT_TRUE(m_printer.Printer().ReadFile("/mnt/data/jobs/a.job").has_value());

    // A time-out is a transport failure (retried only for bad replies: one read time-out).
    m_printer.Printer().InjectFault(Fault::Silence().For(RequestKind::versionQuery).Persistent());
    ExpectFailure<host::PrinterException>(
        [&] { m_gateway.GetDeviceID(); },
        L"QRVDeviceGateway::GetDeviceID(): Unknown Error: Unable to read data from UsbPrint device, timeout");
}

// Each wire value of each status field through the decoder and the conversion to the host's value.
TEST_F(GatewayOnSimulator, EveryWireValueOfEveryStatusFieldMeansWhatTheHostIsTold) {
    using K = host::EPrintStatusItem;
    using Door = host::ECassetteDoorStatus;
    using Cutter = host::ECutterStatus;
    using Label = host::ELabelStatus;
    using Print = host::EPrintStatus;
    using Battery = host::EBatteryStatus;
    using Power = host::EExternalPowerSupplyStatus;
    using Memory = host::ECassetteMemoryStatus;
    using Charging = host::EChargingStatus;
    using Presence = host::ECassettePresence;
    using Head = host::EPrintHeadTemperature;
    using PowerStatus = host::EPowerStatus;
    const auto v = [](auto e) { return static_cast<uint32_t>(e); };
    struct Row {
        uint8_t vela::sim::StatusFields::*field;
        K kind;
        std::vector<uint32_t> meaning; // by wire value 0, 1, ...
    };
    const Row rows[] = {
        {&vela::sim::StatusFields::power,
         K::powerStatus,
         {v(PowerStatus::ok), v(PowerStatus::low), v(PowerStatus::critical), v(PowerStatus::unknown)}},
        {&vela::sim::StatusFields::door,
         K::cassetteDoorStatus,
         {v(Door::closed), v(Door::open), v(Door::unknown), v(Door::error)}},
        {&vela::sim::StatusFields::cassette,
         K::cassettePresence,
         {v(Presence::present), v(Presence::absent), v(Presence::presentUnverified), v(Presence::unknown)}},
        {&vela::sim::StatusFields::printHead,
         K::printHeadTemperature,
         {v(Head::normal), v(Head::warm), v(Head::hot), v(Head::unknown)}},
        {&vela::sim::StatusFields::cutter,
         K::cutterStatus,
         {v(Cutter::ok), v(Cutter::busy), v(Cutter::jammed), v(Cutter::unknown), v(Cutter::unknown),
          v(Cutter::unknown), v(Cutter::bladeError), v(Cutter::error)}},
        {&vela::sim::StatusFields::label,
         K::labelStatus,
         {v(Label::ok), v(Label::out), v(Label::jammed), v(Label::low), v(Label::unknown), v(Label::unknown),
          v(Label::notTaken), v(Label::error)}},
        {&vela::sim::StatusFields::cassetteMemory,
         K::cassetteMemoryStatus,
         {v(Memory::ok), v(Memory::unreadable), v(Memory::unknown), v(Memory::error)}},
        {&vela::sim::StatusFields::print,
         K::printStatus,
         {v(Print::idle), v(Print::printing), v(Print::paused), v(Print::aborted), v(Print::cooling),
          v(Print::unknown), v(Print::unknown), v(Print::error)}},
        {&vela::sim::StatusFields::externalPower,
         K::externalPowerSupplyStatus,
         {v(Power::disconnected), v(Power::connected), v(Power::unknown), v(Power::error)}},
        {&vela::sim::StatusFields::battery,
         K::batteryStatus,
         {v(Battery::empty), v(Battery::level1), v(Battery::level2), v(Battery::level3), v(Battery::level4),
          v(Battery::full), v(Battery::unknown), v(Battery::error)}},
        {&vela::sim::StatusFields::charging,
         K::chargingStatus,
         {v(Charging::notCharging), v(Charging::charging), v(Charging::unknown), v(Charging::error)}},
    };
    // The C interface's record holds the same values, each in its own member.
    qrv_printer* printer = nullptr;
    ASSERT_EQ(qrv_open(vela::common::StringConverter::ToUtf8(m_printer.Name()).c_str(), &printer), QRV_OK);
    for (const Row& row : rows) {
        for (uint8_t wire = 0; wire < row.meaning.size(); ++wire) {
            SCOPED_TRACE(testing::Message() << "kind " << v(row.kind) << " wire value " << int(wire));
            vela::sim::StatusFields fields;
            fields.*row.field = wire;
            m_printer.Printer().SetStatus(fields);
            const auto items = m_gateway.GetPrinterStatus();
            ASSERT_EQ(items.size(), 11u);
            EXPECT_EQ(items[v(row.kind)], host::PrinterStatusItem(row.kind, row.meaning[wire]));
            qrv_status c{};
            ASSERT_EQ(qrv_get_status(printer, &c), QRV_OK);
            const uint32_t members[] = {
                c.power,          c.cassette_door, c.cassette_presence, c.print_head_temperature,
                c.cutter,         c.label,         c.cassette_memory,   c.print,
                c.external_power, c.battery,       c.charging};
            for (size_t k = 0; k < items.size(); ++k) {
                EXPECT_EQ(members[k], items[k].Value()) << "member " << k;
            }
            if (row.kind == K::batteryStatus) {
                EXPECT_EQ(m_gateway.GetBatteryStatus(), static_cast<Battery>(row.meaning[wire]));
                EXPECT_EQ(m_gateway.GetBatteryChargedPercentage(), wire <= 5 ? wire * 20u : 0u);
            } else if (row.kind == K::chargingStatus) {
                EXPECT_EQ(m_gateway.GetChargingStatus(), static_cast<Charging>(row.meaning[wire]));
            } else if (row.kind == K::externalPowerSupplyStatus) {
                EXPECT_EQ(m_gateway.GetExternalPowerStatus(), static_cast<Power>(row.meaning[wire]));
            }
        }
    }
    qrv_close(printer);
    // Only what needs the user's action counts as an error: warnings and unknowns do not.
    vela::sim::StatusFields mixed;
    mixed.door = 1, mixed.printHead = 1, mixed.cutter = 2, mixed.label = 3, mixed.print = 2,
    mixed.externalPower = 1, mixed.battery = 3, mixed.charging = 1, mixed.power = 1, mixed.cassetteMemory = 2;
    m_printer.Printer().SetStatus(mixed);
    EXPECT_EQ(m_gateway.GetFilteredPrinterErrorStatus(),
              (std::vector<host::PrinterStatusItem>{{K::cassetteDoorStatus, v(Door::open)},
                                                    {K::cutterStatus, v(Cutter::jammed)}}));
    const vela::sim::StatusFields worst{2, 3, 1, 2, 7, 6, 3, 7, 3, 7, 3};
    m_printer.Printer().SetStatus(worst);
    EXPECT_EQ(m_gateway.GetFilteredPrinterErrorStatus().size(), 11u);
}

TEST_F(GatewayOnSimulator, WithoutStatusEventsOpenProbesButStartsNoMonitor) {
    m_gateway.Close();
    m_gateway.SetStatusEvents(false);
    m_printer.Printer().ClearRequests();
    m_gateway.Open(m_printer.Name());
    EXPECT_FALSE(StatusMonitorState::Instance()->thread.Exists());
    EXPECT_EQ(m_gateway.GetPrinterStatus().size(), 11u);
    std::vector<RequestKind> kinds;
    for (const auto& request : m_printer.Printer().Requests()) {
        kinds.push_back(request.kind);
    }
    EXPECT_EQ(kinds, (std::vector<RequestKind>{RequestKind::folderDetail, RequestKind::statusQuery}));

    m_gateway.Close(); // kept across Close: the next Open listens again once told to
    m_gateway.SetStatusEvents(true);
    m_gateway.Open(m_printer.Name());
    EXPECT_TRUE(StatusMonitorState::Instance()->thread.Exists());
}

TEST_F(GatewayOnSimulator, StatusAndInterruptEventsFromTheMonitorThread) {
    vela::test::HostEventLog events(m_gateway);
    const host::PrinterStatusItem jam{host::EPrintStatusItem::cutterStatus,
                                      static_cast<uint32_t>(host::ECutterStatus::jammed)};
    const auto hasJam = [&](const std::vector<host::PrinterStatusItem>& items) {
        return std::find(items.begin(), items.end(), jam) != items.end();
    };
    // A subscriber may use the gateway from the monitor thread, but not close it there.
    std::promise<std::pair<size_t, bool>> fromSubscriber;
    std::atomic<bool> once{false};
    m_gateway.OnPrinterStatusChanged().Add([&](const host::PrinterStatusEventArgs& args) {
        if (!hasJam(args.Items()) || once.exchange(true)) {
            return;
        }
        size_t errors = m_gateway.GetFilteredPrinterErrorStatus().size();
        bool refused = false;
        try {
            m_gateway.Close();
        } catch (const host::PrinterException&) {
            refused = true;
        }
        fromSubscriber.set_value({errors, refused});
    });

    // The monitor's channel may open after Open returned and miss a change: jam again until heard.
    bool heard = false;
    for (int attempt = 0; attempt < 20 && !heard; ++attempt) {
        m_printer.Printer().SetCutterJammed(false);
        m_printer.Printer().SetCutterJammed(true);
        heard = events.WaitFor(hasJam, milliseconds(500)).has_value();
    }
    ASSERT_TRUE(heard);
    EXPECT_TRUE(vela::test::Eventually([&] {
        const auto issues = events.Interrupts();
        return std::count(issues.begin(), issues.end(),
                          host::EPrintInterruptIssue::cutterJammedOrLabelNotTaken) > 0;
    }));
    auto seenBySubscriber = fromSubscriber.get_future();
    ASSERT_EQ(seenBySubscriber.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(seenBySubscriber.get(), std::make_pair(size_t{1}, true)); // the jammed cutter; Close refused
    EXPECT_TRUE(m_gateway.IsOpen());

    // A change carries only what changed.
    m_printer.Printer().SetCutterJammed(false);
    const auto freed = events.WaitFor([&](const auto& items) { return !hasJam(items); });
    ASSERT_TRUE(freed.has_value());
    EXPECT_EQ(*freed,
              (std::vector<host::PrinterStatusItem>{
                  {host::EPrintStatusItem::cutterStatus, static_cast<uint32_t>(host::ECutterStatus::ok)}}));
}
