// Short transactions against raw baselines on the same kind of channel:
//
//   status query : GetStatus (lock, fresh channel, request, reply, close, release) against the
//                  same request written and its reply read on a channel kept open, both answered
//                  by the same simulator; beside it, the least any client that locks and opens
//                  afresh must do: one raw flock cycle around a fresh channel's round trip
//   listing      : GetFolderContent of a folder of 10 000 files against a raw copy of the same
//                  number of reply bytes (the fixed 1000 ms listing pause and the 250 ms
//                  completion pause are skipped through the pause seam: they would be the figure)
//   lock         : PrinterAccessSynchronizer taken and released, against open + flock + unlock +
//                  close of a file in the same folder; alone, and with a second process taking
//                  the same lock in a loop
//
// The library and the baseline alternate (call by call for the status query, in rounds for the
// rest); each figure is a ratio of the two with its spread. Where there are two processors, the
// printer end (simulator, raw peer) runs on one and the calls are made from the other.

#include "bench/BenchSupport.h"
#include "bench/RawPeer.h"
#include "common/Pause.h"
#include "common/StringConverter.h"
#include "common/UsbPrintDevice.h"
#include "kom/connection/PrinterAccessSynchronizer.h"
#include "kom/connection/QRVDevice.h"
#include "kom/protocol/MessageHeader.h"
#include "kom/protocol/RequestCodes.h"
#include "sim/Simulator.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/file.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace vela::bench;
using vela::common::StringConverter;
using vela::common::UsbPrintDevice;
using vela::kom::ConnectedPrinter;
using vela::kom::PrinterAccessSynchronizer;

const char* const kPrinterName = "Bench Printer";
const char* const kListingFolder = "/mnt/data/jobs/bench";
constexpr size_t kListingEntries = 10000;
constexpr double kStatusTarget = 1.5;

ConnectedPrinter Printer(const std::wstring& channelPath, const std::wstring& name) {
    ConnectedPrinter printer;
    printer.vendorId = 0x0922;
    printer.productId = 0x0025;
    printer.devicePath = channelPath;
    printer.printerName = name;
    return printer;
}

// ---- status --------------------------------------------------------------------------------------

void ReadMessage(UsbPrintDevice& device, std::vector<uint8_t>& buffer) {
    buffer.resize(UsbPrintDevice::kRawReadSize);
    size_t held = 0;
    size_t total = vela::kom::MessageHeader::kSize;
    while (held < total) {
        held += device.ReadBytes(
            buffer.data() + held,
            static_cast<uint32_t>(std::min<size_t>(buffer.size() - held, UsbPrintDevice::kRawReadSize)));
        if (held >= vela::kom::MessageHeader::kSize && total == vela::kom::MessageHeader::kSize) {
            total =
                (size_t{buffer[1]} << 24) | (size_t{buffer[2]} << 16) | (size_t{buffer[3]} << 8) | buffer[4];
            buffer.resize(std::max(buffer.size(), total));
        }
    }
}

// The raw lock: a file in the library's lock folder, opened, locked, unlocked and closed.
std::string RawLockPath() {
    const std::string lockPath = StringConverter::ToUtf8(PrinterAccessSynchronizer::LockName(L"x"));
    return lockPath.substr(0, lockPath.rfind('/')) + "/VELA.Bench.raw";
}

// One raw lock cycle; `inside` runs while the lock is held.
template <class Inside> void RawLockCycle(const std::string& path, Inside&& inside) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
    if (fd < 0) {
        throw std::runtime_error("cannot open " + path + ": " + std::strerror(errno));
    }
    while (::flock(fd, LOCK_EX) != 0 && errno == EINTR) {
    }
    inside();
    ::flock(fd, LOCK_UN);
    ::close(fd);
}

