// The pure parsers of printer input, each beside a raw baseline that does the least work that
// reads the same bytes:
//
//   listing : ParseFolderListing of 10 000 entries   vs  a scan that splits the same text at
//             commas and colons and converts the sizes, building nothing
//   status  : PrinterStatus from an 8-byte block       vs  the 13 bit fields shifted out of it,
//             unchecked
//   change  : the monitor's change step (both reports decoded, change record, interrupt code)
//             vs  the bit fields of both reports compared field by field
//
// Google Benchmark runs them with repetitions in random interleaving; the table row is the ratio
// of the median CPU times (library / baseline) with the ratio's spread over the repetitions.

#include "bench/BenchSupport.h"
#include "kom/connection/PrinterStatusThread.h"
#include "kom/filesystem/FolderListingParser.h"
#include "kom/protocol/PrinterStatus.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

using namespace vela::bench;
using vela::kom::PrinterStatus;
using vela::kom::PrinterStatusThread;

constexpr size_t kEntries = 10000;

const std::string& ListingText() {
    static const std::string text = [] {
        std::string t;
        for (size_t i = 0; i < kEntries; ++i) {
            char entry[64];
            if (i % 50 == 49) {
                std::snprintf(entry, sizeof entry, "folder-%05zu::d,", i);
            } else {
                std::snprintf(entry, sizeof entry, "label-%05zu.job:%zu:f,", i, 100 + (i * 7919) % 900000);
            }
            t += entry;
        }
        return t;
    }();
    return text;
}

// 64 status blocks with varied bits (reproducible).
const std::vector<std::vector<uint8_t>>& Blocks() {
    static const std::vector<std::vector<uint8_t>> blocks = [] {
        std::vector<std::vector<uint8_t>> b;
        uint32_t x = 12345;
        for (int i = 0; i < 64; ++i) {
            std::vector<uint8_t> block(8);
            for (auto& byte : block) {
                x = x * 1103515245u + 12345u;
                byte = static_cast<uint8_t>(x >> 16);
            }
            block[4] = 0; // keep byte 5 of a report away from the firmware marker
            b.push_back(block);
        }
        return b;
    }();
    return blocks;
}

void BM_ListingParse(benchmark::State& state) {
    const std::string& text = ListingText();
    const std::wstring source = L"bench";
    for (auto _ : state) {
        auto entries =
            vela::kom::ParseFolderListing(reinterpret_cast<const uint8_t*>(text.data()), text.size(), source);
        benchmark::DoNotOptimize(entries.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kEntries));
}

void BM_ListingRawScan(benchmark::State& state) {
    const std::string& text = ListingText();
    for (auto _ : state) {
        const char* p = text.data();
        const char* end = p + text.size();
        size_t files = 0;
        int64_t total = 0;
        while (p < end) {
            const char* comma = static_cast<const char*>(std::memchr(p, ',', static_cast<size_t>(end - p)));
            if (comma == nullptr) {
                break;
            }
            const char* colon = static_cast<const char*>(std::memchr(p, ':', static_cast<size_t>(comma - p)));
            if (colon != nullptr) {
                int64_t size = 0;
                const char* d = colon + 1;
                for (; d < comma && *d >= '0' && *d <= '9'; ++d) {
                    size = size * 10 + (*d - '0');
                }
                files += comma[-1] == 'f';
                total += size;
            }
            p = comma + 1;
        }
        benchmark::DoNotOptimize(files);
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kEntries));
}

void BM_StatusDecode(benchmark::State& state) {
    const auto& blocks = Blocks();
    size_t i = 0;
    for (auto _ : state) {
        PrinterStatus status(blocks[i++ & 63]);
        benchmark::DoNotOptimize(status);
    }
}

struct RawFields {
    uint32_t f[13];
};

inline RawFields RawExtract(const uint8_t* b) {
    RawFields r;
    r.f[0] = b[0] & 3;
    r.f[1] = (b[0] >> 2) & 3;
    r.f[2] = (b[0] >> 4) & 3;
    r.f[3] = (b[0] >> 6) & 3;
    r.f[4] = b[1] & 7;
    r.f[5] = (b[1] >> 3) & 7;
    r.f[6] = (b[1] >> 6) & 3;
    r.f[7] = b[2] & 7;
    r.f[8] = (b[2] >> 3) & 3;
    r.f[9] = (b[2] >> 5) & 7;
    r.f[10] = b[3] & 3;
    r.f[11] = (b[3] >> 7) & 1;
    r.f[12] = b[6] | (uint32_t{b[7]} << 8);
    return r;
}

void BM_StatusRawBits(benchmark::State& state) {
    const auto& blocks = Blocks();
    size_t i = 0;
    for (auto _ : state) {
        RawFields fields = RawExtract(blocks[i++ & 63].data());
        benchmark::DoNotOptimize(fields);
    }
}

