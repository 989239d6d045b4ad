// The printer channel against a simulated printer on the system's own channel.

#include "common/UsbPrintDevice.h"
#include "ExpectThrown.h"
#include "common/Exception.h"
#include "common/SystemError.h"
#include "sim/ServerChannel.h"
#include "support/ProcessHandles.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <thread>

#ifdef _WIN32
#include <windows.h>
#endif

using namespace vela::common;
using vela::sim::ServerChannel;
using vela::test::ExpectThrown;
using vela::test::LogCapture;
using vela::test::SecondsSince;
using Clock = std::chrono::steady_clock;

namespace {

class UsbPrintDeviceTest : public ::testing::Test {
protected:
    void SetUp() override {
        peer = ServerChannel::Create(ServerChannel::Kind::printer);
        path = peer->ClientPath();
    }
    std::unique_ptr<ServerChannel> peer;
    std::wstring path;
};

} // namespace

TEST_F(UsbPrintDeviceTest, SilentPrinterTimesOutAfterThreeSecondsAndTheChannelStaysUsable) {
    LogCapture log;
    const size_t before = vela::test::BaselineHandleCount();
    {
        UsbPrintDevice device(path);
        const auto start = Clock::now();
        ExpectThrown<UsbPrintDeviceReadException>([&] { device.Read(16); },
                                                  L"Unable to read data from UsbPrint device, timeout",
                                                  L"UsbPrintDevice::ReadBytes()");
        EXPECT_GE(SecondsSince(start), 2.9);
        EXPECT_LE(SecondsSince(start), 4.5);
        EXPECT_TRUE(log.Contains(L"UsbPrintDevice::Read(" + path + L") failed: timeout"));

        const std::vector<uint8_t> late{1, 2, 3, 4};
        ASSERT_TRUE(peer->Write(late.data(), late.size()));
        std::vector<uint8_t> got; // each Read makes at most one raw read
        for (int i = 0; i < 50 && got.size() < late.size(); ++i) {
            const auto part = device.Read(static_cast<uint32_t>(late.size() - got.size()));
            got.insert(got.end(), part.begin(), part.end());
        }
        EXPECT_EQ(got, late);
    }
    EXPECT_EQ(vela::test::SettledHandleCount(before), before);
}

TEST_F(UsbPrintDeviceTest, PrinterThatStopsTakingDataTimesOutOnTheStalledChunk) {
    LogCapture log;
    UsbPrintDevice device(path);
    // More than any simulated channel buffers (the Windows peer keeps a few megabytes).
    const auto data = vela::test::TestBytes(4 * 1024 * 1024);
    int chunks = 0;
    Clock::time_point lastChunk;
    device.SetWriteCallback([&] {
        ++chunks;
        lastChunk = Clock::now();
    });
    ExpectThrown<UsbPrintDeviceWriteException>(
        [&] { device.WriteBytes(data.data(), static_cast<uint32_t>(data.size())); },
        L"Unable to write data to UsbPrint device, timeout", L"UsbPrintDevice::WriteBytes()");
    EXPECT_GE(SecondsSince(lastChunk), 2.9);
    EXPECT_LE(SecondsSince(lastChunk), 4.5) << "the limit applies to the stalled chunk";
    EXPECT_GE(chunks, 1);
    EXPECT_LT(chunks, static_cast<int>(data.size() / UsbPrintDevice::kChunkSize));
    EXPECT_TRUE(log.Contains(L"UsbPrintDevice::WriteBytes(" + path + L") failed: timeout"));
}

