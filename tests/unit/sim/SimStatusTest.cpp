#include "SimFixture.h"

using namespace simtest;
using vela::sim::HidReport;
using vela::sim::StatusBlock;
using vela::sim::StatusFields;

TEST(SimStatusFields, EachFieldLandsOnItsBits) {
    StatusFields f;
    f = {};
    f.power = 2, f.door = 1, f.cassette = 3, f.printHead = 1;
    f.cutter = 6, f.label = 3, f.cassetteMemory = 1;
    f.print = 4, f.externalPower = 1, f.battery = 5;
    f.charging = 1, f.sleeping = true, f.counter = 0x1234;
    StatusBlock b = f.ToBlock();
    EXPECT_EQ(b[0], 0x02 | (1 << 2) | (3 << 4) | (1 << 6));
    EXPECT_EQ(b[1], 6 | (3 << 3) | (1 << 6));
    EXPECT_EQ(b[2], 4 | (1 << 3) | (5 << 5));
    EXPECT_EQ(b[3], 0x81);
    EXPECT_EQ(b[6], 0x34);
    EXPECT_EQ(b[7], 0x12);
    // Every block survives the round trip, values the host refuses included.
    for (int v = 0; v < 256; ++v) {
        StatusBlock any{
            uint8_t(v), uint8_t(255 - v), uint8_t(v * 7), uint8_t(v * 13), uint8_t(v), 0, uint8_t(v), 1};
        EXPECT_EQ(StatusFields::FromBlock(any).ToBlock(), any);
    }
}

TEST_F(SimTest, EveryStatusChangeSendsAHidReportOfTheFirstSevenBytes) {
    printer.SetDoorOpen(true);
    printer.SetDoorOpen(true); // no change, no report
    printer.SetCassettePresent(false);
    printer.SetBatteryLevel(1);
    printer.SetCutterJammed(true);
    printer.SetExternalPower(true, true);
    std::vector<HidReport> reports = printer.TakeHidReports();
    ASSERT_EQ(reports.size(), 5u);
    for (const HidReport& r : reports) {
        EXPECT_EQ(r[0], 0x01) << "report id";
    }
    EXPECT_EQ((reports[0][1] >> 2) & 3, 1) << "door open";
    EXPECT_EQ((reports[1][1] >> 4) & 3, 1) << "cassette absent";
    EXPECT_EQ(reports[2][3] >> 5, 1) << "battery level 1";
    EXPECT_EQ(reports[3][2] & 7, 2) << "cutter jammed";
    EXPECT_EQ((reports[4][3] >> 3) & 3, 1) << "external power";
    EXPECT_EQ(reports[4][4] & 3, 1) << "charging";

    StatusBlock block = printer.GetStatusBlock();
    EXPECT_EQ(reports.back(),
              (HidReport{0x01, block[0], block[1], block[2], block[3], block[4], block[5], block[6]}));

    // A clear order that changes the status reports it too.
    Ask(PrintControl(0x0F));
    reports = printer.TakeHidReports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0][2] & 7, 0);
}

TEST_F(SimTest, SpecialReportMarksByteFiveAndChangesNothing) {
    StatusBlock before = printer.GetStatusBlock();
    printer.SendSpecialHidReport();
    printer.SendSpecialHidReport();
    auto reports = printer.TakeHidReports();
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[0], reports[1]);
    EXPECT_EQ(reports[0][0], 0x01);
    EXPECT_EQ(reports[0][5], 0xF0);
    EXPECT_EQ(reports[0][1], before[0]);
    EXPECT_EQ(printer.GetStatusBlock(), before);
    EXPECT_FALSE(printer.WaitHidReport(std::chrono::milliseconds(0)));
}
