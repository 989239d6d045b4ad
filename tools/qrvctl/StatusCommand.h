#pragma once

#include "Console.h"
#include "PrinterSession.h"
#include "qrv/PrinterStatusItem.h"

#include <vector>

namespace vela::qrvctl {

// `qrvctl status`: every status field with a readable name, and what needs attention.
// `qrvctl status --watch`: then the changes and print interrupts the printer reports, as they
// arrive from the library's monitor thread (gateway events), until Ctrl+C (SIGINT) or SIGTERM.
// A change shows the fields that differ from the state shown before; the events are printed by
// the command's thread, in the order they arrived.
// Each call blocks on its printer transactions (and the fixed pauses named below), runs on the
// command's thread, and throws CommandError or the gateway's host exceptions (ErrorReport.h
// turns them into messages and exit codes).
class StatusCommand {
public:
    using Items = std::vector<vela::printer::communication::PrinterStatusItem>;

    static void Show(Console& console, PrinterSession& session);
    // Returns when interrupted. Throws CommandError when the printer sends no status reports.
    static void Watch(Console& console, PrinterSession& session);

    // {"power": "ok", ...} for the given items (all or only the changed ones).
    static nlohmann::json ToJson(const Items& items);
};

} // namespace vela::qrvctl
