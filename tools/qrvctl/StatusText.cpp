#include "StatusText.h"

#include <array>

namespace vela::qrvctl {

namespace {

struct ValueName {
    const char* key;
    const char* text;
};

struct FieldNames {
    const char* key;
    const char* label;
    std::vector<ValueName> values; // indexed by the host enumeration's number
};

// In the host enumerations' order (StatusEnumerations.h); the index is the value.
const std::array<FieldNames, StatusText::kFieldCount>& Fields() {
    static const std::array<FieldNames, StatusText::kFieldCount> fields{{
        {"power", "Power", {{"ok", "ok"}, {"low", "low"}, {"critical", "critical"}, {"unknown", "unknown"}}},
        {"cassetteDoor",
         "Cassette door",
         {{"closed", "closed"}, {"open", "open"}, {"error", "error"}, {"unknown", "unknown"}}},
        {"cassette",
         "Cassette",
         {{"present", "present"},
          {"absent", "absent"},
          {"presentUnverified", "present (not verified)"},
          {"unknown", "unknown"},
          {"invalid", "invalid"}}},
        {"printHead",
         "Print head",
         {{"normal", "normal"},
          {"warm", "warm"},
          {"hot", "hot"},
          {"unknown", "unknown"},
          {"invalid", "invalid"}}},
        {"cutter",
         "Cutter",
         {{"ok", "ok"},
          {"busy", "busy"},
          {"jammed", "jammed"},
          {"bladeError", "blade error"},
          {"error", "error"},
          {"unknown", "unknown"}}},
        {"label",
         "Label",
         {{"ok", "ok"},
          {"out", "out"},
          {"jammed", "jammed"},
          {"low", "low"},
          {"notTaken", "not taken"},
          {"error", "error"},
          {"unknown", "unknown"}}},
        {"cassetteMemory",
         "Cassette memory",
         {{"ok", "ok"}, {"unreadable", "unreadable"}, {"error", "error"}, {"unknown", "unknown"}}},
        {"print",
         "Print",
         {{"idle", "idle"},
          {"printing", "printing"},
          {"paused", "paused"},
          {"aborted", "aborted"},
          {"cooling", "cooling down"},
          {"error", "error"},
          {"unknown", "unknown"}}},
        {"externalPower",
         "External power",
         {{"disconnected", "disconnected"},
          {"connected", "connected"},
          {"error", "error"},
          {"unknown", "unknown"}}},
        {"battery",
         "Battery",
         {{"empty", "empty"},
          {"level1", "level 1 of 5"},
          {"level2", "level 2 of 5"},
          {"level3", "level 3 of 5"},
          {"level4", "level 4 of 5"},
          {"full", "full"},
          {"error", "error"},
          {"unknown", "unknown"}}},
        {"charging",
         "Charging",
         {{"notCharging", "not charging"},
          {"charging", "charging"},
          {"error", "error"},
          {"unknown", "unknown"}}},
    }};
    return fields;
}

const FieldNames* Find(StatusText::EPrintStatusItem kind) {
    const auto index = static_cast<size_t>(kind);
    return index < Fields().size() ? &Fields()[index] : nullptr;
}

const ValueName* FindValue(const StatusText::PrinterStatusItem& item) {
    const FieldNames* field = Find(item.Kind());
    if (field == nullptr || item.Value() >= field->values.size()) {
        return nullptr;
    }
    return &field->values[item.Value()];
}

struct IssueName {
    const char* key;
    const char* text;
};

const std::array<IssueName, 13> kIssues{{
    {"cassetteDoorOpen", "cassette door open"},
    {"cassetteMissing", "cassette missing"},
    {"cassetteMemoryError", "cassette memory error"},
    {"labelJammed", "label jammed"},
    {"labelLow", "label low"},
    {"batteryLow", "battery low"},
    {"powerLow", "power low"},
    {"powerCritical", "power critical"},
    {"reserved8", "reserved (8)"},
    {"reserved9", "reserved (9)"},
    {"cutterBladeError", "cutter blade error"},
    {"cutterJammedOrLabelNotTaken", "cutter jammed or label not taken"},
    {"otherError", "other error"},
}};

} // namespace

const char* StatusText::FieldKey(EPrintStatusItem kind) {
    const FieldNames* field = Find(kind);
    return field != nullptr ? field->key : "unknownField";
}

const char* StatusText::FieldLabel(EPrintStatusItem kind) {
    const FieldNames* field = Find(kind);
    return field != nullptr ? field->label : "Unknown field";
}

std::string StatusText::ValueKey(const PrinterStatusItem& item) {
    const ValueName* value = FindValue(item);
    return value != nullptr ? value->key : "value" + std::to_string(item.Value());
}

std::string StatusText::ValueText(const PrinterStatusItem& item) {
    const ValueName* value = FindValue(item);
    return value != nullptr ? value->text : "value " + std::to_string(item.Value());
}

const char* StatusText::IssueKey(EPrintInterruptIssue issue) {
    const auto index = static_cast<size_t>(issue);
    return index < kIssues.size() ? kIssues[index].key : "otherError";
}

const char* StatusText::IssueText(EPrintInterruptIssue issue) {
    const auto index = static_cast<size_t>(issue);
    return index < kIssues.size() ? kIssues[index].text : "other error";
}

} // namespace vela::qrvctl
