// File transfer through the simulator against a raw copy of the same bytes over the same kind of
// channel, in speed and in memory.
//
// The simulator and the raw peer run in this process; every measured transfer runs in a fresh
// child process (this program again, with --child), so that its peak resident size belongs to
// that transfer alone. The child resets its peak (clear_refs), notes its resident size, runs the
// transfer and reports the time and the growth of the peak. Where there are two processors, the
// printer end (simulator, raw peer) runs on one and the measured child on the other.
//
//   library put : PutFile of a host file to the simulator          (lock, channel, completion poll)
//   raw put     : the same file read in 1 MiB slices and written through a UsbPrintDevice to a
//                 peer that does the printer's work on it (hashes it as it arrives, keeps it in
//                 memory) and acknowledges the last byte
//   library get : GetFile from the simulator into a host file
//   raw get     : the same bytes copied out of the peer's memory and sent, read through a
//                 UsbPrintDevice in raw reads of 1024 bytes (the channel's read unit) and
//                 written to a host file as the library must write it, never half-written: to
//                 a temporary file beside it, flushed to the disk and renamed over the target
//
// Each figure is the median over paired repetitions of one run (raw time / library time per
// pair, the two alternating which goes first), with the smallest and largest beside it; the
// same ratio in processor time of both ends comes beside the clock's.
//
// The library's completion poll starts with a fixed 250 ms pause. For the throughput target the
// pause is skipped through the pause seam (a fixed wait says nothing about the transfer, and
// would decide the 1 MiB figure alone); the ratio with the real pause is printed beside it.

#include "bench/BenchSupport.h"
#include "bench/RawPeer.h"
#include "common/Exception.h"
#include "common/Pause.h"
#include "common/StringConverter.h"
#include "common/UsbPrintDevice.h"
#include "kom/connection/QRVDevice.h"
#include "sim/Md5.h"
#include "sim/Simulator.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace vela::bench;
using vela::common::StringConverter;
using vela::common::UsbPrintDevice;

const char* const kPrinterName = "Bench Printer";
const char* const kPutPath = "/mnt/data/images/bench-put.bin";
const char* const kGetPath = "/mnt/data/images/bench-get.bin";
constexpr double kThroughputTarget = 0.8;
// Sizes from which the throughput and memory targets apply: below, per-transfer costs that do
// not shrink with the file (digests, lock, completion poll, process-wide set-up) decide.
constexpr uint64_t kTargetFromMiB = 64;
// A put streams its file: the part of the peak that grows with the file stays below this share
// of a 256 MiB file, and the fixed part (code, crypto set-up, buffers) is a few MiB.
constexpr double kPutMemoryTarget = 0.05;
constexpr uint64_t kPutMemoryTargetFromMiB = 256;
constexpr double kFewMiB = 8;
// A get writes into its temporary host file as the data arrives.
constexpr double kGetMemoryTarget = 0.17;

std::wstring Wide(const std::string& s) {
    return StringConverter::FromUtf8(s);
}

// ---- the child side ------------------------------------------------------------------------------

struct ChildFigures {
    double seconds = 0;
    uint64_t peakGrowth = 0;
    double cpu = 0;     // user + system time of the child
    double peerCpu = 0; // of this process (the simulator or the raw peer) meanwhile
    // Library runs: seconds until the first and the last progress call (put: before the first
    // and the last chunk goes out; get: after the first and the last slice came in).
    double firstProgress = 0;
    double lastProgress = 0;
};

void PrintChildFigures(const ChildFigures& f) {
    std::printf("%.9f %llu %.6f %.9f %.9f\n", f.seconds, static_cast<unsigned long long>(f.peakGrowth), f.cpu,
                f.firstProgress, f.lastProgress);
}

ChildFigures ParseChildFigures(const std::string& text) {
    std::istringstream in(text);
    ChildFigures f;
    unsigned long long growth = 0;
    if (!(in >> f.seconds >> growth >> f.cpu >> f.firstProgress >> f.lastProgress)) {
        throw std::runtime_error("unreadable child output: " + text);
    }
    f.peakGrowth = growth;
    return f;
}

