#include "gateway/ManagedQRVDeviceGateway.h"
#include "sim/Simulator.h"
#include "support/PauseRecorder.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <future>
#include <mutex>
#include <thread>

using namespace vela::kom;
namespace host = vela::printer::communication;
using std::chrono::milliseconds;
using vela::common::LogLevel;
using vela::sim::Fault;
using vela::sim::RequestKind;
using vela::sim::Simulator;
using vela::test::LogCapture;
using vela::test::PauseRecorder;
using vela::test::TempDir;

namespace {

constexpr milliseconds kPatience{10000}; // an upper bound for the monitor thread, never a pause
const std::wstring kQueue = L"Gateway Sim Printer";

void SetVirtualPrinters(const std::string& value) {
#ifdef _WIN32
    _putenv_s("QRV_VIRTUAL_PRINTERS", value.c_str());
#else
    if (value.empty()) {
        unsetenv("QRV_VIRTUAL_PRINTERS");
    } else {
        setenv("QRV_VIRTUAL_PRINTERS", value.c_str(), 1);
    }
#endif
}

std::vector<uint8_t> Bytes(const std::string& text) {
    return std::vector<uint8_t>(text.begin(), text.end());
}

// What the gateway's events delivered, and on which thread.
class EventLog {
public:
    explicit EventLog(ManagedQRVDeviceGateway& gateway) {
        gateway.OnPrinterStatusChanged().Add([this](const host::PrinterStatusEventArgs& args) {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_changes.push_back(args.Items());
            m_threads.push_back(std::this_thread::get_id());
            m_changed.notify_all();
        });
        gateway.OnPrintInterrupt().Add([this](const host::PrintInterruptEventArgs& args) {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_interrupts.push_back(args.Issue());
            m_changed.notify_all();
        });
    }

    // The next status change after `seen` changes, or none within the patience.
    std::optional<std::vector<host::PrinterStatusItem>> WaitChange(size_t seen,
                                                                   milliseconds patience = kPatience) {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_changed.wait_for(lock, patience, [&] { return m_changes.size() > seen; })) {
            return std::nullopt;
        }
        return m_changes[seen];
    }
    bool WaitInterrupts(size_t count) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, kPatience, [&] { return m_interrupts.size() >= count; });
    }
    size_t Changes() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_changes.size();
    }
    std::vector<host::EPrintInterruptIssue> Interrupts() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_interrupts;
    }
    std::vector<std::thread::id> Threads() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_threads;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::vector<host::PrinterStatusItem>> m_changes;
    std::vector<host::EPrintInterruptIssue> m_interrupts;
    std::vector<std::thread::id> m_threads;
};

class GatewayOnSimulator : public ::testing::Test {
protected:
    void SetUp() override {
        Simulator::Options options;
        options.name = "Gateway Sim Printer";
        options.model = "410";
        m_sim = std::make_unique<Simulator>(options);
        m_sim->Printer().SetRebootDelay(milliseconds(200));
        SetVirtualPrinters(m_sim->EntryText());
        m_gateway.Open(kQueue);
    }
    void TearDown() override {
        m_gateway.Close();
        SetVirtualPrinters("");
    }

    // Expects `call` to fail with host kind E whose message, logged once as a warning, is `line`
    // (or starts with it when `prefixOnly`).
    template <class E, class F>
    void ExpectFailure(F call, const std::wstring& line, bool prefixOnly = false) {
        LogCapture log;
        try {
            call();
            ADD_FAILURE() << "no exception";
        } catch (const E& e) {
            if (prefixOnly) {
                EXPECT_EQ(e.Message().substr(0, line.size()), line) << e.what();
            } else {
                EXPECT_EQ(e.Message(), line) << e.what();
            }
            EXPECT_TRUE(log.Contains(e.Message()));
        } catch (const host::HostException& e) {
            ADD_FAILURE() << "wrong kind: " << e.what();
        }
        EXPECT_EQ(log.Count(LogLevel::warning), 1u);
    }

    PauseRecorder m_pauses; // the fixed pauses of print orders, listings and updates return at once
    TempDir m_dir;
    std::unique_ptr<Simulator> m_sim;
    ManagedQRVDeviceGateway m_gateway;
};

} // namespace