void StatusBenchmark(vela::sim::Simulator& sim) {
    const ConnectedPrinter printer = Printer(sim.PrinterPath(), StringConverter::FromUtf8(kPrinterName));
    vela::kom::QRVDeviceBase device(printer);
    std::vector<uint8_t> request =
        vela::kom::MessageHeader::ForRequest(vela::kom::MessageHeader::kUnitPrinter, 2).Serialize();
    request.push_back(vela::kom::RequestCode::kRequestMarker);
    request.push_back(vela::kom::RequestCode::kQuery);

    UsbPrintDevice channel(printer.devicePath);
    std::vector<uint8_t> reply;
    auto raw = [&] {
        channel.WriteBytes(request.data(), static_cast<uint32_t>(request.size()));
        ReadMessage(channel, reply);
    };
    auto rawWithOpen = [&] {
        UsbPrintDevice fresh(printer.devicePath);
        fresh.WriteBytes(request.data(), static_cast<uint32_t>(request.size()));
        ReadMessage(fresh, reply);
    };
    const std::string rawLockPath = RawLockPath();
    auto rawWithOpenAndLock = [&] { RawLockCycle(rawLockPath, rawWithOpen); };
    auto library = [&] { (void)device.GetStatus(); };
    // warm up both paths
    for (int i = 0; i < 20; ++i) {
        library();
        raw();
    }
    const Paired p = AlternateCalls(4000, 20, library, raw);
    const Paired withOpen = AlternateCalls(1000, 5, library, rawWithOpen);
    const Paired withLock = AlternateCalls(1000, 5, library, rawWithOpenAndLock);
    const Spread ratio = SpreadOf(p.ratio);
    std::printf(
        "  status query, %zu calls each, alternating: library %s, raw round trip %s per call (medians); "
        "library / raw %s\n",
        p.library.size(), Micro(SpreadOf(p.library).median).c_str(), Micro(SpreadOf(p.raw).median).c_str(),
        RatioText(ratio).c_str());
    std::printf("      raw round trip that also opens and closes the channel: %s; library / that %s\n",
                Micro(SpreadOf(withOpen.raw).median).c_str(), RatioText(SpreadOf(withOpen.ratio)).c_str());
    // The floor: a client that takes a machine-wide lock and opens the channel for each exchange
    // cannot be faster than this; its ratio to the kept-open round trip is what is left of the
    // target for everything else.
    const double floorRatio = SpreadOf(withLock.raw).median / SpreadOf(p.raw).median;
    std::printf("      raw round trip inside one flock cycle on a fresh channel: %s (%sx the kept-open round "
                "trip); library / that %s\n",
                Micro(SpreadOf(withLock.raw).median).c_str(), Fixed(floorRatio, 2).c_str(),
                RatioText(SpreadOf(withLock.ratio)).c_str());
    PrintRow("status query vs raw write+read round trip", RatioText(ratio),
             "<= " + Fixed(kStatusTarget, 1) + "x", Verdict(ratio.median <= kStatusTarget));
}

// ---- listing ---------------------------------------------------------------------------------------

