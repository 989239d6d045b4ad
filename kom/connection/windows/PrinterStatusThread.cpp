// The HID read loop on Windows: an overlapped ReadFile of one 8-byte report, then one wait on the
// stop event and the read's event.
#include "kom/connection/PrinterStatusThread.h"

#include "common/Log.h"
#include "common/NativeHandle.h"

#include <windows.h>

namespace vela::kom {

using vela::common::Log;

namespace {

// The device went away while a read was under way. A real HID interface says
// ERROR_DEVICE_NOT_CONNECTED; the simulator's pipe says that its other end went away. Neither is
// worth a log line.
bool IsDisconnection(DWORD error) {
    return error == ERROR_DEVICE_NOT_CONNECTED || error == ERROR_BROKEN_PIPE ||
           error == ERROR_PIPE_NOT_CONNECTED;
}

// A read still pending when the loop ends writes into the loop's buffer: cancel it and wait for
// it to let go of the buffer and the OVERLAPPED record before they go out of scope.
class PendingRead {
public:
    PendingRead(HANDLE device, OVERLAPPED& overlapped) : m_device(device), m_overlapped(overlapped) {}
    ~PendingRead() {
        if (m_pending) {
            ::CancelIo(m_device);
            DWORD ignored = 0;
            ::GetOverlappedResult(m_device, &m_overlapped, &ignored, TRUE);
        }
    }
    PendingRead(const PendingRead&) = delete;
    PendingRead& operator=(const PendingRead&) = delete;
    void Done() { m_pending = false; }

private:
    HANDLE m_device;
    OVERLAPPED& m_overlapped;
    bool m_pending = true;
};

} // namespace

void PrinterStatusThread::ReadReports(StatusMonitorState& state, const std::wstring& hidPath,
                                      const std::shared_ptr<vela::common::Event>& stopEvent) {
    vela::common::UniqueHandle hid(::CreateFileW(hidPath.c_str(), GENERIC_READ | GENERIC_WRITE,
                                                 FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                                 FILE_FLAG_OVERLAPPED, nullptr));
    if (!hid.IsValid()) {
        return; // a device that cannot be opened ends the thread without a word
    }
    vela::common::Event readEvent(vela::common::Event::Mode::manualReset, false);

    Report previous{};
    for (;;) {
        Report report{};
        report[0] = 1; // the report id
        OVERLAPPED overlapped{};
        overlapped.hEvent = readEvent.Handle();
        if (!::ReadFile(hid.Get(), report.data(), static_cast<DWORD>(report.size()), nullptr, &overlapped)) {
            const DWORD error = ::GetLastError();
            if (error != ERROR_IO_PENDING) {
                // Logged whatever the reason, a device that is gone included: only a read that
                // was under way when the device went away ends quietly.
                Log::LogError(L"PrinterStatusThread::StatusMonitor() - ReadFile() failed (0x%x)", error);
                return;
            }
        }
        PendingRead pending(hid.Get(), overlapped);

        // Without a stop event the first handle is null and the wait fails: such a thread ends here.
        const HANDLE handles[2] = {stopEvent ? stopEvent->Handle() : nullptr, readEvent.Handle()};
        const DWORD result = ::WaitForMultipleObjects(2, handles, FALSE, INFINITE);
        if (result == WAIT_OBJECT_0) {
            return;
        }
        if (result != WAIT_OBJECT_0 + 1) {
            if (result == WAIT_FAILED) {
                Log::LogWarning(
                    L"PrinterStatusThread::StatusMonitor() - WaitForMultipleObjects() failed (0x%x)!",
                    ::GetLastError());
            }
            Log::LogWarning(
                L"PrinterStatusThread::StatusMonitor() - unknown WaitForMultipleObjects() return code!");
            return;
        }
        DWORD transferred = 0;
        const BOOL ok = ::GetOverlappedResult(hid.Get(), &overlapped, &transferred, FALSE);
        const DWORD error = ok ? ERROR_SUCCESS : ::GetLastError();
        if (ok || error != ERROR_IO_INCOMPLETE) {
            pending.Done();
        }
        if (!ok) {
            if (!IsDisconnection(error)) {
                Log::LogWarning(
                    L"PrinterStatusThread::StatusMonitor() - GetOverlappedResult() failed (0x%x)!", error);
            }
            return;
        }
        if (transferred != report.size()) {
            Log::LogWarning(L"PrinterStatusThread::StatusMonitor() - wrong reply length!");
            return;
        }
        if (!HandleReport(state, previous, report)) {
            return;
        }
    }
}

} // namespace vela::kom
