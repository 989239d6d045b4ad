#pragma once

#include "Console.h"
#include "PrinterSession.h"

#include <string>

namespace vela::qrvctl {

// Orders to the printer: `feed`, `cut`, `resume`, `clear-error`, `clear-cutter-jam`, `reboot`,
// `update PACKAGE`. The print orders (all but reboot and update) end with the library's fixed
// 5 s pause that gives the printer time to carry them out; an update takes at least 24 s (a
// fixed 4 s after the copy and 20 s after the apply order). Both are shown while they run.
// Each call blocks on its printer transactions (and the fixed pauses named below), runs on the
// command's thread, and throws CommandError or the gateway's host exceptions (ErrorReport.h
// turns them into messages and exit codes).
class ControlCommands {
public:
    enum class Order { feed, cut, resume, clearError, clearCutterJam, reboot };

    static void Run(Console& console, PrinterSession& session, Order order);
    static void Update(Console& console, PrinterSession& session, const std::string& package);

    static const char* Name(Order order); // the command's name, also its JSON "command"
};

} // namespace vela::qrvctl
