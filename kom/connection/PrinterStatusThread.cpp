#include "kom/connection/PrinterStatusThread.h"

#include "common/Log.h"
#include "common/StringConverter.h"
#include "common/SystemError.h"
#include "kom/connection/QRVDevice.h"
#include "kom/discovery/QRVPrinters.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>

namespace vela::kom {

using vela::common::Event;
using vela::common::Log;

namespace {

std::mutex& BodyMutex() {
    static std::mutex mutex;
    return mutex;
}

PrinterStatusThread::MonitorBody& Body() {
    static PrinterStatusThread::MonitorBody body;
    return body;
}

std::atomic<uint32_t> g_stopWaitOverride{0};

// An exception that says nothing gets the generic line, as an error.
void LogCaught(const std::wstring& message) {
    if (message.empty()) {
        Log::LogError(L"PrinterStatusThread::StatusMonitor() - caught exception!");
    } else {
        Log::LogWarning(L"PrinterStatusThread::StatusMonitor() - %s", message);
    }
}

} // namespace

// ---- pure functions --------------------------------------------------------------------------

PrinterStatus PrinterStatusThread::UnchangedMarkers() {
    return PrinterStatus(4, 5, 4, 4, 9, 9, 5, 9, 5, 9, 5, 3, 0);
}

PrinterStatus PrinterStatusThread::FirmwareReportRecord() {
    return PrinterStatus(3, 5, 4, 4, 9, 9, 5, 4, 5, 9, 5, 3, 0);
}

PrinterStatus PrinterStatusThread::DecodeReport(const Report& report) {
    // The status decoder wants the whole 8-byte block; a report carries its first seven bytes.
    std::vector<uint8_t> block(report.begin() + 1, report.end());
    block.push_back(0);
    return PrinterStatus(block);
}

PrinterStatus PrinterStatusThread::ChangeRecord(const PrinterStatus& previous, const PrinterStatus& current) {
    const PrinterStatus markers = UnchangedMarkers();
    uint32_t f[PrinterStatus::kFieldCount];
    for (size_t i = 0; i < PrinterStatus::kFieldCount; ++i) {
        f[i] = previous.Field(i) == current.Field(i) ? markers.Field(i) : current.Field(i);
    }
    return PrinterStatus(f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8], f[9], f[10], f[11], f[12]);
}

uint32_t PrinterStatusThread::InterruptCode(const PrinterStatus& status) {
    // f(n) is the n-th field, counted from 1 as the rule table counts them.
    auto f = [&status](size_t n) { return status.Field(n - 1); };
    if (f(2) == 1) {
        return 0;
    }
    if (f(3) == 1) {
        return 1;
    }
    if (f(7) == 3) {
        return 2;
    }
    if (f(6) == 2 || f(6) == 3) {
        return f(6) + 1;
    }
    if (f(10) == 3) {
        return 5;
    }
    if (f(1) == 1 || f(1) == 2) {
        return f(1) + 5;
    }
    if (f(5) == 2) {
        return 8;
    }
    if (f(5) == 6) {
        return 9;
    }
    if (f(6) == 6) {
        return 10;
    }
    if (f(4) == 2) {
        return 11;
    }
    if (f(1) == 3 || f(4) == 3 || f(5) == 7 || f(6) == 7 || f(9) == 3 || f(10) == 7 || f(11) == 3 ||
        f(12) == 1) {
        return 12;
    }
    if (f(8) == 3) {
        return 13;
    }
    return kNoInterruption;
}

bool PrinterStatusThread::TakeInterrupt(uint32_t& lastCode, uint32_t code) {
    if (code == lastCode) {
        return false;
    }
    lastCode = code;
    return code != kNoInterruption;
}

// ---- one step of the loop ----------------------------------------------------------------------

bool PrinterStatusThread::HandleReport(Report& previous, const Report& report) {
    return HandleReport(*StatusMonitorState::Instance(), previous, report);
}

int32_t PrinterStatusThread::PrinterInterruptEvent(const Report& report) {
    return PrinterInterruptEvent(*StatusMonitorState::Instance(), report);
}

bool PrinterStatusThread::HandleReport(StatusMonitorState& state, Report& previous, const Report& report) {
    if (report[kFirmwareMarkerIndex] == kFirmwareMarker) {
        // Told every time, and not remembered as the previous report.
        const PrinterStatus record = FirmwareReportRecord();
        if (!state.ForEachListener(
                [&record](INativeQRVListener& l) { l.OnPrinterStatusChangedEvent(record); })) {
            Log::LogWarning(L"PrinterStatusThread::StatusMonitor() - no more listener");
            return false;
        }
        return true;
    }
    if (report == previous) {
        return true;
    }
    const PrinterStatus before = DecodeReport(previous);
    const PrinterStatus after = DecodeReport(report);
    PrinterInterruptEvent(state, report);
    const PrinterStatus change = ChangeRecord(before, after);
    if (!state.ForEachListener([&change](INativeQRVListener& l) { l.OnPrinterStatusChangedEvent(change); })) {
        Log::LogWarning(L"PrinterStatusThread::StatusMonitor() - no more listener");
        return false;
    }
    previous = report;
    return true;
}

