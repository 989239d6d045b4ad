#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace vela::sim {

// The lines arriving on standard input, read by a thread of their own so that the caller can
// wait for one with a time-out and still react to signals.
//
// The reader thread is detached: a blocking read of standard input cannot be interrupted
// portably, so the process may end while the thread still waits. It only touches state that it
// shares with this object (kept alive by whichever of the two lasts), never the caller's objects.
// End of input (stdin closed, or /dev/null) just means no more lines; it does not stop anything.
class ControlInput {
public:
    ControlInput();
    // The next line (without its line end), or nothing when none arrived within `timeout`.
    std::optional<std::string> WaitLine(std::chrono::milliseconds timeout);

private:
    struct Shared;
    static void ReadLines(const std::shared_ptr<Shared>& shared);
    std::shared_ptr<Shared> m_shared;
};

} // namespace vela::sim
