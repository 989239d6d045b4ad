#pragma once

#include "Console.h"
#include "PrinterSession.h"

namespace vela::qrvctl {

// `qrvctl info`: what the printer is and has: versions, device id, cassette SKU, battery charge
// and charging, external power, disk space and the library folders.
// Each call blocks on its printer transactions (and the fixed pauses named below), runs on the
// command's thread, and throws CommandError or the gateway's host exceptions (ErrorReport.h
// turns them into messages and exit codes).
class InfoCommand {
public:
    static void Run(Console& console, PrinterSession& session);
    // The stable JSON key of a version component the gateway names ("Firmware" -> "firmware").
    static std::string VersionKey(const std::wstring& component);
};

} // namespace vela::qrvctl
