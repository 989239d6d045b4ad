#include "SimRequests.h"
#include "sim/Simulator.h"
#include "sim/TextEncoding.h"
#include "sim/VirtualPrinterEntry.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <mutex>

using namespace simtest;
using std::chrono::milliseconds;
using vela::sim::ServerChannel;
using vela::sim::Simulator;
using vela::sim::VirtualPrinterEntry;

namespace {

constexpr milliseconds kPatience{5000}; // an upper bound for waits on the serving threads, never a pause

// A channel in memory: the test plays the host on the other side.
class MemoryChannel : public ServerChannel {
public:
    struct Host {
        std::mutex mutex;
        std::condition_variable changed;
        std::deque<uint8_t> toPrinter;
        Bytes fromPrinter;
        bool accepting = true; // false: Write finds nobody to receive
        int disconnects = 0;
        int reconnects = 0;
        bool connected = true;

        void Write(const Bytes& bytes) {
            std::lock_guard<std::mutex> lock(mutex);
            toPrinter.insert(toPrinter.end(), bytes.begin(), bytes.end());
            changed.notify_all();
        }
        // Waits until the printer has written at least `count` bytes in all.
        bool WaitFor(size_t count) {
            std::unique_lock<std::mutex> lock(mutex);
            return changed.wait_for(lock, kPatience, [&] { return fromPrinter.size() >= count; });
        }
        template <class Predicate> bool WaitUntil(Predicate predicate) {
            std::unique_lock<std::mutex> lock(mutex);
            return changed.wait_for(lock, kPatience, predicate);
        }
    };

    MemoryChannel(std::wstring path, std::shared_ptr<Host> host)
        : m_path(std::move(path)), m_host(std::move(host)) {}

    std::wstring ClientPath() const override { return m_path; }
    long Read(uint8_t* buffer, size_t capacity, int timeoutMs) override {
        std::unique_lock<std::mutex> lock(m_host->mutex);
        if (!m_host->changed.wait_for(lock, milliseconds(timeoutMs),
                                      [&] { return !m_host->toPrinter.empty(); })) {
            return 0;
        }
        size_t n = std::min(capacity, m_host->toPrinter.size());
        std::copy_n(m_host->toPrinter.begin(), n, buffer);
        m_host->toPrinter.erase(m_host->toPrinter.begin(),
                                m_host->toPrinter.begin() + static_cast<ptrdiff_t>(n));
        return static_cast<long>(n);
    }
    bool Write(const uint8_t* data, size_t size) override {
        std::lock_guard<std::mutex> lock(m_host->mutex);
        if (!m_host->accepting || !m_host->connected) {
            return false;
        }
        m_host->fromPrinter.insert(m_host->fromPrinter.end(), data, data + size);
        m_host->changed.notify_all();
        return true;
    }
    void Disconnect() override {
        std::lock_guard<std::mutex> lock(m_host->mutex);
        ++m_host->disconnects;
        m_host->connected = false;
        m_host->toPrinter.clear();
        m_host->changed.notify_all();
    }
    bool Reconnect() override {
        std::lock_guard<std::mutex> lock(m_host->mutex);
        ++m_host->reconnects;
        m_host->connected = true;
        m_host->changed.notify_all();
        return true;
    }

private:
    std::wstring m_path;
    std::shared_ptr<Host> m_host;
};

class Serving : public ::testing::Test {
protected:
    Serving() {
        options.name = "Bench Printer";
        options.model = "210";
        options.printer.rebootDelay = milliseconds(0);
    }
    void Start(bool withHid = true) {
        simulator =
            std::make_unique<Simulator>(options, std::make_unique<MemoryChannel>(L"mem-printer", printer),
                                        withHid ? std::make_unique<MemoryChannel>(L"mem-hid", hid) : nullptr);
    }

