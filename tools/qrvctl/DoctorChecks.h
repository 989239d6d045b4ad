#pragma once

#include "ExitCode.h"
#include "qrv/PrinterListing.h"

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

// The checks themselves, one body per operating system, made on what discovery lists (so that
// `doctor` and the library never disagree about a printer).
// Linux: each supported USB device, its printer interface and the driver bound to it (usblp),
// its printer and HID nodes and this user's read/write access to them, its print queue (or why
// none could be looked up), the lock folder, and the channels of virtual printers.
// Windows: what discovery lists (driver, queue and interfaces are Windows' own business).
// `lockFolder` is where the access lock lives ("/run/lock"; tests point it elsewhere).
// Never throws for what it finds; reads only.
class DoctorChecks {
public:
    static std::vector<DoctorFinding>
    Run(const std::vector<vela::printer::communication::PrinterInfo>& printers,
        const std::string& lockFolder = "/run/lock");
};

} // namespace vela::qrvctl