template <class Body> ChildFigures Measure(Body body) {
    if (!ResetPeakResident()) {
        std::fprintf(stderr, "warning: cannot reset the peak resident size; the peak counts from start\n");
    }
    const uint64_t before = ResidentBytes();
    const auto start = Clock::now();
    const double cpuBefore = CpuSeconds();
    body();
    ChildFigures f;
    f.seconds = SecondsSince(start);
    f.cpu = CpuSeconds() - cpuBefore;
    const uint64_t peak = PeakResidentBytes();
    f.peakGrowth = peak > before ? peak - before : 0;
    return f;
}

vela::kom::ConnectedPrinter Printer(const std::string& channelPath) {
    vela::kom::ConnectedPrinter printer;
    printer.vendorId = 0x0922;
    printer.productId = 0x0025;
    printer.devicePath = Wide(channelPath);
    printer.printerName = Wide(kPrinterName);
    return printer;
}

void SkipPauses() {
    vela::common::SetPauseHandler([](uint32_t) { return vela::common::WaitResult::timeout; });
}

// A read of the raw copy. The raw copy has no time limit of its own: where the channel's
// 3000 ms limit runs out because the peer is starved on a loaded machine, it reads on (a timed-out
// read has taken nothing), for up to half a minute.
uint32_t ReadPatiently(UsbPrintDevice& device, uint8_t* buffer, uint32_t capacity) {
    const auto giveUp = Clock::now() + std::chrono::seconds(30);
    for (;;) {
        try {
            return device.ReadBytes(buffer, capacity);
        } catch (const vela::common::Exception&) {
            if (Clock::now() >= giveUp) {
                throw;
            }
        }
    }
}

void ReadAll(UsbPrintDevice& device, uint8_t* buffer, uint32_t count) {
    uint32_t held = 0;
    while (held < count) {
        held += ReadPatiently(device, buffer + held, count - held);
    }
}

