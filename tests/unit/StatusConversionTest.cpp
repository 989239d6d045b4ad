#include "gateway/StatusConversion.h"

#include <gtest/gtest.h>

using namespace vela::kom;
using namespace vela::printer::communication;

namespace {

constexpr uint32_t kOther = 0xFFFFFFFFu;

// The host value each conversion gives for native 0..9 and for a far-off value.
struct KindTable {
    EPrintStatusItem kind;
    PrinterStatusItem (*convert)(uint32_t);
    uint32_t expected[11]; // native 0..9, then kOther
};

PrinterStatus Markers() {
    return PrinterStatus(4, 5, 4, 4, 9, 9, 5, 9, 5, 9, 5, 3, 0);
}

} // namespace

TEST(StatusConversion, EveryFieldIncludingTheSwappedPairs) {
    const KindTable tables[] = {
        {EPrintStatusItem::powerStatus, &StatusConversion::GetPowerStatus, {0, 1, 2, 3, 3, 3, 3, 3, 3, 3, 3}},
        {EPrintStatusItem::cassetteDoorStatus,
         &StatusConversion::GetCassetteDoorStatus,
         {0, 1, 3, 2, 3, 3, 3, 3, 3, 3, 3}},
        {EPrintStatusItem::cassettePresence,
         &StatusConversion::GetCassettePresence,
         {0, 1, 2, 3, 4, 4, 4, 4, 4, 4, 4}},
        {EPrintStatusItem::printHeadTemperature,
         &StatusConversion::GetTphStatus,
         {0, 1, 2, 3, 4, 4, 4, 4, 4, 4, 4}},
        {EPrintStatusItem::cutterStatus,
         &StatusConversion::GetCutterStatus,
         {0, 1, 2, 5, 5, 5, 3, 4, 5, 5, 5}},
        {EPrintStatusItem::labelStatus, &StatusConversion::GetLabelStatus, {0, 1, 2, 3, 6, 6, 4, 5, 6, 6, 6}},
        {EPrintStatusItem::cassetteMemoryStatus,
         &StatusConversion::GetCassetteMemoryStatus,
         {0, 1, 3, 2, 3, 3, 3, 3, 3, 3, 3}},
        {EPrintStatusItem::printStatus, &StatusConversion::GetPrintStatus, {0, 1, 2, 3, 4, 6, 6, 5, 6, 6, 6}},
        {EPrintStatusItem::externalPowerSupplyStatus,
         &StatusConversion::GetExternalPowerStatus,
         {0, 1, 3, 2, 3, 3, 3, 3, 3, 3, 3}},
        {EPrintStatusItem::batteryStatus,
         &StatusConversion::GetBatteryStatus,
         {0, 1, 2, 3, 4, 5, 7, 6, 7, 7, 7}},
        {EPrintStatusItem::chargingStatus,
         &StatusConversion::GetChargingStatus,
         {0, 1, 3, 2, 3, 3, 3, 3, 3, 3, 3}},
    };
    for (const KindTable& t : tables) {
        for (uint32_t native = 0; native <= 10; ++native) {
            uint32_t value = native == 10 ? kOther : native;
            SCOPED_TRACE(testing::Message()
                         << "kind " << static_cast<uint32_t>(t.kind) << " native " << value);
            PrinterStatusItem item = t.convert(value);
            EXPECT_EQ(item.Kind(), t.kind);
            EXPECT_EQ(item.Value(), t.expected[native]);
            EXPECT_EQ(StatusConversion::ConvertField(t.kind, value), item);
        }
    }
    EXPECT_EQ(StatusConversion::GetCassetteDoorStatus(3).As<ECassetteDoorStatus>(),
              ECassetteDoorStatus::error);
    EXPECT_EQ(StatusConversion::GetBatteryStatus(7).As<EBatteryStatus>(), EBatteryStatus::error);
}

TEST(StatusConversion, InterruptIssues) {
    for (uint32_t code = 0; code <= 7; ++code) {
        EXPECT_EQ(static_cast<uint32_t>(StatusConversion::GetPrintInterruptIssue(code)), code);
    }
    EXPECT_EQ(StatusConversion::GetPrintInterruptIssue(8), EPrintInterruptIssue::cutterJammedOrLabelNotTaken);
    EXPECT_EQ(StatusConversion::GetPrintInterruptIssue(9), EPrintInterruptIssue::cutterBladeError);
    EXPECT_EQ(StatusConversion::GetPrintInterruptIssue(10),
              EPrintInterruptIssue::cutterJammedOrLabelNotTaken);
    for (uint32_t code : {11u, 12u, 13u, 14u, kOther}) {
        EXPECT_EQ(StatusConversion::GetPrintInterruptIssue(code), EPrintInterruptIssue::otherError) << code;
    }
}

