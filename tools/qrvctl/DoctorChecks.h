#pragma once

#include "ExitCode.h"
#include "kom/discovery/DiscoveredPrinter.h"

#include <string>
#include <vector>

namespace vela::qrvctl {

// One finding of `qrvctl doctor`: what was checked, how it went, what was seen and, when
// something is wrong, the command or step that fixes it.
struct DoctorFinding {
    enum class Level { ok, warning, failure };
    std::string check;
    Level level = Level::ok;
    std::string detail;
    std::string fix;
    ExitCode code = ExitCode::ok; // the exit code a failure stands for
};

// The checks themselves, one body per operating system.
// Linux: every USB device 0922:0024/0025 in sysfs, the driver of its printer interface (usblp)
// and its usblp and hidraw nodes, this user's read/write access to them, the print queue
// discovery found for it, the lock folder, and the channels of virtual printers.
// Windows: what discovery lists (driver, queue and interfaces are Windows' own business).
// `root` prefixes /sys, /dev and /run (tests point it at a made-up tree); empty for the system.
// Never throws for what it finds; reads only.
class DoctorChecks {
public:
    static std::vector<DoctorFinding> Run(const std::vector<vela::kom::DiscoveredPrinter>& printers,
                                          const std::string& root);
};

} // namespace vela::qrvctl
