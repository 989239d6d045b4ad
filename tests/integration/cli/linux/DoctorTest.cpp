// `qrvctl doctor` on Linux, over a made-up /sys, /dev and /run tree.
#include "CliTestSupport.h"

#include "CommandLine.h"
#include "DoctorChecks.h"
#include "support/TestSupport.h"

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace vela::test {
namespace {

namespace fs = std::filesystem;
using vela::qrvctl::DoctorFinding;

void Write(const fs::path& file, const std::string& text) {
    fs::create_directories(file.parent_path());
    std::ofstream(file) << text << "\n";
}

// Two QRV printers and a hub: 1-4 is ready (usblp bound, lp0 and hidraw2), 1-5 has no driver on
// its printer interface and no HID interface.
void MakeTree(const fs::path& root) {
    const fs::path devices = root / "sys/bus/usb/devices";
    Write(devices / "usb1/idVendor", "1d6b");
    Write(devices / "usb1/idProduct", "0002");

    Write(devices / "1-4/idVendor", "0922");
    Write(devices / "1-4/idProduct", "0025");
    Write(devices / "1-4/serial", "DOC0001");
    Write(devices / "1-4/manufacturer", "VELA");
    Write(devices / "1-4/product", "QRV 410");
    Write(devices / "1-4:1.0/bInterfaceClass", "07");
    fs::create_directories(root / "sys/bus/usb/drivers/usblp");
    fs::create_directory_symlink(root / "sys/bus/usb/drivers/usblp", devices / "1-4:1.0/driver");
    fs::create_directories(devices / "1-4:1.0/usbmisc/lp0");
    Write(devices / "1-4:1.1/bInterfaceClass", "03");
    fs::create_directories(devices / "1-4:1.1/0003:0922:0025.0001/hidraw/hidraw2");
    Write(root / "dev/usb/lp0", "");
    Write(root / "dev/hidraw2", "");

    Write(devices / "1-5/idVendor", "0922");
    Write(devices / "1-5/idProduct", "0024");
    Write(devices / "1-5/serial", "DOC0002");
    Write(devices / "1-5/manufacturer", "VELA");
    Write(devices / "1-5/product", "QRV 210");
    Write(devices / "1-5:1.0/bInterfaceClass", "07");

    fs::create_directories(root / "run/lock");
}

const DoctorFinding* Find(const std::vector<DoctorFinding>& findings, const std::string& check,
                          const std::string& part) {
    for (const auto& finding : findings) {
        if (finding.check == check && finding.detail.find(part) != std::string::npos) {
            return &finding;
        }
    }
    return nullptr;
}

TEST(Doctor, FindsDriverNodesAndQueuesAndSaysWhatToFix) {
    TempDir root;
    MakeTree(root.Path());
    vela::kom::DiscoveredPrinter queued;
    queued.printerName = L"Office-QRV";
    queued.printerPath = L"/dev/usb/lp0";
    queued.serialNumber = L"DOC0001";
    queued.hasQueue = true;

    const auto findings = vela::qrvctl::DoctorChecks::Run({queued}, root.Path());
    const std::string lp0 = root.Path() + "/dev/usb/lp0";

    ASSERT_NE(Find(findings, "USB", "port 1-4"), nullptr);
    ASSERT_NE(Find(findings, "usblp driver", lp0), nullptr);
    EXPECT_EQ(Find(findings, "usblp driver", lp0)->level, DoctorFinding::Level::ok);
    EXPECT_NE(Find(findings, "status reports", root.Path() + "/dev/hidraw2"), nullptr);
    EXPECT_NE(Find(findings, "print queue", "'Office-QRV'"), nullptr);

    const DoctorFinding* unbound = Find(findings, "usblp driver", "no driver is bound");
    ASSERT_NE(unbound, nullptr);
    EXPECT_EQ(unbound->level, DoctorFinding::Level::failure);
    EXPECT_EQ(unbound->code, vela::qrvctl::ExitCode::printerNotFound);
    EXPECT_NE(unbound->fix.find("modprobe usblp"), std::string::npos);
    const DoctorFinding* noQueue = Find(findings, "print queue", "'VELA QRV 210 (DOC0002)'");
    ASSERT_NE(noQueue, nullptr);
    EXPECT_EQ(noQueue->level, DoctorFinding::Level::warning);
    EXPECT_NE(noQueue->fix.find("usb://VELA/QRV%20210?serial=DOC0002"), std::string::npos) << noQueue->fix;
    EXPECT_EQ(Find(findings, "USB", "usb1"), nullptr);

    // Through the command line: the first failure decides the exit code.
    ScopedEnvironment none("QRV_VIRTUAL_PRINTERS", L"");
    SharedTextBuffer out;
    SharedTextBuffer err;
    std::ostream outStream(&out);
    std::ostream errStream(&err);
    vela::qrvctl::Console console(outStream, errStream, false, 80);
    const int code =
        vela::qrvctl::CommandLine::Run({"--json", "doctor", "--system-root", root.Path()}, console);
    EXPECT_EQ(code, 3) << out.Text();
    const auto document = nlohmann::json::parse(out.Text());
    EXPECT_EQ(document["ok"], false);
    EXPECT_GE(document["checks"].size(), 8u);
}

// Permission checks need a user the kernel holds to them.
TEST(Doctor, NodesThisUserCannotOpenGetTheUdevRule) {
    if (::geteuid() == 0) {
        GTEST_SKIP() << "root may open any node";
    }
    TempDir root;
    MakeTree(root.Path());
    fs::permissions(root.Path() + "/dev/hidraw2", fs::perms::owner_read);
    const auto findings = vela::qrvctl::DoctorChecks::Run({}, root.Path());
    const DoctorFinding* denied = Find(findings, "access", "hidraw2: permission denied");
    ASSERT_NE(denied, nullptr);
    EXPECT_EQ(denied->code, vela::qrvctl::ExitCode::accessDenied);
    EXPECT_NE(denied->fix.find("ATTRS{idVendor}==\"0922\""), std::string::npos) << denied->fix;
}

} // namespace
} // namespace vela::test
