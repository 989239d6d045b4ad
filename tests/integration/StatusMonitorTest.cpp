// The status monitor thread reading the simulator's HID reports over the real channel, its stop
// and its quiet end; and the per-device monitor of QRVDevice holding the printer.
#include "support/SimulatedPrinter.h"

#include "kom/connection/PrinterStatusThread.h"
#include "kom/connection/QRVDevice.h"
#include "kom/connection/StatusMonitorState.h"
#include "support/RecordingListener.h"
#include "support/TestSupport.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

using vela::kom::PrinterStatus;
using vela::kom::PrinterStatusThread;
using vela::kom::QRVDevice;
using vela::kom::StatusMonitorState;
using vela::test::Eventually;
using vela::test::Fields;
using vela::test::LogCapture;
using vela::test::RecordingListener;
using Clock = std::chrono::steady_clock;

namespace {

// The unchanged markers with field `n` (1-based) = `value`.
std::vector<uint32_t> OnlyChanged(size_t n, uint32_t value) {
    std::vector<uint32_t> f = {4, 5, 4, 4, 9, 9, 5, 9, 5, 9, 5, 3, 0};
    f[n - 1] = value;
    return f;
}

class StatusMonitorSim : public vela::test::OnSimulatedPrinter {
protected:
    void SetUp() override {
        OnSimulatedPrinter::SetUp();
        StatusMonitorState::Instance()->lastInterruptCode = PrinterStatusThread::kNoInterruption;
    }
    // Registers the listener and waits until the thread reads the HID channel: special reports
    // are sent until one arrives (they change nothing that later checks look at).
    void Listen() {
        Facade().RegisterListener(&m_listener);
        ASSERT_TRUE(Eventually(
            [this] {
                Printer().SendSpecialHidReport();
                return m_listener.WaitForStatuses(1, 100);
            },
            10000));
        // Wait out the surplus special reports still on their way.
        size_t seen = 0;
        do {
            seen = m_listener.Statuses().size();
            m_listener.WaitForStatuses(seen + 1, 300);
        } while (m_listener.Statuses().size() != seen);
        for (const auto& s : m_listener.Statuses()) {
            ASSERT_EQ(s, PrinterStatusThread::FirmwareReportRecord());
        }
        m_expected = seen;
    }
    // Waits for the next status call and returns it.
    std::vector<uint32_t> Next() {
        const size_t want = ++m_expected;
        if (!m_listener.WaitForStatuses(want)) {
            ADD_FAILURE() << "no status call " << want;
            return {};
        }
        return Fields(m_listener.Statuses()[want - 1]);
    }

    RecordingListener m_listener;
    size_t m_expected = 0;
};

} // namespace

TEST_F(StatusMonitorSim, ListenersHearExactlyWhatChangedAndInterruptionsOnce) {
    Listen();
    // The first real report is compared with an all-zero one: take it as the baseline.
    // (Battery levels 3 and 7 would be interruptions of their own.)
    Printer().SetBatteryLevel(2);
    Next();

    // Which reports are told, and how often an interruption is, is checked report by report in
    // the unit tests (ReportHandling); here the thread reads them off the channel.
    Printer().SetCutterJammed(true);
    EXPECT_EQ(Next(), OnlyChanged(5, 2));
    Printer().SetBatteryLevel(1);
    EXPECT_EQ(Next(), OnlyChanged(10, 1));
    Printer().SendSpecialHidReport();
    EXPECT_EQ(Next(), Fields(PrinterStatusThread::FirmwareReportRecord()));

    const uint32_t value = Printer().GetStatusBlock()[6];
    EXPECT_EQ(m_listener.Interrupts(), (std::vector<std::pair<uint32_t, uint32_t>>{{8, value}}));
    EXPECT_EQ(m_listener.Statuses().size(), m_expected) << "no call beyond the ones expected";

    // Stopping takes far less than the wait limit.
    const auto start = Clock::now();
    Facade().DeregisterListener(&m_listener);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(2));
    EXPECT_FALSE(StatusMonitorState::Instance()->thread.Exists());
}

TEST_F(StatusMonitorSim, UnpluggingEndsTheThreadQuietly) {
    LogCapture log;
    Listen();
    Facade().Reboot(); // the printer leaves the channels for a moment
    EXPECT_TRUE(Eventually([] { return !StatusMonitorState::Instance()->thread.IsStillActive(); }));
    EXPECT_TRUE(StatusMonitorState::Instance()->thread.Exists()) << "the handle stays until the stop";
    Facade().DeregisterListener(&m_listener);
    EXPECT_FALSE(log.ContainsSubstring(L"PrinterStatusThread"));
}

// ---- the per-device monitor ----------------------------------------------------------------------

namespace {

class Outcomes {
public:
    std::function<void(int32_t)> Callback() {
        return [this](int32_t v) {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_values.push_back(v);
            m_changed.notify_all();
        };
    }
    std::vector<int32_t> WaitFor(size_t count, uint32_t timeoutMs = 10000) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                           [&] { return m_values.size() >= count; });
        return m_values;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<int32_t> m_values;
};

} // namespace

using DeviceMonitorSim = vela::test::OnSimulatedPrinter;

TEST_F(DeviceMonitorSim, HoldsThePrinterUntilItRunsOut) {
    QRVDevice device(Record());
    Outcomes outcomes;
    const auto start = Clock::now();
    ASSERT_EQ(device.StartMonitor(outcomes.Callback()), 0);
    EXPECT_EQ(device.StartMonitor(outcomes.Callback()), -1) << "still running";
    EXPECT_EQ(device.MonitorMode(), 1u);

    // A transaction of this process waits for the monitor's hold to end.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    Facade().GetPrinterStatus();
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(5000));
    EXPECT_EQ(outcomes.WaitFor(1), std::vector<int32_t>{-1});
}

TEST_F(DeviceMonitorSim, ExclusiveModeTellsAnEarlyStopAndStopIsFinal) {
    LogCapture log;
    auto device = std::make_unique<QRVDevice>(Record());
    Outcomes outcomes;
    ASSERT_EQ(device->StartMonitorExclusive(outcomes.Callback()), 0);
    EXPECT_EQ(device->MonitorMode(), 2u);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const auto start = Clock::now();
    device->Stop();
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(2));
    EXPECT_EQ(outcomes.WaitFor(1), std::vector<int32_t>{0});

    // The stop event is gone: a new run ends at its first wait, releases the printer, tells nothing.
    ASSERT_EQ(device->StartMonitorExclusive(outcomes.Callback()), 0);
    EXPECT_TRUE(Eventually(
        [&] { return log.ContainsSubstring(L"QRVDevice::StatusMonitor - WaitForSingleObject() failed: "); }));
    device.reset();
    EXPECT_EQ(outcomes.WaitFor(2, 300).size(), 1u);
    Facade().GetPrinterStatus(); // the printer is free again
}
