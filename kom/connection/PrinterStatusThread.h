#pragma once

#include "common/Event.h"
#include "kom/connection/MonitorThread.h"
#include "kom/connection/StatusMonitorState.h"
#include "kom/protocol/PrinterStatus.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace vela::kom {

// The process's one status monitor thread: it reads the 8-byte reports that the printer sends
// on its HID interface and tells every registered listener what changed, and which print
// interruption (if any) a change amounts to. It runs while at least one listener is registered
// with a NativeQRVDevice; the facade starts and stops it.
//
// A report is 8 bytes: byte 0 is the report id (1), bytes 1 to 7 are the first seven bytes of the
// printer's status block (the block's last byte, the high byte of the 16-bit value, does not fit
// in a report and is taken as 0). A report whose byte 5 is 0xF0 is not decoded: every listener
// gets a fixed record instead, each time such a report arrives.
//
// The thread sleeps in one wait on two handles (the stop event and the pending read); it takes
// no access lock. Every failure inside it is logged and ends it; nothing reaches the host.
class PrinterStatusThread {
public:
    using Report = std::array<uint8_t, 8>;

    static constexpr uint32_t kNoInterruption = 14;
    static constexpr size_t kFirmwareMarkerIndex = 5;
    static constexpr uint8_t kFirmwareMarker = 0xF0;
    static constexpr uint32_t kStopWaitMs = 5000; // plus the facade's stopWaitExtraMs

    // ---- pure functions (no state, no I/O; safe on any input) --------------------------------
    // The record whose every field holds its "unchanged" marker: 4,5,4,4,9,9,5,9,5,9,5,3,0.
    static PrinterStatus UnchangedMarkers();
    // The record sent for a 0xF0 report: the markers but power 3 and print status 4.
    static PrinterStatus FirmwareReportRecord();
    // The status carried by a report (bytes 1..7, then a zero high byte).
    static PrinterStatus DecodeReport(const Report& report);
    // New value where old and new differ, the field's marker where they are equal.
    static PrinterStatus ChangeRecord(const PrinterStatus& previous, const PrinterStatus& current);
    // The interrupt code of a status by the first rule that holds (0..13), or 14 for none.
    static uint32_t InterruptCode(const PrinterStatus& status);
    // The last-code memory: true when `code` is to be reported. Updates `lastCode`. The same
    // code twice reports once; 14 is remembered but never reported, so an interruption that
    // cleared and came back is reported again.
    static bool TakeInterrupt(uint32_t& lastCode, uint32_t code);

    // ---- one step of the monitor loop --------------------------------------------------------
    // Handles one report against the previous one (updated on a change): tells the listeners
    // and runs PrinterInterruptEvent. False when the thread has to end (no listener left).
    // Called on the monitor thread; public for tests.
    static bool HandleReport(Report& previous, const Report& report);
    // Computes the interrupt code of the report and, when the last-code memory lets it through,
    // calls OnPrinterInterruptEvent(code, 16-bit value) on every listener. Returns 0, or -1 when
    // there was a code to report but no listener.
    static int32_t PrinterInterruptEvent(const Report& report);

    // ---- the thread --------------------------------------------------------------------------
    // The thread body: finds the printer among the connected HID devices by its exact queue
    // name, reads its reports until `stopEvent` is set or the device goes away, returns 0.
    // A null stop event makes the first wait fail (logged), which ends the thread.
    static int32_t StatusMonitor(const std::wstring& printerName,
                                 std::shared_ptr<vela::common::Event> stopEvent);
    // Starts the thread for the facade's printer name with the current stop event. -1 when a
    // thread handle is held (running or ended and not yet stopped), 0 when started, else the
    // system's error code. Does not block. Any thread.
    static int32_t Start(const std::wstring& printerName);

    // What a stop takes out of the shared state: the thread's handle and the stop event.
    struct PendingStop {
        MonitorThread thread;
        std::shared_ptr<vela::common::Event> stopEvent;
    };
    // The first half of a stop, made under Lifecycle() together with the caller's own changes:
    // takes the thread and the stop event out of the shared state and ends the thread's run (it
    // calls no listener from now on). A registration after this starts a new thread, with the
    // stop event that is current then (none until the next facade is constructed).
    static PendingStop TakeForStop();
    // The second half, without any lock: sets the stop event when the thread still runs and
    // waits up to `waitMs` for it (logs "did tiemout!" when it does not end; it is then left to
    // end on its own, keeping what it uses alive), closes the handle and the stop event. Never
    // throws. On the monitor thread itself (a listener stopping it) it does not wait: the thread
    // ends at its next wait, after the listener returned. A thread stuck in a call that a
    // deregistration already gave up waiting for is not waited for a second time.
    static void FinishStop(PendingStop stop, uint32_t waitMs);
    // Both halves: the stop of the last deregistration and of the last facade's destructor.
    static void Stop(uint32_t stopWaitExtraMs);

    // How long a stop, or a deregistration, waits for the thread: 5000 ms plus the facade's
    // `stopWaitExtraMs` (9 s for the gateway).
    static uint32_t StopWaitMs(uint32_t stopWaitExtraMs);
    // The seam for tests: a non-zero value replaces that bound everywhere; 0 restores it.
    // Returns the previous value.
    static uint32_t SetStopWaitOverride(uint32_t milliseconds);

    // The seam for tests: replaces the thread body (an empty one restores StatusMonitor).
    // Returns the previous body.
    using MonitorBody = std::function<int32_t(const std::wstring& printerName,
                                              std::shared_ptr<vela::common::Event> stopEvent)>;
    static MonitorBody SetMonitorBody(MonitorBody body);

private:
    static bool HandleReport(StatusMonitorState& state, Report& previous, const Report& report);
    static int32_t PrinterInterruptEvent(StatusMonitorState& state, const Report& report);
    // The OS part: opens the HID node, waits for reports and the stop event, hands each report
    // to HandleReport. Returns when stopped, on disconnection or after a logged failure.
    static void ReadReports(StatusMonitorState& state, const std::wstring& hidPath,
                            const std::shared_ptr<vela::common::Event>& stopEvent);
};

} // namespace vela::kom
