#include "gateway/StatusConversion.h"

namespace vela::kom {

using namespace vela::printer::communication;

namespace {

// The value of a change-record field that means "this field did not change", per kind.
constexpr uint32_t kUnchangedMarker[] = {4, 5, 4, 4, 9, 9, 5, 9, 5, 9, 5};
constexpr uint32_t kItemKinds = 11;

template <class E> uint32_t U(E e) {
    return static_cast<uint32_t>(e);
}

} // namespace

PrinterStatusItem StatusConversion::CreatePrinterStatusItem(EPrintStatusItem kind, uint32_t value) {
    return PrinterStatusItem(kind, value);
}

PrinterStatusItem StatusConversion::GetPowerStatus(uint32_t value) {
    EPowerStatus host = value <= 2 ? static_cast<EPowerStatus>(value) : EPowerStatus::unknown;
    return CreatePrinterStatusItem(EPrintStatusItem::powerStatus, U(host));
}

PrinterStatusItem StatusConversion::GetCassetteDoorStatus(uint32_t value) {
    ECassetteDoorStatus host = ECassetteDoorStatus::unknown;
    switch (value) {
    case 0:
        host = ECassetteDoorStatus::closed;
        break;
    case 1:
        host = ECassetteDoorStatus::open;
        break;
    case 3:
        host = ECassetteDoorStatus::error;
        break;
    default: // 2 is not a door state the printer uses
        break;
    }
    return CreatePrinterStatusItem(EPrintStatusItem::cassetteDoorStatus, U(host));
}

PrinterStatusItem StatusConversion::GetCassettePresence(uint32_t value) {
    ECassettePresence host = value <= 3 ? static_cast<ECassettePresence>(value) : ECassettePresence::invalid;
    return CreatePrinterStatusItem(EPrintStatusItem::cassettePresence, U(host));
}

PrinterStatusItem StatusConversion::GetTphStatus(uint32_t value) {
    EPrintHeadTemperature host =
        value <= 3 ? static_cast<EPrintHeadTemperature>(value) : EPrintHeadTemperature::invalid;
    return CreatePrinterStatusItem(EPrintStatusItem::printHeadTemperature, U(host));
}

PrinterStatusItem StatusConversion::GetCutterStatus(uint32_t value) {
    ECutterStatus host = ECutterStatus::unknown;
    switch (value) {
    case 0:
    case 1:
    case 2:
        host = static_cast<ECutterStatus>(value);
        break;
    case 6:
        host = ECutterStatus::bladeError;
        break;
    case 7:
        host = ECutterStatus::error;
        break;
    default:
        break;
    }
    return CreatePrinterStatusItem(EPrintStatusItem::cutterStatus, U(host));
}

PrinterStatusItem StatusConversion::GetLabelStatus(uint32_t value) {
    ELabelStatus host = ELabelStatus::unknown;
    switch (value) {
    case 0:
    case 1:
    case 2:
    case 3:
        host = static_cast<ELabelStatus>(value);
        break;
    case 6:
        host = ELabelStatus::notTaken;
        break;
    case 7:
        host = ELabelStatus::error;
        break;
    default:
        break;
    }
    return CreatePrinterStatusItem(EPrintStatusItem::labelStatus, U(host));
}

PrinterStatusItem StatusConversion::GetCassetteMemoryStatus(uint32_t value) {
    ECassetteMemoryStatus host = ECassetteMemoryStatus::unknown;
    if (value <= 1) {
        host = static_cast<ECassetteMemoryStatus>(value);
    } else if (value == 3) {
        host = ECassetteMemoryStatus::error;
    }
    return CreatePrinterStatusItem(EPrintStatusItem::cassetteMemoryStatus, U(host));
}

PrinterStatusItem StatusConversion::GetPrintStatus(uint32_t value) {
    EPrintStatus host = EPrintStatus::unknown;
    if (value <= 4) {
        host = static_cast<EPrintStatus>(value);
    } else if (value == 7) {
        host = EPrintStatus::error;
    }
    return CreatePrinterStatusItem(EPrintStatusItem::printStatus, U(host));
}

PrinterStatusItem StatusConversion::GetExternalPowerStatus(uint32_t value) {
    EExternalPowerSupplyStatus host = EExternalPowerSupplyStatus::unknown;
    if (value <= 1) {
        host = static_cast<EExternalPowerSupplyStatus>(value);
    } else if (value == 3) {
        host = EExternalPowerSupplyStatus::error;
    }
    return CreatePrinterStatusItem(EPrintStatusItem::externalPowerSupplyStatus, U(host));
}

PrinterStatusItem StatusConversion::GetBatteryStatus(uint32_t value) {
    EBatteryStatus host = EBatteryStatus::unknown;
    if (value <= 5) {
        host = static_cast<EBatteryStatus>(value);
    } else if (value == 7) {
        host = EBatteryStatus::error;
    }
    return CreatePrinterStatusItem(EPrintStatusItem::batteryStatus, U(host));
}

PrinterStatusItem StatusConversion::GetChargingStatus(uint32_t value) {
    EChargingStatus host = EChargingStatus::unknown;
    if (value <= 1) {
        host = static_cast<EChargingStatus>(value);
    } else if (value == 3) {
        host = EChargingStatus::error;
    }
    return CreatePrinterStatusItem(EPrintStatusItem::chargingStatus, U(host));
}

PrinterStatusItem StatusConversion::ConvertField(EPrintStatusItem kind, uint32_t value) {
    switch (kind) {
    case EPrintStatusItem::powerStatus:
        return GetPowerStatus(value);
    case EPrintStatusItem::cassetteDoorStatus:
        return GetCassetteDoorStatus(value);
    case EPrintStatusItem::cassettePresence:
        return GetCassettePresence(value);
    case EPrintStatusItem::printHeadTemperature:
        return GetTphStatus(value);
    case EPrintStatusItem::cutterStatus:
        return GetCutterStatus(value);
    case EPrintStatusItem::labelStatus:
        return GetLabelStatus(value);
    case EPrintStatusItem::cassetteMemoryStatus:
        return GetCassetteMemoryStatus(value);
    case EPrintStatusItem::printStatus:
        return GetPrintStatus(value);
    case EPrintStatusItem::externalPowerSupplyStatus:
        return GetExternalPowerStatus(value);
    case EPrintStatusItem::batteryStatus:
        return GetBatteryStatus(value);
    case EPrintStatusItem::chargingStatus:
        return GetChargingStatus(value);
    }
    return CreatePrinterStatusItem(kind, value);
}

EPrintInterruptIssue StatusConversion::GetPrintInterruptIssue(uint32_t code) {
    if (code <= 7) {
        return static_cast<EPrintInterruptIssue>(code);
    }
    switch (code) {
    case 8:
    case 10:
        return EPrintInterruptIssue::cutterJammedOrLabelNotTaken;
    case 9:
        return EPrintInterruptIssue::cutterBladeError;
    default:
        return EPrintInterruptIssue::otherError;
    }
}

std::vector<PrinterStatusItem> StatusConversion::AllItems(const PrinterStatus& status) {
    std::vector<PrinterStatusItem> items;
    items.reserve(kItemKinds);
    for (uint32_t kind = 0; kind < kItemKinds; ++kind) {
        items.push_back(ConvertField(static_cast<EPrintStatusItem>(kind), status.Field(kind)));
    }
    return items;
}

std::vector<PrinterStatusItem> StatusConversion::ChangedItems(const PrinterStatus& change) {
    std::vector<PrinterStatusItem> items;
    for (uint32_t kind = 0; kind < kItemKinds; ++kind) {
        if (change.Field(kind) != kUnchangedMarker[kind]) {
            items.push_back(ConvertField(static_cast<EPrintStatusItem>(kind), change.Field(kind)));
        }
    }
    return items;
}

bool StatusConversion::IsError(const PrinterStatusItem& item) {
    const uint32_t v = item.Value();
    switch (item.Kind()) {
    case EPrintStatusItem::powerStatus:
        return v == U(EPowerStatus::critical);
    case EPrintStatusItem::cassetteDoorStatus:
        return v == U(ECassetteDoorStatus::open) || v == U(ECassetteDoorStatus::error);
    case EPrintStatusItem::cassettePresence:
        return v == U(ECassettePresence::absent);
    case EPrintStatusItem::printHeadTemperature:
        return v == U(EPrintHeadTemperature::hot);
    case EPrintStatusItem::cutterStatus:
        return v == U(ECutterStatus::jammed) || v == U(ECutterStatus::bladeError) ||
               v == U(ECutterStatus::error);
    case EPrintStatusItem::labelStatus:
        return v == U(ELabelStatus::out) || v == U(ELabelStatus::jammed) || v == U(ELabelStatus::notTaken) ||
               v == U(ELabelStatus::error);
    case EPrintStatusItem::cassetteMemoryStatus:
        return v == U(ECassetteMemoryStatus::unreadable) || v == U(ECassetteMemoryStatus::error);
    case EPrintStatusItem::printStatus:
        return v == U(EPrintStatus::error);
    case EPrintStatusItem::externalPowerSupplyStatus:
        return v == U(EExternalPowerSupplyStatus::error);
    case EPrintStatusItem::batteryStatus:
        return v == U(EBatteryStatus::empty) || v == U(EBatteryStatus::error);
    case EPrintStatusItem::chargingStatus:
        return v == U(EChargingStatus::error);
    }
    return false;
}

std::vector<PrinterStatusItem> StatusConversion::ErrorItems(const PrinterStatus& status) {
    std::vector<PrinterStatusItem> items;
    for (const PrinterStatusItem& item : AllItems(status)) {
        if (IsError(item)) {
            items.push_back(item);
        }
    }
    return items;
}

uint32_t StatusConversion::BatteryChargedPercentage(uint32_t nativeBatteryStatus) {
    return nativeBatteryStatus <= 5 ? nativeBatteryStatus * 20 : 0;
}

} // namespace vela::kom
