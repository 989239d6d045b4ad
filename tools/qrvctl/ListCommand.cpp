#include "ListCommand.h"

#include "TextTable.h"
#include "common/StringConverter.h"

#include <cstdio>

namespace vela::qrvctl {

using vela::common::StringConverter;
using vela::printer::communication::PrinterInfo;

namespace {
std::string OrDash(const std::wstring& text) {
    return text.empty() ? std::string("-") : StringConverter::ToUtf8(text);
}
} // namespace

std::string ListCommand::UsbId(const PrinterInfo& printer) {
    char text[16];
    std::snprintf(text, sizeof text, "%04x:%04x", printer.vendorId & 0xFFFFu, printer.productId & 0xFFFFu);
    return text;
}

nlohmann::json ListCommand::ToJson(const PrinterInfo& printer) {
    return nlohmann::json{
        {"name", StringConverter::ToUtf8(printer.name)},
        {"model", StringConverter::ToUtf8(printer.model)},
        {"usbId", UsbId(printer)},
        {"serial", StringConverter::ToUtf8(printer.serial)},
        {"printerPath", StringConverter::ToUtf8(printer.channelPath)},
        {"hidPath", StringConverter::ToUtf8(printer.statusPath)},
        {"virtual", printer.isVirtual},
        {"queue", printer.isQueueName},
        {"deviceUri", StringConverter::ToUtf8(printer.deviceUri)},
    };
}

void ListCommand::Run(Console& console, PrinterSession& session) {
    const auto& printers = session.Printers();
    nlohmann::json list = nlohmann::json::array();
    TextTable table;
    table.AddRow({"NAME", "MODEL", "SERIAL", "USB ID", "KIND"});
    for (const auto& printer : printers) {
        list.push_back(ToJson(printer));
        const std::string kind = printer.isVirtual ? "virtual" : printer.isQueueName ? "queue" : "no queue";
        table.AddRow({StringConverter::ToUtf8(printer.name), OrDash(printer.model), OrDash(printer.serial),
                      UsbId(printer), kind});
    }
    console.Result(nlohmann::json{{"printers", list}}, [&](TextWriter& out) {
        if (printers.empty()) {
            out << "No QRV printer found. `qrvctl doctor` says why; `qrvctl --simulate ...` runs without "
                   "one.\n";
            return;
        }
        table.Print(out);
        // The long texts each get a line of their own, so that the table fits a terminal.
        for (const auto& printer : printers) {
            out << '\n'
                << StringConverter::ToUtf8(printer.name) << ":\n"
                << "  device URI       " << OrDash(printer.deviceUri) << '\n'
                << "  printer channel  " << OrDash(printer.channelPath) << '\n'
                << "  status reports   " << OrDash(printer.statusPath) << '\n';
        }
    });
}

} // namespace vela::qrvctl