TEST_F(UsbPrintDeviceTest, UnpluggedPrinterFailsFastWithTypedErrors) {
    LogCapture log;
    UsbPrintDevice device(path);
    // Pulled while the host waits for a reply: the read ends well before its time limit.
    std::thread puller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        peer->Disconnect();
    });
    auto start = Clock::now();
    EXPECT_THROW(device.Read(10), UsbPrintDeviceException);
    puller.join();
    EXPECT_LT(SecondsSince(start), 2.5);
    EXPECT_TRUE(log.ContainsSubstring(L"UsbPrintDevice::ReadBytes(): UsbPrintDeviceReadException: Unable to "
                                      L"read data from UsbPrint device"));

    start = Clock::now();
    EXPECT_THROW(device.Write({0xC3, 0x00, 0x00, 0x00, 0x07, 0x60, 0x01}), UsbPrintDeviceWriteException);
    EXPECT_THROW(device.Read(10), UsbPrintDeviceReadException);
    EXPECT_LT(SecondsSince(start), 2.0) << "a hang-up is no reason to wait for the time limit";
    // Until it is plugged in again it cannot be opened, and a failed open keeps nothing.
    const size_t before = vela::test::BaselineHandleCount();
    ExpectThrown<UsbPrintDeviceConnectionException>([&] { UsbPrintDevice again(path); },
                                                    L"Unable to open UsbPrint device for writing",
                                                    L"UsbPrintDevice()");
    EXPECT_EQ(vela::test::SettledHandleCount(before), before);
    EXPECT_TRUE(log.ContainsSubstring(L"UsbPrintDevice::UsbPrintDevice(" + path + L") failed: "));
#ifdef _WIN32
    // Each failing step of the overlapped transfers names itself (the write's source has no parentheses).
    const std::wstring notConnected = Win32Error::Format(ERROR_PIPE_NOT_CONNECTED);
    for (const std::wstring& line : std::vector<std::wstring>{
             L"UsbPrintDevice::ReadBytes(): UsbPrintDeviceReadException: "
             L"Unable to read data from UsbPrint device, GetOverlappedResult failed",
             L"UsbPrintDevice::ReadBytes(" + path + L"): GetOverlappedResult failed " + notConnected,
             L"UsbPrintDevice::WriteBytes: UsbPrintDeviceWriteException: "
             L"Unable to write data to UsbPrint device",
             L"UsbPrintDevice::WriteBytes(" + path + L") failed: " + notConnected,
             L"UsbPrintDevice::Read(" + path + L") failed: " + notConnected}) {
        EXPECT_TRUE(log.Contains(line)) << line;
    }
#endif
}

#ifdef _WIN32
// A single-instance pipe: the read handle finds it busy, and the write handle is closed again.
TEST(UsbPrintDeviceOpen, ASingleInstancePipeIsRefusedForReadingAndReleased) {
    LogCapture log;
    const std::wstring single = L"\\\\.\\pipe\\qrv-test-single-" + std::to_wstring(::GetCurrentProcessId());
    HANDLE server =
        ::CreateNamedPipeW(single.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 1, 4096, 4096, 0, nullptr);
    ASSERT_NE(server, INVALID_HANDLE_VALUE);
    ExpectThrown<UsbPrintDeviceConnectionException>([&] { UsbPrintDevice device(single); },
                                                    L"Unable to open UsbPrint device for reading");
    EXPECT_TRUE(log.Contains(L"UsbPrintDevice::UsbPrintDevice(" + single + L") failed: " +
                             Win32Error::Format(ERROR_PIPE_BUSY)));
    EXPECT_FALSE(::PeekNamedPipe(server, nullptr, 0, nullptr, nullptr, nullptr));
    EXPECT_EQ(::GetLastError(), static_cast<DWORD>(ERROR_BROKEN_PIPE));
    ::CloseHandle(server);
}
namespace {

// A printer end with bytes waiting once the host has opened both handles. A pipe holds nothing for
// a client before it connects, so the peer suspends the opening thread while it writes them (unless
// the drain was quicker; the caller tries again), then answers one request on the other handle.
class LeftoverPeer {
public:
    LeftoverPeer(const std::wstring& path, std::vector<uint8_t> leftover, std::vector<uint8_t> reply)
        : m_leftover(std::move(leftover)), m_reply(std::move(reply)) {
        ::DuplicateHandle(::GetCurrentProcess(), ::GetCurrentThread(), ::GetCurrentProcess(), &m_opener, 0,
                          FALSE, DUPLICATE_SAME_ACCESS);
        for (auto& end : m_ends) {
            end.pipe = ::CreateNamedPipeW(path.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                          PIPE_TYPE_BYTE, 2, 65536, 65536, 0, nullptr);
            end.overlapped.hEvent = end.event;
            ::ConnectNamedPipe(end.pipe, &end.overlapped);
        }
        m_thread = std::thread([this] { Serve(); });
    }
    ~LeftoverPeer() {
        m_thread.join();
        for (auto& end : m_ends) {
            ::CancelIo(end.pipe);
            ::CloseHandle(end.pipe);
            ::CloseHandle(end.event);
        }
        ::CloseHandle(m_opener);
        ::CloseHandle(m_written);
    }

private:
    struct End {
        HANDLE pipe = INVALID_HANDLE_VALUE;
        HANDLE event = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
        OVERLAPPED overlapped{};
        uint8_t request[64] = {};
    };

