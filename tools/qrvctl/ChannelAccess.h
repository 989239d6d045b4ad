#pragma once

#include <optional>
#include <string>

namespace vela::qrvctl {

// Why this user cannot open one of a printer's device nodes, checked before the library tries
// (which would only report a failed channel). Linux: read and write permission on the usblp or
// hidraw node. Windows: the printer driver and spooler decide; nothing to check there.
// No I/O beyond a permission query; never throws.
struct AccessProblem {
    std::string path;
    std::string reason; // "permission denied", "does not exist", ...
};

std::optional<AccessProblem> CheckChannelAccess(const std::wstring& devicePath);

// Whether the printer's channel is there now, without opening it (an unplugged printer's node
// goes away). Linux: the node (through its links) exists. Windows: always true, since looking at
// a named pipe would take one of its instances.
bool ChannelPresent(const std::wstring& devicePath);

} // namespace vela::qrvctl
