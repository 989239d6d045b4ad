#pragma once

#include "Console.h"
#include "ExitCode.h"

#include <functional>
#include <string>
#include <vector>

namespace vela::qrvctl {

// `qrvctl demo` (hidden; scripts/demo runs it): the tool's whole job, shown on a simulated
// VELA QRV 410 that runs inside this process and is registered through QRV_VIRTUAL_PRINTERS like
// any simulator. Every step is a real qrvctl command line, run by `runLine` in this process (so
// the printer keeps its files between steps): list, status, info, put a file, list the folder,
// get it back and compare, feed and cut, watch status changes and a print interrupt while the
// demo changes the simulated printer's state, apply an update. The printer's fixed pauses are
// kept (5 s per print order, 24 s in the update): the whole demo takes about a minute.
class DemoCommand {
public:
    using RunLine = std::function<int(const std::vector<std::string>& arguments)>;

    // Returns ok, or the exit code of the first step that failed.
    static ExitCode Run(Console& console, const RunLine& runLine);
};

} // namespace vela::qrvctl
