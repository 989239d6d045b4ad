// HID status reports through the HID gadget function and hidraw to the host's subscribers. The
// simulator runs in this process to change the status (the guest's `run` stops qrv-sim first).
#include "common/StringConverter.h"
#include "qrv/ManagedQRVDeviceGateway.h"
#include "sim/Simulator.h"
#include "support/HostEventLog.h"
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

std::optional<uint32_t> ValueOf(const Items& items, host::EPrintStatusItem kind) {
    for (const host::PrinterStatusItem& item : items) {
        if (item.Kind() == kind) {
            return item.Value();
        }
    }
    return std::nullopt;
}

bool HoldsNode(const std::string& node) {
    const std::vector<std::string> files = vela::test::OpenFiles(::getpid());
    return std::find(files.begin(), files.end(), node) != files.end();
}

TEST(GadgetEvents, StatusChangesAndInterruptsReachTheSubscribers) {
    UsbGadget gadget;
    if (!gadget.HasHid()) {
        GTEST_SKIP() << "the gadget has no HID interface";
    }
    ::unsetenv("QRV_VIRTUAL_PRINTERS");
    vela::sim::Simulator::Options options;
    options.gadget = options.hid = true;
    options.model = gadget.Model();
    options.serial = gadget.Serial();
    vela::sim::Simulator simulator(options);
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

} // namespace