int ChildMain(const std::vector<std::string>& a) {
    const std::string& mode = a.at(0);
    const std::string& channel = a.at(1);
    if (mode == "lib-put" || mode == "lib-get") {
        // args: channel, host file, "skip"|"real", optionally the printer path (the VM figure
        // gets back what it put)
        const std::string& hostFile = a.at(2);
        if (a.at(3) == "skip") {
            SkipPauses();
        }
        const std::string printerPath = a.size() > 4 ? a[4] : mode == "lib-put" ? kPutPath : kGetPath;
        vela::kom::QRVDeviceBase device(Printer(channel));
        int32_t result = -1;
        Clock::time_point start, first, last;
        device.SetProgressCallback([&](uint64_t, uint64_t) {
            last = Clock::now();
            if (first == Clock::time_point()) {
                first = last;
            }
        });
        ChildFigures f = Measure([&] {
            start = Clock::now();
            result = mode == "lib-put" ? device.PutFile(Wide(printerPath), Wide(hostFile))
                                       : device.GetFile(Wide(printerPath), Wide(hostFile));
        });
        if (result != 0) {
            std::fprintf(stderr, "%s returned %d\n", mode.c_str(), result);
            return 1;
        }
        f.firstProgress = std::chrono::duration<double>(first - start).count();
        f.lastProgress = std::chrono::duration<double>(last - start).count();
        PrintChildFigures(f);
        return 0;
    }
    if (mode == "raw-put") {
        // args: channel, host file
        const std::string& hostFile = a.at(2);
        ChildFigures f = Measure([&] {
            UsbPrintDevice device(Wide(channel));
            const int fd = ::open(hostFile.c_str(), O_RDONLY | O_CLOEXEC);
            if (fd < 0) {
                throw std::runtime_error("cannot open " + hostFile);
            }
            const off_t size = ::lseek(fd, 0, SEEK_END);
            ::lseek(fd, 0, SEEK_SET);
            const std::vector<uint8_t> command = RawPeer::Command('P', static_cast<uint64_t>(size));
            device.WriteBytes(command.data(), static_cast<uint32_t>(command.size()));
            std::vector<uint8_t> slice(size_t{1} << 20);
            for (;;) {
                const ssize_t n = ::read(fd, slice.data(), slice.size());
                if (n <= 0) {
                    break;
                }
                device.WriteBytes(slice.data(), static_cast<uint32_t>(n));
            }
            ::close(fd);
            uint8_t ack = 0;
            ReadAll(device, &ack, 1);
        });
        PrintChildFigures(f);
        return 0;
    }
    if (mode == "raw-get") {
        // args: channel, host file, size
        const std::string& hostFile = a.at(2);
        const uint64_t size = std::stoull(a.at(3));
        ChildFigures f = Measure([&] {
            UsbPrintDevice device(Wide(channel));
            const std::string temporary = hostFile + ".raw-part";
            const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
            if (fd < 0) {
                throw std::runtime_error("cannot create " + temporary);
            }
            const std::vector<uint8_t> command = RawPeer::Command('G', size);
            device.WriteBytes(command.data(), static_cast<uint32_t>(command.size()));
            std::vector<uint8_t> slice(size_t{256} << 10);
            uint64_t left = size;
            while (left > 0) {
                size_t held = 0;
                while (held < slice.size() && left > 0) {
                    const uint32_t want = static_cast<uint32_t>(
                        std::min<uint64_t>({left, slice.size() - held, UsbPrintDevice::kRawReadSize}));
                    const uint32_t got = ReadPatiently(device, slice.data() + held, want);
                    held += got;
                    left -= got;
                }
                if (::write(fd, slice.data(), held) != static_cast<ssize_t>(held)) {
                    throw std::runtime_error("cannot write " + hostFile);
                }
            }
            if (::fsync(fd) != 0 || ::close(fd) != 0 || ::rename(temporary.c_str(), hostFile.c_str()) != 0) {
                throw std::runtime_error("cannot save " + hostFile);
            }
            const std::string folder = hostFile.substr(0, hostFile.rfind('/') + 1);
            const int dir = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            if (dir >= 0) {
                (void)::fsync(dir);
                ::close(dir);
            }
        });
        PrintChildFigures(f);
        return 0;
    }
    std::fprintf(stderr, "unknown child mode %s\n", mode.c_str());
    return 2;
}

// ---- the parent side -----------------------------------------------------------------------------

std::vector<uint8_t> MakeContent(uint64_t size, uint64_t seed) {
    // xorshift: incompressible, reproducible, quick to make
    std::vector<uint8_t> bytes(size);
    uint64_t x = seed * 0x9E3779B97F4A7C15ull + 1;
    size_t i = 0;
    for (; i + 8 <= size; i += 8) {
        x ^= x << 13;
        x ^= x >> 7;
        x ^= x << 17;
        std::memcpy(bytes.data() + i, &x, 8);
    }
    for (; i < size; ++i) {
        bytes[i] = static_cast<uint8_t>(i);
    }
    return bytes;
}

void WriteHostFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!out) {
        throw std::runtime_error("cannot write " + path);
    }
}

std::vector<uint8_t> ReadHostFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    std::vector<uint8_t> bytes(static_cast<size_t>(std::max<std::streamoff>(0, in.tellg())));
    in.seekg(0);
    in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

struct Options {
    std::vector<uint64_t> sizesMiB{1, 64, 256};
    int repeat = 0; // 0: by size
};

Options ParseOptions(int argc, char** argv) {
    Options o;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--sizes" && i + 1 < argc) {
            o.sizesMiB.clear();
            std::stringstream list(argv[++i]);
            std::string item;
            while (std::getline(list, item, ',')) {
                o.sizesMiB.push_back(std::stoull(item));
            }
        } else if (arg == "--repeat" && i + 1 < argc) {
            o.repeat = std::stoi(argv[++i]);
        } else {
            throw std::invalid_argument("usage: qrv-bench-transfer [--sizes 1,64,256] [--repeat N]");
        }
    }
    return o;
}

