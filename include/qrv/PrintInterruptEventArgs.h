#pragma once

#include <cstdint>
#include <functional>

namespace vela::printer::communication {

// Why the printer stopped printing, in host numbering (see StatusConversion::GetPrintInterruptIssue
// for how the printer's interrupt codes arrive here). 8 and 9 belong to the host's numbering but
// are never produced from a printer report.
enum class EPrintInterruptIssue : uint32_t {
    cassetteDoorOpen = 0,
    cassetteMissing = 1,
    cassetteMemoryError = 2,
    labelJammed = 3,
    labelLow = 4,
    batteryLow = 5,
    powerLow = 6,
    powerCritical = 7,
    reserved8 = 8,
    reserved9 = 9,
    cutterBladeError = 10,
    cutterJammedOrLabelNotTaken = 11,
    otherError = 12
};

// A print interruption: the printer's code, its host meaning and the status record's 16-bit value.
class PrintInterruptEventArgs {
public:
    PrintInterruptEventArgs(uint32_t code, EPrintInterruptIssue issue, uint32_t value)
        : m_code(code), m_issue(issue), m_value(value) {}

    uint32_t Code() const { return m_code; }
    EPrintInterruptIssue Issue() const { return m_issue; }
    uint32_t Value() const { return m_value; }

private:
    uint32_t m_code;
    EPrintInterruptIssue m_issue;
    uint32_t m_value;
};

using PrintInterruptHandler = std::function<void(const PrintInterruptEventArgs&)>;

} // namespace vela::printer::communication
