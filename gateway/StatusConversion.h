#pragma once

#include "kom/protocol/PrinterStatus.h"
#include "qrv/PrintInterruptEventArgs.h"
#include "qrv/PrinterStatusItem.h"

#include <cstdint>
#include <vector>

namespace vela::kom {

// Pure translations from the native status record and interrupt codes to the host's types.
// No state, no I/O, no exceptions; callable from any thread.
class StatusConversion {
public:
    using PrinterStatusItem = vela::printer::communication::PrinterStatusItem;
    using EPrintStatusItem = vela::printer::communication::EPrintStatusItem;
    using EPrintInterruptIssue = vela::printer::communication::EPrintInterruptIssue;

    static PrinterStatusItem CreatePrinterStatusItem(EPrintStatusItem kind, uint32_t value);

    // One native field value -> the item of its kind with the host value. Values the printer
    // never sends land on the host's "unknown"; some pairs swap on purpose (door, cassette
    // memory, external power and charging 2<->3; battery 6<->7).
    static PrinterStatusItem GetPowerStatus(uint32_t value);          // kind 0
    static PrinterStatusItem GetCassetteDoorStatus(uint32_t value);   // kind 1
    static PrinterStatusItem GetCassettePresence(uint32_t value);     // kind 2
    static PrinterStatusItem GetTphStatus(uint32_t value);            // kind 3
    static PrinterStatusItem GetCutterStatus(uint32_t value);         // kind 4
    static PrinterStatusItem GetLabelStatus(uint32_t value);          // kind 5
    static PrinterStatusItem GetCassetteMemoryStatus(uint32_t value); // kind 6
    static PrinterStatusItem GetPrintStatus(uint32_t value);          // kind 7
    static PrinterStatusItem GetExternalPowerStatus(uint32_t value);  // kind 8
    static PrinterStatusItem GetBatteryStatus(uint32_t value);        // kind 9
    static PrinterStatusItem GetChargingStatus(uint32_t value);       // kind 10

    // The item of `kind` for a native value (dispatches to the conversions above).
    static PrinterStatusItem ConvertField(EPrintStatusItem kind, uint32_t value);

    // Interrupt code of the monitor -> host issue: 0..7 unchanged, 8->11, 9->10, 10->11, else 12.
    static EPrintInterruptIssue GetPrintInterruptIssue(uint32_t code);

    // The eleven items of a full status record, kinds 0..10 in order (the operating status and
    // the 16-bit value have no host item).
    static std::vector<PrinterStatusItem> AllItems(const PrinterStatus& status);

    // The items of a change record (fields hold their new value, or the marker that means
    // "unchanged": power 4, door 5, presence 4, print head 4, cutter 9, label 9, cassette memory 5,
    // print 9, external power 5, battery 9, charging 5): only the changed fields, in field order.
    static std::vector<PrinterStatusItem> ChangedItems(const PrinterStatus& change);

    // The conditions a user has to act on before the printer can go on, in field order, as items
    // of a full record:
    //   power critical; cassette door open or in error; cassette absent; print head hot;
    //   cutter jammed, blade error or error; label out, jammed, not taken or error;
    //   cassette memory unreadable or in error; print error; external power error;
    //   battery empty or in error; charging error.
    // Warnings that need no action (low power, warm head, label low, battery levels, a print that
    // is paused or aborted) and "unknown" values are left out.
    static std::vector<PrinterStatusItem> ErrorItems(const PrinterStatus& status);
    static bool IsError(const PrinterStatusItem& item);

    // Native battery status -> charge in percent: levels 0..5 give 0, 20, 40, 60, 80, 100;
    // an error or unknown battery status gives 0 (the host must not count on charge it cannot see).
    static uint32_t BatteryChargedPercentage(uint32_t nativeBatteryStatus);
};

} // namespace vela::kom
