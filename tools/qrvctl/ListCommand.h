#pragma once

#include "Console.h"
#include "PrinterSession.h"
#include "kom/discovery/DiscoveredPrinter.h"

namespace vela::qrvctl {

// `qrvctl list`: the attached and virtual printers as discovery sees them. Opens nothing.
// Blocks on discovery (QRVPrinters::ListPrinters); throws its native kinds (ErrorReport.h).
class ListCommand {
public:
    static void Run(Console& console, PrinterSession& session);
    // One printer as its JSON object (also used by `info` and `doctor`).
    static nlohmann::json ToJson(const vela::kom::DiscoveredPrinter& printer);
    static std::string UsbId(const vela::kom::DiscoveredPrinter& printer); // "0922:0025"
};

} // namespace vela::qrvctl
