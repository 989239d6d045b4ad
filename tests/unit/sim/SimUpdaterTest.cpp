#include "SimFixture.h"
#include "sim/Updater.h"

using namespace simtest;
using std::chrono::milliseconds;

class SimUpdate : public SimTest {
protected:
    Bytes Report() {
        Reply r = Ask(UpdateStatusQuery());
        EXPECT_EQ(r.unit, 0x06);
        EXPECT_EQ(r.payload.size(), 5u);
        EXPECT_EQ(r.payload[1], 0x3C);
        return Bytes(r.payload.begin() + 2, r.payload.end());
    }
    std::string Firmware() { return printer.GetVersions().firmware; }
};

TEST_F(SimUpdate, PackagePlusStartOrderMakesItBusyForNReportsThenInstalled) {
    printer.SetUpdateBusyReports(3);
    EXPECT_EQ(Report(), (Bytes{0, 0, 0}));
    ASSERT_EQ(Run(Put("/mnt/data/update/qrv-fw-2.4.1.pkg", Text("package"))), 0);
    EXPECT_TRUE(Send(DeviceControl(0x01)).empty());
    EXPECT_EQ(Report(), (Bytes{1, 0, 0}));
    EXPECT_EQ(Report(), (Bytes{1, 33, 0}));
    EXPECT_EQ(Firmware(), "1.8.2") << "not before the update has finished";
    EXPECT_EQ(Report(), (Bytes{1, 66, 0}));
    EXPECT_EQ(Report(), (Bytes{0, 0, 0}));
    EXPECT_EQ(Firmware(), "2.4.1");
    EXPECT_EQ(printer.GetVersions().overall, "2.4.1");
    // The package stays until the host deletes it.
    EXPECT_EQ(Run(Delete("/mnt/data/update/qrv-fw-2.4.1.pkg")), 0);
}

TEST_F(SimUpdate, TimedUpdateFollowsTheClockAndVersionQuerySeesTheResult) {
    printer.SetUpdateBusyDuration(milliseconds(10000));
    printer.WriteFile("/mnt/data/update/old-1.0.pkg", Text("a"));
    printer.WriteFile("/mnt/data/update/new-3.0.pkg", Text("b"));
    Send(DeviceControl(0x01));
    EXPECT_EQ(Report()[0], 1);
    now += milliseconds(5000);
    EXPECT_EQ(Report(), (Bytes{1, 50, 0}));
    EXPECT_TRUE(printer.UpdaterBusy());
    now += milliseconds(5000);
    EXPECT_FALSE(printer.UpdaterBusy());
    Ask(VersionQuery()); // completes the update without a report in between
    EXPECT_EQ(Firmware(), "3.0") << "the newest package wins";
    EXPECT_EQ(Report(), (Bytes{0, 0, 0}));
}

TEST_F(SimUpdate, StartWithoutPackageStaysIdleAndSaysWhy) {
    Send(DeviceControl(0x01));
    EXPECT_EQ(Report(), (Bytes{0, 0, 1}));
    EXPECT_EQ(Firmware(), "1.8.2");
}

TEST_F(SimUpdate, ForcedBusyAndRebootEndIt) {
    printer.SetUpdaterBusy(2);
    EXPECT_EQ(Report()[0], 1);
    EXPECT_EQ(Report()[0], 1);
    EXPECT_EQ(Report()[0], 0);

    printer.SetUpdateBusyReports(100);
    printer.WriteFile("/mnt/data/update/fw-5.1.pkg", Text("p"));
    Send(DeviceControl(0x01));
    EXPECT_EQ(Report()[0], 1);
    EXPECT_TRUE(printer.Feed(DeviceControl(0x02)).disconnect);
    EXPECT_EQ(Firmware(), "5.1") << "the reboot finished the update";
    EXPECT_EQ(Report()[0], 0);
}

TEST(SimPackageNames, VersionComesFromTheFirstDigitsOrTheStem) {
    EXPECT_EQ(vela::sim::VersionFromPackageName("qrv-fw-2.4.1.pkg"), "2.4.1");
    EXPECT_EQ(vela::sim::VersionFromPackageName("update_10.pkg"), "10");
    EXPECT_EQ(vela::sim::VersionFromPackageName("latest.pkg"), "latest");
    EXPECT_EQ(vela::sim::VersionFromPackageName("latest"), "latest");
}
