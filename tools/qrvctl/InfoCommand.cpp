#include "InfoCommand.h"

#include "ByteText.h"
#include "StatusText.h"
#include "TextTable.h"
#include "common/StringConverter.h"

namespace vela::qrvctl {

namespace hc = vela::printer::communication;
using vela::common::StringConverter;

std::string InfoCommand::VersionKey(const std::wstring& component) {
    static const std::pair<const wchar_t*, const char*> keys[] = {
        {L"OS", "os"},           {L"Firmware", "firmware"},   {L"Application", "application"},
        {L"Overall", "overall"}, {L"Auxiliary", "auxiliary"}, {L"DeviceID", "deviceId"},
        {L"RootFS", "rootFs"},
    };
    for (const auto& [name, key] : keys) {
        if (component == name) {
            return key;
        }
    }
    return StringConverter::ToUtf8(component);
}

void InfoCommand::Run(Console& console, PrinterSession& session) {
    auto& gateway = session.Open();
    const auto versions = gateway.GetVersions();
    const std::string deviceId = StringConverter::ToUtf8(gateway.GetDeviceID());
    const std::string sku = StringConverter::ToUtf8(gateway.GetCassetteIdentifier());
    const uint32_t percent = gateway.GetBatteryChargedPercentage();
    const hc::PrinterStatusItem battery(hc::EPrintStatusItem::batteryStatus,
                                        static_cast<uint32_t>(gateway.GetBatteryStatus()));
    const hc::PrinterStatusItem charging(hc::EPrintStatusItem::chargingStatus,
                                         static_cast<uint32_t>(gateway.GetChargingStatus()));
    const hc::PrinterStatusItem external(hc::EPrintStatusItem::externalPowerSupplyStatus,
                                         static_cast<uint32_t>(gateway.GetExternalPowerStatus()));
    uint64_t freeKiB = 0;
    uint64_t usedKiB = 0;
    gateway.GetDiskSpaceKB(freeKiB, usedKiB);
    const std::pair<const char*, std::wstring> folders[] = {
        {"images", gateway.GetImageLibraryPath()},
        {"jobs", gateway.GetJobFileLibraryPath()},
        {"templates", gateway.GetTemplateLibraryPath()},
        {"update", gateway.GetUpdateLibraryPath()},
    };
    const auto& printer = session.Printer();

    nlohmann::json document{
        {"printer", session.PrinterName()},
        {"model", StringConverter::ToUtf8(printer.model)},
        {"serial", StringConverter::ToUtf8(printer.serial)},
        {"deviceId", deviceId},
        {"cassetteSku", sku.empty() ? nlohmann::json() : nlohmann::json(sku)},
        {"battery",
         {{"percent", percent},
          {"status", StatusText::ValueKey(battery)},
          {"charging", StatusText::ValueKey(charging)}}},
        {"externalPower", StatusText::ValueKey(external)},
        {"disk", {{"freeKiB", freeKiB}, {"usedKiB", usedKiB}}},
    };
    nlohmann::json versionJson = nlohmann::json::object();
    for (const auto& [component, version] : versions) {
        versionJson[VersionKey(component)] = StringConverter::ToUtf8(version);
    }
    document["versions"] = versionJson;
    nlohmann::json folderJson = nlohmann::json::object();
    for (const auto& [key, path] : folders) {
        folderJson[key] = StringConverter::ToUtf8(path);
    }
    document["folders"] = folderJson;

    console.Result(document, [&](TextWriter& out) {
        TextTable table;
        table.AddRow({"Printer", session.PrinterName()});
        table.AddRow({"Model", StringConverter::ToUtf8(printer.model)});
        table.AddRow({"Serial", printer.serial.empty() ? "-" : StringConverter::ToUtf8(printer.serial)});
        table.AddRow({"Device ID", deviceId.empty() ? "-" : deviceId});
        for (const auto& [component, version] : versions) {
            if (component == L"DeviceID") {
                continue; // the device id row above
            }
            const std::string label = component == L"RootFS" ? "Root FS" : StringConverter::ToUtf8(component);
            table.AddRow({label + " version", version.empty() ? "-" : StringConverter::ToUtf8(version)});
        }
        table.AddRow(
            {"Cassette", sku.empty() ? "none (no cassette, or its memory is unreadable)" : "SKU " + sku});
        table.AddRow({"Battery", std::to_string(percent) + " % (" + StatusText::ValueText(battery) + "), " +
                                     StatusText::ValueText(charging)});
        table.AddRow({"External power", StatusText::ValueText(external)});
        table.AddRow({"Disk", FormatBytes(freeKiB << 10) + " free, " + FormatBytes(usedKiB << 10) + " used"});
        for (const auto& [key, path] : folders) {
            table.AddRow({std::string("Folder: ") + key, StringConverter::ToUtf8(path)});
        }
        table.Print(out);
    });
}

} // namespace vela::qrvctl