int32_t PrinterStatusThread::PrinterInterruptEvent(StatusMonitorState& state, const Report& report) {
    const PrinterStatus status = DecodeReport(report);
    const uint32_t code = InterruptCode(status);
    // Only the monitor thread computes codes, so load and store need not be one step.
    uint32_t last = state.lastInterruptCode.load();
    const bool reportIt = TakeInterrupt(last, code);
    state.lastInterruptCode.store(last);
    if (!reportIt) {
        return 0;
    }
    const uint32_t value = status.Field(12);
    if (!state.ForEachListener(
            [code, value](INativeQRVListener& l) { l.OnPrinterInterruptEvent(code, value); })) {
        Log::LogWarning(L"PrinterStatusThread::PrinterInterruptEvent() - no more listener");
        return -1;
    }
    return 0;
}

// ---- the thread --------------------------------------------------------------------------------

int32_t PrinterStatusThread::StatusMonitor(const std::wstring& printerName,
                                           std::shared_ptr<Event> stopEvent) {
    // Held for the whole run, so the shared state outlives a thread that a stop gave up on.
    const std::shared_ptr<StatusMonitorState> state = StatusMonitorState::Instance();
    try {
        QRVPrinters discovery;
        const std::vector<ConnectedPrinter> devices = discovery.GetConnectedHidDevices();
        const ConnectedPrinter* match = nullptr;
        for (const ConnectedPrinter& device : devices) {
            if (device.printerName == printerName) { // exact: same length, same code units
                match = &device;
                break;
            }
        }
        if (match == nullptr) {
            Log::LogWarning(L"PrinterStatusThread::StatusMonitor() - could not find specified printer!");
            return 0;
        }
        const QRVDevice device(*match); // kept for the run, as the printer's protocol object
        // Deliberately the first record's HID node, not the matched one's: with one printer
        // attached (the supported set-up) they are the same; with several, the first printer's
        // reports are the ones read. Kept so that every build behaves alike.
        ReadReports(*state, devices.front().devicePath, stopEvent);
    } catch (const vela::common::Exception& e) {
        LogCaught(e.Message());
    } catch (const std::exception& e) {
        LogCaught(vela::common::StringConverter::FromUtf8(e.what()));
    } catch (...) {
        Log::LogError(L"PrinterStatusThread::StatusMonitor() - caught exception!");
    }
    return 0;
}

int32_t PrinterStatusThread::Start(const std::wstring& printerName) {
    const std::shared_ptr<StatusMonitorState> state = StatusMonitorState::Instance();
    std::lock_guard<std::recursive_mutex> lifecycle(state->Lifecycle());
    if (state->thread.Exists()) {
        return -1;
    }
    MonitorBody body;
    {
        std::lock_guard<std::mutex> lock(BodyMutex());
        body = Body();
    }
    if (!body) {
        body = &PrinterStatusThread::StatusMonitor;
    }
    // The stop event may be null here (after the last deregistration, until the next facade is
    // constructed): such a thread ends at its first wait.
    const uint64_t run = state->BeginRun();
    const uint32_t error =
        state->thread.Start([state, printerName, stopEvent = state->stopEvent, body, run]() {
            StatusMonitorState::EnterRun(run);
            try {
                body(printerName, stopEvent);
            } catch (...) {
                Log::LogError(L"PrinterStatusThread::StatusMonitor() - caught exception!");
            }
        });
    return static_cast<int32_t>(error);
}

PrinterStatusThread::PendingStop PrinterStatusThread::TakeForStop() {
    const std::shared_ptr<StatusMonitorState> state = StatusMonitorState::Instance();
    std::lock_guard<std::recursive_mutex> lifecycle(state->Lifecycle());
    PendingStop stop;
    stop.thread = std::move(state->thread);
    stop.stopEvent = std::move(state->stopEvent);
    state->stopEvent.reset();
    state->EndRun();
    return stop;
}

void PrinterStatusThread::FinishStop(PendingStop stop, uint32_t waitMs) {
    if (stop.thread.Exists()) {
        if (stop.thread.IsStillActive()) {
            if (!stop.stopEvent) {
                vela::common::SetLastSystemError(kInvalidHandleError);
            }
            if (!stop.stopEvent || !stop.stopEvent->Set()) {
                Log::LogWarning(L"PrinterStatusThread::Stop() - SetEvent() failed %d!",
                                vela::common::LastSystemError());
            }
            if (!stop.thread.IsCurrentThread()) {
                if (StatusMonitorState::Instance()->IsInAbandonedCall(stop.thread.Id())) {
                    waitMs = 0; // its listener was already waited for in full
                }
                if (!stop.thread.Wait(waitMs)) {
                    Log::LogWarning(L"PrinterStatusThread::Stop() - WaitForSingleObject() did tiemout!");
                }
            }
        }
        stop.thread.Close();
    }
    stop.stopEvent.reset();
}

void PrinterStatusThread::Stop(uint32_t stopWaitExtraMs) {
    FinishStop(TakeForStop(), StopWaitMs(stopWaitExtraMs));
}

uint32_t PrinterStatusThread::StopWaitMs(uint32_t stopWaitExtraMs) {
    const uint32_t override = g_stopWaitOverride.load();
    if (override != 0) {
        return override;
    }
    return static_cast<uint32_t>(std::min<uint64_t>(uint64_t(stopWaitExtraMs) + kStopWaitMs, UINT32_MAX));
}

uint32_t PrinterStatusThread::SetStopWaitOverride(uint32_t milliseconds) {
    return g_stopWaitOverride.exchange(milliseconds);
}

PrinterStatusThread::MonitorBody PrinterStatusThread::SetMonitorBody(MonitorBody body) {
    std::lock_guard<std::mutex> lock(BodyMutex());
    MonitorBody previous = std::move(Body());
    Body() = std::move(body);
    return previous;
}

} // namespace vela::kom
