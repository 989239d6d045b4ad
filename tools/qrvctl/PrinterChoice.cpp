#include "PrinterChoice.h"

#include "CommandError.h"
#include "common/StringConverter.h"

namespace vela::qrvctl {

namespace {

using vela::common::StringConverter;
using vela::printer::communication::FindPrinters;
using vela::printer::communication::PrinterInfo;

std::string Names(const std::vector<PrinterInfo>& printers) {
    std::string names;
    for (const auto& printer : printers) {
        names += (names.empty() ? "'" : ", '") + StringConverter::ToUtf8(printer.name) + "'";
    }
    return names;
}

// Each candidate with what tells it apart: serial, device URI and channel.
std::string Candidates(const std::vector<PrinterInfo>& printers) {
    std::string text;
    for (const auto& printer : printers) {
        text +=
            "\n  '" + StringConverter::ToUtf8(printer.name) + "'" +
            (printer.serial.empty() ? std::string() : " serial " + StringConverter::ToUtf8(printer.serial)) +
            (printer.channelPath.empty() ? std::string()
                                         : " at " + StringConverter::ToUtf8(printer.channelPath));
    }
    return text;
}

} // namespace

PrinterInfo ChoosePrinter(const std::vector<PrinterInfo>& printers, const std::string& requested) {
    if (!requested.empty()) {
        const auto found = FindPrinters(printers, StringConverter::FromUtf8(requested));
        if (found.size() == 1) {
            return found.front();
        }
        if (found.size() > 1) {
            throw CommandError(ExitCode::usage,
                               "'" + requested + "' names " + std::to_string(found.size()) +
                                   " printers:" + Candidates(found),
                               "Choose one with --printer and its serial or its printer channel path.");
        }
        throw CommandError(
            ExitCode::printerNotFound,
            "no printer named '" + requested + "'" +
                (printers.empty() ? std::string("; no QRV printer is attached")
                                  : "; the printers are: " + Names(printers)),
            "--printer takes a name (exact, letter case included), a serial, a usb:// device URI "
            "or a device path; `qrvctl list` shows them.");
    }
    if (printers.empty()) {
        throw CommandError(ExitCode::printerNotFound, "no QRV printer is attached",
                           "`qrvctl doctor` checks USB, the driver and permissions; "
                           "`qrvctl --simulate ...` works without a printer.");
    }
    if (printers.size() > 1) {
        bool sameNames = false;
        for (const auto& printer : printers) {
            sameNames = sameNames || FindPrinters(printers, printer.name).size() > 1;
        }
        throw CommandError(ExitCode::usage,
                           std::to_string(printers.size()) + " printers are attached: " + Names(printers) +
                               (sameNames ? Candidates(printers) : std::string()),
                           "Choose one with --printer NAME (or its serial or printer channel path).");
    }
    return printers.front();
}

} // namespace vela::qrvctl
