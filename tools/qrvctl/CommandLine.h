#pragma once

#include "Console.h"

#include <string>
#include <vector>

namespace vela::qrvctl {

// The tool's command line: global options, one command with its own options, help texts.
// Commands reach the printer through the public gateway (PrinterSession).
class CommandLine {
public:
    // Parses `arguments` (without the program name), runs the command and returns its exit code
    // (ExitCode.h). Never throws: a failure becomes a message (or a JSON error document with
    // --json) and the exit code of its kind. Runs on the calling thread; may be called again
    // (the demo runs one command line after another in one process).
    static int Run(const std::vector<std::string>& arguments, Console& console);
};

} // namespace vela::qrvctl
