#include "DoctorChecks.h"

#include "common/StringConverter.h"

namespace vela::qrvctl {

using vela::common::StringConverter;
using Level = DoctorFinding::Level;

std::vector<DoctorFinding>
DoctorChecks::Run(const std::vector<vela::printer::communication::PrinterInfo>& printers,
                  const std::string&) {
    // Windows lists a printer only with its driver installed and a print queue set up, so what
    // discovery sees is the whole answer.
    std::vector<DoctorFinding> findings;
    bool anyAttached = false;
    for (const auto& row : printers) {
        const std::string name = StringConverter::ToUtf8(row.name);
        if (row.isVirtual) {
            findings.push_back({"virtual printer", Level::ok,
                                "'" + name + "' serves on " + StringConverter::ToUtf8(row.channelPath), "",
                                ExitCode::ok});
            continue;
        }
        anyAttached = true;
        findings.push_back(
            {"printer", Level::ok,
             "'" + name + "': " + StringConverter::ToUtf8(row.model) +
                 (row.serial.empty() ? "" : ", serial " + StringConverter::ToUtf8(row.serial)) +
                 ", printer interface " + StringConverter::ToUtf8(row.channelPath),
             "", ExitCode::ok});
        if (row.statusPath.empty()) {
            findings.push_back(
                {"status reports", Level::warning,
                 "'" + name +
                     "' has no HID status interface: commands work, `status --watch` gets no reports",
                 "unplug the printer and plug it in again", ExitCode::ok});
        } else {
            findings.push_back({"status reports", Level::ok,
                                "'" + name + "': " + StringConverter::ToUtf8(row.statusPath), "",
                                ExitCode::ok});
        }
    }
    if (!anyAttached) {
        findings.push_back(
            {"printers", printers.empty() ? Level::failure : Level::warning,
             "Windows shows no QRV printer with a driver and a print queue",
             "connect the printer, install its printer driver and check that a print queue for it "
             "appears under Settings > Bluetooth & devices > Printers & scanners",
             ExitCode::printerNotFound});
    }
    return findings;
}

} // namespace vela::qrvctl