std::vector<PrinterStatusThread::Report> Reports() {
    std::vector<PrinterStatusThread::Report> reports;
    for (const auto& block : Blocks()) {
        PrinterStatusThread::Report r{};
        r[0] = 1;
        std::memcpy(r.data() + 1, block.data(), 7);
        reports.push_back(r);
    }
    return reports;
}

void BM_ChangeStep(benchmark::State& state) {
    const auto reports = Reports();
    size_t i = 0;
    for (auto _ : state) {
        const auto& previous = reports[i & 63];
        const auto& current = reports[(i + 1) & 63];
        ++i;
        const PrinterStatus before = PrinterStatusThread::DecodeReport(previous);
        const PrinterStatus after = PrinterStatusThread::DecodeReport(current);
        const uint32_t code = PrinterStatusThread::InterruptCode(after);
        PrinterStatus change = PrinterStatusThread::ChangeRecord(before, after);
        benchmark::DoNotOptimize(code);
        benchmark::DoNotOptimize(change);
    }
}

void BM_ChangeRawBits(benchmark::State& state) {
    static constexpr uint32_t kMarkers[13] = {4, 5, 4, 4, 9, 9, 5, 9, 5, 9, 5, 3, 0};
    const auto reports = Reports();
    size_t i = 0;
    for (auto _ : state) {
        const RawFields before = RawExtract(reports[i & 63].data() + 1);
        const RawFields after = RawExtract(reports[(i + 1) & 63].data() + 1);
        ++i;
        RawFields change;
        for (int f = 0; f < 13; ++f) {
            change.f[f] = before.f[f] == after.f[f] ? kMarkers[f] : after.f[f];
        }
        benchmark::DoNotOptimize(change);
    }
}

BENCHMARK(BM_ListingParse)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ListingRawScan)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_StatusDecode);
BENCHMARK(BM_StatusRawBits);
BENCHMARK(BM_ChangeStep);
BENCHMARK(BM_ChangeRawBits);

// Keeps every repetition's CPU time per call (nanoseconds) by function name, and prints only the
// medians. CPU time, not wall time: on a loaded machine the wall clock also counts the time the
// thread waited for a processor.
class Collector : public benchmark::ConsoleReporter {
public:
    Collector() : ConsoleReporter(OO_Tabular) {}
    void ReportRuns(const std::vector<Run>& runs) override {
        std::vector<Run> medians;
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred && run.iterations > 0) {
                const double ns = run.cpu_accumulated_time * 1e9 / static_cast<double>(run.iterations);
                m_times[run.run_name.function_name].push_back(ns);
            } else if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
                medians.push_back(run);
            }
        }
        if (!medians.empty()) {
            ConsoleReporter::ReportRuns(medians);
        }
    }
    std::map<std::string, std::vector<double>> m_times;
};

} // namespace

int main(int argc, char** argv) {
    // Defaults that make the figures comparable on a noisy machine; the command line may add more.
    std::vector<std::string> storage = {argv[0], "--benchmark_repetitions=9",
                                        "--benchmark_enable_random_interleaving=true",
                                        "--benchmark_min_time=0.2", "--benchmark_color=false"};
    for (int i = 1; i < argc; ++i) {
        storage.emplace_back(argv[i]);
    }
    std::vector<char*> args;
    for (auto& s : storage) {
        args.push_back(s.data());
    }
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    std::printf("Parsers of printer input against raw baselines (Google Benchmark, random interleaving).\n");
    std::fflush(stdout);
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    benchmark::Shutdown();

    struct Pair {
        const char* label;
        const char* library;
        const char* raw;
        const char* baseline;
    };
    const Pair pairs[] = {
        {"parser: listing of 10 000 entries", "BM_ListingParse", "BM_ListingRawScan", "split+convert scan"},
        {"parser: status block decoding", "BM_StatusDecode", "BM_StatusRawBits", "unchecked bit fields"},
        {"parser: HID change computation", "BM_ChangeStep", "BM_ChangeRawBits", "bit-field compare"},
    };
    for (const Pair& p : pairs) {
        const auto& lib = collector.m_times[p.library];
        const auto& raw = collector.m_times[p.raw];
        if (lib.empty() || raw.empty()) {
            continue;
        }
        std::vector<double> ratios;
        for (size_t i = 0; i < std::min(lib.size(), raw.size()); ++i) {
            ratios.push_back(lib[i] / raw[i]);
        }
        const Spread l = SpreadOf(lib), r = SpreadOf(raw), q = SpreadOf(ratios);
        const bool micro = l.median >= 10000;
        const std::string libText = micro ? Fixed(l.median / 1000, 1) + " us" : Fixed(l.median, 1) + " ns";
        const std::string rawText = micro ? Fixed(r.median / 1000, 1) + " us" : Fixed(r.median, 1) + " ns";
        PrintRow(p.label,
                 libText + " (" + p.baseline + " " + rawText + "; ratio " + Fixed(l.median / r.median, 1) +
                     "x, " + Fixed(q.min, 1) + "-" + Fixed(q.max, 1) + ")",
                 "-", "-");
    }
    return 0;
}
