#include "common/UsbPrintDevice.h"

#include "common/Exception.h"
#include "common/Log.h"
#include "common/LogAndThrow.h"
#include "common/StringConverter.h"
#include "common/SystemError.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <string>
#include <unistd.h>

namespace vela::common {

namespace {

using Clock = std::chrono::steady_clock;

// How one wait for readiness ended.
enum class Readiness { ready, hangUp, timeout, failed };

struct WaitOutcome {
    Readiness readiness;
    int error; // errno of a failed poll()
};

// Waits until the descriptor reports `events` or the deadline passes. poll() may return early
// (signals, rounding of its millisecond argument), so only a wait that reached the deadline is a
// time-out.
WaitOutcome WaitFor(int fd, short events, Clock::time_point deadline) {
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd p{fd, events, 0};
        int n = ::poll(&p, 1, left > 0 ? static_cast<int>(left) + 1 : 0);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return {Readiness::failed, errno};
        }
        if (n == 0) {
            if (Clock::now() < deadline) {
                continue;
            }
            return {Readiness::timeout, 0};
        }
        if ((p.revents & POLLNVAL) != 0) {
            return {Readiness::failed, EBADF};
        }
        // A pulled cable shows as POLLERR/POLLHUP (usblp, or a pseudo-terminal whose other end
        // went away). Data that arrived before it is still readable, so the caller decides.
        if ((p.revents & (POLLERR | POLLHUP)) != 0) {
            return {Readiness::hangUp, 0};
        }
        return {Readiness::ready, 0};
    }
}

// The error to report for a hang-up that no read()/write() turned into an errno of its own.
constexpr int kHangUpError = EIO;

} // namespace

UsbPrintDevice::UsbPrintDevice(const std::wstring& devicePath) : UsbPrintDeviceBase(devicePath) {
    const std::string path = StringConverter::ToUtf8(devicePath);
    int fd = -1;
    if (path.find('\0') != std::string::npos) {
        // A NUL would silently cut the path short and open some other node.
        errno = ENOENT;
    } else {
        // usblp admits one open at a time (a second gets EBUSY), so a single descriptor serves
        // both directions. O_NONBLOCK: every wait goes through poll() with the 3000 ms limit;
        // O_NOCTTY: a simulated printer is a pseudo-terminal that must not become our terminal.
        fd = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    }
    if (fd < 0) {
        const uint32_t code = LastSystemError();
        Log::LogError(L"UsbPrintDevice::UsbPrintDevice(%s) failed: %s", devicePath, Win32Error::Format(code));
        LogAndThrow(UsbPrintDeviceConnectionException(L"Unable to open UsbPrint device for writing",
                                                      L"UsbPrintDevice()"));
    }
    m_writeHandle = fd;
    DiscardStaleInput();
}

UsbPrintDevice::~UsbPrintDevice() {
    if (IsValidNativeHandle(m_writeHandle)) {
        // No retry on EINTR: Linux has released the descriptor whatever close() reports.
        if (!CloseNativeHandle(m_writeHandle)) {
            Log::LogWarning(L"UsbPrintDevice::~UsbPrintDevice() failed for device path '%s': unable to close "
                            L"write handle: %s",
                            GetDevicePath(), Win32Error::Format(LastSystemError()));
        }
        m_writeHandle = InvalidNativeHandle();
    }
    if (IsValidNativeHandle(m_readHandle)) {
        if (!CloseNativeHandle(m_readHandle)) {
            Log::LogWarning(L"UsbPrintDevice::~UsbPrintDevice() failed for device path '%s': unable to close "
                            L"read handle: %s",
                            GetDevicePath(), Win32Error::Format(LastSystemError()));
        }
        m_readHandle = InvalidNativeHandle();
    }
}

uint32_t UsbPrintDevice::WriteChunk(const uint8_t* data, uint32_t length) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(kTimeoutMs);
    const std::wstring path = GetDevicePath();

    auto fail = [&](bool started, int error) {
        if (!started) {
            Log::LogError(L"UsbPrintDevice::WriteBytes(%s) failed: %s", path, Win32Error::Format(error));
            LogAndThrow(UsbPrintDeviceWriteException(L"Unable to write data to UsbPrint device",
                                                     L"UsbPrintDevice::WriteBytes"));
        }
        Log::LogError(L"UsbPrintDevice::WriteBytes(%s): write failed %s", path, Win32Error::Format(error));
        LogAndThrow(UsbPrintDeviceWriteException(L"Unable to write data to UsbPrint device, write failed",
                                                 L"UsbPrintDevice::WriteBytes()"));
    };
    // Waits for POLLOUT within the chunk's limit; true when the channel hung up instead.
    auto waitWritable = [&]() -> bool {
        WaitOutcome outcome = WaitFor(m_writeHandle, POLLOUT, deadline);
        if (outcome.readiness == Readiness::timeout) {
            // Nothing to cancel: a non-blocking write() has either handed bytes to the driver or
            // not, and usblp drops a transfer still in flight when the descriptor is closed.
            Log::LogError(L"UsbPrintDevice::WriteBytes(%s) failed: timeout", path);
            LogAndThrow(UsbPrintDeviceWriteException(L"Unable to write data to UsbPrint device, timeout",
                                                     L"UsbPrintDevice::WriteBytes()"));
        }
        if (outcome.readiness == Readiness::failed) {
            Log::LogError(L"UsbPrintDevice::WriteBytes(%s): poll failed: %s", path,
                          Win32Error::Format(static_cast<uint32_t>(outcome.error)));
            LogAndThrow(UsbPrintDeviceWriteException(L"Unable to write data to UsbPrint device",
                                                     L"UsbPrintDevice::WriteBytes()"));
        }
        return outcome.readiness == Readiness::hangUp;
    };

    // The chunk is one transfer: all of it goes to the driver within the chunk's time limit. A
    // short write (a channel whose buffer filled up) goes on once there is room again; EAGAIN
    // means the previous transfer is still on its way (usblp runs one at a time) or the buffer
    // is full.
    bool started = false;
    uint32_t done = 0;
    while (done < length) {
        ssize_t n = ::write(m_writeHandle, data + done, length - done);
        if (n > 0) {
            done += static_cast<uint32_t>(n);
            started = true;
            continue;
        }
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0 && errno != EAGAIN) {
            // ENODEV/EIO: the printer was unplugged. usblp mostly says ENODEV; now and then
            // (about one unplug in ten in the gadget VM, reading or writing) EIO instead,
            // apparently a transfer that failed before the driver learnt that the device had
            // gone. Both end the transaction alike.
            fail(started, errno);
        }
        if (waitWritable()) {
            // Let write() report the cause of the hang-up; if it does not, the peer is simply gone.
            n = ::write(m_writeHandle, data + done, length - done);
            if (n <= 0) {
                fail(true, n < 0 && errno != EAGAIN ? errno : kHangUpError);
            }
            done += static_cast<uint32_t>(n);
        }
        started = true;
    }

    // After a non-blocking write, usblp raises POLLOUT once the transfer has completed: only
    // then did the printer take the chunk.
    if (waitWritable()) {
        fail(true, kHangUpError);
    }
    return done;
}

