#pragma once

#include <string>

namespace vela::qrvctl {

// The options every command takes.
struct GlobalOptions {
    std::string printer;   // --printer NAME (empty: the only attached printer)
    bool simulate = false; // --simulate: an in-process simulated printer
    bool json = false;     // --json
    bool verbose = false;  // -v: the library's log at info level on standard error
    double timeout = 0;    // --timeout SECONDS: the whole command's time limit; 0: none
};

// The name the simulated printer of --simulate goes by, unless --printer names it.
inline constexpr const char* kSimulatorName = "QRV Simulator";

} // namespace vela::qrvctl