TEST(StatusConversion, ChangeRecordsGiveOnlyTheChangedFields) {
    EXPECT_TRUE(StatusConversion::ChangedItems(Markers()).empty());
    // The operating status and the 16-bit value have no host item.
    EXPECT_TRUE(
        StatusConversion::ChangedItems(PrinterStatus(4, 5, 4, 4, 9, 9, 5, 9, 5, 9, 5, 0, 77)).empty());

    auto cutterOnly = StatusConversion::ChangedItems(PrinterStatus(4, 5, 4, 4, 2, 9, 5, 9, 5, 9, 5, 3, 0));
    ASSERT_EQ(cutterOnly.size(), 1u);
    EXPECT_EQ(cutterOnly[0], PrinterStatusItem(EPrintStatusItem::cutterStatus, 2));

    // The monitor's fixed record for a 0xF0 report: power and print status.
    auto fixed = StatusConversion::ChangedItems(PrinterStatus(3, 5, 4, 4, 9, 9, 5, 4, 5, 9, 5, 3, 0));
    ASSERT_EQ(fixed.size(), 2u);
    EXPECT_EQ(fixed[0], PrinterStatusItem(EPrintStatusItem::powerStatus, 3));
    EXPECT_EQ(fixed[1], PrinterStatusItem(EPrintStatusItem::printStatus, 4));

    // Converted values, not raw ones, and field order.
    auto two = StatusConversion::ChangedItems(PrinterStatus(4, 3, 4, 4, 9, 9, 5, 9, 5, 6, 5, 3, 0));
    ASSERT_EQ(two.size(), 2u);
    EXPECT_EQ(two[0], PrinterStatusItem(EPrintStatusItem::cassetteDoorStatus, 2));
    EXPECT_EQ(two[1], PrinterStatusItem(EPrintStatusItem::batteryStatus, 7));

    auto all = StatusConversion::ChangedItems(PrinterStatus(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
    ASSERT_EQ(all.size(), 11u);
    for (uint32_t k = 0; k < 11; ++k) {
        EXPECT_EQ(all[k], PrinterStatusItem(static_cast<EPrintStatusItem>(k), 0));
    }
}

TEST(StatusConversion, FullRecordsErrorFilterAndBatteryPercentage) {
    PrinterStatus defaults;
    auto items = StatusConversion::AllItems(defaults);
    ASSERT_EQ(items.size(), 11u);
    EXPECT_EQ(items[4], PrinterStatusItem(EPrintStatusItem::cutterStatus, 5));
    EXPECT_TRUE(StatusConversion::ErrorItems(defaults).empty()); // unknown is not an error

    // door open, cassette present, head warm, cutter jammed, label low, print paused, battery level 3.
    PrinterStatus mixed(0, 1, 0, 1, 2, 3, 0, 2, 1, 3, 1, 0, 0);
    auto errors = StatusConversion::ErrorItems(mixed);
    ASSERT_EQ(errors.size(), 2u);
    EXPECT_EQ(errors[0], PrinterStatusItem(EPrintStatusItem::cassetteDoorStatus, 1));
    EXPECT_EQ(errors[1], PrinterStatusItem(EPrintStatusItem::cutterStatus, 2));

    // Every error kind at once: power critical, door error, cassette absent, head hot, cutter
    // error, label not taken, memory error, print error, external power error, battery error,
    // charging error.
    PrinterStatus worst(2, 3, 1, 2, 7, 6, 3, 7, 3, 7, 3, 0, 0);
    EXPECT_EQ(StatusConversion::ErrorItems(worst).size(), 11u);

    const uint32_t percent[] = {0, 20, 40, 60, 80, 100, 0, 0, 0};
    for (uint32_t level = 0; level < 9; ++level) {
        EXPECT_EQ(StatusConversion::BatteryChargedPercentage(level), percent[level]) << level;
    }
    EXPECT_EQ(StatusConversion::BatteryChargedPercentage(kOther), 0u);
}