TEST_F(GatewayOnSimulator, QueriesAndOrders) {
    ASSERT_TRUE(m_gateway.IsOpen());
    vela::sim::PrinterVersions v = m_sim->Printer().GetVersions();
    auto versions = m_gateway.GetVersions();
    ASSERT_EQ(versions.size(), 7u);
    EXPECT_EQ(versions[0],
              std::make_pair(std::wstring(L"OS"), vela::common::StringConverter::FromUtf8(v.os)));
    EXPECT_EQ(versions[1].second, vela::common::StringConverter::FromUtf8(v.firmware));
    EXPECT_EQ(versions[6].second, vela::common::StringConverter::FromUtf8(v.rootFs));
    EXPECT_EQ(m_gateway.GetDeviceID(), vela::common::StringConverter::FromUtf8(v.deviceId));
    EXPECT_EQ(m_gateway.GetPrinterType(), L"Not implemented yet!");
    EXPECT_EQ(m_gateway.GetImageLibraryPath(), L"/mnt/data/images");
    EXPECT_EQ(m_gateway.GetJobFileLibraryPath(), L"/mnt/data/jobs");
    EXPECT_EQ(m_gateway.GetTemplateLibraryPath(), L"/mnt/data/templates");
    EXPECT_EQ(m_gateway.GetUpdateLibraryPath(), L"/mnt/data/update");

    // The simulator starts ready, cassette in, door closed, on battery at level 4.
    auto status = m_gateway.GetPrinterStatus();
    ASSERT_EQ(status.size(), 11u);
    EXPECT_EQ(status[1], host::PrinterStatusItem(host::EPrintStatusItem::cassetteDoorStatus, 0));
    EXPECT_EQ(status[9], host::PrinterStatusItem(host::EPrintStatusItem::batteryStatus, 4));
    EXPECT_TRUE(m_gateway.GetFilteredPrinterErrorStatus().empty());
    EXPECT_EQ(m_gateway.GetBatteryChargedPercentage(), 80u);
    EXPECT_EQ(m_gateway.GetBatteryStatus(), host::EBatteryStatus::level4);

    m_sim->Printer().ModifyStatus([](vela::sim::StatusFields& f) {
        f.door = 3;          // error: the host's 2
        f.externalPower = 1; // connected
        f.charging = 3;      // error: the host's 2
        f.battery = 7;       // error: the host's 6
    });
    EXPECT_EQ(m_gateway.GetExternalPowerStatus(), host::EExternalPowerSupplyStatus::connected);
    EXPECT_EQ(m_gateway.GetChargingStatus(), host::EChargingStatus::error);
    EXPECT_EQ(m_gateway.GetBatteryStatus(), host::EBatteryStatus::error);
    EXPECT_EQ(m_gateway.GetBatteryChargedPercentage(), 0u);
    auto errors = m_gateway.GetFilteredPrinterErrorStatus();
    ASSERT_EQ(errors.size(), 3u);
    EXPECT_EQ(errors[0], host::PrinterStatusItem(host::EPrintStatusItem::cassetteDoorStatus, 2));
    EXPECT_EQ(errors[1], host::PrinterStatusItem(host::EPrintStatusItem::batteryStatus, 6));
    EXPECT_EQ(errors[2], host::PrinterStatusItem(host::EPrintStatusItem::chargingStatus, 2));

    m_sim->Printer().SetSku("QRV-123");
    EXPECT_EQ(m_gateway.GetCassetteIdentifier(), L"QRV-123");
    m_sim->Printer().SetCassettePresent(false);
    EXPECT_EQ(m_gateway.GetCassetteIdentifier(), L"");

    m_sim->Printer().ClearRequests();
    m_gateway.FeedForward();
    m_gateway.CutLabel();
    m_gateway.ResumePrinting();
    m_gateway.ClearErrors();
    m_gateway.ClearCutterJamError();
    m_gateway.SetCutterMode(host::TapeCutMode::cutAfterJob);
    EXPECT_EQ(m_sim->Printer().CountRequests(RequestKind::printControl), 5u);

    uint64_t freeKB = 0, usedKB = 0;
    m_gateway.GetDiskSpaceKB(freeKB, usedKB);
    EXPECT_EQ(freeKB, (m_sim->Printer().DiskCapacity() - m_sim->Printer().DiskUsed()) >> 10);
    EXPECT_EQ(usedKB, m_sim->Printer().DiskUsed() >> 10);

    m_gateway.Reboot();
    ASSERT_TRUE(m_sim->WaitForReconnections(1, kPatience));
}