    Simulator::Options options;
    std::shared_ptr<MemoryChannel::Host> printer = std::make_shared<MemoryChannel::Host>();
    std::shared_ptr<MemoryChannel::Host> hid = std::make_shared<MemoryChannel::Host>();
    std::unique_ptr<Simulator> simulator;
};

} // namespace

TEST_F(Serving, AnswersRequestsArrivingOnTheChannel) {
    Start();
    Bytes query = StatusQuery();
    printer->Write(Bytes(query.begin(), query.begin() + 4)); // in two pieces, as a slow host might
    printer->Write(Bytes(query.begin() + 4, query.end()));
    ASSERT_TRUE(printer->WaitFor(17));
    EXPECT_EQ(OnlyReply(printer->fromPrinter).payload.size(), 10u);
    EXPECT_EQ(simulator->Printer().CountRequests(vela::sim::RequestKind::statusQuery), 1u);
    EXPECT_EQ(simulator->ProductId(), 0x0024);
}

TEST_F(Serving, RebootTakesBothChannelsOffAndBack) {
    Start();
    printer->Write(DeviceControl(0x02));
    ASSERT_TRUE(simulator->WaitForReconnections(1, kPatience));
    EXPECT_EQ(printer->disconnects, 1);
    EXPECT_EQ(printer->reconnects, 1);
    EXPECT_TRUE(hid->WaitUntil([&] { return hid->reconnects == 1; }));
    EXPECT_TRUE(simulator->Connected());

    printer->Write(StatusQuery()); // serving again
    EXPECT_TRUE(printer->WaitFor(17));
}

TEST_F(Serving, StatusChangesReachTheHidChannelAndWaitForAHost) {
    Start();
    simulator->Printer().SetDoorOpen(true);
    ASSERT_TRUE(hid->WaitFor(8));
    EXPECT_EQ(hid->fromPrinter[0], 0x01);
    EXPECT_EQ((hid->fromPrinter[1] >> 2) & 3, 1);

    {
        std::lock_guard<std::mutex> lock(hid->mutex);
        hid->accepting = false;
    }
    simulator->Printer().SetDoorOpen(false);
    simulator->Printer().SetBatteryLevel(2);
    {
        std::lock_guard<std::mutex> lock(hid->mutex);
        hid->accepting = true;
    }
    // A host that attaches later gets the current state (reports in between may be merged).
    ASSERT_TRUE(hid->WaitUntil([&] {
        return hid->fromPrinter.size() >= 16 && (hid->fromPrinter[hid->fromPrinter.size() - 5] >> 5) == 2;
    }));
    EXPECT_EQ(hid->fromPrinter.size() % 8, 0u);
}

TEST_F(Serving, EntryNamesThePathsAndTheModel) {
    options.serial = "S-1";
    Start(false);
    EXPECT_EQ(simulator->EntryText(), "Bench Printer|mem-printer||210|S-1");
    simulator->ExportToEnvironment();
    const char* value = std::getenv("QRV_VIRTUAL_PRINTERS");
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(std::string(value), "Bench Printer|mem-printer||210|S-1");
    simulator->Stop();
    simulator->Stop(); // idempotent
}

TEST(SimulatorOptions, BadModelOrSeparatorsAreRefusedBeforeServing) {
    auto host = std::make_shared<MemoryChannel::Host>();
    Simulator::Options options;
    options.model = "310";
    EXPECT_THROW(Simulator(options, std::make_unique<MemoryChannel>(L"p", host), nullptr),
                 std::invalid_argument);
    options.model = "410";
    options.name = "a|b";
    EXPECT_THROW(Simulator(options, std::make_unique<MemoryChannel>(L"p", host), nullptr),
                 std::invalid_argument);
    options.name = "Printer";
    Simulator ok(options, std::make_unique<MemoryChannel>(L"p", host), nullptr);
    EXPECT_EQ(ok.Entry().serial.substr(0, 3), "SIM");
    EXPECT_EQ(ok.Entry().serial.size(), 11u);
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
