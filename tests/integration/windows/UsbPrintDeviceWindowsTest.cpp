// The Windows transfer paths that the portable channel tests cannot reach: the exact log lines of
// each failure row, the write time-out of a printer that stops taking data, and an open that gets
// the write handle but not the read handle.

#include "common/SystemError.h"
#include "common/UsbPrintDevice.h"
#include "sim/ServerChannel.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <chrono>
#include <thread>

using namespace vela::common;
using vela::sim::ServerChannel;
using vela::test::LogCapture;
using Clock = std::chrono::steady_clock;

namespace {

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

DWORD OpenHandles() {
    DWORD count = 0;
    ::GetProcessHandleCount(::GetCurrentProcess(), &count);
    return count;
}

template <class E, class F> E Catch(F&& call) {
    try {
        call();
    } catch (const E& e) {
        return e;
    }
    ADD_FAILURE() << "no exception";
    return E(L"", L"");
}

} // namespace

TEST(UsbPrintDeviceWindows, UnpluggedPrinterLogsTheStartRowsOfBothDirections) {
    auto peer = ServerChannel::Create(ServerChannel::Kind::printer);
    const std::wstring path = peer->ClientPath();
    LogCapture log;
    UsbPrintDevice device(path);
    peer->Disconnect();

    auto write = Catch<UsbPrintDeviceWriteException>([&] { device.Write({1, 2, 3}); });
    EXPECT_EQ(write.Message(), L"Unable to write data to UsbPrint device");
    EXPECT_EQ(write.Source(), L"UsbPrintDevice::WriteBytes") << "this row has no parentheses";
    EXPECT_TRUE(log.Contains(L"UsbPrintDevice::WriteBytes(" + path + L") failed: " +
                             Win32Error::Format(ERROR_PIPE_NOT_CONNECTED)));
    EXPECT_TRUE(log.Contains(L"UsbPrintDevice::WriteBytes: UsbPrintDeviceWriteException: Unable to write "
                             L"data to UsbPrint device"));

    auto read = Catch<UsbPrintDeviceReadException>([&] { device.Read(10); });
    EXPECT_EQ(read.Message(), L"Unable to read data from UsbPrint device");
    EXPECT_EQ(read.Source(), L"UsbPrintDevice::ReadBytes()");
    EXPECT_TRUE(log.Contains(L"UsbPrintDevice::Read(" + path + L") failed: " +
                             Win32Error::Format(ERROR_PIPE_NOT_CONNECTED)));
}

TEST(UsbPrintDeviceWindows, ReadThatFailsWhileWaitingLogsTheResultRow) {
    auto peer = ServerChannel::Create(ServerChannel::Kind::printer);
    const std::wstring path = peer->ClientPath();
    LogCapture log;
    UsbPrintDevice device(path);
    std::thread puller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        peer->Disconnect();
    });
    auto read = Catch<UsbPrintDeviceReadException>([&] { device.Read(10); });
    puller.join();
    EXPECT_EQ(read.Message(), L"Unable to read data from UsbPrint device, GetOverlappedResult failed");
    EXPECT_EQ(read.Source(), L"UsbPrintDevice::ReadBytes()");
    EXPECT_TRUE(log.Contains(L"UsbPrintDevice::ReadBytes(" + path + L"): GetOverlappedResult failed " +
                             Win32Error::Format(ERROR_PIPE_NOT_CONNECTED)));
}

