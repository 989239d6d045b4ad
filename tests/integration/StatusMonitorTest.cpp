// The status monitor thread on the real HID channel; the per-device monitor holding the printer.
#include "support/SimulatedPrinter.h"

#include "kom/connection/PrinterStatusThread.h"
#include "kom/connection/QRVDevice.h"
#include "kom/connection/StatusMonitorState.h"
#include "support/RecordingListener.h"
#include "support/TestSupport.h"

#include <chrono>
#include <mutex>

using vela::kom::PrinterStatusThread;
using vela::kom::QRVDevice;
using vela::kom::StatusMonitorState;
using vela::test::Eventually;
using vela::test::LogCapture;
using vela::test::RecordingListener;
using Clock = std::chrono::steady_clock;

using StatusMonitorSim = vela::test::OnSimulatedPrinter;

TEST_F(StatusMonitorSim, UnpluggingEndsTheThreadQuietly) {
    LogCapture log;
    RecordingListener listener;
    Facade().RegisterListener(&listener);
    // Special reports until the thread reads the HID channel: the firmware's record reaches us.
    ASSERT_TRUE(Eventually(
        [&] {
            Printer().SendSpecialHidReport();
            return listener.WaitForStatuses(1, 100);
        },
        10000));
    EXPECT_EQ(listener.Statuses().front(), PrinterStatusThread::FirmwareReportRecord());
    Facade().Reboot(); // the printer leaves the channels for a moment
    EXPECT_TRUE(Eventually([] { return !StatusMonitorState::Instance()->thread.IsStillActive(); }));
    EXPECT_TRUE(StatusMonitorState::Instance()->thread.Exists()) << "the handle stays until the stop";
    Facade().DeregisterListener(&listener);
    EXPECT_FALSE(log.ContainsSubstring(L"PrinterStatusThread"));
}

namespace {

// The values the monitor's outcome callback was called with, in order.
class Outcomes {
public:
    std::function<void(int32_t)> Callback() {
        return [this](int32_t v) {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_values.push_back(v);
        };
    }
    std::vector<int32_t> Values() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_values;
    }

private:
    std::mutex m_mutex;
    std::vector<int32_t> m_values;
};

} // namespace

using DeviceMonitorSim = vela::test::OnSimulatedPrinter;

// Mode 1 holds the printer until its run ends; mode 2 also tells an early stop, which is final.
TEST_F(DeviceMonitorSim, HoldsThePrinterUntilItRunsOutAndAnExclusiveRunTellsItsStop) {
    LogCapture log;
    auto device = std::make_unique<QRVDevice>(Record());
    Outcomes outcomes;
    auto start = Clock::now();
    ASSERT_EQ(device->StartMonitor(outcomes.Callback()), 0);
    EXPECT_EQ(device->StartMonitor(outcomes.Callback()), -1) << "still running";
    EXPECT_EQ(device->MonitorMode(), 1u);
    // A transaction of this process waits for the monitor's hold to end.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    Facade().GetPrinterStatus();
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(5000));
    EXPECT_TRUE(Eventually([&] { return outcomes.Values() == std::vector<int32_t>{-1}; }, 10000));

    ASSERT_TRUE(Eventually([&] { return device->StartMonitorExclusive(outcomes.Callback()) == 0; }));
    EXPECT_EQ(device->MonitorMode(), 2u);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    start = Clock::now();
    device->Stop();
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(2));
    EXPECT_TRUE(Eventually([&] { return outcomes.Values() == std::vector<int32_t>{-1, 0}; }, 10000));

    // The stop event is gone: a new run ends at its first wait, releases the printer, tells nothing.
    ASSERT_EQ(device->StartMonitorExclusive(outcomes.Callback()), 0);
    EXPECT_TRUE(Eventually(
        [&] { return log.ContainsSubstring(L"QRVDevice::StatusMonitor - WaitForSingleObject() failed: "); }));
    device.reset();
    EXPECT_FALSE(Eventually([&] { return outcomes.Values().size() > 2; }, 300));
    Facade().GetPrinterStatus(); // the printer is free again

    // Destroying a device stops its run: the printer is free at once, not when the run runs out.
    device = std::make_unique<QRVDevice>(Record());
    ASSERT_EQ(device->StartMonitor(outcomes.Callback()), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    start = Clock::now();
    device.reset();
    Facade().GetPrinterStatus();
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(2));
}
