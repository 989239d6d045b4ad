#pragma once

#include "Console.h"

#include <chrono>
#include <functional>
#include <string>

namespace vela::kom {
class ManagedQRVDeviceGateway;
}

namespace vela::qrvctl {

// Ctrl+C (SIGINT, and SIGTERM alike) and the --timeout limit of one command line.
//
// What the first Ctrl+C does depends on what the command is doing (Phase):
//   quit      (the default) ends the process at once with exit code 130;
//   transfer  cancels the running file transfer through the gateway (the command then fails
//             with OperationCancelledException and exit code 130; no host file is left);
//   refuse    says why it is refused (the printer installs an update) and goes on;
//   stop      only sets a flag that the command polls (`status --watch`; it then exits 0).
// A second Ctrl+C always quits at once, saying that the printer may need a moment.
// When the time limit passes: a transfer is cancelled like by Ctrl+C and the command fails with
// the time-out's error (exit 7); anything else ends the process at once with that error.
// Quitting at once first runs the registered cleanups (a get's temporary host files).
//
// A signal handler only counts the signal (and, while transferring, calls the gateway's
// async-signal-safe CancelTransfer); a watcher thread says and does the rest. The watcher starts
// only when something needs it (a mode other than quit, a time limit, a cleanup, output written
// piece by piece); until then the handler quits by itself, printing a text made in advance. One
// guard per command line; guards nest (the demo runs command lines inside its own), the inner
// one taking over until it ends. Construct and destroy on the command's thread.
class InterruptSignal {
public:
    enum class Mode { quit, transfer, refuse, stop };

    // `timeoutSeconds` 0: no time limit (an enclosing guard's limit still applies).
    InterruptSignal(Console& console, double timeoutSeconds);
    ~InterruptSignal();
    InterruptSignal(const InterruptSignal&) = delete;
    InterruptSignal& operator=(const InterruptSignal&) = delete;

    // What Ctrl+C does while a phase lives; the previous mode comes back afterwards.
    class Phase {
    public:
        // `gateway` is the one whose transfer a Ctrl+C cancels (mode transfer); `refusal` the
        // text a refused Ctrl+C shows (mode refuse).
        explicit Phase(Mode mode, vela::kom::ManagedQRVDeviceGateway* gateway = nullptr,
                       std::string refusal = std::string());
        ~Phase();
        Phase(const Phase&) = delete;
        Phase& operator=(const Phase&) = delete;

    private:
        Mode m_previousMode;
        vela::kom::ManagedQRVDeviceGateway* m_previousGateway;
        std::string m_previousRefusal;
    };

    // Runs `cleanup` before the process quits at once, until the returned token is dropped.
    class Cleanup {
    public:
        explicit Cleanup(std::function<void()> cleanup);
        ~Cleanup();
        Cleanup(const Cleanup&) = delete;
        Cleanup& operator=(const Cleanup&) = delete;

    private:
        size_t m_id;
    };

    // True while a signal only sets the flag (mode stop); any thread may ask.
    static bool Active();
    // Whether a Ctrl+C came since the guard started.
    static bool Raised();
    // Sleeps until a Ctrl+C comes or `timeout` has passed; true when it came.
    static bool WaitFor(std::chrono::milliseconds timeout);
    // Whether the time limit cut the command short (its cancelled transfer then reports that).
    static bool TimedOut();
    // The error a command cut short by the time limit reports.
    static std::string TimeoutMessage();
};

} // namespace vela::qrvctl
