#include "bench/BenchSupport.h"

#include "common/Exception.h"
#include "common/StringConverter.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sched.h>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace vela::bench {

Spread SpreadOf(std::vector<double> samples) {
    Spread s;
    if (samples.empty()) {
        return s;
    }
    std::sort(samples.begin(), samples.end());
    const size_t n = samples.size();
    s.median = n % 2 == 1 ? samples[n / 2] : (samples[n / 2 - 1] + samples[n / 2]) / 2;
    s.min = samples.front();
    s.max = samples.back();
    return s;
}

double Percentile(std::vector<double> samples, double p) {
    if (samples.empty()) {
        return 0;
    }
    std::sort(samples.begin(), samples.end());
    const double rank = std::ceil(p / 100.0 * static_cast<double>(samples.size()));
    const size_t index = rank < 1 ? 0 : static_cast<size_t>(rank) - 1;
    return samples[std::min(index, samples.size() - 1)];
}

namespace {

// A "Name:   123 kB" line of a /proc status file, in bytes (or a plain count); -1 when missing.
int64_t StatusField(const std::string& path, const std::string& name) {
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        if (line.compare(0, name.size(), name) == 0 && line.size() > name.size() &&
            line[name.size()] == ':') {
            std::istringstream fields(line.substr(name.size() + 1));
            int64_t value = 0;
            std::string unit;
            fields >> value >> unit;
            return unit == "kB" ? value * 1024 : value;
        }
    }
    return -1;
}

} // namespace

bool ResetPeakResident() {
    std::ofstream out("/proc/self/clear_refs");
    out << "5";
    out.flush();
    return static_cast<bool>(out);
}

uint64_t ResidentBytes() {
    return static_cast<uint64_t>(std::max<int64_t>(0, StatusField("/proc/self/status", "VmRSS")));
}

uint64_t PeakResidentBytes() {
    return static_cast<uint64_t>(std::max<int64_t>(0, StatusField("/proc/self/status", "VmHWM")));
}

int64_t ThreadContextSwitches(long tid) {
    const std::string path = "/proc/self/task/" + std::to_string(tid) + "/status";
    const int64_t voluntary = StatusField(path, "voluntary_ctxt_switches");
    const int64_t involuntary = StatusField(path, "nonvoluntary_ctxt_switches");
    if (voluntary < 0 || involuntary < 0) {
        return -1;
    }
    return voluntary + involuntary;
}

double CpuSeconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

long CurrentThreadId() {
    return static_cast<long>(::syscall(SYS_gettid));
}

std::string LoadAverage() {
    std::ifstream in("/proc/loadavg");
    std::string one, five, fifteen;
    if (!(in >> one >> five >> fifteen)) {
        return "unknown";
    }
    return one + " " + five + " " + fifteen;
}

namespace {

std::string LoadAverageOneMinute() {
    const std::string all = LoadAverage();
    return all.substr(0, all.find(' '));
}

void PinCallingThread(const std::vector<int>& cpus) {
    if (cpus.empty()) {
        return;
    }
    cpu_set_t set;
    CPU_ZERO(&set);
    for (const int cpu : cpus) {
        CPU_SET(cpu, &set);
    }
    if (::sched_setaffinity(0, sizeof set, &set) != 0) {
        throw std::runtime_error("cannot pin to CPU " + std::to_string(cpus.front()) + ": " +
                                 std::strerror(errno));
    }
}

} // namespace

CorePlacement::CorePlacement() {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (::sched_getaffinity(0, sizeof set, &set) != 0 || CPU_COUNT(&set) < 2) {
        return;
    }
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (CPU_ISSET(cpu, &set)) {
            m_usable.push_back(cpu);
        }
    }
    m_printerCpu = m_usable[0];
    m_hostCpu = m_usable[1];
}

void CorePlacement::EnterPrinterEnd() const {
    if (m_printerCpu >= 0) {
        PinCallingThread({m_printerCpu});
    }
}

void CorePlacement::EnterHostEnd() const {
    if (m_hostCpu >= 0) {
        PinCallingThread({m_hostCpu});
    }
}

void CorePlacement::LeaveEnds() const {
    PinCallingThread(m_usable);
}

