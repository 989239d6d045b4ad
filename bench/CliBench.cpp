// `qrvctl status` as a user runs it, against a bare C program doing the same status exchange
// (qrv-bench-bare-status: open the channel, write the request, read the reply; no library),
// both timed as whole processes, start and exit included, alternating call by call.
//
// The printer is the simulator in this process with its HID channel, as a real printer has one;
// qrvctl finds it through QRV_VIRTUAL_PRINTERS like any user of a simulator, the bare program is
// handed the channel's path. Where there are two processors, the simulator runs on one and the
// commands on the other. `qrvctl --version` against the same bare program shows how much of the
// command is the start of the program itself.

#include "bench/BenchSupport.h"
#include "common/StringConverter.h"
#include "sim/RequestDecoder.h"
#include "sim/Simulator.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

// Where the build put the two programs (CliPaths.cpp, written by the build).
extern const char* const kQrvctlPath;
extern const char* const kBareStatusPath;

namespace {

using namespace vela::bench;

const char* const kPrinterName = "Bench CLI";
constexpr double kTarget = 2.0;

struct Options {
    int calls = 200;
};

Options ParseOptions(int argc, char** argv) {
    Options o;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--calls" && i + 1 < argc) {
            o.calls = std::max(20, std::stoi(argv[++i]));
        } else {
            throw std::invalid_argument("usage: qrv-bench-cli [--calls N]   (N >= 20, default 200)");
        }
    }
    return o;
}

// A command run to its end; its processor time (user + system) is added to `cpu`.
class TimedCommand {
public:
    explicit TimedCommand(std::vector<std::string> argv) : m_argv(std::move(argv)) {}
    void operator()() {
        ChildProcess child(m_argv);
        m_lastOutput = child.Finish();
        m_cpu.push_back(child.CpuSeconds());
    }
    const std::string& LastOutput() const { return m_lastOutput; }
    double MedianCpu() const { return SpreadOf(m_cpu).median; }

private:
    std::vector<std::string> m_argv;
    std::string m_lastOutput;
    std::vector<double> m_cpu;
};

int ParentMain(int argc, char** argv) {
    const Options options = ParseOptions(argc, argv);
    const CorePlacement cores;
    cores.EnterPrinterEnd();
    vela::sim::Simulator::Options simOptions;
    simOptions.name = kPrinterName;
    vela::sim::Simulator sim(simOptions);
    sim.ExportToEnvironment();
    cores.EnterHostEnd();
    const std::string channel = vela::common::StringConverter::ToUtf8(sim.PrinterPath());

    std::printf("qrvctl status against a bare C program doing the same status exchange (no library),\n"
                "whole processes timed from start to exit, alternating call by call; per block of the\n"
                "run the ratio of the median calls is taken, each figure is the median (min-max) of\n"
                "these block ratios.\n%s\nLoad average at the start: %s\n",
                cores.Describe().c_str(), LoadAverage().c_str());

    TimedCommand status({kQrvctlPath, "status"});
    TimedCommand version({kQrvctlPath, "--version"});
    TimedCommand bare({kBareStatusPath, channel});
    for (int i = 0; i < 5; ++i) {
        status();
        version();
        bare();
    }
    if (bare.LastOutput().rfind("status:", 0) != 0) {
        throw std::runtime_error("the bare status program printed no status: " + bare.LastOutput());
    }
    sim.Printer().ClearRequests();
    const Paired p = AlternateCalls(options.calls, 10, status, bare);
    const auto requests = sim.Printer().Requests();
    size_t statusQueries = 0;
    for (const auto& r : requests) {
        statusQueries += r.kind == vela::sim::RequestKind::statusQuery ? 1 : 0;
    }
    // The bare program sends one status query per run; the rest came from qrvctl.
    const double calls = static_cast<double>(p.library.size());
    const double perCommand = (static_cast<double>(requests.size()) - calls) / calls;
    const double queriesPerCommand = (static_cast<double>(statusQueries) - calls) / calls;
    const Paired v = AlternateCalls(std::max(20, options.calls / 4), 5, version, bare);

    const Spread ratio = SpreadOf(p.ratio);
    const double cpuRatio = status.MedianCpu() / bare.MedianCpu();
    std::printf("  %zu runs each (load average %s): qrvctl status %s, bare program %s per run (medians); "
                "qrvctl / bare %s\n",
                p.library.size(), LoadAverage().c_str(), Milli(SpreadOf(p.library).median).c_str(),
                Milli(SpreadOf(p.raw).median).c_str(), RatioText(ratio).c_str());
    std::printf("      processor time per run (median): qrvctl status %s, bare program %s; ratio %s\n",
                Milli(status.MedianCpu()).c_str(), Milli(bare.MedianCpu()).c_str(),
                Fixed(cpuRatio, 2).c_str());
    std::printf("      requests the printer received per qrvctl status: %s (status queries %s)\n",
                Fixed(perCommand, 2).c_str(), Fixed(queriesPerCommand, 2).c_str());
    std::printf("      qrvctl --version %s per run; qrvctl --version / bare %s\n",
                Milli(SpreadOf(v.library).median).c_str(), RatioText(SpreadOf(v.ratio)).c_str());
    PrintRow("qrvctl status vs bare C status exchange (process start included)",
             RatioText(ratio) + "; CPU ratio " + Fixed(cpuRatio, 2) + "; " +
                 Milli(SpreadOf(p.library).median) + " vs " + Milli(SpreadOf(p.raw).median),
             "<= " + Fixed(kTarget, 0) + "x", Verdict(ratio.median <= kTarget));
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    return vela::bench::BenchMain("qrv-bench-cli", argc, argv, ParentMain);
}