void ListingBenchmark(vela::sim::Simulator& sim, RawPeer& peer) {
    std::string text;
    sim.Printer().AddFolder(kListingFolder);
    for (size_t i = 0; i < kListingEntries; ++i) {
        char name[64];
        std::snprintf(name, sizeof name, "label-%05zu.job", i);
        const size_t size = 100 + i % 900;
        sim.Printer().WriteFile(std::string(kListingFolder) + "/" + name, std::vector<uint8_t>(size, 0x20));
        text += std::string(name) + ":" + std::to_string(size) + ":f,";
    }
    // The reply: header, two bytes, the 257-byte path field, the listing text.
    const size_t replySize = vela::kom::MessageHeader::kSize + 2 + 257 + text.size();
    peer.SetSource(std::vector<uint8_t>(replySize, 0x41));

    const ConnectedPrinter printer = Printer(sim.PrinterPath(), StringConverter::FromUtf8(kPrinterName));
    vela::kom::QRVDeviceBase device(printer);
    const std::wstring folder = StringConverter::FromUtf8(kListingFolder);
    const vela::common::PauseHandler previous =
        vela::common::SetPauseHandler([](uint32_t) { return vela::common::WaitResult::timeout; });
    size_t entries = 0;
    auto library = [&] { entries = device.GetFolderContent(folder).size(); };
    const std::vector<uint8_t> command = RawPeer::Command('G', replySize);
    std::vector<uint8_t> buffer(UsbPrintDevice::kRawReadSize);
    auto raw = [&] {
        UsbPrintDevice channel(peer.ClientPath());
        channel.WriteBytes(command.data(), static_cast<uint32_t>(command.size()));
        size_t left = replySize;
        while (left > 0) {
            left -= channel.ReadBytes(buffer.data(), static_cast<uint32_t>(std::min(left, buffer.size())));
        }
    };
    library();
    raw();
    const Paired p = AlternateCalls(60, 6, library, raw);
    vela::common::SetPauseHandler(previous);
    if (entries != kListingEntries) {
        throw std::runtime_error("the listing came back with " + std::to_string(entries) + " entries");
    }
    const Spread ratio = SpreadOf(p.ratio);
    std::printf(
        "  listing of %zu entries (%zu reply bytes): library %s ms, raw copy %s ms; library / raw %s\n"
        "      (pause seam: the fixed 1000 ms listing pause and 250 ms completion pause skipped)\n",
        kListingEntries, replySize, Fixed(SpreadOf(p.library).median * 1e3, 2).c_str(),
        Fixed(SpreadOf(p.raw).median * 1e3, 2).c_str(), RatioText(ratio).c_str());
    PrintRow("listing 10 000 entries via simulator vs raw copy of its bytes (pauses skipped)",
             RatioText(ratio), "-", "-");
    peer.SetSource({});
}

// ---- lock ------------------------------------------------------------------------------------------

// Takes and releases the lock in a loop until `until`, holding it `holdUs` each time; prints the
// number of cycles and the median and 99th percentile of the time to take it (microseconds).
struct LoopFigures {
    double cycles = 0;
    double medianWaitUs = 0;
    double p99WaitUs = 0;
};

LoopFigures LockLoop(bool library, const std::string& printerName, Clock::time_point start,
                     Clock::time_point until, int holdUs) {
    const ConnectedPrinter printer = Printer(L"", StringConverter::FromUtf8(printerName));
    const std::string rawPath = RawLockPath();
    std::this_thread::sleep_until(start);
    std::vector<double> waits;
    while (Clock::now() < until) {
        const auto begin = Clock::now();
        if (library) {
            PrinterAccessSynchronizer lock(printer);
            waits.push_back(SecondsSince(begin) * 1e6);
            const auto holdEnd = Clock::now() + std::chrono::microseconds(holdUs);
            while (Clock::now() < holdEnd) {
            }
        } else {
            const int fd = ::open(rawPath.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
            while (::flock(fd, LOCK_EX) != 0 && errno == EINTR) {
            }
            waits.push_back(SecondsSince(begin) * 1e6);
            const auto holdEnd = Clock::now() + std::chrono::microseconds(holdUs);
            while (Clock::now() < holdEnd) {
            }
            ::flock(fd, LOCK_UN);
            ::close(fd);
        }
    }
    LoopFigures f;
    f.cycles = static_cast<double>(waits.size());
    f.medianWaitUs = SpreadOf(waits).median;
    f.p99WaitUs = Percentile(waits, 99);
    return f;
}

int64_t SinceEpochNs(Clock::time_point t) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(t.time_since_epoch()).count();
}

Clock::time_point FromEpochNs(int64_t ns) {
    return Clock::time_point(std::chrono::duration_cast<Clock::duration>(std::chrono::nanoseconds(ns)));
}

