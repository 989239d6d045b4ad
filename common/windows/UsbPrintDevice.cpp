#include "common/UsbPrintDevice.h"

#include "common/Log.h"
#include "common/LogAndThrow.h"
#include "common/SystemError.h"

#include <windows.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <vector>

namespace vela::common {
namespace {

constexpr DWORD kShareMode = FILE_SHARE_READ | FILE_SHARE_WRITE;

// The error text of the log lines: the same "Win32 error 0x.. (...)" text a Win32Error carries.
std::wstring ErrorText(DWORD code) {
    return Win32Error::Format(code);
}

// OVERLAPPED records of requests that were still running when their call gave up on them: a
// cancelled write is not waited for, and a read whose post-cancel wait failed is in the same
// state. The system writes the request's final status into the record when it completes, so the
// record must outlive the call; it is kept here and freed by a later transfer once the request has
// completed. (The event needs no such care: a running request holds its own reference to it.)
class UnfinishedRequests {
public:
    static void Keep(std::unique_ptr<OVERLAPPED> record) {
        std::lock_guard<std::mutex> lock(Mutex());
        Records().push_back(std::move(record));
    }

    static void FreeCompleted() {
        std::lock_guard<std::mutex> lock(Mutex());
        auto& records = Records();
        for (auto it = records.begin(); it != records.end();) {
            it = HasOverlappedIoCompleted(it->get()) ? records.erase(it) : it + 1;
        }
    }

private:
    static std::mutex& Mutex() {
        static std::mutex mutex;
        return mutex;
    }
    static std::vector<std::unique_ptr<OVERLAPPED>>& Records() {
        static std::vector<std::unique_ptr<OVERLAPPED>> records;
        return records;
    }
};

// One overlapped request: a zeroed OVERLAPPED record and its own manual-reset event, which is
// closed on every way out of the call.
struct Request {
    std::unique_ptr<OVERLAPPED> record = std::make_unique<OVERLAPPED>();
    UniqueHandle event;

    // Throws Win32Error (with `source`) when the system cannot make the event.
    explicit Request(const wchar_t* source) {
        UnfinishedRequests::FreeCompleted();
        HANDLE handle = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
        if (handle == nullptr || handle == INVALID_HANDLE_VALUE) {
            LogAndThrow(Win32Error(LastSystemError(), source));
        }
        event.Reset(handle);
        record->hEvent = handle;
    }

