// Status reports from the printer's HID interface to the host's event subscribers, through the
// HID gadget function and hidraw. The simulator runs in this process (sim/Simulator.h in gadget
// mode) so that the test can change the printer's status; the guest's `run` stops qrv-sim first,
// as each gadget node can be served by one process only.
#include "common/StringConverter.h"
#include "qrv/ManagedQRVDeviceGateway.h"
#include "sim/Simulator.h"
#include "support/HostEventLog.h"
#include "support/SystemProbe.h"
#include "support/TestSupport.h"
#include "system/vm/UsbGadget.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <unistd.h>

namespace host = vela::printer::communication;
using vela::common::StringConverter;
using vela::kom::ManagedQRVDeviceGateway;
using vela::test::Eventually;
using vela::test::UsbGadget;

namespace {

using Items = std::vector<host::PrinterStatusItem>;

// The value of one kind of item in a status event, if the event has it.
std::optional<uint32_t> ValueOf(const Items& items, host::EPrintStatusItem kind) {
    for (const host::PrinterStatusItem& item : items) {
        if (item.Kind() == kind) {
            return item.Value();
        }
    }
    return std::nullopt;
}

// True once this process has the node open (the monitor thread reads it).
bool HoldsNode(const std::string& node) {
    const std::vector<std::string> files = vela::test::OpenFiles(::getpid());
    return std::find(files.begin(), files.end(), node) != files.end();
}

vela::sim::Simulator::Options GadgetOptions(const UsbGadget& gadget) {
    vela::sim::Simulator::Options options;
    options.gadget = true;
    options.hid = gadget.HasHid();
    options.model = gadget.Model();
    options.serial = gadget.Serial();
    return options;
}

TEST(GadgetEvents, StatusChangesAndInterruptsReachTheSubscribers) {
    UsbGadget gadget;
    if (!gadget.HasHid()) {
        GTEST_SKIP() << "the gadget has no HID interface";
    }
    ::unsetenv("QRV_VIRTUAL_PRINTERS");
    vela::sim::Simulator simulator(GadgetOptions(gadget));
    ManagedQRVDeviceGateway gateway;
    vela::test::HostEventLog received(gateway);
    gateway.Open(StringConverter::FromUtf8(gadget.Name()));
    // hidraw hands a report only to the readers that have the node open when it arrives.
    ASSERT_TRUE(Eventually([] { return HoldsNode("/dev/hidraw0"); }, 5000))
        << "the monitor never opened hidraw0";

    // The first report the monitor reads tells every field that differs from an all-zero start,
    // among them the open door, which also interrupts printing.
    const uint32_t open = static_cast<uint32_t>(host::ECassetteDoorStatus::open);
    const uint32_t closed = static_cast<uint32_t>(host::ECassetteDoorStatus::closed);
    simulator.Printer().SetDoorOpen(true);
    ASSERT_TRUE(received.WaitFor([&](const Items& items) {
        return ValueOf(items, host::EPrintStatusItem::cassetteDoorStatus) == open;
    })) << "no status change with the open door arrived";
    ASSERT_TRUE(Eventually([&] { return !received.Interrupts().empty(); }, 5000)) << "no interrupt arrived";
    EXPECT_EQ(received.Interrupts(),
              std::vector<host::EPrintInterruptIssue>{host::EPrintInterruptIssue::cassetteDoorOpen});

    // Closing it again changes that one field and interrupts nothing.
    simulator.Printer().SetDoorOpen(false);
    const std::optional<Items> change = received.WaitFor([&](const Items& items) {
        return ValueOf(items, host::EPrintStatusItem::cassetteDoorStatus) == closed;
    });
    ASSERT_TRUE(change);
    EXPECT_EQ(change->size(), 1u);

    // Operations and reports share the printer without getting in each other's way.
    EXPECT_EQ(gateway.GetPrinterStatus().size(), 11u);
    gateway.Close();
}

TEST(GadgetEvents, WithoutHidTheMonitorEndsAndOperationsStillWork) {
    UsbGadget gadget;
    if (gadget.HasHid()) {
        GTEST_SKIP() << "the gadget has a HID interface";
    }
    ::unsetenv("QRV_VIRTUAL_PRINTERS");
    vela::sim::Simulator simulator(GadgetOptions(gadget));
    const size_t threads = vela::test::ThreadCount();
    vela::test::LogCapture log;
    ManagedQRVDeviceGateway gateway;
    gateway.Open(StringConverter::FromUtf8(gadget.Name()));
    EXPECT_TRUE(Eventually([&] { return vela::test::ThreadCount() == threads; }, 5000));
    EXPECT_TRUE(log.Contains(L"PrinterStatusThread::StatusMonitor() - could not find specified printer!"));
    const std::vector<host::PrinterStatusItem> status = gateway.GetPrinterStatus();
    ASSERT_EQ(status.size(), 11u);
    EXPECT_EQ(status[1].Value(), static_cast<uint32_t>(host::ECassetteDoorStatus::closed));
    gateway.Close();
}

} // namespace