TEST_F(GatewayOnSimulator, FilesFoldersLogsAndUpdate) {
    const std::string hostFile = m_dir.File("label.png");
    vela::test::WriteHostFile(hostFile, Bytes("not really a png"));
    EXPECT_EQ(m_gateway.PutFile(L"/mnt/data/images/label.png", m_dir.WFile("label.png")), 0);
    EXPECT_EQ(m_sim->Printer().ReadFile("/mnt/data/images/label.png"), Bytes("not really a png"));

    EXPECT_EQ(m_gateway.GetFile(L"/mnt/data/images/label.png", m_dir.WFile("back.png")), 0);
    EXPECT_EQ(vela::test::ReadHostFile(m_dir.File("back.png")), Bytes("not really a png"));

    EXPECT_EQ(m_gateway.RenameFile(L"/mnt/data/images/label.png", L"/mnt/data/images/logo.png"), 0);
    auto files = m_gateway.GetFiles(L"/mnt/data/images");
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(files[0].Name(), L"logo.png");
    EXPECT_EQ(files[0].Type(), host::FileType::file);
    EXPECT_EQ(files[0].Size(), 16);
    EXPECT_EQ(m_gateway.DeleteFile(L"/mnt/data/images/logo.png"), 0);
    EXPECT_TRUE(m_gateway.GetFiles(L"/mnt/data/images").empty());

    auto logs = m_gateway.GetLogFiles();
    EXPECT_EQ(logs,
              (std::vector<std::wstring>{L"/mnt/data/settings/syslog", L"/mnt/data/settings/syslog.1"}));

    uint64_t lastDone = 0, lastTotal = 0;
    m_gateway.SetProgressCallback([&](uint64_t done, uint64_t total) {
        lastDone = done;
        lastTotal = total;
    });
    vela::test::WriteHostFile(m_dir.File("big.tpl"), std::vector<uint8_t>(100000, 0x5A));
    EXPECT_EQ(m_gateway.PutFile(L"/mnt/data/templates/big.tpl", m_dir.WFile("big.tpl")), 0);
    EXPECT_GT(lastTotal, 100000u);
    EXPECT_EQ(lastDone, lastTotal);
    m_gateway.SetProgressCallback(nullptr);

    std::vector<NativeQRVDevice::UpdatePhase> phases;
    m_gateway.SetUpdatePhaseCallback([&](NativeQRVDevice::UpdatePhase p) { phases.push_back(p); });
    vela::test::WriteHostFile(m_dir.File("qrv-fw-9.8.7.pkg"), Bytes("package"));
    EXPECT_EQ(m_gateway.ApplyUpdate(m_dir.WFile("qrv-fw-9.8.7.pkg")), 0);
    EXPECT_FALSE(phases.empty());
    EXPECT_EQ(phases.back(), NativeQRVDevice::UpdatePhase::done);
    bool updated = false;
    for (const auto& entry : m_gateway.GetVersions()) {
        updated = updated || entry.second == L"9.8.7";
    }
    EXPECT_TRUE(updated);
    EXPECT_TRUE(m_gateway.GetFiles(L"/mnt/data/update").empty());
}

TEST_F(GatewayOnSimulator, PrinterFailuresBecomeHostKinds) {
    m_sim->Printer().WriteFile("/mnt/data/jobs/a.job", Bytes("job"));
    vela::test::WriteHostFile(m_dir.File("a.job"), Bytes("job"));

    ExpectFailure<host::FileNotFoundException>(
        [&] { m_gateway.GetFile(L"/mnt/data/jobs/none.job", m_dir.WFile("none.job")); },
        L"QRVDeviceGateway::GetFile(): File not Found '/mnt/data/jobs/none.job': 'Wrong file name'");
    EXPECT_FALSE(vela::test::HostFileExists(m_dir.File("none.job")));

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

    m_sim->Printer().SetDiskCapacity(m_sim->Printer().DiskUsed() + 2);
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
    EXPECT_TRUE(m_sim->Printer().ReadFile("/mnt/data/jobs/a.job").has_value());

    // A printer that stops answering: the channel's time-out is a transport failure.
    // (The device-id query retries only bad replies, so this costs one read time-out.)
    m_sim->Printer().InjectFault(Fault::Silence().For(RequestKind::versionQuery).Persistent());
    ExpectFailure<host::PrinterException>([&] { m_gateway.GetDeviceID(); },
                                          L"QRVDeviceGateway::GetDeviceID(): Unknown Error: ", true);
}

