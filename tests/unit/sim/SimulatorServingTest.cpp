// The simulator's QRV_VIRTUAL_PRINTERS entries, its text conversion, and what it does with status
// reports nobody can take. Serving on a channel is checked over the real ones
// (tests/integration/SimulatorChannelTest.cpp).
#include "sim/Simulator.h"
#include "sim/TextEncoding.h"
#include "sim/VirtualPrinterEntry.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

using vela::sim::VirtualPrinterEntry;

namespace {

// A channel without a host until `attached`: writes are refused (and counted) before, kept after.
// Reads find nothing.
class HostlessChannel : public vela::sim::ServerChannel {
public:
    // Waits (at most 5 s) until `done(written, refused)` holds, then sets `attached`.
    template <class Done> bool WaitUntil(Done done, bool attach = false) {
        std::unique_lock<std::mutex> lock(m_mutex);
        const bool met =
            m_changed.wait_for(lock, std::chrono::seconds(5), [&] { return done(m_written, m_refused); });
        m_attached = m_attached || attach;
        return met;
    }

    std::wstring ClientPath() const override { return L"hostless"; }
    long Read(uint8_t*, size_t, int timeoutMs) override {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), [] { return false; });
        return 0;
    }
    bool Write(const uint8_t* data, size_t size) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_attached) {
            m_written.insert(m_written.end(), data, data + size);
        } else {
            ++m_refused;
        }
        m_changed.notify_all();
        return m_attached;
    }
    void Disconnect() override {}
    bool Reconnect() override { return true; }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<uint8_t> m_written;
    int m_refused = 0;
    bool m_attached = false;
};

} // namespace

TEST(SimulatorServing, AHostThatAttachesLateGetsTheLatestStatusReport) {
    auto printerChannel = std::make_unique<HostlessChannel>();
    auto hidChannel = std::make_unique<HostlessChannel>();
    HostlessChannel& hid = *hidChannel;
    vela::sim::Simulator simulator(vela::sim::Simulator::Options{}, std::move(printerChannel),
                                   std::move(hidChannel));
    simulator.Printer().SetDoorOpen(true);
    simulator.Printer().SetBatteryLevel(2);
    // Two refused writes: the second one carried whatever report was newest by then.
    ASSERT_TRUE(hid.WaitUntil([](const std::vector<uint8_t>&, int refused) { return refused >= 2; }, true));
    // The reports in between may be merged, but the last one says door open and battery level 2.
    EXPECT_TRUE(hid.WaitUntil([](const std::vector<uint8_t>& w, int) {
        return w.size() >= 8 && w.size() % 8 == 0 && ((w[w.size() - 7] >> 2) & 3) == 1 &&
               (w[w.size() - 5] >> 5) == 2;
    }));
}

TEST(VirtualPrinterEntries, FormatAndParseAgree) {
    VirtualPrinterEntry a{"Label Printer", "/dev/pts/7", "/dev/pts/8", "410", "SIM1"};
    VirtualPrinterEntry b{"Other", "\\\\.\\pipe\\qrv-1", "", "210", ""};
    std::string value = VirtualPrinterEntry::JoinAll({a, b});
    EXPECT_EQ(value, "Label Printer|/dev/pts/7|/dev/pts/8|410|SIM1;Other|\\\\.\\pipe\\qrv-1||210");
    auto parsed = VirtualPrinterEntry::ParseAll(value + ";broken|x;x|y|z|999");
    ASSERT_EQ(parsed.size(), 2u);
    EXPECT_EQ(parsed[0].hidPath, "/dev/pts/8");
    EXPECT_EQ(parsed[1].hidPath, "");
    EXPECT_EQ(parsed[1].serial, "");
    EXPECT_THROW((VirtualPrinterEntry{"a;b", "p", "", "410", ""}.Format()), std::invalid_argument);
    EXPECT_THROW((VirtualPrinterEntry{"a", "", "", "410", ""}.Format()), std::invalid_argument);
}

TEST(SimText, WidePathsBecomeUtf8) {
    EXPECT_EQ(vela::sim::Utf8FromWide(L"/dev/pts/3"), "/dev/pts/3");
    EXPECT_EQ(vela::sim::Utf8FromWide(L"Dr\u00FCcker \u20AC"), "Dr\xC3\xBC"
                                                               "cker \xE2\x82\xAC");
    EXPECT_EQ(vela::sim::Utf8FromWide(std::wstring(1, wchar_t(0xD800))), "\xEF\xBF\xBD");
}