std::string CorePlacement::Describe() const {
    if (m_printerCpu < 0) {
        return "Cores: one processor usable; both ends share it (nothing pinned).";
    }
    return "Cores: each end pinned to its own processor (as taskset -c would): printer end on CPU " +
           std::to_string(m_printerCpu) + ", host end on CPU " + std::to_string(m_hostCpu) + ".";
}

ChildProcess::ChildProcess(const std::vector<std::string>& argv) {
    for (const std::string& a : argv) {
        m_command += (m_command.empty() ? "" : " ") + a;
    }
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0) {
        throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
    std::vector<char*> args;
    for (const std::string& a : argv) {
        args.push_back(const_cast<char*>(a.c_str()));
    }
    args.push_back(nullptr);
    pid_t pid = 0;
    const int spawned = ::posix_spawn(&pid, argv[0].c_str(), &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipeFds[1]);
    if (spawned != 0) {
        ::close(pipeFds[0]);
        throw std::runtime_error("cannot start " + argv[0] + ": " + std::strerror(spawned));
    }
    m_output = pipeFds[0];
    m_pid = pid;
}

ChildProcess::~ChildProcess() {
    if (m_pid > 0) {
        try {
            Finish();
        } catch (const std::exception&) {
            // Already failing elsewhere; the child has been waited for.
        }
    }
}

std::string ChildProcess::Finish() {
    std::string output;
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(m_output, buffer, sizeof buffer);
        if (n > 0) {
            output.append(buffer, static_cast<size_t>(n));
        } else if (n == 0 || errno != EINTR) {
            break;
        }
    }
    ::close(m_output);
    m_output = -1;
    int status = 0;
    rusage usage{};
    while (::wait4(m_pid, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    m_pid = -1;
    m_cpu = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
            static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw std::runtime_error("child failed: " + m_command);
    }
    return output;
}

std::string RunChild(const std::vector<std::string>& argv) {
    return ChildProcess(argv).Finish();
}

std::string SelfPath() {
    char path[4096];
    const ssize_t n = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (n <= 0) {
        throw std::runtime_error("cannot find the running executable");
    }
    return std::string(path, static_cast<size_t>(n));
}

std::string Fixed(double value, int decimals) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

std::string Bytes(uint64_t bytes) {
    if (bytes >= (uint64_t{1} << 20) && bytes % (uint64_t{1} << 20) == 0) {
        return std::to_string(bytes >> 20) + " MiB";
    }
    if (bytes >= 1024 && bytes % 1024 == 0) {
        return std::to_string(bytes >> 10) + " KiB";
    }
    return std::to_string(bytes) + " B";
}

std::string Micro(double seconds) {
    return Fixed(seconds * 1e6, 1) + " us";
}

std::string Milli(double seconds) {
    return Fixed(seconds * 1e3, 2) + " ms";
}

std::string RatioText(const Spread& s) {
    return Fixed(s.median, 2) + "x (" + Fixed(s.min, 2) + "-" + Fixed(s.max, 2) + ")";
}

std::string SpreadText(const Spread& s, int decimals) {
    return Fixed(s.median, decimals) + " (" + Fixed(s.min, decimals) + "-" + Fixed(s.max, decimals) + ")";
}

void PrintRow(const std::string& benchmark, const std::string& measured, const std::string& target,
              const std::string& verdict) {
    std::printf("| %s | %s | %s | %s | %s |\n", benchmark.c_str(), measured.c_str(), target.c_str(),
                verdict.c_str(), LoadAverageOneMinute().c_str());
    std::fflush(stdout);
}

int BenchMain(const char* name, int argc, char** argv, const std::function<int(int, char**)>& program,
              const ChildEntry& child) {
    try {
        if (child && argc >= 2 && std::string(argv[1]) == "--child") {
            return child(std::vector<std::string>(argv + 2, argv + argc));
        }
        return program(argc, argv);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s: %s\n", name, e.what());
    } catch (const vela::common::Exception& e) {
        std::fprintf(stderr, "%s: %s\n", name, vela::common::StringConverter::ToUtf8(e.Message()).c_str());
    }
    return 1;
}

} // namespace vela::bench
