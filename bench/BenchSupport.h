#pragma once

// Small helpers shared by the benchmark programs: clocks, spread of repeated runs, the memory
// figures of the calling process, child processes, and the rows of the summary table.
//
// The machines these run on are shared and noisy, so no figure stands alone: every library
// figure is measured next to a raw baseline in the same run, alternating the two, and reported
// as a ratio with its spread over the repetitions.

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vela::bench {

using Clock = std::chrono::steady_clock;

inline double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Median, smallest and largest of a set of samples (all zero for an empty set).
struct Spread {
    double median = 0;
    double min = 0;
    double max = 0;
};
Spread SpreadOf(std::vector<double> samples);
// The p-th percentile (0..100) by nearest rank.
double Percentile(std::vector<double> samples, double p);

// ---- memory of this process (Linux /proc) ----------------------------------------------------
// Resets the peak resident size to the current one (clear_refs 5); false where the kernel does
// not allow it, and the peak then counts from the start of the process.
bool ResetPeakResident();
uint64_t ResidentBytes();     // VmRSS
uint64_t PeakResidentBytes(); // VmHWM
// Context switches of one thread of this process (voluntary + involuntary) from
// /proc/self/task/<tid>/status; -1 when the thread is gone.
int64_t ThreadContextSwitches(long tid);
long CurrentThreadId();
// User + system time of this process so far (all threads), in seconds.
double CpuSeconds();

// ---- the machine -----------------------------------------------------------------------------
// The load averages over 1, 5 and 15 minutes as /proc/loadavg gives them ("1.52 0.98 0.77").
std::string LoadAverage();

// Where the two ends of a measured exchange run. Where the process may use two processors or
// more, the printer end (the simulator's or the raw peer's threads, in the benchmark's own
// process) gets one and the host end (the calling thread, and the measured child processes it
// starts, which inherit its placement) another, as `taskset -c` would pin them: the ends then
// do not take turns on one core, and the other jobs of a shared machine disturb both alike.
// With one processor nothing is pinned.
class CorePlacement {
public:
    CorePlacement(); // picks the processors; pins nothing yet
    // Pins the calling thread to the printer's processor: threads it starts from now on (the
    // simulator's, the peer's) inherit that placement.
    void EnterPrinterEnd() const;
    // Pins the calling thread to the host's processor, and so every child started from it.
    void EnterHostEnd() const;
    // Lets the calling thread run on every processor it could use before.
    void LeaveEnds() const;
    // One line for the output: which processor runs which end, or why nothing is pinned.
    std::string Describe() const;

private:
    std::vector<int> m_usable;
    int m_printerCpu = -1;
    int m_hostCpu = -1;
};

// ---- child processes -------------------------------------------------------------------------
// A child process whose standard output is collected; standard error is passed through.
class ChildProcess {
public:
    // Starts `argv` (argv[0] is a path). Throws std::runtime_error when it cannot be started.
    explicit ChildProcess(const std::vector<std::string>& argv);
    ~ChildProcess(); // waits for a child that was not finished
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    // Waits for the end and returns the standard output. Throws std::runtime_error when the
    // child did not exit with 0.
    std::string Finish();
    // User + system time the finished child used, in seconds.
    double CpuSeconds() const { return m_cpu; }

private:
    std::string m_command;
    int m_output = -1;
    int m_pid = -1;
    double m_cpu = 0;
};
// Runs `argv` to its end and returns its standard output (see ChildProcess).
std::string RunChild(const std::vector<std::string>& argv);
// The path of the running executable.
std::string SelfPath();

// ---- paired timing ---------------------------------------------------------------------------
// Per-call times of a library operation and of its raw baseline, and the ratios (library / raw)
// of their medians, one per block of the run.
struct Paired {
    std::vector<double> ratio;
    std::vector<double> library; // seconds per call
    std::vector<double> raw;
};

// Times single calls, alternating library and raw call by call (`pairs` of them, which of the
// two goes first alternating too), so that both meet the same moments of a busy machine. The
// ratio is taken per block of `pairs / blocks` pairs; its median is the figure, and a run
// slowed down for a while moves one block, not the figure.
template <class Library, class Raw> Paired AlternateCalls(int pairs, int blocks, Library library, Raw raw) {
    Paired p;
    std::vector<double> blockLibrary, blockRaw;
    const int perBlock = pairs / blocks;
    auto time = [](auto& call) {
        const auto start = Clock::now();
        call();
        return SecondsSince(start);
    };
    for (int i = 0; i < pairs; ++i) {
        double tl = 0, tr = 0;
        if (i % 2 == 0) {
            tl = time(library);
            tr = time(raw);
        } else {
            tr = time(raw);
            tl = time(library);
        }
        p.library.push_back(tl);
        p.raw.push_back(tr);
        blockLibrary.push_back(tl);
        blockRaw.push_back(tr);
        if (static_cast<int>(blockLibrary.size()) == perBlock) {
            p.ratio.push_back(SpreadOf(blockLibrary).median / SpreadOf(blockRaw).median);
            blockLibrary.clear();
            blockRaw.clear();
        }
    }
    return p;
}

// ---- the program ------------------------------------------------------------------------------
// The body of a benchmark's main(): `program(argc, argv)`, or `child(arguments after --child)`
// when the program was started as its own measured child. What either throws (a standard or a
// library exception) is reported on standard error under `name`, and the program returns 1.
using ChildEntry = std::function<int(const std::vector<std::string>&)>;
int BenchMain(const char* name, int argc, char** argv, const std::function<int(int, char**)>& program,
              const ChildEntry& child = nullptr);

// ---- text ------------------------------------------------------------------------------------
std::string Fixed(double value, int decimals);
std::string Bytes(uint64_t bytes); // "64 MiB"
std::string Micro(double seconds); // "73.2 us"
std::string Milli(double seconds); // "4.10 ms"
// "1.29x (1.19-1.34)": a median ratio with its smallest and largest.
std::string RatioText(const Spread& s);
// "0.873 (0.801-0.912)"
std::string SpreadText(const Spread& s, int decimals);

// One row of the summary table that scripts/bench prints:
//   | benchmark | measured | target | result | load |
// `verdict` is "pass", "miss" or "-" (a figure without a target); the last column is the
// 1-minute load average when the row was printed, as every figure depends on it.
void PrintRow(const std::string& benchmark, const std::string& measured, const std::string& target,
              const std::string& verdict);
inline std::string Verdict(bool pass) {
    return pass ? "pass" : "miss";
}

} // namespace vela::bench
