#include "InterruptSignal.h"

#include "ErrorReport.h"
#include "qrv/ManagedQRVDeviceGateway.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>
#include <unistd.h>

namespace vela::qrvctl {

namespace {

using Clock = std::chrono::steady_clock;
using Mode = InterruptSignal::Mode;

// A transfer that the time limit cancelled gets this long to end cleanly before the process quits.
constexpr auto kCancelGrace = std::chrono::seconds(5);
// How quickly the watcher reacts to a signal or the time limit.
constexpr auto kWatchStep = std::chrono::milliseconds(20);

std::atomic<int> g_signals{0};
std::atomic<Mode> g_mode{Mode::quit};
std::atomic<vela::kom::ManagedQRVDeviceGateway*> g_gateway{nullptr};
std::atomic<bool> g_timedOut{false};
// The mode each signal met when it came: a command may leave its phase before the watcher gets
// to the signal (a watch that stopped), and the signal still means what it meant then.
constexpr int kRecordedModes = 8;
std::atomic<Mode> g_modeAtSignal[kRecordedModes];
// Whether the watcher thread runs. Most commands never need it: a status query or a listing
// stays in mode quit without a time limit, and a thread started and joined for each of them
// costs more than their whole exchange with the printer. Until something needs it (another mode,
// a time limit, a cleanup, output written piece by piece), the handler quits by itself.
std::atomic<bool> g_watching{false};

// What quitting prints, made in advance for the handler, which may only write bytes: the
// output stream's part (the JSON error document) and the error stream's.
struct QuitText {
    std::string out;
    std::string err;
    int exitCode = 0;
};
std::atomic<const QuitText*> g_quitText{nullptr};

static_assert(std::atomic<int>::is_always_lock_free && std::atomic<Mode>::is_always_lock_free &&
                  std::atomic<vela::kom::ManagedQRVDeviceGateway*>::is_always_lock_free &&
                  std::atomic<bool>::is_always_lock_free && std::atomic<const QuitText*>::is_always_lock_free,
              "the signal handler needs lock-free state");

void WriteAll(int fd, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n <= 0) {
            return;
        }
        done += static_cast<size_t>(n);
    }
}

// Async-signal-safe: writes and _exit only. Nothing is buffered on the output stream at this
// point: the console flushes every write.
[[noreturn]] void QuitFromHandler() {
    const QuitText* text = g_quitText.load();
    if (text != nullptr) {
        WriteAll(STDOUT_FILENO, text->out);
        WriteAll(STDERR_FILENO, text->err);
    }
    ::_exit(text != nullptr ? text->exitCode : 130);
}

extern "C" void OnSignal(int signal) {
    const Mode mode = g_mode.load();
    g_modeAtSignal[std::min(g_signals.load(), kRecordedModes - 1)].store(mode);
    const int count = g_signals.fetch_add(1) + 1;
    if (!g_watching.load()) {
        QuitFromHandler(); // only mode quit runs without the watcher
    }
    // Some C libraries reset the handler after one delivery: keep catching until the guard ends.
    std::signal(signal, OnSignal);
    if (count == 1 && mode == Mode::transfer) {
        if (vela::kom::ManagedQRVDeviceGateway* gateway = g_gateway.load()) {
            gateway->CancelTransfer();
        }
    }
}

// Everything but the handler's counters, guarded by one mutex.
struct Shared {
    std::mutex mutex;
    Console* console = nullptr;
    std::string refusal;
    double timeoutSeconds = 0;
    Clock::time_point deadline = Clock::time_point::max();
    Clock::time_point graceEnd = Clock::time_point::max();
    std::map<size_t, std::function<void()>> cleanups;
    size_t nextCleanup = 0;
    int depth = 0;
    int handled = 0;
    bool stopWatcher = false;
    std::condition_variable stop; // wakes the watcher at once when the guard ends
    std::thread watcher;
    // Every text made while the outermost guard lives: a handler on another thread may still
    // read one that an inner guard gave up.
    std::vector<std::unique_ptr<QuitText>> quitTexts;
    void (*previousInt)(int) = SIG_DFL;
    void (*previousTerm)(int) = SIG_DFL;
};

Shared& State() {
    static Shared shared;
    return shared;
}

std::string SecondsText(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", seconds);
    return text;
}

