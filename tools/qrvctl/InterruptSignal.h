#pragma once

#include <chrono>
#include <csignal>

namespace vela::qrvctl {

// Ctrl+C (SIGINT) and SIGTERM for a command that runs until it is interrupted (`status --watch`).
// While an object lives, the signals set a flag instead of ending the process; the previous
// handlers come back when it goes. One at a time per process; construct and destroy it on the
// same thread.
class InterruptSignal {
public:
    InterruptSignal();
    ~InterruptSignal();
    InterruptSignal(const InterruptSignal&) = delete;
    InterruptSignal& operator=(const InterruptSignal&) = delete;

    bool Raised() const;
    // True while an InterruptSignal exists somewhere in the process (a signal then only sets the
    // flag); any thread may ask.
    static bool Active();
    // Sleeps until the signal comes or `timeout` has passed; true when it came.
    bool WaitFor(std::chrono::milliseconds timeout) const;

private:
    using Handler = void (*)(int);
    Handler m_previousInt;
    Handler m_previousTerm;
};

} // namespace vela::qrvctl
