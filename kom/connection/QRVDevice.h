#pragma once

#include "common/Event.h"
#include "common/StringConverter.h"
#include "common/UsbPrintDevice.h"
#include "kom/connection/MonitorThread.h"
#include "kom/connection/PrinterAccessSynchronizer.h"
#include "kom/device/PrinterDeviceBase.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

namespace vela::kom {

using QRVDeviceBase =
    PrinterDeviceBase<vela::common::UsbPrintDevice, PrinterAccessSynchronizer, vela::common::StringConverter>;
// Instantiated once, in QRVDevice.cpp.
extern template class PrinterDeviceBase<vela::common::UsbPrintDevice, PrinterAccessSynchronizer,
                                        vela::common::StringConverter>;

// The protocol class over the production policies, plus its small per-device monitor: a thread
// that takes the access lock, opens the channel and holds both for up to about five and a half
// seconds (a first 500 ms wait on the device's stop event, then at most ten more). While it runs
// no other transaction of any process reaches the printer. Nothing in the library starts it;
// hosts may, to keep a printer to themselves for a moment.
//
// The callback runs on the monitor thread after the lock was released:
//   mode 1 (StartMonitor):          called with -1 only when the run went to its end without
//                                   being stopped;
//   mode 2 (StartMonitorExclusive): called with -1 in that case and also with 0 when Stop ended
//                                   the run early, so the caller always learns when its hold ended.
// A run whose wait failed, or whose lock or channel could not be taken, makes no call (the
// failure is logged as a warning).
//
// Stop closes the device's stop event for good: a monitor started after Stop ends at its first
// wait (logged) and releases the printer at once.
class QRVDevice : public QRVDeviceBase {
public:
    static constexpr uint32_t kMonitorStepMs = 500;
    static constexpr uint32_t kMonitorSteps = 10;
    static constexpr uint32_t kStopWaitMs = 5000;

    // No I/O; makes the device's stop event (auto-reset, unsignalled). Throws Win32Error when the
    // system cannot make the event.
    explicit QRVDevice(const ConnectedPrinter& printer);
    ~QRVDevice() override; // runs Stop()

    // Return -1 while the monitor still runs, else start it (mode 1 / mode 2) and return 0, or the
    // system's error code when no thread could be made. Do not block. Callable from any thread.
    int32_t StartMonitor(std::function<void(int32_t)> callback) override;
    int32_t StartMonitorExclusive(std::function<void(int32_t)> callback) override;
    // Signals the monitor and waits up to 5000 ms for it (a time-out is logged with the system's
    // text for it); closes the thread handle and the stop event. Never throws. Any thread; from
    // the monitor's callback it does not wait.
    void Stop();

    // The mode of the last start (0: never started).
    uint32_t MonitorMode() const;

private:
    int32_t StartMonitorMode(uint32_t mode, std::function<void(int32_t)> callback);

    mutable std::mutex m_monitorMutex;
    MonitorThread m_thread;
    std::shared_ptr<vela::common::Event> m_stopEvent;
    uint32_t m_mode = 0;
    std::function<void(int32_t)> m_callback;
};

} // namespace vela::kom