struct Series {
    std::vector<double> libSkip, libReal, raw;
    std::vector<double> libGrowth, rawGrowth;
    std::vector<double> libCpu, libPeerCpu, rawCpu, rawPeerCpu;
    std::vector<double> before, during, after; // library phases: until, between, after progress calls
    // throughput ratios raw time / library time, one per repetition (paired runs), and the same
    // in processor time of both ends (raw / library)
    std::vector<double> ratioSkip, ratioReal, ratioCpu;

    // One paired repetition: the library with pauses skipped and kept, and the raw copy.
    void Add(const ChildFigures& libSkip, const ChildFigures& libReal, const ChildFigures& raw,
             uint64_t size) {
        this->libSkip.push_back(libSkip.seconds);
        this->libReal.push_back(libReal.seconds);
        this->raw.push_back(raw.seconds);
        libCpu.push_back(libSkip.cpu);
        before.push_back(libSkip.firstProgress);
        during.push_back(libSkip.lastProgress - libSkip.firstProgress);
        after.push_back(libSkip.seconds - libSkip.lastProgress);
        libPeerCpu.push_back(libSkip.peerCpu);
        rawCpu.push_back(raw.cpu);
        rawPeerCpu.push_back(raw.peerCpu);
        libGrowth.push_back(static_cast<double>(libSkip.peakGrowth) / static_cast<double>(size));
        rawGrowth.push_back(static_cast<double>(raw.peakGrowth) / static_cast<double>(size));
        ratioSkip.push_back(raw.seconds / libSkip.seconds);
        ratioReal.push_back(raw.seconds / libReal.seconds);
        ratioCpu.push_back((raw.cpu + raw.peerCpu) / (libSkip.cpu + libSkip.peerCpu));
    }
};

vela::sim::Md5::Digest DigestOf(const std::vector<uint8_t>& bytes) {
    return vela::sim::Md5::Of(bytes.data(), bytes.size());
}