std::string TimeoutText(double seconds) {
    return "the command did not finish within the time limit of " + SecondsText(seconds) + " s (--timeout)";
}

// Says something on the error stream, below a progress bar that may be open.
void Say(Shared& state, const std::string& text) {
    if (state.console != nullptr) {
        state.console->Error((state.console->ErrorIsTerminal() ? "\n" : "") + std::string("qrvctl: ") + text +
                             "\n");
    }
}

const ErrorReport kInterrupted{ExitCode::interrupted, "interrupted", ""};

// The last words of a process that quits at once, below a progress bar that may be open.
void PrintQuit(Console& console, const ErrorReport& report) {
    if (console.ErrorIsTerminal() && !console.Json()) {
        console.Error("\n");
    }
    report.Print(console);
}

std::unique_ptr<QuitText> MakeQuitText(const Console& console) {
    auto text = std::make_unique<QuitText>();
    QuitText& made = *text;
    Console scratch(
        [&made](std::string_view part) {
            made.out.append(part);
            return true;
        },
        [&made](std::string_view part) {
            made.err.append(part);
            return true;
        },
        console.ErrorIsTerminal(), console.Columns());
    scratch.SetJson(console.Json());
    PrintQuit(scratch, kInterrupted);
    text->exitCode = ToInt(kInterrupted.code);
    return text;
}

[[noreturn]] void QuitNow(Shared& state, const ErrorReport& report) {
    for (auto& [id, cleanup] : state.cleanups) {
        try {
            cleanup();
        } catch (...) {
            // Quitting goes on whatever a cleanup meets.
        }
    }
    if (state.console != nullptr) {
        PrintQuit(*state.console, report);
    }
    std::fflush(nullptr);
    std::_Exit(ToInt(report.code));
}

void HandleSignal(Shared& state, int number) {
    const Mode mode = g_modeAtSignal[std::min(number, kRecordedModes) - 1].load();
    if (number >= 2) {
        QuitNow(state, ErrorReport{ExitCode::interrupted,
                                   "interrupted; the printer may need a moment before it answers again", ""});
    }
    switch (mode) {
    case Mode::stop:
        return;
    case Mode::transfer:
        Say(state, "cancelling the transfer; the printer is left ready for the next command "
                   "(Ctrl+C again quits at once)");
        return;
    case Mode::refuse:
        Say(state, state.refusal + " (Ctrl+C again quits anyway)");
        return;
    case Mode::quit:
        QuitNow(state, kInterrupted);
    }
}

void HandleDeadline(Shared& state) {
    g_timedOut.store(true);
    vela::kom::ManagedQRVDeviceGateway* gateway = g_gateway.load();
    if (g_mode.load() == Mode::transfer && gateway != nullptr) {
        gateway->CancelTransfer();
        Say(state, "the time limit of " + SecondsText(state.timeoutSeconds) +
                       " s has passed: cancelling the transfer");
        state.graceEnd = Clock::now() + kCancelGrace;
        return;
    }
    QuitNow(state,
            ErrorReport{ExitCode::communication, TimeoutText(state.timeoutSeconds),
                        "Is another program using the printer, or is it not answering? Allow more time "
                        "with --timeout, or run `qrvctl doctor`."});
}

void Watch() {
    Shared& state = State();
    std::unique_lock<std::mutex> lock(state.mutex);
    while (!state.stopWatcher) {
        const int signals = g_signals.load();
        while (state.handled < signals) {
            HandleSignal(state, ++state.handled);
        }
        const auto now = Clock::now();
        if (!g_timedOut.load() && now >= state.deadline) {
            HandleDeadline(state);
        } else if (now >= state.graceEnd) {
            QuitNow(state, ErrorReport{
                               ExitCode::communication, TimeoutText(state.timeoutSeconds),
                               "The cancelled transfer did not end in time; the printer may need a moment."});
        }
        state.stop.wait_for(lock, kWatchStep, [&] { return state.stopWatcher; });
    }
}

// Starts the watcher unless it runs; the caller holds the state's mutex.
void EnsureWatcher(Shared& state) {
    if (!state.watcher.joinable()) {
        state.watcher = std::thread(Watch);
        g_watching.store(true);
    }
}

