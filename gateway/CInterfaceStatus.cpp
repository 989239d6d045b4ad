// The C interface: status, battery and identity queries.
#include "common/StringConverter.h"
#include "gateway/CInterfaceBlock.h"
#include "gateway/CInterfaceCall.h"
#include "gateway/CPrinterHandle.h"

using vela::common::StringConverter;
using vela::kom::CInterfaceCall;
using vela::kom::CopyText;
using vela::kom::RecordBlock;
namespace host = vela::printer::communication;

namespace {

// Runs a query that hands back one value through `out` (reset first).
template <class T, class Query>
qrv_result QueryValue(const char* function, const char* outName, qrv_printer* printer, T* out, Query query) {
    return CInterfaceCall::Run([&] {
        CInterfaceCall::Require(out, function, outName);
        *out = T{};
        CInterfaceCall::Require(printer, function, "printer");
        *out = query(printer->m_gateway);
        return QRV_OK;
    });
}

// Runs a query that hands back one text as a block of its own.
template <class Query>
qrv_result QueryText(const char* function, const char* outName, qrv_printer* printer, char** out,
                     Query query) {
    return QueryValue(function, outName, printer, out,
                      [&](auto& gateway) { return CopyText(StringConverter::ToUtf8(query(gateway))); });
}

} // namespace

extern "C" {

qrv_result qrv_get_status(qrv_printer* printer, qrv_status* status) {
    return QueryValue("qrv_get_status", "status", printer, status, [](auto& gateway) {
        uint32_t fields[QRV_STATUS_ITEM_COUNT] = {};
        for (const host::PrinterStatusItem& item : gateway.GetPrinterStatus()) {
            const auto kind = static_cast<uint32_t>(item.Kind());
            if (kind < QRV_STATUS_ITEM_COUNT) {
                fields[kind] = item.Value();
            }
        }
        return qrv_status{fields[0], fields[1], fields[2], fields[3], fields[4], fields[5],
                          fields[6], fields[7], fields[8], fields[9], fields[10]};
    });
}

qrv_result qrv_get_error_status(qrv_printer* printer, qrv_status_item* items, size_t* count) {
    return CInterfaceCall::Run([&] {
        CInterfaceCall::Require(items, "qrv_get_error_status", "items");
        CInterfaceCall::Require(count, "qrv_get_error_status", "count");
        *count = 0;
        CInterfaceCall::Require(printer, "qrv_get_error_status", "printer");
        for (const host::PrinterStatusItem& item : printer->m_gateway.GetFilteredPrinterErrorStatus()) {
            if (*count < QRV_STATUS_ITEM_COUNT) {
                items[(*count)++] = qrv_status_item{static_cast<uint32_t>(item.Kind()), item.Value()};
            }
        }
        return QRV_OK;
    });
}

qrv_result qrv_get_battery_percentage(qrv_printer* printer, uint32_t* percent) {
    return QueryValue("qrv_get_battery_percentage", "percent", printer, percent,
                      [](auto& gateway) { return gateway.GetBatteryChargedPercentage(); });
}

qrv_result qrv_get_battery_status(qrv_printer* printer, uint32_t* battery) {
    return QueryValue("qrv_get_battery_status", "battery", printer, battery,
                      [](auto& gateway) { return static_cast<uint32_t>(gateway.GetBatteryStatus()); });
}

qrv_result qrv_get_charging_status(qrv_printer* printer, uint32_t* charging) {
    return QueryValue("qrv_get_charging_status", "charging", printer, charging,
                      [](auto& gateway) { return static_cast<uint32_t>(gateway.GetChargingStatus()); });
}

qrv_result qrv_get_external_power_status(qrv_printer* printer, uint32_t* external_power) {
    return QueryValue("qrv_get_external_power_status", "external_power", printer, external_power,
                      [](auto& gateway) { return static_cast<uint32_t>(gateway.GetExternalPowerStatus()); });
}

qrv_result qrv_get_versions(qrv_printer* printer, qrv_version_entry** versions, size_t* count) {
    return CInterfaceCall::Run([&] {
        CInterfaceCall::Require(versions, "qrv_get_versions", "versions");
        CInterfaceCall::Require(count, "qrv_get_versions", "count");
        *versions = nullptr;
        *count = 0;
        CInterfaceCall::Require(printer, "qrv_get_versions", "printer");
        const auto list = printer->m_gateway.GetVersions();
        std::vector<std::string> texts;
        for (const auto& [component, version] : list) {
            texts.push_back(StringConverter::ToUtf8(component));
            texts.push_back(StringConverter::ToUtf8(version));
        }
        RecordBlock<qrv_version_entry> block(list.size(), texts);
        for (size_t i = 0; i < list.size(); ++i) {
            block[i].component = block.Text(2 * i);
            block[i].version = block.Text(2 * i + 1);
        }
        *count = list.size();
        *versions = block.Release();
        return QRV_OK;
    });
}

qrv_result qrv_get_device_id(qrv_printer* printer, char** id) {
    return QueryText("qrv_get_device_id", "id", printer, id,
                     [](auto& gateway) { return gateway.GetDeviceID(); });
}

qrv_result qrv_get_printer_type(qrv_printer* printer, char** type) {
    return QueryText("qrv_get_printer_type", "type", printer, type,
                     [](auto& gateway) { return gateway.GetPrinterType(); });
}

qrv_result qrv_get_cassette_id(qrv_printer* printer, char** id) {
    return QueryText("qrv_get_cassette_id", "id", printer, id,
                     [](auto& gateway) { return gateway.GetCassetteIdentifier(); });
}

qrv_result qrv_get_library_path(qrv_printer* printer, int32_t library, char** path) {
    return QueryText("qrv_get_library_path", "path", printer, path, [library](auto& gateway) {
        switch (library) {
        case QRV_LIBRARY_IMAGE:
            return gateway.GetImageLibraryPath();
        case QRV_LIBRARY_JOB_FILE:
            return gateway.GetJobFileLibraryPath();
        case QRV_LIBRARY_TEMPLATE:
            return gateway.GetTemplateLibraryPath();
        case QRV_LIBRARY_UPDATE:
            return gateway.GetUpdateLibraryPath();
        default:
            CInterfaceCall::InvalidArgument("qrv_get_library_path",
                                            "library " + std::to_string(library) + " is not one of 0..3");
        }
    });
}

} // extern "C"
