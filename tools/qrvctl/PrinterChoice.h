#pragma once

#include "qrv/PrinterListing.h"

#include <string>
#include <vector>

namespace vela::qrvctl {

// Picks the printer a command works with from what discovery lists: the one `requested` names
// (its exact name, its serial, its usb:// device URI or one of its device paths; see
// FindPrinters), or, when nothing is requested, the only one. Throws CommandError:
// printerNotFound when there is none or nothing by that name (the message lists the names there
// are), usage when several are listed and none was requested, or when `requested` names several
// (the message lists them with what tells them apart).
vela::printer::communication::PrinterInfo
ChoosePrinter(const std::vector<vela::printer::communication::PrinterInfo>& printers,
              const std::string& requested);

} // namespace vela::qrvctl