int ParentMain(int argc, char** argv) {
    const Options options = ParseOptions(argc, argv);
    const std::string self = SelfPath();
    // For profiling: QRV_BENCH_WRAP="/usr/bin/perf record -g -o /tmp/{run}.data --" runs every
    // measured child under that command ({run}: the run's number and kind, e.g. 1-lib-put).
    std::vector<std::string> wrapper;
    if (const char* wrap = std::getenv("QRV_BENCH_WRAP")) {
        std::istringstream words(wrap);
        std::string word;
        while (words >> word) {
            wrapper.push_back(word);
        }
    }

    const char* tmp = std::getenv("TMPDIR");
    std::string work = std::string(tmp != nullptr && tmp[0] == '/' ? tmp : "/tmp") + "/qrv-bench-XXXXXX";
    if (::mkdtemp(work.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }

    // The printer end's threads start on the printer's processor; the measured children are
    // started from this thread, on the host's.
    const CorePlacement cores;
    cores.EnterPrinterEnd();
    vela::sim::Simulator::Options simOptions;
    simOptions.name = kPrinterName;
    simOptions.hid = false;
    simOptions.printer.diskCapacity = uint64_t{4} << 30;
    vela::sim::Simulator sim(simOptions);
    auto peer = std::make_unique<RawPeer>();
    cores.EnterHostEnd();
    const std::string simPath = StringConverter::ToUtf8(sim.PrinterPath());
    std::string peerPath = StringConverter::ToUtf8(peer->ClientPath());

    std::printf("File transfer: library through the simulator vs a raw copy over a pseudo-terminal, whose\n"
                "far end does the printer's work (MD5 as the bytes arrive, a store in memory).\n"
                "Each figure: median (min-max) over paired runs of this run, each run in a fresh process;\n"
                "throughput ratio = raw time / library time, in clock time and in CPU time of both ends.\n"
                "Fixed pauses: the 250 ms completion pause is skipped through the pause seam for the\n"
                "target ratio; 'with pause' keeps it.\n"
                "%s\nLoad average at the start: %s\n",
                cores.Describe().c_str(), LoadAverage().c_str());

    // A measured run. On a heavily loaded machine a starved end can let the channel's 3000 ms
    // limit run out; such a run is repeated (at most twice) and counted, never quietly dropped. A
    // raw run's peer may still be inside the failed exchange, so it is replaced first.
    int repeatedRuns = 0;
    auto child = [&](const std::vector<std::string>& childArgs) {
        for (int attempt = 1;; ++attempt) {
            std::vector<std::string> args = childArgs;
            const bool raw = args[0].rfind("raw-", 0) == 0;
            if (raw) {
                args[1] = peerPath;
            }
            args.insert(args.begin(), {self, "--child"});
            static int runs = 0;
            const std::string run = std::to_string(++runs) + "-" + args[2];
            for (auto it = wrapper.rbegin(); it != wrapper.rend(); ++it) {
                std::string word = *it;
                const size_t at = word.find("{run}");
                if (at != std::string::npos) {
                    word.replace(at, 5, run);
                }
                args.insert(args.begin(), word);
            }
            const double cpuBefore = CpuSeconds();
            try {
                ChildFigures f = ParseChildFigures(RunChild(args));
                f.peerCpu = CpuSeconds() - cpuBefore;
                return f;
            } catch (const std::runtime_error& e) {
                if (attempt == 3) {
                    throw;
                }
                ++repeatedRuns;
                std::printf("  note: %s (load average %s); repeating the run\n", e.what(),
                            LoadAverage().c_str());
                if (raw) {
                    std::vector<uint8_t> source = peer->TakeSource();
                    cores.EnterPrinterEnd();
                    peer = std::make_unique<RawPeer>();
                    cores.EnterHostEnd();
                    peer->SetSource(std::move(source));
                    peerPath = StringConverter::ToUtf8(peer->ClientPath());
                }
            }
        }
    };

    // The fixed cost of a transfer (code, libraries, buffers): the peak growth of an empty put and
    // an empty get. The memory target is about the part that grows with the file.
    uint64_t fixedPut = 0, fixedGet = 0;
    {
        const std::string empty = work + "/empty.bin";
        const std::string target = work + "/target.bin";
        WriteHostFile(empty, {});
        sim.Printer().WriteFile(kGetPath, {});
        std::vector<double> puts, gets;
        for (int i = 0; i < 3; ++i) {
            puts.push_back(static_cast<double>(child({"lib-put", simPath, empty, "skip"}).peakGrowth));
            sim.Printer().RemoveFile(kPutPath);
            gets.push_back(static_cast<double>(child({"lib-get", simPath, target, "skip"}).peakGrowth));
            ::unlink(target.c_str());
        }
        sim.Printer().RemoveFile(kGetPath);
        ::unlink(empty.c_str());
        fixedPut = static_cast<uint64_t>(SpreadOf(puts).median);
        fixedGet = static_cast<uint64_t>(SpreadOf(gets).median);
        std::printf("  fixed cost (peak growth of an empty transfer): put %s KiB, get %s KiB\n",
                    Fixed(static_cast<double>(fixedPut) / 1024, 0).c_str(),
                    Fixed(static_cast<double>(fixedGet) / 1024, 0).c_str());
    }

    // The rows of one direction of one size: throughput against the raw copy, and peak memory.
    auto report = [&](const char* name, const Series& s, const uint64_t mib, const int repeat) {
        const uint64_t size = mib << 20;
        const bool isPut = name == std::string("put");
        const double mbps = static_cast<double>(size) / (1 << 20);
        const Spread lib = SpreadOf(s.libSkip), rawT = SpreadOf(s.raw), real = SpreadOf(s.libReal);
        const Spread ratio = SpreadOf(s.ratioSkip), ratioReal = SpreadOf(s.ratioReal);
        const Spread ratioCpu = SpreadOf(s.ratioCpu);
        const Spread growth = SpreadOf(s.libGrowth), rawGrowth = SpreadOf(s.rawGrowth);
        std::printf("  %s %s x%d (load average %s): library %s s (%s MiB/s), with pause %s s, raw %s s "
                    "(%s MiB/s)\n",
                    name, Bytes(size).c_str(), repeat, LoadAverage().c_str(), SpreadText(lib, 3).c_str(),
                    Fixed(mbps / lib.median, 0).c_str(), SpreadText(real, 3).c_str(),
                    SpreadText(rawT, 3).c_str(), Fixed(mbps / rawT.median, 0).c_str());
        std::printf("      throughput ratio %s, in CPU time %s, with pause %s; peak growth library %s x "
                    "size, raw %s x size\n",
                    SpreadText(ratio, 2).c_str(), SpreadText(ratioCpu, 2).c_str(),
                    SpreadText(ratioReal, 2).c_str(), SpreadText(growth, 3).c_str(),
                    SpreadText(rawGrowth, 3).c_str());
        std::printf(
            "      cpu seconds (median): library %s + simulator %s, raw %s + peer %s\n",
            Fixed(SpreadOf(s.libCpu).median, 3).c_str(), Fixed(SpreadOf(s.libPeerCpu).median, 3).c_str(),
            Fixed(SpreadOf(s.rawCpu).median, 3).c_str(), Fixed(SpreadOf(s.rawPeerCpu).median, 3).c_str());
        std::printf("      library phases (median s): %s %s, %s %s, %s %s\n",
                    isPut ? "until the first chunk" : "requests+first slice",
                    Fixed(SpreadOf(s.before).median, 3).c_str(), isPut ? "sending" : "receiving",
                    Fixed(SpreadOf(s.during).median, 3).c_str(),
                    isPut ? "last chunk+printer check+completion" : "save+digest",
                    Fixed(SpreadOf(s.after).median, 3).c_str());
        const std::string label = std::string(name) + " " + Bytes(size);
        const bool throughputTarget = mib >= kTargetFromMiB;
        PrintRow(label + ": throughput vs fair raw copy",
                 Fixed(ratio.median, 2) + " (" + Fixed(ratio.min, 2) + "-" + Fixed(ratio.max, 2) +
                     "; CPU ratio " + Fixed(ratioCpu.median, 2) + "; with 250 ms pause " +
                     Fixed(ratioReal.median, 2) + ")",
                 throughputTarget ? ">= " + Fixed(kThroughputTarget, 1) : "-",
                 throughputTarget ? Verdict(ratio.median >= kThroughputTarget) : "-");
        // Worst run; the verdict counts the part that grows with the file, and the fixed part must
        // stay a few MiB.
        const double fixed = static_cast<double>(isPut ? fixedPut : fixedGet);
        const double fixedMiB = fixed / (1 << 20);
        const double proportional = std::max(0.0, growth.max - fixed / static_cast<double>(size));
        const bool memoryTarget = isPut ? mib >= kPutMemoryTargetFromMiB : mib >= kTargetFromMiB;
        const double memoryLimit = isPut ? kPutMemoryTarget : kGetMemoryTarget;
        PrintRow(label + ": peak memory / file size",
                 Fixed(proportional, 3) + " + fixed " + Fixed(fixedMiB, 1) + " MiB (total " +
                     Fixed(growth.max, 3) + "; raw copy " + Fixed(rawGrowth.max, 3) + ")",
                 memoryTarget ? "<= " + Fixed(memoryLimit, 2) + " + fixed <= " + Fixed(kFewMiB, 0) + " MiB"
                              : "-",
                 memoryTarget ? Verdict(proportional <= memoryLimit && fixedMiB <= kFewMiB) : "-");
    };

    // One direction of one size: paired repetitions, library with pauses skipped and kept and the
    // raw copy, alternating which of the two comes first. The first run of each kind checks that
    // the bytes arrived unchanged.
    const std::string source = work + "/source.bin";
    const std::string target = work + "/target.bin";
    auto measurePut = [&](const uint64_t size, const int repeat) {
        Series put;
        bool libVerified = false, rawVerified = false;
        auto libPut = [&](const char* pauses) {
            ChildFigures f = child({"lib-put", simPath, source, pauses});
            if (!libVerified) {
                auto stored = sim.Printer().ReadFile(kPutPath);
                if (!stored || *stored != ReadHostFile(source)) {
                    throw std::runtime_error("the simulator stored something else than was put");
                }
                libVerified = true;
            }
            sim.Printer().RemoveFile(kPutPath);
            return f;
        };
        auto rawPut = [&] {
            ChildFigures f = child({"raw-put", peerPath, source});
            const std::vector<uint8_t> stored = peer->TakeStored();
            if (!rawVerified) {
                const std::vector<uint8_t> sent = ReadHostFile(source);
                if (stored != sent || peer->LastDigest() != DigestOf(sent)) {
                    throw std::runtime_error("the raw peer stored or hashed something else than was sent");
                }
                rawVerified = true;
            }
            return f;
        };
        for (int r = 0; r < repeat; ++r) {
            ChildFigures libSkip, raw;
            if (r % 2 == 0) {
                libSkip = libPut("skip");
                raw = rawPut();
            } else {
                raw = rawPut();
                libSkip = libPut("skip");
            }
            put.Add(libSkip, libPut("real"), raw, size);
        }
        return put;
    };
    auto measureGet = [&](const uint64_t size, const int repeat) {
        Series get;
        bool libVerified = false;
        auto libGet = [&](const char* pauses) {
            ChildFigures f = child({"lib-get", simPath, target, pauses});
            if (!libVerified) {
                if (ReadHostFile(target) != ReadHostFile(source)) {
                    throw std::runtime_error("the host file got something else than the printer holds");
                }
                libVerified = true;
            }
            ::unlink(target.c_str());
            return f;
        };
        auto rawGet = [&] {
            ChildFigures f = child({"raw-get", peerPath, target, std::to_string(size)});
            ::unlink(target.c_str());
            return f;
        };
        for (int r = 0; r < repeat; ++r) {
            ChildFigures libSkip, raw;
            if (r % 2 == 0) {
                libSkip = libGet("skip");
                raw = rawGet();
            } else {
                raw = rawGet();
                libSkip = libGet("skip");
            }
            get.Add(libSkip, libGet("real"), raw, size);
        }
        return get;
    };

    // A direction whose runs keep failing (a machine so loaded that an end is starved past the
    // channel's limit three times in a row) is reported as not measured, with the reason; the
    // other direction and the other sizes still are.
    int unmeasured = 0;
    for (const uint64_t mib : options.sizesMiB) {
        const uint64_t size = mib << 20;
        const int repeat = options.repeat > 0 ? options.repeat : (mib >= 256 ? 3 : mib >= 64 ? 5 : 9);
        {
            std::vector<uint8_t> content = MakeContent(size, mib);
            WriteHostFile(source, content);
            sim.Printer().WriteFile(kGetPath, content);
            peer->SetSource(std::move(content));
        }
        for (const char* name : {"put", "get"}) {
            const bool isPut = name == std::string("put");
            try {
                report(name, isPut ? measurePut(size, repeat) : measureGet(size, repeat), mib, repeat);
            } catch (const std::runtime_error& e) {
                ++unmeasured;
                const std::string label = std::string(name) + " " + Bytes(size);
                const std::string why =
                    std::string("not measured: ") + e.what() + " (load average " + LoadAverage() + ")";
                PrintRow(label + ": throughput vs fair raw copy", why,
                         mib >= kTargetFromMiB ? ">= " + Fixed(kThroughputTarget, 1) : "-", "-");
                PrintRow(label + ": peak memory / file size", "not measured (above)", "-", "-");
                sim.Printer().RemoveFile(kPutPath);
                (void)peer->TakeStored();
                ::unlink(target.c_str());
            }
        }
        sim.Printer().RemoveFile(kGetPath);
        peer->SetSource({});
        ::unlink(source.c_str());
        if (repeatedRuns > 0) {
            std::printf("  %d run(s) repeated so far after a time-out under load (see the notes above)\n",
                        repeatedRuns);
        }
    }
    ::rmdir(work.c_str());
    return unmeasured == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    return vela::bench::BenchMain("qrv-bench-transfer", argc, argv, ParentMain, ChildMain);
}
