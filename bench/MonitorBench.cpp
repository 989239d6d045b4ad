// The status monitor thread: how long a HID report takes from the channel to a listener, and
// whether the thread wakes up while nothing happens.
//
// This process plays the printer's HID interface: a pseudo-terminal of the kind the simulator
// serves, found by the library through QRV_VIRTUAL_PRINTERS (the printer channel of the entry is
// a simulator). Each report changes the status, so every report reaches the listener. The
// latency runs from just before the report is written to the listener call (same clock, same
// process). The baseline is a bare thread that poll()s the same kind of channel and reads the 8
// bytes: what the channel and a thread wake-up cost without the library.
//
// Idle wake-ups: the context switches of the monitor thread (/proc/self/task/<tid>/status,
// voluntary + involuntary) over one second without reports.

#include "bench/BenchSupport.h"
#include "common/StringConverter.h"
#include "kom/connection/INativeQRVListener.h"
#include "kom/connection/NativeQRVDevice.h"
#include "sim/ServerChannel.h"
#include "sim/Simulator.h"

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace vela::bench;
using vela::common::StringConverter;

const char* const kPrinterName = "Bench Monitor";
constexpr int kReports = 400;
constexpr auto kGap = std::chrono::milliseconds(3);
constexpr double kMedianTargetMs = 1.0;

// Receipts of one receiver: the time of each arrival and the receiving thread.
class Receipts {
public:
    void Arrived() {
        const auto now = Clock::now();
        std::lock_guard<std::mutex> lock(m_mutex);
        m_times.push_back(now);
        m_tid = CurrentThreadId();
        m_changed.notify_all();
    }
    bool WaitFor(size_t count, std::chrono::milliseconds timeout) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, timeout, [&] { return m_times.size() >= count; });
    }
    size_t Count() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_times.size();
    }
    Clock::time_point At(size_t i) {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_times.at(i);
    }
    long Tid() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_tid;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Clock::time_point> m_times;
    long m_tid = 0;
};

class Listener : public vela::kom::INativeQRVListener {
public:
    explicit Listener(Receipts& receipts) : m_receipts(receipts) {}
    void OnPrinterStatusChangedEvent(const vela::kom::PrinterStatus&) override { m_receipts.Arrived(); }
    void OnPrinterInterruptEvent(uint32_t, uint32_t) override {}

private:
    Receipts& m_receipts;
};

