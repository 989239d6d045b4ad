#include "PrinterChoice.h"

#include "CommandError.h"
#include "common/StringConverter.h"

namespace vela::qrvctl {

namespace {

std::string Names(const std::vector<vela::kom::DiscoveredPrinter>& printers) {
    std::string names;
    for (const auto& printer : printers) {
        names +=
            (names.empty() ? "'" : ", '") + vela::common::StringConverter::ToUtf8(printer.printerName) + "'";
    }
    return names;
}

} // namespace

const vela::kom::DiscoveredPrinter& ChoosePrinter(const std::vector<vela::kom::DiscoveredPrinter>& printers,
                                                  const std::string& requested) {
    if (!requested.empty()) {
        const std::wstring wanted = vela::common::StringConverter::FromUtf8(requested);
        for (const auto& printer : printers) {
            if (printer.printerName == wanted) {
                return printer;
            }
        }
        throw CommandError(ExitCode::printerNotFound,
                           "no printer named '" + requested + "'" +
                               (printers.empty() ? std::string("; no QRV printer is attached")
                                                 : "; the printers are: " + Names(printers)),
                           "Names are exact, letter case included. `qrvctl list` shows them.");
    }
    if (printers.empty()) {
        throw CommandError(ExitCode::printerNotFound, "no QRV printer is attached",
                           "`qrvctl doctor` checks USB, the driver and permissions; "
                           "`qrvctl --simulate ...` works without a printer.");
    }
    if (printers.size() > 1) {
        throw CommandError(ExitCode::usage,
                           std::to_string(printers.size()) + " printers are attached: " + Names(printers),
                           "Choose one with --printer NAME.");
    }
    return printers.front();
}

} // namespace vela::qrvctl