TEST(UsbPrintDeviceWindows, PrinterThatStopsTakingDataTimesOutPerChunkAndRecovers) {
    auto peer = ServerChannel::Create(ServerChannel::Kind::printer);
    const std::wstring path = peer->ClientPath();
    LogCapture log;
    UsbPrintDevice device(path);
    // The peer buffers what it is not asked for only up to a limit; beyond it the pipe fills and
    // a chunk stays pending.
    const std::vector<uint8_t> data(4 * 1024 * 1024, 0x5A);
    int chunks = 0;
    Clock::time_point lastChunk;
    device.SetWriteCallback([&] {
        ++chunks;
        lastChunk = Clock::now();
    });
    auto write = Catch<UsbPrintDeviceWriteException>([&] { device.Write(data); });
    const double waited = SecondsSince(lastChunk);
    EXPECT_GE(waited, 2.9);
    EXPECT_LE(waited, 4.5);
    EXPECT_GT(chunks, 1);
    EXPECT_LT(chunks, static_cast<int>(data.size() / UsbPrintDevice::kChunkSize));
    EXPECT_EQ(write.Message(), L"Unable to write data to UsbPrint device, timeout");
    EXPECT_EQ(write.Source(), L"UsbPrintDevice::WriteBytes()");
    EXPECT_TRUE(log.Contains(L"UsbPrintDevice::WriteBytes(" + path + L") failed: timeout"));
    EXPECT_EQ(log.Count(LogLevel::warning), 0u) << "CancelIo succeeded, nothing to warn about";

    // The printer catches up: everything that went out arrives, and the next write goes through.
    std::vector<uint8_t> buffer(1 << 16);
    size_t drained = 0;
    for (long n; (n = peer->Read(buffer.data(), buffer.size(), 500)) > 0;) {
        drained += static_cast<size_t>(n);
    }
    EXPECT_GE(drained, static_cast<size_t>(chunks - 1) * UsbPrintDevice::kChunkSize);
    EXPECT_EQ(device.Write({1, 2, 3}), 3u);
    EXPECT_EQ(peer->Read(buffer.data(), buffer.size(), 2000), 3);
}

TEST(UsbPrintDeviceWindows, OpenThatGetsOnlyTheWriteHandleClosesItAgain) {
    // A pipe with a single instance: the write handle takes it, the read handle finds it busy.
    const std::wstring path = L"\\\\.\\pipe\\qrv-test-single-" + std::to_wstring(::GetCurrentProcessId());
    HANDLE server = ::CreateNamedPipeW(path.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                       PIPE_TYPE_BYTE, 1, 4096, 4096, 0, nullptr);
    ASSERT_NE(server, INVALID_HANDLE_VALUE);
    LogCapture log;
    const DWORD before = OpenHandles();
    auto open = Catch<UsbPrintDeviceConnectionException>([&] { UsbPrintDevice device(path); });
    EXPECT_EQ(open.Message(), L"Unable to open UsbPrint device for reading");
    EXPECT_EQ(open.Source(), L"UsbPrintDevice()");
    EXPECT_TRUE(log.Contains(L"UsbPrintDevice::UsbPrintDevice(" + path + L") failed: " +
                             Win32Error::Format(ERROR_PIPE_BUSY)));
    EXPECT_TRUE(log.Contains(
        L"UsbPrintDevice(): UsbPrintDeviceConnectionException: Unable to open UsbPrint device for reading"));
    EXPECT_EQ(OpenHandles(), before);

    // The server sees its client gone: the write handle was really closed.
    char byte = 0;
    DWORD count = 0;
    OVERLAPPED overlapped{};
    overlapped.hEvent = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    DWORD error = ERROR_SUCCESS;
    if (!::ReadFile(server, &byte, 1, nullptr, &overlapped)) {
        error = ::GetLastError();
        if (error == ERROR_IO_PENDING) {
            EXPECT_EQ(::WaitForSingleObject(overlapped.hEvent, 2000), WAIT_OBJECT_0);
            error =
                ::GetOverlappedResult(server, &overlapped, &count, FALSE) ? ERROR_SUCCESS : ::GetLastError();
        }
    }
    EXPECT_EQ(error, static_cast<DWORD>(ERROR_BROKEN_PIPE));
    ::CancelIo(server);
    ::CloseHandle(overlapped.hEvent);
    ::CloseHandle(server);
}