    // After a give-up: hands the record over if the system may still write to it.
    void Abandon() {
        if (!HasOverlappedIoCompleted(record.get())) {
            UnfinishedRequests::Keep(std::move(record));
        }
    }
};

} // namespace

UsbPrintDevice::UsbPrintDevice(const std::wstring& devicePath) : UsbPrintDeviceBase(devicePath) {
    // Two handles on purpose: an unbuffered one for writing and a plain one for reading, so that
    // the two directions are opened independently. (On a named pipe, the simulator's channel,
    // FILE_FLAG_NO_BUFFERING is accepted and has no visible effect, under wine as on Windows.)
    m_writeHandle = ::CreateFileW(devicePath.c_str(), GENERIC_WRITE, kShareMode, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_OVERLAPPED | FILE_FLAG_NO_BUFFERING, nullptr);
    if (m_writeHandle == INVALID_HANDLE_VALUE) {
        const DWORD error = ::GetLastError();
        Log::LogError(L"UsbPrintDevice::UsbPrintDevice(%s) failed: %s", devicePath, ErrorText(error));
        LogAndThrow(UsbPrintDeviceConnectionException(L"Unable to open UsbPrint device for writing",
                                                      L"UsbPrintDevice()"));
    }

    m_readHandle = ::CreateFileW(devicePath.c_str(), GENERIC_READ, kShareMode, nullptr, OPEN_EXISTING,
                                 FILE_FLAG_OVERLAPPED, nullptr);
    if (m_readHandle == INVALID_HANDLE_VALUE) {
        const DWORD error = ::GetLastError();
        // A constructor that throws gets no destructor call, so the write handle opened above
        // would stay open for the rest of the process (and keep the printer's interface busy for
        // every later open). It is closed here before the exception leaves.
        ::CloseHandle(m_writeHandle);
        m_writeHandle = INVALID_HANDLE_VALUE;
        Log::LogError(L"UsbPrintDevice::UsbPrintDevice(%s) failed: %s", devicePath, ErrorText(error));
        LogAndThrow(UsbPrintDeviceConnectionException(L"Unable to open UsbPrint device for reading",
                                                      L"UsbPrintDevice()"));
    }
    DiscardStaleInput();
}

UsbPrintDevice::~UsbPrintDevice() {
    if (m_writeHandle != INVALID_HANDLE_VALUE && !::CloseHandle(m_writeHandle)) {
        Log::LogWarning(
            L"UsbPrintDevice::~UsbPrintDevice() failed for device path '%s': unable to close write "
            L"handle: %s",
            GetDevicePath(), ErrorText(::GetLastError()));
    }
    if (m_readHandle != INVALID_HANDLE_VALUE && !::CloseHandle(m_readHandle)) {
        Log::LogWarning(
            L"UsbPrintDevice::~UsbPrintDevice() failed for device path '%s': unable to close read "
            L"handle: %s",
            GetDevicePath(), ErrorText(::GetLastError()));
    }
}

uint32_t UsbPrintDevice::WriteChunk(const uint8_t* data, uint32_t length) {
    Request request(L"UsbPrintDevice::WriteBytes()");
    const std::wstring path = GetDevicePath();

    if (!::WriteFile(m_writeHandle, data, length, nullptr, request.record.get()) &&
        ::GetLastError() != ERROR_IO_PENDING) {
        Log::LogError(L"UsbPrintDevice::WriteBytes(%s) failed: %s", path, ErrorText(::GetLastError()));
        LogAndThrow(UsbPrintDeviceWriteException(L"Unable to write data to UsbPrint device",
                                                 L"UsbPrintDevice::WriteBytes"));
    }

    const DWORD waitResult = ::WaitForSingleObject(request.event.Get(), kTimeoutMs);
    if (waitResult == WAIT_OBJECT_0) {
        DWORD transferred = 0;
        if (!::GetOverlappedResult(m_writeHandle, request.record.get(), &transferred, FALSE)) {
            Log::LogError(L"UsbPrintDevice::WriteBytes(%s): GetOverlappedResult failed %s", path,
                          ErrorText(::GetLastError()));
            LogAndThrow(UsbPrintDeviceWriteException(
                L"Unable to write data to UsbPrint device, GetOverlappedResult failed",
                L"UsbPrintDevice::WriteBytes()"));
        }
        return transferred;
    }

    // Given up: cancel the request. Unlike a read, a write is not waited for after the cancel; its
    // record is kept alive elsewhere until the system is done with it.
    if (!::CancelIo(m_writeHandle)) {
        Log::LogWarning(L"UsbPrintDevice::WriteBytes(%s): CancelIo failed: %s", path,
                        ErrorText(::GetLastError()));
    }
    request.Abandon();
    if (waitResult == WAIT_TIMEOUT) {
        Log::LogError(L"UsbPrintDevice::WriteBytes(%s) failed: timeout", path);
        LogAndThrow(UsbPrintDeviceWriteException(L"Unable to write data to UsbPrint device, timeout",
                                                 L"UsbPrintDevice::WriteBytes()"));
    }
    Log::LogError(L"UsbPrintDevice::WriteBytes(%s): WaitForSingleObject failed: %s", path,
                  ErrorText(waitResult));
    LogAndThrow(UsbPrintDeviceWriteException(L"Unable to write data to UsbPrint device",
                                             L"UsbPrintDevice::WriteBytes()"));
}

uint32_t UsbPrintDevice::ReadBytes(uint8_t* buffer, uint32_t capacity) {
    Request request(L"UsbPrintDevice::ReadBytes()");
    const std::wstring path = GetDevicePath();

    if (!::ReadFile(m_readHandle, buffer, capacity, nullptr, request.record.get()) &&
        ::GetLastError() != ERROR_IO_PENDING) {
        Log::LogError(L"UsbPrintDevice::Read(%s) failed: %s", path, ErrorText(::GetLastError()));
        LogAndThrow(UsbPrintDeviceReadException(L"Unable to read data from UsbPrint device",
                                                L"UsbPrintDevice::ReadBytes()"));
    }

    const DWORD waitResult = ::WaitForSingleObject(request.event.Get(), kTimeoutMs);
    if (waitResult == WAIT_OBJECT_0) {
        DWORD transferred = 0;
        if (!::GetOverlappedResult(m_readHandle, request.record.get(), &transferred, FALSE)) {
            Log::LogError(L"UsbPrintDevice::ReadBytes(%s): GetOverlappedResult failed %s", path,
                          ErrorText(::GetLastError()));
            LogAndThrow(UsbPrintDeviceReadException(
                L"Unable to read data from UsbPrint device, GetOverlappedResult failed",
                L"UsbPrintDevice::ReadBytes()"));
        }
        return transferred;
    }

    // Given up: cancel the request, then wait without a limit until the system has released the
    // caller's buffer and the record. A cancelled request completes promptly (a cancelled pipe read
    // under wine sets the event at once); if the wait fails all the same, the record is kept alive.
    if (!::CancelIo(m_readHandle)) {
        Log::LogWarning(L"UsbPrintDevice::Read(%s): CancelIo failed: %s", path, ErrorText(::GetLastError()));
    }
    if (::WaitForSingleObject(request.event.Get(), INFINITE) != WAIT_OBJECT_0) {
        Log::LogWarning(L"UsbPrintDevice::Read(%s): CancelIo - OVERLAPPED structure couldn't be freed!",
                        path);
        request.Abandon();
    }
    if (waitResult == WAIT_TIMEOUT) {
        Log::LogError(L"UsbPrintDevice::Read(%s) failed: timeout", path);
        LogAndThrow(UsbPrintDeviceReadException(L"Unable to read data from UsbPrint device, timeout",
                                                L"UsbPrintDevice::ReadBytes()"));
    }
    Log::LogError(L"UsbPrintDevice::Read(%s): WaitForSingleObject failed: %s", path, ErrorText(waitResult));
    LogAndThrow(UsbPrintDeviceReadException(L"Unable to read data from UsbPrint device",
                                            L"UsbPrintDevice::ReadBytes()"));
}

// There is no non-blocking read on Windows, so each read is an overlapped one: it completes at once
// while bytes are waiting, and pends once there are none left (the printer class driver pends
// every read until the printer sends something). A pending read is given the quiet window to
// complete and is then cancelled; bytes that arrived between the read and the cancel are dropped
// all the same.
uint64_t UsbPrintDevice::DrainRawInput(uint32_t quietMs, uint32_t limitMs) {
    // The bytes are never looked at, so one buffer serves every drain of the process, and a read
    // that is given up on below can never write into memory that has been freed.
    static uint8_t scrap[kDrainReadSize];
    UniqueHandle event(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!event.IsValid()) {
        return 0; // without an event there is no overlapped read; the transfers will need one too
    }
    const ULONGLONG deadline = ::GetTickCount64() + limitMs;
    auto record = std::make_unique<OVERLAPPED>();
    uint64_t dropped = 0;
    while (::GetTickCount64() < deadline) {
        *record = OVERLAPPED{};
        record->hEvent = event.Get();
        ::ResetEvent(event.Get());
        DWORD count = 0;
        if (::ReadFile(m_readHandle, scrap, sizeof scrap, nullptr, record.get())) {
            if (!::GetOverlappedResult(m_readHandle, record.get(), &count, FALSE) || count == 0) {
                break;
            }
            dropped += count;
            continue;
        }
        if (::GetLastError() != ERROR_IO_PENDING) {
            break; // a broken channel: the transfers say so
        }
        const ULONGLONG now = ::GetTickCount64();
        const DWORD window =
            static_cast<DWORD>(std::min<ULONGLONG>(quietMs, deadline > now ? deadline - now : 0));
        if (::WaitForSingleObject(event.Get(), window) == WAIT_OBJECT_0) {
            if (!::GetOverlappedResult(m_readHandle, record.get(), &count, FALSE) || count == 0) {
                break;
            }
            dropped += count;
            continue;
        }
        // Quiet for the whole window. ERROR_OPERATION_ABORTED is the usual outcome of the cancel.
        ::CancelIo(m_readHandle);
        if (::WaitForSingleObject(event.Get(), INFINITE) != WAIT_OBJECT_0) {
            UnfinishedRequests::Keep(std::move(record));
            break;
        }
        if (::GetOverlappedResult(m_readHandle, record.get(), &count, FALSE)) {
            dropped += count;
        }
        break;
    }
    return dropped;
}

} // namespace vela::common
