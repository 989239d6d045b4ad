// The simulator on the platform's real channel (pseudo-terminal on Linux, named pipes on
// Windows), reached through the library's production transport with raw request bytes.

#include "common/Exception.h"
#include "common/StringConverter.h"
#include "common/UsbPrintDevice.h"
#include "sim/Simulator.h"
#include "support/ScopedEnvironment.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <memory>

using namespace vela::common;
using vela::sim::Fault;
using vela::sim::Simulator;
using Bytes = std::vector<uint8_t>;

namespace {

// Reads exactly `count` bytes the way the protocol layer does: Read until they are all there
// (each Read is limited to 3000 ms by the transport).
Bytes ReadExactly(UsbPrintDevice& device, size_t count) {
    Bytes got;
    while (got.size() < count) {
        Bytes part = device.Read(static_cast<uint32_t>(count - got.size()));
        got.insert(got.end(), part.begin(), part.end());
    }
    return got;
}

// One request and its whole reply (header first, then the payload it announces).
Bytes Exchange(UsbPrintDevice& device, const Bytes& request) {
    EXPECT_EQ(device.Write(request), request.size());
    Bytes reply = ReadExactly(device, 7);
    uint32_t total =
        (uint32_t(reply[1]) << 24) | (uint32_t(reply[2]) << 16) | (uint32_t(reply[3]) << 8) | reply[4];
    Bytes payload = ReadExactly(device, total - 7);
    reply.insert(reply.end(), payload.begin(), payload.end());
    return reply;
}

const Bytes kStatusQuery{0xC3, 0x00, 0x00, 0x00, 0x09, 0x60, 0x10, 0x01, 0x80};

class SimulatorChannel : public ::testing::Test {
protected:
    SimulatorChannel() {
        Simulator::Options options;
        options.name = "Channel Test Printer";
        options.printer.rebootDelay = std::chrono::milliseconds(200);
        simulator = std::make_unique<Simulator>(options);
    }
    ~SimulatorChannel() override { EXPECT_TRUE(simulator->Printer().Violations().empty()); }

    std::unique_ptr<Simulator> simulator;
};

} // namespace

TEST_F(SimulatorChannel, StatusRequestAndReplyRoundTrip) {
    simulator->Printer().SetStatusBlock({0x05, 0x10, 0x83, 0x01, 0x00, 0x00, 0x34, 0x12});
    UsbPrintDevice device(simulator->PrinterPath());
    // In two pieces, as a slow host might write it.
    EXPECT_EQ(device.Write(Bytes(kStatusQuery.begin(), kStatusQuery.begin() + 4)), 4u);
    EXPECT_EQ(Exchange(device, Bytes(kStatusQuery.begin() + 4, kStatusQuery.end())),
              (Bytes{0xC3, 0x00, 0x00, 0x00, 0x11, 0x60, 0x10, 0x00, 0x80, 0x05, 0x10, 0x83, 0x01, 0x00, 0x00,
                     0x34, 0x12}));
    // A second transaction on a fresh open, as the library makes one per operation.
    UsbPrintDevice again(simulator->PrinterPath());
    EXPECT_EQ(Exchange(again, kStatusQuery).size(), 17u);
    EXPECT_EQ(simulator->Printer().CountRequests(vela::sim::RequestKind::statusQuery), 2u);
}

TEST_F(SimulatorChannel, HidReportIsReadableAfterAStatusChange) {
    ASSERT_FALSE(simulator->HidPath().empty());
    UsbPrintDevice hid(simulator->HidPath());
    simulator->Printer().SetDoorOpen(true);
    Bytes report = ReadExactly(hid, 8);
    vela::sim::StatusBlock block = simulator->Printer().GetStatusBlock();
    EXPECT_EQ(report, (Bytes{0x01, block[0], block[1], block[2], block[3], block[4], block[5], block[6]}));
    EXPECT_EQ((report[1] >> 2) & 3, 1);
    simulator->Printer().SendSpecialHidReport();
    EXPECT_EQ(ReadExactly(hid, 8)[5], 0xF0);
}

TEST_F(SimulatorChannel, RebootDropsBothChannelsAndServesAgainAfterTheDelay) {
    {
        UsbPrintDevice device(simulator->PrinterPath());
        EXPECT_EQ(device.Write({0xC3, 0x00, 0x00, 0x00, 0x0A, 0x60, 0x06, 0x01, 0x3A, 0x02}), 10u);
    }
    ASSERT_TRUE(simulator->WaitForReconnections(1, std::chrono::milliseconds(10000)));
    UsbPrintDevice hid(simulator->HidPath());
    simulator->Printer().SetDoorOpen(true);
    EXPECT_EQ((ReadExactly(hid, 8)[1] >> 2) & 3, 1) << "the status reports are back too";
    UsbPrintDevice device(simulator->PrinterPath());
    EXPECT_EQ(Exchange(device, kStatusQuery).size(), 17u);
}

TEST_F(SimulatorChannel, InjectedDisconnectFailsTheHostsTransfer) {
    simulator->Printer().InjectFault(
        Fault::DisconnectAfter(9 + 3, vela::sim::ByteDirection::both, std::chrono::milliseconds(100)));
    {
        UsbPrintDevice device(simulator->PrinterPath());
        // The cut comes while the host still waits for its request to be taken or for the reply:
        // one of the two transfers fails.
        EXPECT_THROW(
            {
                device.Write(kStatusQuery);
                ReadExactly(device, 17);
            },
            UsbPrintDeviceException);
    }
    ASSERT_TRUE(simulator->WaitForReconnections(1, std::chrono::milliseconds(10000)));
    UsbPrintDevice device(simulator->PrinterPath());
    EXPECT_EQ(Exchange(device, kStatusQuery).size(), 17u);
}

TEST(SimulatorOptions, AreCheckedBeforeServingAndTheEntryNamesTheChannelsAndTheModel) {
    Simulator::Options options;
    options.model = "310";
    EXPECT_THROW(Simulator{options}, std::invalid_argument);
    options.model = "210";
    options.name = "a|b";
    EXPECT_THROW(Simulator{options}, std::invalid_argument);
    options.name = "Bench Printer";
    options.hid = false;
    const std::string madeUp = Simulator(options).Entry().serial; // from the name
    EXPECT_EQ(madeUp.substr(0, 3), "SIM");
    EXPECT_EQ(madeUp.size(), 11u);

    options.serial = "S-1";
    Simulator simulator(options);
    EXPECT_EQ(simulator.ProductId(), 0x0024);
    const std::string entry =
        "Bench Printer|" + vela::common::StringConverter::ToUtf8(simulator.PrinterPath()) + "||210|S-1";
    EXPECT_EQ(simulator.EntryText(), entry);
    vela::test::ScopedEnvironment restored("QRV_VIRTUAL_PRINTERS", L"");
    simulator.ExportToEnvironment();
    ASSERT_NE(std::getenv("QRV_VIRTUAL_PRINTERS"), nullptr);
    EXPECT_EQ(std::string(std::getenv("QRV_VIRTUAL_PRINTERS")), entry);
    simulator.Stop();
    simulator.Stop(); // idempotent
}
