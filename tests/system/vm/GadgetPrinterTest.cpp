// The library on the host side of the VM's virtual USB printer, through the real kernel drivers
// (usblp, hidraw, udev), with qrv-sim serving the device side (its process id in QRV_VM_SIM_PID,
// its control input the pipe /tmp/qrv-sim.in).
#include "common/StringConverter.h"
#include "kom/discovery/QRVPrinters.h"
#include "qrv/ManagedQRVDeviceGateway.h"
#include "support/HostEventLog.h"
#include "support/SystemProbe.h"
#include "support/TestSupport.h"
#include "system/vm/UsbGadget.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <unistd.h>

namespace host = vela::printer::communication;
using vela::common::StringConverter;
using vela::kom::ManagedQRVDeviceGateway;
using vela::test::Eventually;
using vela::test::LogCapture;
using vela::test::ReadHostFile;
using vela::test::TempDir;
using vela::test::TestBytes;
using vela::test::UsbGadget;
using vela::test::WriteHostFile;
using namespace std::chrono_literals;

namespace {

// Sizes at the USB packet boundaries (a put message is 287 bytes plus the data, a fetch reply 270):
// a put of exactly 1 MiB (whole chunks, then the padding byte that keeps it off a boundary), and a
// reply that is a multiple of 512, which the printer function ends with a zero-length packet.
constexpr size_t kPutOnBoundary = (size_t{1} << 20) - 287;
constexpr size_t kReplyOnBoundary = (size_t{1} << 19) + 512 - 270;

const std::wstring kJobs = L"/mnt/data/jobs";

// The warning and error lines of a log, for failure messages.
std::string Problems(const LogCapture& log) {
    std::string text;
    for (const LogCapture::Line& line : log.Lines()) {
        if (line.level != vela::common::LogLevel::info) {
            text += StringConverter::ToUtf8(line.text) + "\n";
        }
    }
    return text;
}

class GadgetPrinter : public ::testing::Test {
protected:
    void SetUp() override {
        const char* simPid = std::getenv("QRV_VM_SIM_PID");
        if (simPid == nullptr) {
            GTEST_SKIP() << "QRV_VM_SIM_PID is not set: these tests run inside the VM, beside qrv-sim";
        }
        m_simPid = static_cast<pid_t>(std::atoi(simPid));
        ::unsetenv("QRV_VIRTUAL_PRINTERS");
        m_name = StringConverter::FromUtf8(m_gadget.Name());
        m_gateway.Open(m_name);
    }

    void TearDown() override {
        m_gateway.Close();
        // A test that failed while unplugged plugs the printer in again for the next ones.
        if (m_simPid != 0 && !m_gadget.IsPlugged() && m_gadget.WaitUntilReleased(m_simPid, 5s)) {
            m_gadget.Plug();
            m_gadget.WaitForHostNodes(10s);
            m_gadget.WaitUntilServed(m_simPid, 10s);
        }
    }

    void Put(const std::wstring& printerPath, const std::vector<uint8_t>& bytes) {
        const std::string file = m_dir.File("put.bin");
        WriteHostFile(file, bytes);
        ASSERT_EQ(m_gateway.PutFile(printerPath, StringConverter::FromUtf8(file)), 0);
    }

    std::vector<uint8_t> Get(const std::wstring& printerPath) {
        const std::string file = m_dir.File("got.bin");
        EXPECT_EQ(m_gateway.GetFile(printerPath, StringConverter::FromUtf8(file)), 0);
        return ReadHostFile(file);
    }

    static void TellSimulator(const std::string& command) {
        std::ofstream("/tmp/qrv-sim.in") << command << "\n";
    }

