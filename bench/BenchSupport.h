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

private:
    std::string m_command;
    int m_output = -1;
    int m_pid = -1;
};
// Runs `argv` to its end and returns its standard output (see ChildProcess).
std::string RunChild(const std::vector<std::string>& argv);
// The path of the running executable.
std::string SelfPath();

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

// One row of the summary table that scripts/bench prints:
//   | benchmark | measured | target | result |
// `verdict` is "pass", "miss" or "-" (a figure without a target).
void PrintRow(const std::string& benchmark, const std::string& measured, const std::string& target,
              const std::string& verdict);
inline std::string Verdict(bool pass) {
    return pass ? "pass" : "miss";
}

} // namespace vela::bench
