// The HID read loop on Linux: poll() on the stop event's eventfd and the HID node (hidraw in
// production, the simulator's pseudo-terminal in tests). Its log lines have the same form as the
// Windows loop's, so that one reading of a log fits both; each names the call that failed here.
#include "kom/connection/PrinterStatusThread.h"

#include "common/Log.h"
#include "common/NativeHandle.h"
#include "common/StringConverter.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace vela::kom {

using vela::common::Log;

namespace {

void LogWaitFailure(int error) {
    Log::LogWarning(L"PrinterStatusThread::StatusMonitor() - poll() failed (0x%x)!",
                    static_cast<uint32_t>(error));
    Log::LogWarning(L"PrinterStatusThread::StatusMonitor() - unknown poll() return code!");
}

// The device is gone: the quiet end of the loop.
bool IsDisconnection(int error) {
    return error == EIO || error == ENODEV || error == ENXIO;
}

} // namespace

void PrinterStatusThread::ReadReports(StatusMonitorState& state, const std::wstring& hidPath,
                                      const std::shared_ptr<vela::common::Event>& stopEvent) {
    vela::common::UniqueHandle hid(::open(vela::common::StringConverter::ToUtf8(hidPath).c_str(),
                                          O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!hid.IsValid()) {
        return; // a node that cannot be opened ends the thread without a word
    }
    // hidraw hands over one whole report per read; a terminal is a byte stream, where a report
    // may arrive in pieces, so there the pieces are put together.
    const bool byteStream = ::isatty(hid.Get()) == 1;

    Report previous{};
    Report report{};
    size_t held = 0;
    for (;;) {
        if (held == 0) {
            report = Report{};
            report[0] = 1; // the report id
        }
        if (!stopEvent) {
            // Like a wait on a null handle: the thread cannot be told to stop, so it ends now.
            LogWaitFailure(EBADF);
            return;
        }
        pollfd fds[2] = {{stopEvent->Handle(), POLLIN, 0}, {hid.Get(), POLLIN, 0}};
        const int n = ::poll(fds, 2, -1);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            LogWaitFailure(errno);
            return;
        }
        if (fds[0].revents & POLLIN) {
            uint64_t count = 0;
            // Auto-reset: a stop consumes the signal.
            [[maybe_unused]] ssize_t ignored = ::read(stopEvent->Handle(), &count, sizeof count);
            return;
        }
        if ((fds[0].revents & (POLLERR | POLLNVAL)) || (fds[1].revents & POLLNVAL)) {
            Log::LogWarning(L"PrinterStatusThread::StatusMonitor() - unknown poll() return code!");
            return;
        }
        if ((fds[1].revents & (POLLIN | POLLERR | POLLHUP)) == 0) {
            continue;
        }
        const ssize_t got = ::read(hid.Get(), report.data() + held, report.size() - held);
        if (got < 0) {
            const int error = errno;
            if (error == EAGAIN || error == EINTR) {
                continue;
            }
            if (!IsDisconnection(error)) {
                Log::LogWarning(L"PrinterStatusThread::StatusMonitor() - read() failed (0x%x)!",
                                static_cast<uint32_t>(error));
            }
            return;
        }
        if (got == 0) {
            return; // end of file: the other end went away
        }
        held += static_cast<size_t>(got);
        if (held < report.size() && byteStream) {
            continue;
        }
        if (held != report.size()) {
            Log::LogWarning(L"PrinterStatusThread::StatusMonitor() - wrong reply length!");
            return;
        }
        held = 0;
        if (!HandleReport(state, previous, report)) {
            return;
        }
    }
}

} // namespace vela::kom
