// `qrvctl doctor` on Linux, over listings as discovery returns them.
#include "CliTestSupport.h"

#include "DoctorChecks.h"
#include "support/TestSupport.h"

#include <fstream>

namespace vela::test {
namespace {

using vela::printer::communication::PrinterInfo;
using vela::qrvctl::DoctorFinding;

const DoctorFinding* Find(const std::vector<DoctorFinding>& findings, const std::string& check,
                          const std::string& part) {
    for (const auto& finding : findings) {
        if (finding.check == check && finding.detail.find(part) != std::string::npos) {
            return &finding;
        }
    }
    return nullptr;
}

// 1-4 is ready (usblp bound, both nodes, a queue); 1-5 has no driver on its printer interface
// and no HID interface, and no queue since no scheduler answers.
std::vector<PrinterInfo> Listing(const TempDir& dev) {
    std::ofstream(dev.File("lp0"));
    std::ofstream(dev.File("hidraw2"));
    PrinterInfo ready;
    ready.name = L"Office-QRV";
    ready.model = L"VELA QRV 410";
    ready.vendorId = 0x0922;
    ready.productId = 0x0025;
    ready.serial = L"DOC0001";
    ready.channelPath = dev.WFile("lp0");
    ready.statusPath = dev.WFile("hidraw2");
    ready.isQueueName = true;
    ready.usbPort = L"1-4";
    ready.driver = L"usblp";
    PrinterInfo unbound = ready;
    unbound.name = L"VELA QRV 210 (DOC0002)";
    unbound.model = L"VELA QRV 210";
    unbound.serial = L"DOC0002";
    unbound.channelPath = unbound.statusPath = unbound.driver = L"";
    unbound.isQueueName = false;
    unbound.usbPort = L"1-5";
    unbound.deviceUri = L"usb://VELA/QRV%20210?serial=DOC0002";
    unbound.queueProblem = L"no print scheduler answers at '/run/cups/cups.sock' (No such file or directory)";
    return {ready, unbound};
}

TEST(Doctor, FindsDriverNodesAndQueuesAndSaysWhatToFix) {
    TempDir dev;
    const auto findings = vela::qrvctl::DoctorChecks::Run(Listing(dev), dev.Path());

    EXPECT_NE(Find(findings, "USB", "port 1-4"), nullptr);
    const DoctorFinding* bound = Find(findings, "usblp driver", dev.File("lp0"));
    EXPECT_TRUE(bound != nullptr && bound->level == DoctorFinding::Level::ok);
    EXPECT_NE(Find(findings, "status reports", dev.File("hidraw2")), nullptr);
    EXPECT_NE(Find(findings, "print queue", "'Office-QRV'"), nullptr);

    const DoctorFinding* unbound = Find(findings, "usblp driver", "no driver is bound");
    ASSERT_NE(unbound, nullptr);
    EXPECT_EQ(unbound->level, DoctorFinding::Level::failure);
    EXPECT_EQ(unbound->code, vela::qrvctl::ExitCode::printerNotFound);
    EXPECT_NE(unbound->fix.find("modprobe usblp"), std::string::npos);
    const DoctorFinding* noQueue = Find(findings, "print queue", "no print scheduler answers");
    ASSERT_NE(noQueue, nullptr);
    EXPECT_EQ(noQueue->level, DoctorFinding::Level::warning);
    EXPECT_NE(noQueue->fix.find("usb://VELA/QRV%20210?serial=DOC0002"), std::string::npos) << noQueue->fix;

    // Through the command line, without any printer: the first failure decides the exit code.
    ScopedEnvironment none("QRV_VIRTUAL_PRINTERS", L"");
    const CliResult doctor = RunInProcess({"--json", "doctor"});
    EXPECT_EQ(doctor.code, 3) << doctor.out;
    EXPECT_EQ(doctor.Json()["ok"], false);
}

} // namespace
} // namespace vela::test
