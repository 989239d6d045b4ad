#include "kom/connection/QRVDevice.h"

#include "common/Log.h"
#include "common/SystemError.h"
#include "kom/device/PrinterDeviceFileSystem.ipp"
#include "kom/device/PrinterDeviceProtocol.ipp"

namespace vela::kom {

template class PrinterDeviceBase<vela::common::UsbPrintDevice, PrinterAccessSynchronizer,
                                 vela::common::StringConverter>;

using vela::common::Event;
using vela::common::Log;
using vela::common::WaitResult;

namespace {

// The monitor body. It works on copies only: a run that Stop gave up on may outlive the device.
void RunDeviceMonitor(const ConnectedPrinter& printer, const std::shared_ptr<Event>& stopEvent, uint32_t mode,
                      const std::function<void(int32_t)>& callback) {
    bool ranOut = false;
    bool stopped = false;
    try {
        {
            PrinterAccessSynchronizer lock(printer);
            vela::common::UsbPrintDevice channel(printer.devicePath);
            auto step = [&stopEvent]() {
                if (!stopEvent) {
                    vela::common::SetLastSystemError(kInvalidHandleError); // the closed stop event
                    return WaitResult::failed;
                }
                return stopEvent->Wait(QRVDevice::kMonitorStepMs);
            };
            WaitResult result = step();
            for (uint32_t i = 0; result == WaitResult::timeout && i < QRVDevice::kMonitorSteps; ++i) {
                result = step();
            }
            if (result == WaitResult::failed) {
                Log::LogWarning(L"QRVDevice::StatusMonitor - WaitForSingleObject() failed: %s",
                                vela::common::SystemErrorText(vela::common::LastSystemError()));
            }
            ranOut = result == WaitResult::timeout;
            stopped = result == WaitResult::signalled;
        } // channel closed, lock released before anybody is told
        if (callback && (ranOut || (stopped && mode == 2))) {
            callback(ranOut ? -1 : 0);
        }
    } catch (const vela::common::Exception& e) {
        Log::LogWarning(L"QRVDevice::StatusMonitor - exception caught: %s %s %s", e.Source(),
                        e.ExceptionName(), e.Message());
    } catch (...) {
        Log::LogWarning(L"QRVDevice::StatusMonitor - exception caught: %s %s %s", L"", L"unknown", L"");
    }
}

} // namespace

QRVDevice::QRVDevice(const ConnectedPrinter& printer)
    : QRVDeviceBase(printer), m_stopEvent(std::make_shared<Event>(Event::Mode::autoReset, false)) {}

QRVDevice::~QRVDevice() {
    Stop();
}

int32_t QRVDevice::StartMonitor(std::function<void(int32_t)> callback) {
    return StartMonitorMode(1, std::move(callback));
}

int32_t QRVDevice::StartMonitorExclusive(std::function<void(int32_t)> callback) {
    return StartMonitorMode(2, std::move(callback));
}

int32_t QRVDevice::StartMonitorMode(uint32_t mode, std::function<void(int32_t)> callback) {
    std::lock_guard<std::mutex> guard(m_monitorMutex);
    if (m_thread.IsStillActive()) {
        return -1;
    }
    m_thread.Close(); // forget a finished run
    m_mode = mode;
    m_callback = std::move(callback);
    uint32_t error =
        m_thread.Start([printer = m_printer, stopEvent = m_stopEvent, mode, callback = m_callback]() {
            RunDeviceMonitor(printer, stopEvent, mode, callback);
        });
    return static_cast<int32_t>(error);
}

void QRVDevice::Stop() {
    // Taken out under the mutex and waited for without it: the callback may start the monitor
    // again meanwhile (that run finds no stop event and ends at its first wait).
    MonitorThread thread;
    std::shared_ptr<Event> stopEvent;
    {
        std::lock_guard<std::mutex> guard(m_monitorMutex);
        thread = std::move(m_thread);
        stopEvent = std::move(m_stopEvent);
        m_stopEvent.reset();
    }
    if (thread.Exists() && thread.IsStillActive()) {
        if (!stopEvent) {
            vela::common::SetLastSystemError(kInvalidHandleError);
        }
        if (!stopEvent || !stopEvent->Set()) {
            Log::LogError(L"QRVDevice::Stop - SetEvent() failed: %s",
                          vela::common::SystemErrorText(vela::common::LastSystemError()));
        }
        // From the callback (the monitor's own thread) there is nothing to wait for.
        if (!thread.IsCurrentThread() && !thread.Wait(kStopWaitMs)) {
            Log::LogWarning(L"QRVDevice::Stop - WaitForSingleObject(m_hThread) failed: %s",
                            vela::common::SystemErrorText(kWaitTimeoutError));
        }
    }
    thread.Close();
}

uint32_t QRVDevice::MonitorMode() const {
    std::lock_guard<std::mutex> guard(m_monitorMutex);
    return m_mode;
}

} // namespace vela::kom
