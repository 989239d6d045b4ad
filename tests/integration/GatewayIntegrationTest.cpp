#include "common/StringConverter.h"
#include "qrv/ManagedQRVDeviceGateway.h"
#include "sim/Simulator.h"
#include "support/PauseRecorder.h"
#include "support/ScopedEnvironment.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
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
using vela::test::ScopedEnvironment;
using vela::test::TempDir;

namespace {

constexpr milliseconds kPatience{10000}; // an upper bound for the monitor thread, never a pause
const std::wstring kQueue = L"Gateway Sim Printer";

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
        m_entry = std::make_unique<ScopedEnvironment>(
            "QRV_VIRTUAL_PRINTERS", vela::common::StringConverter::FromUtf8(m_sim->EntryText()));
        m_gateway.Open(kQueue);
    }
    void TearDown() override { m_gateway.Close(); }

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
    std::unique_ptr<ScopedEnvironment> m_entry;
    ManagedQRVDeviceGateway m_gateway;
};

} // namespace

// The tool's tests (tests/cli) run every gateway operation against the simulator; these are
// the answers the tool does not show.
TEST_F(GatewayOnSimulator, VersionsNameTheirComponentsAndDiskSpaceIsInWholeKiB) {
    const vela::sim::PrinterVersions v = m_sim->Printer().GetVersions();
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
    EXPECT_EQ(freeKB, (m_sim->Printer().DiskCapacity() - m_sim->Printer().DiskUsed()) >> 10);
    EXPECT_EQ(usedKB, m_sim->Printer().DiskUsed() >> 10);
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
    ScopedEnvironment none("QRV_VIRTUAL_PRINTERS", L"");
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
