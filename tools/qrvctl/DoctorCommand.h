#pragma once

#include "Console.h"
#include "ExitCode.h"
#include "PrinterSession.h"

#include <string>

namespace vela::qrvctl {

// `qrvctl doctor`: why a printer cannot be used, and how to fix it (DoctorChecks). Returns the
// exit code of the first failed check, or ok.
class DoctorCommand {
public:
    static ExitCode Run(Console& console, PrinterSession& session);
};

} // namespace vela::qrvctl
