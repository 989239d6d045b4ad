#pragma once

#include "qrv/PrintInterruptEventArgs.h"
#include "qrv/PrinterStatusItem.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vela::qrvctl {

// Names for the printer's status as the tool shows it: a stable camel-case key and value for
// JSON documents ("cassetteDoor": "open") and words for people ("Cassette door  open").
// Pure tables; no state.
class StatusText {
public:
    using EPrintStatusItem = vela::printer::communication::EPrintStatusItem;
    using EPrintInterruptIssue = vela::printer::communication::EPrintInterruptIssue;
    using PrinterStatusItem = vela::printer::communication::PrinterStatusItem;

    static constexpr uint32_t kFieldCount = 11;

    static const char* FieldKey(EPrintStatusItem kind);   // "cassetteDoor"
    static const char* FieldLabel(EPrintStatusItem kind); // "Cassette door"
    // The value's name within its kind ("open", "presentUnverified"); "value<N>" for a number the
    // host enumeration does not name.
    static std::string ValueKey(const PrinterStatusItem& item);
    static std::string ValueText(const PrinterStatusItem& item); // "present (not verified)"

    static const char* IssueKey(EPrintInterruptIssue issue);  // "cassetteDoorOpen"
    static const char* IssueText(EPrintInterruptIssue issue); // "cassette door open"
};

} // namespace vela::qrvctl