    UsbGadget m_gadget;
    LogCapture m_log; // from before the open
    pid_t m_simPid = 0;
    std::wstring m_name;
    TempDir m_dir;
    std::optional<vela::test::HostEventLog> m_events; // outlives the gateway, which calls it
    ManagedQRVDeviceGateway m_gateway;
};

TEST_F(GadgetPrinter, DiscoveryFindsThePrinterOnTheUsbBusAndQueriesAnswer) {
    vela::kom::QRVPrinters discovery;
    const std::vector<vela::kom::DiscoveredPrinter> listed = discovery.ListPrinters();
    ASSERT_EQ(listed.size(), 1u);
    const vela::kom::DiscoveredPrinter& row = listed.front();
    EXPECT_EQ(row.printerName, m_name); // no print scheduler in the guest: the fallback name
    EXPECT_EQ(row.modelName, L"VELA QRV " + StringConverter::FromUtf8(m_gadget.Model()));
    EXPECT_EQ(row.productId, m_gadget.ProductId());
    EXPECT_EQ(row.printerPath, L"/dev/usb/lp0");
    EXPECT_EQ(row.hidPath, m_gadget.HasHid() ? L"/dev/hidraw0" : L"");

    const std::vector<host::PrinterStatusItem> status = m_gateway.GetPrinterStatus();
    ASSERT_EQ(status.size(), 11u);
    EXPECT_EQ(status[1].Value(), static_cast<uint32_t>(host::ECassetteDoorStatus::closed));
    EXPECT_EQ(m_gateway.GetDeviceID(), StringConverter::FromUtf8(m_gadget.Serial()));
    if (!m_gadget.HasHid()) { // the monitor finds no HID node and ends; operations go on without it
        EXPECT_TRUE(Eventually([] { return vela::test::ThreadCount() == 1; }, 5000));
        EXPECT_TRUE(
            m_log.Contains(L"PrinterStatusThread::StatusMonitor() - could not find specified printer!"));
    }
}

// Files on the USB packet boundaries make the round trip; an unplug in a get fails with the removed
// node's read error, and once plugged in again the printer opens and the file comes back whole.
TEST_F(GadgetPrinter, FilesMakeTheRoundTripAndAnUnplugInAGetFailsCleanly) {
    const std::wstring printerPath = kJobs + L"/vm-first.job", secondPath = kJobs + L"/vm-second.job";
    const std::vector<uint8_t> bytes = TestBytes(kPutOnBoundary, 1), second = TestBytes(kReplyOnBoundary, 2);
    Put(printerPath, bytes);
    Put(secondPath, second);
    EXPECT_TRUE(Get(secondPath) == second) << "the second file came back changed";
    EXPECT_EQ(m_gateway.DeleteFile(secondPath), 0);
    const std::string target = m_dir.File("target.bin");

    LogCapture log;
    m_gateway.SetProgressCallback([&](uint64_t done, uint64_t total) {
        if (done >= total / 4 && m_gadget.IsPlugged()) {
            m_gadget.Unplug();
        }
    });
    try {
        m_gateway.GetFile(printerPath, StringConverter::FromUtf8(target));
        ADD_FAILURE() << "the get went through an unplug";
    } catch (const host::PrinterException& e) {
        EXPECT_NE(e.Message().find(L"Unable to read data from UsbPrint device"), std::wstring::npos)
            << StringConverter::ToUtf8(e.Message());
    }
    m_gateway.SetProgressCallback(nullptr);
    // usblp mostly says ENODEV; now and then a read that was under way says EIO instead.
    EXPECT_NE(Problems(log).find("(/dev/usb/lp0)"), std::string::npos) << "the unplug was not logged";
    EXPECT_TRUE(Eventually([] { return vela::test::ThreadCount() == 1; }, 3000))
        << vela::test::ThreadCount() << " threads are left";
    EXPECT_EQ(Problems(log).find("PrinterStatusThread"), std::string::npos) << Problems(log);

    ASSERT_TRUE(m_gadget.WaitUntilHostNodesGone(5s)) << "the host still shows the unplugged printer";
    EXPECT_THROW(m_gateway.Open(m_name), host::PrinterCommunicationException);
    ASSERT_TRUE(m_gadget.WaitUntilReleased(m_simPid, 5s)) << "qrv-sim still holds the unplugged nodes";
    m_gadget.Plug();
    ASSERT_TRUE(m_gadget.WaitForHostNodes(10s)) << "the host did not see the printer again";
    ASSERT_TRUE(m_gadget.WaitUntilServed(m_simPid, 10s)) << "qrv-sim did not come back";
    m_gateway.Open(m_name);
    EXPECT_TRUE(Get(printerPath) == bytes) << "the first file came back changed";
    EXPECT_EQ(m_gateway.DeleteFile(printerPath), 0);
}

// Status reports of the HID function reach the subscribers through hidraw: the open door, which
// also interrupts printing (a change carries only what changed: GatewayOnSimulator).
TEST_F(GadgetPrinter, StatusChangesAndInterruptsReachTheSubscribers) {
    if (!m_gadget.HasHid()) {
        GTEST_SKIP() << "the gadget has no HID interface";
    }
    m_events.emplace(m_gateway);
    // hidraw hands a report only to the readers that have the node open when it arrives.
    ASSERT_TRUE(Eventually([] {
        const std::vector<std::string> files = vela::test::OpenFiles(::getpid());
        return std::find(files.begin(), files.end(), "/dev/hidraw0") != files.end();
    })) << "the monitor never opened hidraw0";
    const auto doorOpen = [](const vela::test::HostEventLog::Items& items) {
        const host::PrinterStatusItem open{host::EPrintStatusItem::cassetteDoorStatus,
                                           static_cast<uint32_t>(host::ECassetteDoorStatus::open)};
        return std::find(items.begin(), items.end(), open) != items.end();
    };
    TellSimulator("door open");
    ASSERT_TRUE(m_events->WaitFor(doorOpen)) << "no change with the open door";
    ASSERT_TRUE(Eventually([&] { return !m_events->Interrupts().empty(); })) << "no interrupt arrived";
    EXPECT_EQ(m_events->Interrupts(),
              std::vector<host::EPrintInterruptIssue>{host::EPrintInterruptIssue::cassetteDoorOpen});
    TellSimulator("door closed"); // for the tests after this one
}

} // namespace