    void Serve() {
        const HANDLE events[2] = {m_ends[0].event, m_ends[1].event};
        if (::WaitForMultipleObjects(2, events, TRUE, 5000) != WAIT_OBJECT_0) {
            return;
        }
        ::SuspendThread(m_opener);
        for (auto& end : m_ends) {
            Write(end.pipe, m_leftover); // the write-only handle never reads its copy
        }
        ::ResumeThread(m_opener);
        for (auto& end : m_ends) {
            end.overlapped = OVERLAPPED{};
            end.overlapped.hEvent = end.event;
            ::ResetEvent(end.event);
            ::ReadFile(end.pipe, end.request, sizeof end.request, nullptr, &end.overlapped);
        }
        const DWORD which = ::WaitForMultipleObjects(2, events, FALSE, 5000);
        DWORD count = 0;
        if (which < WAIT_OBJECT_0 + 2 &&
            ::GetOverlappedResult(m_ends[which].pipe, &m_ends[which].overlapped, &count, FALSE) &&
            count > 0) {
            Write(m_ends[1 - which].pipe, m_reply);
        }
    }

    void Write(HANDLE pipe, const std::vector<uint8_t>& bytes) {
        OVERLAPPED overlapped{};
        overlapped.hEvent = m_written;
        DWORD count = 0;
        if (::WriteFile(pipe, bytes.data(), static_cast<DWORD>(bytes.size()), nullptr, &overlapped) ||
            ::GetLastError() == ERROR_IO_PENDING) {
            ::GetOverlappedResult(pipe, &overlapped, &count, TRUE);
        }
    }

    std::vector<uint8_t> m_leftover;
    std::vector<uint8_t> m_reply;
    HANDLE m_opener = nullptr;
    HANDLE m_written = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::array<End, 2> m_ends;
    std::thread m_thread;
};

} // namespace

// More than two raw reads' worth waiting at the open are dropped, and the next reply is fresh.
TEST(UsbPrintDeviceOpen, BytesWaitingAtTheOpenAreDroppedAndTheNextReplyIsFresh) {
    const std::vector<uint8_t> leftover(3000, 0xEE);
    const std::vector<uint8_t> reply = {0xC3, 0x07, 0x00, 0x01, 0x02, 0x03, 0x04};
    int caught = 0;
    int attempts = 0;
    while (caught < 3 && attempts < 300) {
        const std::wstring path = L"\\\\.\\pipe\\qrv-test-leftover-" +
                                  std::to_wstring(::GetCurrentProcessId()) + L"-" +
                                  std::to_wstring(++attempts);
        LeftoverPeer peer(path, leftover, reply);
        LogCapture log;
        UsbPrintDevice device(path);
        const bool drained =
            log.Contains(L"UsbPrintDevice::UsbPrintDevice(" + path + L"): discarded 3000 stale bytes");
        ASSERT_EQ(device.Write({0xC3, 0x07, 0x00, 0x01}), 4u);
        const std::vector<uint8_t> answer = device.Read(static_cast<uint32_t>(reply.size()));
        if (drained) {
            ++caught;
            EXPECT_EQ(answer, reply) << "attempt " << attempts; // not the leftover bytes
            EXPECT_EQ(log.Count(LogLevel::warning), 1u);
        }
    }
    EXPECT_GE(caught, 1) << "the bytes never arrived before the drain in " << attempts << " attempts";
}
#endif
