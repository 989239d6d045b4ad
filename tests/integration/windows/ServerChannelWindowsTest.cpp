// The named-pipe device end of simulated printers, seen from the library's side: back-to-back
// transactions (each opening the path twice and closing both handles), the HID channel's
// one-report-per-read messages, and unplugging while the host holds its handles.

#include "common/Exception.h"
#include "common/UsbPrintDevice.h"
#include "sim/ServerChannel.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

using vela::common::UsbPrintDevice;
using vela::common::UsbPrintDeviceException;
using vela::sim::ServerChannel;
using Clock = std::chrono::steady_clock;

namespace {

// The host end of the HID channel, opened as the status monitor opens it.
HANDLE OpenHid(const std::wstring& path) {
    return ::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                         nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
}

// One overlapped read of up to `capacity` bytes; -1 when it fails or takes longer than 2 s.
long ReadHid(HANDLE hid, uint8_t* buffer, DWORD capacity) {
    OVERLAPPED overlapped{};
    overlapped.hEvent = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    DWORD count = 0;
    long result = -1;
    if (::ReadFile(hid, buffer, capacity, nullptr, &overlapped) || ::GetLastError() == ERROR_IO_PENDING) {
        if (::WaitForSingleObject(overlapped.hEvent, 2000) == WAIT_OBJECT_0 &&
            ::GetOverlappedResult(hid, &overlapped, &count, FALSE)) {
            result = static_cast<long>(count);
        } else {
            ::CancelIo(hid);
            ::WaitForSingleObject(overlapped.hEvent, INFINITE);
        }
    }
    ::CloseHandle(overlapped.hEvent);
    return result;
}

} // namespace

TEST(ServerChannelWindows, BackToBackTransactionsAlwaysFindTheTwoHandlesTheyNeed) {
    auto peer = ServerChannel::Create(ServerChannel::Kind::printer);
    // The simulator's own serving loop: answer every request byte with its complement.
    std::atomic<bool> stop{false};
    std::thread printer([&] {
        uint8_t buffer[256];
        for (long n; !stop && (n = peer->Read(buffer, sizeof buffer, 100)) >= 0;) {
            for (long i = 0; i < n; ++i) {
                buffer[i] = static_cast<uint8_t>(~buffer[i]);
            }
            peer->Write(buffer, static_cast<size_t>(n));
        }
    });
    int failures = 0;
    for (int i = 0; i < 300; ++i) {
        try {
            UsbPrintDevice device(peer->ClientPath()); // closed again right after the reply
            const uint8_t value = static_cast<uint8_t>(i);
            ASSERT_EQ(device.Write({value}), 1u);
            auto reply = device.Read(1);
            ASSERT_EQ(reply.size(), 1u) << "round " << i;
            EXPECT_EQ(reply[0], static_cast<uint8_t>(~value));
        } catch (const UsbPrintDeviceException&) {
            ++failures;
        }
    }
    EXPECT_EQ(failures, 0);
    stop = true;
    printer.join();
}

// An order without a reply (restart, update) followed at once by the next transaction: the two
// requests arrive on different instances, possibly before the service thread wakes, and must
// still be read in the order they were written.
TEST(ServerChannelWindows, RequestsKeepTheirOrderAcrossTransactions) {
    auto peer = ServerChannel::Create(ServerChannel::Kind::printer);
    std::vector<uint8_t> seen;
    std::atomic<bool> stop{false};
    std::thread printer([&] {
        uint8_t buffer[256];
        for (long n; !stop && (n = peer->Read(buffer, sizeof buffer, 100)) >= 0;) {
            for (long i = 0; i < n; ++i) {
                seen.push_back(buffer[i]);
                if (buffer[i] % 2 == 1) {
                    peer->Write(&buffer[i], 1); // only the odd requests are answered
                }
            }
        }
    });
    constexpr int kRounds = 120;
    for (int i = 0; i < kRounds; ++i) {
        UsbPrintDevice{peer->ClientPath()}.Write({static_cast<uint8_t>(2 * i)});
        UsbPrintDevice query(peer->ClientPath());
        query.Write({static_cast<uint8_t>(2 * i + 1)});
        ASSERT_EQ(query.Read(1).size(), 1u) << "round " << i;
    }
    stop = true;
    printer.join();
    std::vector<uint8_t> expected;
    for (int i = 0; i < 2 * kRounds; ++i) {
        expected.push_back(static_cast<uint8_t>(i));
    }
    EXPECT_EQ(seen, expected);
}

TEST(ServerChannelWindows, HidChannelDeliversOneReportPerReadAndNeedsAHost) {
    auto hid = ServerChannel::Create(ServerChannel::Kind::hid);
    const uint8_t first[8] = {1, 0x10, 0, 0, 0, 0, 0, 0};
    const uint8_t second[8] = {1, 0x20, 0, 0, 0, 0, 0, 0};
    HANDLE host = OpenHid(hid->ClientPath());
    ASSERT_NE(host, INVALID_HANDLE_VALUE);
    ASSERT_TRUE(hid->Write(first, 8));
    ASSERT_TRUE(hid->Write(second, 8));
    uint8_t report[8] = {};
    ASSERT_EQ(ReadHid(host, report, 8), 8);
    EXPECT_EQ(report[1], 0x10);
    ASSERT_EQ(ReadHid(host, report, 8), 8);
    EXPECT_EQ(report[1], 0x20);
    ::CloseHandle(host);

    // Nobody to receive it: the report is refused (after the host has been noticed gone).
    const auto deadline = Clock::now() + std::chrono::seconds(2);
    bool refused = false;
    while (!refused && Clock::now() < deadline) {
        refused = !hid->Write(first, 8);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_TRUE(refused);

    // A host that opens the path again is served again.
    host = OpenHid(hid->ClientPath());
    ASSERT_NE(host, INVALID_HANDLE_VALUE);
    ASSERT_TRUE(hid->Write(second, 8));
    ASSERT_EQ(ReadHid(host, report, 8), 8);
    EXPECT_EQ(report[1], 0x20);
    ::CloseHandle(host);
}

TEST(ServerChannelWindows, ReplugKeepsThePathAndStaleHostHandlesStayDead) {
    auto peer = ServerChannel::Create(ServerChannel::Kind::printer);
    const std::wstring path = peer->ClientPath();
    UsbPrintDevice stale(path);
    peer->Disconnect();
    ASSERT_TRUE(peer->Reconnect());
    EXPECT_EQ(peer->ClientPath(), path);
    EXPECT_THROW(stale.Write({1}), UsbPrintDeviceException);

    UsbPrintDevice fresh(path);
    EXPECT_EQ(fresh.Write({1, 2}), 2u);
    uint8_t buffer[8];
    EXPECT_EQ(peer->Read(buffer, sizeof buffer, 2000), 2);
    EXPECT_TRUE(peer->Write(buffer, 2));
    EXPECT_EQ(fresh.Read(8).size(), 2u);
}

TEST(ServerChannelWindows, DeviceNodesAreALinuxThing) {
    EXPECT_THROW(ServerChannel::OpenDeviceNode("/dev/g_printer0", ServerChannel::Kind::printer),
                 std::runtime_error);
}