// What an enclosing guard had, for the inner one to give back.
struct Saved {
    Console* console;
    double timeoutSeconds;
    Clock::time_point deadline;
    const QuitText* quitText;
};
std::vector<Saved> g_saved; // only the command's thread touches it

} // namespace

InterruptSignal::InterruptSignal(Console& console, double timeoutSeconds) {
    Shared& state = State();
    std::unique_ptr<QuitText> quitText = MakeQuitText(console);
    std::lock_guard<std::mutex> lock(state.mutex);
    g_saved.push_back({state.console, state.timeoutSeconds, state.deadline, g_quitText.load()});
    state.console = &console;
    g_quitText.store(quitText.get());
    state.quitTexts.push_back(std::move(quitText));
    if (timeoutSeconds > 0) {
        const auto limit = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                              std::chrono::duration<double>(timeoutSeconds));
        if (limit < state.deadline) {
            state.deadline = limit;
            state.timeoutSeconds = timeoutSeconds;
        }
    }
    // Each command line counts its own Ctrl+C (the demo runs several in a row).
    g_signals.store(0);
    state.handled = 0;
    if (state.depth++ == 0) {
        g_timedOut.store(false);
        g_mode.store(Mode::quit);
        state.graceEnd = Clock::time_point::max();
        state.stopWatcher = false;
        state.previousInt = std::signal(SIGINT, OnSignal);
        state.previousTerm = std::signal(SIGTERM, OnSignal);
    }
    if (timeoutSeconds > 0) {
        EnsureWatcher(state);
    }
}

InterruptSignal::~InterruptSignal() {
    Shared& state = State();
    std::unique_lock<std::mutex> lock(state.mutex);
    const Saved saved = g_saved.back();
    g_saved.pop_back();
    state.console = saved.console;
    state.timeoutSeconds = saved.timeoutSeconds;
    state.deadline = saved.deadline;
    if (--state.depth > 0) {
        g_quitText.store(saved.quitText);
        return;
    }
    state.stopWatcher = true;
    state.stop.notify_all();
    std::thread watcher = std::move(state.watcher);
    lock.unlock();
    if (watcher.joinable()) {
        watcher.join();
    }
    g_watching.store(false);
    std::signal(SIGINT, state.previousInt == SIG_ERR ? SIG_DFL : state.previousInt);
    std::signal(SIGTERM, state.previousTerm == SIG_ERR ? SIG_DFL : state.previousTerm);
    g_mode.store(Mode::quit);
    g_gateway.store(nullptr);
    g_quitText.store(nullptr);
    state.quitTexts.clear();
}

InterruptSignal::Phase::Phase(Mode mode, vela::kom::ManagedQRVDeviceGateway* gateway, std::string refusal)
    : m_previousMode(g_mode.load()), m_previousGateway(g_gateway.load()) {
    Shared& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    if (mode != Mode::quit) {
        EnsureWatcher(state);
    }
    m_previousRefusal = std::move(state.refusal);
    state.refusal = std::move(refusal);
    g_gateway.store(gateway);
    g_mode.store(mode);
}

InterruptSignal::Phase::~Phase() {
    Shared& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    g_mode.store(m_previousMode);
    g_gateway.store(m_previousGateway);
    state.refusal = std::move(m_previousRefusal);
}

InterruptSignal::Cleanup::Cleanup(std::function<void()> cleanup) {
    Shared& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    EnsureWatcher(state);
    m_id = state.nextCleanup++;
    state.cleanups.emplace(m_id, std::move(cleanup));
}

InterruptSignal::Cleanup::~Cleanup() {
    Shared& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.cleanups.erase(m_id);
}

bool InterruptSignal::Active() {
    return g_mode.load() == Mode::stop;
}

bool InterruptSignal::Raised() {
    return g_signals.load() > 0;
}

bool InterruptSignal::WaitFor(std::chrono::milliseconds timeout) {
    // A signal handler can only count; polling the count in short steps keeps the wait simple
    // and the reaction under 50 ms.
    const auto end = Clock::now() + timeout;
    while (!Raised()) {
        if (Clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

bool InterruptSignal::TimedOut() {
    return g_timedOut.load();
}

std::string InterruptSignal::TimeoutMessage() {
    Shared& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    return TimeoutText(state.timeoutSeconds);
}

} // namespace vela::qrvctl