void LockBenchmark() {
    const std::string name = "Bench Lock " + std::to_string(::getpid());
    const ConnectedPrinter printer = Printer(L"", StringConverter::FromUtf8(name));
    const std::string rawPath = RawLockPath();
    auto library = [&] { PrinterAccessSynchronizer lock(printer); };
    auto raw = [&] { RawLockCycle(rawPath, [] {}); };
    for (int i = 0; i < 100; ++i) {
        library();
        raw();
    }
    const Paired p = AlternateCalls(20000, 20, library, raw);
    const Spread ratio = SpreadOf(p.ratio);
    std::printf(
        "  lock, uncontended: library %s, raw open+flock+unlock+close %s per cycle; library / raw %s\n",
        Micro(SpreadOf(p.library).median).c_str(), Micro(SpreadOf(p.raw).median).c_str(),
        RatioText(ratio).c_str());
    PrintRow("lock acquire+release, uncontended, vs raw flock cycle", RatioText(ratio), "-", "-");

    // Two processes: this one and a child run the same loop on the same lock for a while.
    const std::string self = SelfPath();
    constexpr int kHoldUs = 200;
    constexpr int kSeconds = 2;
    for (const bool library : {true, false}) {
        const auto start = Clock::now() + std::chrono::milliseconds(300);
        const auto until = start + std::chrono::seconds(kSeconds);
        ChildProcess child({self, "--child", library ? "lib" : "raw", name,
                            std::to_string(SinceEpochNs(start)), std::to_string(SinceEpochNs(until)),
                            std::to_string(kHoldUs)});
        const LoopFigures mine = LockLoop(library, name, start, until, kHoldUs);
        std::istringstream in(child.Finish());
        LoopFigures theirs;
        in >> theirs.cycles >> theirs.medianWaitUs >> theirs.p99WaitUs;
        const double total = (mine.cycles + theirs.cycles) / kSeconds;
        const double share =
            std::min(mine.cycles, theirs.cycles) / std::max(1.0, std::max(mine.cycles, theirs.cycles));
        const double median = std::max(mine.medianWaitUs, theirs.medianWaitUs);
        const double p99 = std::max(mine.p99WaitUs, theirs.p99WaitUs);
        std::printf("  lock, two processes (each holds %d us per cycle), %s: %s cycles/s together, fairness "
                    "%s (fewer/more), wait to take it median %s us, p99 %s us\n",
                    kHoldUs, library ? "library" : "raw flock", Fixed(total, 0).c_str(),
                    Fixed(share, 2).c_str(), Fixed(median, 0).c_str(), Fixed(p99, 0).c_str());
        PrintRow(std::string("lock, two processes, ") + (library ? "library" : "raw blocking flock") +
                     " (hold 200 us)",
                 Fixed(total, 0) + " cycles/s, fairness " + Fixed(share, 2) + ", wait median " +
                     Fixed(median, 0) + " us / p99 " + Fixed(p99, 0) + " us",
                 "-", "-");
    }
    ::unlink(rawPath.c_str());
}

int ChildMain(const std::vector<std::string>& a) {
    const bool library = a.at(0) == "lib";
    const LoopFigures f = LockLoop(library, a.at(1), FromEpochNs(std::stoll(a.at(2))),
                                   FromEpochNs(std::stoll(a.at(3))), std::stoi(a.at(4)));
    std::printf("%f %f %f\n", f.cycles, f.medianWaitUs, f.p99WaitUs);
    return 0;
}

int ParentMain(int, char**) {
    std::printf("Channel transactions and the access lock against raw baselines (pseudo-terminal, flock).\n"
                "Single calls alternate; per block of the run the ratio of the median calls is taken;\n"
                "each figure is the median (min-max) of these block ratios.\n");
    const CorePlacement cores;
    std::printf("%s\nLoad average at the start: %s\n", cores.Describe().c_str(), LoadAverage().c_str());
    {
        cores.EnterPrinterEnd();
        vela::sim::Simulator::Options options;
        options.name = kPrinterName;
        options.hid = false;
        vela::sim::Simulator sim(options);
        RawPeer peer;
        cores.EnterHostEnd();
        StatusBenchmark(sim);
        ListingBenchmark(sim, peer);
    }
    // Two processes taking the lock in turn are placed by the system, as they would be in use.
    cores.LeaveEnds();
    LockBenchmark();
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    return vela::bench::BenchMain("qrv-bench-channel", argc, argv, ParentMain, ChildMain);
}
