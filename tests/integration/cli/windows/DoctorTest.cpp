// `qrvctl doctor` on Windows reports what discovery sees.
#include "DoctorChecks.h"

#include <gtest/gtest.h>

namespace vela::test {
namespace {

using vela::qrvctl::DoctorFinding;

TEST(Doctor, NoPrinterIsAFailureAndAMissingStatusInterfaceAWarning) {
    const auto none = vela::qrvctl::DoctorChecks::Run({}, "");
    ASSERT_EQ(none.size(), 1u);
    EXPECT_EQ(none[0].level, DoctorFinding::Level::failure);
    EXPECT_EQ(none[0].code, vela::qrvctl::ExitCode::printerNotFound);
    EXPECT_NE(none[0].fix.find("printer driver"), std::string::npos);

    vela::printer::communication::PrinterInfo attached;
    attached.name = L"Office QRV";
    attached.model = L"VELA QRV 210";
    attached.channelPath = L"\\\\?\\usb#vid_0922&pid_0024#1#{28d78fad-5a12-11d1-ae5b-0000f803a8c2}";
    attached.isQueueName = true;
    const auto found = vela::qrvctl::DoctorChecks::Run({attached}, "");
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].level, DoctorFinding::Level::ok);
    EXPECT_NE(found[0].detail.find("'Office QRV': VELA QRV 210"), std::string::npos) << found[0].detail;
    EXPECT_EQ(found[1].check, "status reports");
    EXPECT_EQ(found[1].level, DoctorFinding::Level::warning);
}

} // namespace
} // namespace vela::test
