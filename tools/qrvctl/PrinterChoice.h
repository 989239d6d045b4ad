#pragma once

#include "kom/discovery/DiscoveredPrinter.h"

#include <string>
#include <vector>

namespace vela::qrvctl {

// Picks the printer a command works with from what discovery lists: the one named `requested`
// (exact name), or, when nothing is requested, the only one. Throws CommandError:
// printerNotFound when there is none or no such name (the message lists the names there are),
// usage when several are listed and none was requested (the message lists them).
const vela::kom::DiscoveredPrinter& ChoosePrinter(const std::vector<vela::kom::DiscoveredPrinter>& printers,
                                                  const std::string& requested);

} // namespace vela::qrvctl
