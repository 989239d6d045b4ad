#include "support/ProtocolFixture.h"

#include <gtest/gtest.h>

#include <functional>

using namespace vela::kom;
using namespace vela::test;
using vela::common::UsbPrintDeviceConnectionException;
using vela::common::UsbPrintDeviceReadException;

namespace {

struct Order {
    const char* name;
    std::function<void(TestDevice&)> call;
    const char* request;
    bool printControl;
};

const std::vector<Order> kOrders = {
    {"ResumePrinting", [](TestDevice& d) { d.ResumePrinting(); }, "C3 00 00 00 0C 60 10 01 50 01 00 00",
     true},
    {"ClearError", [](TestDevice& d) { d.ClearError(); }, "C3 00 00 00 0C 60 10 01 50 03 00 00", true},
    {"CutLabel", [](TestDevice& d) { d.CutLabel(); }, "C3 00 00 00 0C 60 10 01 50 04 00 00", true},
    {"FeedForward", [](TestDevice& d) { d.FeedForward(); }, "C3 00 00 00 0C 60 10 01 50 0A 00 00", true},
    {"ClearCutterJamError", [](TestDevice& d) { d.ClearCutterJamError(); },
     "C3 00 00 00 0C 60 10 01 50 0F 00 00", true},
    {"StartUpdate", [](TestDevice& d) { d.StartUpdate(); }, "C3 00 00 00 0A 60 06 01 3A 01", false},
    {"Reboot", [](TestDevice& d) { d.Reboot(); }, "C3 00 00 00 0A 60 06 01 3A 02", false},
};

} // namespace

using ControlCommandTest = ProtocolFixture;

TEST_F(ControlCommandTest, EachOrderWritesItsRequestInOneTransaction) {
    for (const Order& order : kOrders) {
        SCOPED_TRACE(order.name);
        FakePrinter scripted; // a fresh printer per order
        pauses.Clear();
        NoOpSynchronizer::Reset();
        if (order.printControl) {
            scripted.QueueReply({0x00, 0x50}, 0x60, 0x10);
        }
        order.call(device);
        ASSERT_EQ(scripted.RawWrites().size(), 1u);
        EXPECT_EQ(ToHex(scripted.RawWrites()[0]), order.request);
        EXPECT_EQ(scripted.LastPath(), L"fake-path");
        EXPECT_EQ(NoOpSynchronizer::Taken(), 1);
        EXPECT_EQ(NoOpSynchronizer::Held(), 0);
        EXPECT_EQ(scripted.Opens(), 1);
        EXPECT_EQ(scripted.Closes(), 1);
        // Print orders drain their acknowledgement and settle 5 s; device orders read nothing.
        EXPECT_EQ(scripted.PendingBytes(), 0u);
        EXPECT_EQ(scripted.RawReads(), order.printControl ? 1 : 0);
        EXPECT_EQ(pauses.Pauses(),
                  order.printControl ? std::vector<uint32_t>{5000} : std::vector<uint32_t>{});
        EXPECT_TRUE(
            log.Contains(L"PrinterDevice::" + vela::common::StringConverter::FromUtf8(order.name) + L"()"));
        EXPECT_TRUE(log.Contains(order.printControl ? L"PrinterDevice::PrintControlCommand()"
                                                    : L"PrinterDevice::DeviceControlCommand()"));
    }
}

TEST_F(ControlCommandTest, ThePauseHoldsTheLockAndTheChannel) {
    int heldDuringPause = -1, openDuringPause = -1;
    pauses.OnPause([&](uint32_t) {
        heldDuringPause = NoOpSynchronizer::Held();
        openDuringPause = printer.Opens() - printer.Closes();
    });
    printer.QueueReply({}, 0x60, 0x10); // an acknowledgement of length 7: no payload to read
    device.CutLabel();
    EXPECT_EQ(pauses.Pauses(), std::vector<uint32_t>{5000});
    EXPECT_EQ(heldDuringPause, 1);
    EXPECT_EQ(openDuringPause, 1);
    EXPECT_EQ(printer.RawReads(), 1);
    ExpectReleased();
}

TEST_F(ControlCommandTest, TheAcknowledgementIsDrainedWithoutLookingAtIt) {
    // Wrong start byte and content, delivered in pieces: still read to its end and dropped.
    printer.QueueRawRead({0x00, 0x00, 0x00});
    printer.QueueRawRead({0x00, 0x0B, 0x61, 0x11, 0xFF});
    printer.QueueRawRead({0xFF, 0xFF, 0xFF});
    printer.QueueBytes(Frame({0x01, 0x80})); // the next message stays for its reader
    device.FeedForward();
    EXPECT_EQ(printer.PendingBytes(), Frame({0x01, 0x80}).size());
    EXPECT_EQ(pauses.Pauses(), std::vector<uint32_t>{5000});
}

TEST_F(ControlCommandTest, FailuresReleaseEverythingAndSkipThePause) {
    // No acknowledgement at all.
    EXPECT_THROW(device.ClearError(), UsbPrintDeviceReadException);
    ExpectReleased();

    // An acknowledgement that announces more than ever comes (a wrapped-around length).
    printer.QueueBytes({0xC3, 0x00, 0x00, 0x00, 0x03, 0x60, 0x10, 0x01, 0x02});
    EXPECT_THROW(device.ResumePrinting(), UsbPrintDeviceReadException);
    ExpectReleased();

    // A short write.
    printer.TruncateNextWrite(11);
    ExpectThrow<QRVException>([&] { device.CutLabel(); },
                              L"could not write 12 bytes; only 11 bytes were written",
                              L"PrinterDevice::WriteData()");
    ExpectReleased();
    printer.TruncateNextWrite(0);
    EXPECT_THROW(device.Reboot(), QRVException);
    ExpectReleased();

    // A channel that cannot be opened: the lock is still given back.
    printer.FailOpen();
    EXPECT_THROW(device.ClearCutterJamError(), UsbPrintDeviceConnectionException);
    EXPECT_THROW(device.StartUpdate(), UsbPrintDeviceConnectionException);
    EXPECT_EQ(NoOpSynchronizer::Held(), 0);

    EXPECT_TRUE(pauses.Pauses().empty());
}
