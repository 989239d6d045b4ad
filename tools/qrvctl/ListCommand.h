#pragma once

#include "Console.h"
#include "PrinterSession.h"

namespace vela::qrvctl {

// `qrvctl list`: the attached and virtual printers as discovery sees them. Opens nothing.
// Blocks on discovery (ListPrinters); throws its host kinds (ErrorReport.h).
class ListCommand {
public:
    static void Run(Console& console, PrinterSession& session);
    // One printer as its JSON object.
    static nlohmann::json ToJson(const vela::printer::communication::PrinterInfo& printer);
    static std::string UsbId(const vela::printer::communication::PrinterInfo& printer); // "0922:0025"
};

} // namespace vela::qrvctl
