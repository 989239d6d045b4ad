#include "ListCommand.h"

#include "TextTable.h"
#include "common/StringConverter.h"

#include <cstdio>

namespace vela::qrvctl {

using vela::common::StringConverter;

std::string ListCommand::UsbId(const vela::kom::DiscoveredPrinter& printer) {
    char text[16];
    std::snprintf(text, sizeof text, "%04x:%04x", printer.vendorId & 0xFFFFu, printer.productId & 0xFFFFu);
    return text;
}

nlohmann::json ListCommand::ToJson(const vela::kom::DiscoveredPrinter& printer) {
    return nlohmann::json{
        {"name", StringConverter::ToUtf8(printer.printerName)},
        {"model", StringConverter::ToUtf8(printer.modelName)},
        {"usbId", UsbId(printer)},
        {"serial", StringConverter::ToUtf8(printer.serialNumber)},
        {"printerPath", StringConverter::ToUtf8(printer.printerPath)},
        {"hidPath", StringConverter::ToUtf8(printer.hidPath)},
        {"virtual", printer.isVirtual},
        {"queue", printer.hasQueue},
    };
}

void ListCommand::Run(Console& console, PrinterSession& session) {
    const auto printers = session.Printers();
    nlohmann::json list = nlohmann::json::array();
    TextTable table;
    table.AddRow({"NAME", "MODEL", "SERIAL", "USB ID", "KIND", "PRINTER CHANNEL", "STATUS REPORTS"});
    for (const auto& printer : printers) {
        list.push_back(ToJson(printer));
        const std::string kind = printer.isVirtual ? "virtual" : printer.hasQueue ? "queue" : "no queue";
        auto orDash = [](const std::wstring& text) {
            return text.empty() ? std::string("-") : StringConverter::ToUtf8(text);
        };
        table.AddRow({StringConverter::ToUtf8(printer.printerName), orDash(printer.modelName),
                      orDash(printer.serialNumber), UsbId(printer), kind, orDash(printer.printerPath),
                      orDash(printer.hidPath)});
    }
    console.Result(nlohmann::json{{"printers", list}}, [&](std::ostream& out) {
        if (printers.empty()) {
            out << "No QRV printer found. `qrvctl doctor` says why; `qrvctl --simulate ...` runs without "
                   "one.\n";
            return;
        }
        table.Print(out);
    });
}

} // namespace vela::qrvctl
