#pragma once

#include "Console.h"
#include "PrinterSession.h"

namespace vela::qrvctl {

// `qrvctl info`: what the printer is and has: versions, device id, cassette SKU, battery charge
// and charging, external power, disk space and the library folders.
class InfoCommand {
public:
    static void Run(Console& console, PrinterSession& session);
    // The stable JSON key of a version component the gateway names ("Firmware" -> "firmware").
    static std::string VersionKey(const std::wstring& component);
};

} // namespace vela::qrvctl