TEST_F(GatewayOnSimulator, StatusAndInterruptEventsFromTheMonitorThread) {
    EventLog events(m_gateway);
    // The monitor compares the first report with an all-zero one, and its channel may open a
    // moment after Open returned: toggle the door until a change arrives, close it, then let the
    // reports settle (no change for a quiet half second).
    bool heard = false;
    for (int attempt = 0; attempt < 20 && !heard; ++attempt) {
        m_sim->Printer().SetDoorOpen(attempt % 2 == 0);
        heard = events.WaitChange(0, milliseconds(500)).has_value();
    }
    ASSERT_TRUE(heard);
    m_sim->Printer().SetDoorOpen(false);
    size_t seen = events.Changes();
    while (events.WaitChange(seen, milliseconds(500))) {
        seen = events.Changes();
    }
    size_t interruptsBefore = events.Interrupts().size();

    // A subscriber may use the gateway from the monitor thread, but not close it there.
    std::promise<std::pair<size_t, bool>> fromSubscriber;
    std::atomic<bool> once{false};
    m_gateway.OnPrinterStatusChanged().Add([&](const host::PrinterStatusEventArgs&) {
        if (once.exchange(true)) {
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

    m_sim->Printer().SetCutterJammed(true);
    auto change = events.WaitChange(seen);
    ASSERT_TRUE(change.has_value());
    EXPECT_EQ(*change,
              (std::vector<host::PrinterStatusItem>{{host::EPrintStatusItem::cutterStatus,
                                                     static_cast<uint32_t>(host::ECutterStatus::jammed)}}));
    ASSERT_TRUE(events.WaitInterrupts(interruptsBefore + 1));
    EXPECT_EQ(events.Interrupts().back(), host::EPrintInterruptIssue::cutterJammedOrLabelNotTaken);
    for (std::thread::id id : events.Threads()) {
        EXPECT_NE(id, std::this_thread::get_id());
    }
    auto seenBySubscriber = fromSubscriber.get_future();
    ASSERT_EQ(seenBySubscriber.wait_for(kPatience), std::future_status::ready);
    EXPECT_EQ(seenBySubscriber.get(), std::make_pair(size_t{1}, true)); // the jammed cutter; Close refused
    EXPECT_TRUE(m_gateway.IsOpen());

    // After Close nothing more arrives.
    m_gateway.Close();
    size_t closedAt = events.Changes();
    m_sim->Printer().SetCutterJammed(false);
    EXPECT_FALSE(events.WaitChange(closedAt, milliseconds(500)).has_value());
}

TEST_F(GatewayOnSimulator, OpenAgainAndClose) {
    m_gateway.Open(kQueue); // closes the first facade, binds a new one
    EXPECT_EQ(m_gateway.GetImageLibraryPath(), L"/mnt/data/images");
    m_gateway.Close();
    m_gateway.Close();
    EXPECT_FALSE(m_gateway.IsOpen());
    ExpectFailure<host::PrinterNotFoundException>(
        [&] { m_gateway.GetImageLibraryPath(); },
        L"QRVDeviceGateway::GetImageLibraryPath(): Printer Not Found: Printer not found");
}

TEST(GatewayOpen, AMissingPrinterIsACommunicationError) {
    PauseRecorder pauses;
    SetVirtualPrinters("");
    ManagedQRVDeviceGateway gateway;
    LogCapture log;
    try {
        gateway.Open(L"No Such QRV Printer");
        ADD_FAILURE() << "opened";
    } catch (const host::PrinterCommunicationException& e) {
        EXPECT_EQ(e.Message(), L"QRVDeviceGateway::CreateQRVDevice(): Printer Communication Error "
                               L"'No Such QRV Printer': No Such QRV Printer");
        EXPECT_TRUE(log.Contains(e.Message()));
    }
    EXPECT_FALSE(gateway.IsOpen());
    EXPECT_THROW(gateway.GetPrinterStatus(), host::PrinterNotFoundException);
}