uint32_t UsbPrintDevice::ReadBytes(uint8_t* buffer, uint32_t capacity) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(kTimeoutMs);
    const std::wstring path = GetDevicePath();

    auto fail = [&](bool started, int error) {
        if (!started) {
            Log::LogError(L"UsbPrintDevice::Read(%s) failed: %s", path, Win32Error::Format(error));
            LogAndThrow(UsbPrintDeviceReadException(L"Unable to read data from UsbPrint device",
                                                    L"UsbPrintDevice::ReadBytes()"));
        }
        Log::LogError(L"UsbPrintDevice::ReadBytes(%s): read failed %s", path, Win32Error::Format(error));
        LogAndThrow(UsbPrintDeviceReadException(L"Unable to read data from UsbPrint device, read failed",
                                                L"UsbPrintDevice::ReadBytes()"));
    };

    // First attempt: bytes the printer already delivered. EAGAIN means nothing yet; 0 may be a
    // hang-up or an empty transfer, which the wait below tells apart.
    ssize_t n;
    do {
        n = ::read(m_writeHandle, buffer, capacity);
    } while (n < 0 && errno == EINTR);
    if (n > 0) {
        return static_cast<uint32_t>(n);
    }
    if (n < 0 && errno != EAGAIN) {
        // ENODEV/EIO: the printer was unplugged (see WriteChunk).
        fail(false, errno);
    }

    for (;;) {
        WaitOutcome outcome = WaitFor(m_writeHandle, POLLIN, deadline);
        if (outcome.readiness == Readiness::timeout) {
            // Nothing is pending in the driver on our behalf: a non-blocking read() either took
            // bytes or left them, so there is no transfer to cancel or wait for.
            Log::LogError(L"UsbPrintDevice::Read(%s) failed: timeout", path);
            LogAndThrow(UsbPrintDeviceReadException(L"Unable to read data from UsbPrint device, timeout",
                                                    L"UsbPrintDevice::ReadBytes()"));
        }
        if (outcome.readiness == Readiness::failed) {
            Log::LogError(L"UsbPrintDevice::Read(%s): poll failed: %s", path,
                          Win32Error::Format(static_cast<uint32_t>(outcome.error)));
            LogAndThrow(UsbPrintDeviceReadException(L"Unable to read data from UsbPrint device",
                                                    L"UsbPrintDevice::ReadBytes()"));
        }
        do {
            n = ::read(m_writeHandle, buffer, capacity);
        } while (n < 0 && errno == EINTR);
        if (n > 0) {
            return static_cast<uint32_t>(n);
        }
        const bool hungUp = outcome.readiness == Readiness::hangUp;
        if (n < 0 && errno != EAGAIN) {
            fail(true, errno);
        }
        if (hungUp) {
            // A hung-up pseudo-terminal reads as end of file; usblp would have said ENODEV.
            fail(true, kHangUpError);
        }
        if (n == 0) {
            // Readable yet empty: the printer sent a zero-length transfer. Report it as it is
            // rather than waiting on a descriptor that keeps saying "readable".
            return 0;
        }
        // EAGAIN after POLLIN: another reader of the same channel was faster. Keep waiting.
    }
}

uint64_t UsbPrintDevice::DrainRawInput(uint32_t quietMs, uint32_t limitMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(limitMs);
    // Not cleared: every channel open drains, and what it reads is thrown away.
    const std::unique_ptr<uint8_t[]> scrap(new uint8_t[kDrainReadSize]);
    uint64_t dropped = 0;
    while (Clock::now() < deadline) {
        const ssize_t n = ::read(m_writeHandle, scrap.get(), kDrainReadSize);
        if (n > 0) {
            dropped += static_cast<uint64_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n == 0 || errno != EAGAIN || quietMs == 0) {
            break; // a hang-up or a failure is for the transfers to report; or only what was waiting
        }
        const auto quietEnd = std::min(deadline, Clock::now() + std::chrono::milliseconds(quietMs));
        if (WaitFor(m_writeHandle, POLLIN, quietEnd).readiness != Readiness::ready) {
            break; // quiet for the whole window (or gone)
        }
    }
    return dropped;
}

} // namespace vela::common