// The baseline receiver: poll() on the channel and a stop eventfd, read 8 bytes, note the time.
class BareReader {
public:
    BareReader(const std::wstring& path, Receipts& receipts) : m_receipts(receipts) {
        m_fd = ::open(StringConverter::ToUtf8(path).c_str(), O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        m_stop = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        if (m_fd < 0 || m_stop < 0) {
            throw std::runtime_error("cannot open the HID channel");
        }
        m_thread = std::thread([this] { Run(); });
    }
    ~BareReader() {
        uint64_t one = 1;
        (void)!::write(m_stop, &one, sizeof one);
        m_thread.join();
        ::close(m_fd);
        ::close(m_stop);
    }

private:
    void Run() {
        uint8_t report[8];
        size_t held = 0;
        for (;;) {
            pollfd fds[2] = {{m_stop, POLLIN, 0}, {m_fd, POLLIN, 0}};
            if (::poll(fds, 2, -1) < 0) {
                continue;
            }
            if (fds[0].revents & POLLIN) {
                return;
            }
            const ssize_t n = ::read(m_fd, report + held, sizeof report - held);
            if (n > 0) {
                held += static_cast<size_t>(n);
                if (held == sizeof report) {
                    held = 0;
                    m_receipts.Arrived();
                }
            }
        }
    }

    Receipts& m_receipts;
    int m_fd = -1;
    int m_stop = -1;
    std::thread m_thread;
};

// Sends one report that changes the status and returns how long it took to arrive (ms).
double SendReport(vela::sim::ServerChannel& hid, Receipts& receipts, uint8_t& toggle) {
    const size_t before = receipts.Count();
    uint8_t report[8] = {1, 0, 0, 0, 0, 0, 0, 0};
    toggle = static_cast<uint8_t>(toggle == 0 ? 1 : 0);
    report[1] = toggle; // the power field: a change each time
    const auto sent = Clock::now();
    if (!hid.Write(report, sizeof report)) {
        throw std::runtime_error("the HID channel refused a report");
    }
    if (!receipts.WaitFor(before + 1, std::chrono::seconds(10))) {
        throw std::runtime_error("a report did not arrive");
    }
    return std::chrono::duration<double, std::milli>(receipts.At(before) - sent).count();
}

// Context switches of two threads over the same idle second.
std::pair<int64_t, int64_t> IdleSwitches(long first, long second) {
    const int64_t a0 = ThreadContextSwitches(first), b0 = ThreadContextSwitches(second);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const int64_t a1 = ThreadContextSwitches(first), b1 = ThreadContextSwitches(second);
    return {a0 < 0 || a1 < 0 ? -1 : a1 - a0, b0 < 0 || b1 < 0 ? -1 : b1 - b0};
}

std::string Ms(double ms) {
    return Fixed(ms * 1000, 0) + " us";
}

int Run() {
    vela::sim::Simulator::Options options;
    options.name = kPrinterName;
    options.hid = false;
    vela::sim::Simulator sim(options);
    // One channel for the library's monitor, one for the bare reader: both listen all the time
    // and the reports alternate between them, so both see the same machine.
    const auto libraryHid = vela::sim::ServerChannel::Create(vela::sim::ServerChannel::Kind::hid);
    const auto bareHid = vela::sim::ServerChannel::Create(vela::sim::ServerChannel::Kind::hid);
    const std::string entry = std::string(kPrinterName) + "|" + StringConverter::ToUtf8(sim.PrinterPath()) +
                              "|" + StringConverter::ToUtf8(libraryHid->ClientPath()) + "|410";
    ::setenv("QRV_VIRTUAL_PRINTERS", entry.c_str(), 1);

    std::printf("Status monitor: HID report to listener, against a bare poll()+read() thread on the same\n"
                "kind of channel (pseudo-terminal); %d reports each, alternating, %d ms apart.\n",
                kReports, static_cast<int>(kGap.count()));

    Receipts libraryReceipts, bareReceipts;
    Listener listener(libraryReceipts);
    vela::kom::NativeQRVDevice facade(StringConverter::FromUtf8(kPrinterName), 0);
    facade.RegisterListener(&listener);
    BareReader reader(bareHid->ClientPath(), bareReceipts);

    uint8_t libraryToggle = 0, bareToggle = 0;
    // The monitor finds the printer first (discovery); the first reports prove both read.
    for (int i = 0; i < 5; ++i) {
        SendReport(*libraryHid, libraryReceipts, libraryToggle);
        SendReport(*bareHid, bareReceipts, bareToggle);
    }
    std::vector<double> library, bare;
    for (int i = 0; i < kReports; ++i) {
        library.push_back(SendReport(*libraryHid, libraryReceipts, libraryToggle));
        std::this_thread::sleep_for(kGap);
        bare.push_back(SendReport(*bareHid, bareReceipts, bareToggle));
        std::this_thread::sleep_for(kGap);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const auto [libraryIdle, bareIdle] = IdleSwitches(libraryReceipts.Tid(), bareReceipts.Tid());
    facade.DeregisterListener(&listener);

    const double libMedian = Percentile(library, 50), libP99 = Percentile(library, 99);
    const double bareMedian = Percentile(bare, 50), bareP99 = Percentile(bare, 99);
    std::printf("  library: median %s, p99 %s, max %s; bare thread: median %s, p99 %s, max %s\n",
                Ms(libMedian).c_str(), Ms(libP99).c_str(), Ms(SpreadOf(library).max).c_str(),
                Ms(bareMedian).c_str(), Ms(bareP99).c_str(), Ms(SpreadOf(bare).max).c_str());
    std::printf("  idle second: monitor thread %lld context switches, bare thread %lld\n",
                static_cast<long long>(libraryIdle), static_cast<long long>(bareIdle));
    PrintRow("monitor: report to listener, median (bare thread)",
             Ms(libMedian) + " (" + Ms(bareMedian) + "; ratio " + Fixed(libMedian / bareMedian, 2) + ")",
             "< 1 ms", Verdict(libMedian < kMedianTargetMs));
    PrintRow("monitor: report to listener, 99th percentile (bare thread)",
             Ms(libP99) + " (" + Ms(bareP99) + "; ratio " + Fixed(libP99 / bareP99, 2) + ")", "-", "-");
    PrintRow("monitor: wake-ups in an idle second (bare thread)",
             std::to_string(libraryIdle) + " (" + std::to_string(bareIdle) + ")", "0",
             Verdict(libraryIdle == 0));
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    return vela::bench::BenchMain("qrv-bench-monitor", argc, argv, [](int, char**) { return Run(); });
}
