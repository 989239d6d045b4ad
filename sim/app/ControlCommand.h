#pragma once

#include "sim/SimPrinter.h"

#include <string>

namespace vela::sim {

// The line commands qrv-sim reads on its standard input, so that a test or a person can change
// the simulated printer while a host uses it. Each line gives one reply line: "ok", the asked
// value, or "error: <why>".
//
//   door open|closed          cassette present|absent   cutter ok|jammed
//   battery 0..5              power external|battery    charging on|off
//   set FIELD VALUE           any status field by its wire value (FIELD: power door cassette
//                             printhead cutter label memory print external battery charging
//                             counter); e.g. "set label 2" jams the label
//   special                   send the special HID report
//   status                    print every field as FIELD=VALUE
//   help                      list the commands
//
// Every status change sends a HID report, as the printer does, so a host sees it as an event
// (and as a print interrupt where the change is one).
class ControlCommand {
public:
    static std::string Apply(SimPrinter& printer, const std::string& line);
    static const char* Help();
};

} // namespace vela::sim
