#include "support/ProtocolFixture.h"

#include <gtest/gtest.h>

#include <functional>

using namespace vela::kom;
using namespace vela::test;
using vela::common::UsbPrintDeviceConnectionException;
using vela::common::UsbPrintDeviceReadException;

using ControlCommandTest = ProtocolFixture;

TEST_F(ControlCommandTest, EachOrderWritesItsRequestInOneTransaction) {
    const struct {
        std::function<void(TestDevice&)> call;
        const char* request;
    } orders[] = {
        {[](TestDevice& d) { d.ResumePrinting(); }, "C3 00 00 00 0C 60 10 01 50 01 00 00"},
        {[](TestDevice& d) { d.ClearError(); }, "C3 00 00 00 0C 60 10 01 50 03 00 00"},
        {[](TestDevice& d) { d.CutLabel(); }, "C3 00 00 00 0C 60 10 01 50 04 00 00"},
        {[](TestDevice& d) { d.FeedForward(); }, "C3 00 00 00 0C 60 10 01 50 0A 00 00"},
        {[](TestDevice& d) { d.ClearCutterJamError(); }, "C3 00 00 00 0C 60 10 01 50 0F 00 00"},
        {[](TestDevice& d) { d.StartUpdate(); }, "C3 00 00 00 0A 60 06 01 3A 01"},
        {[](TestDevice& d) { d.Reboot(); }, "C3 00 00 00 0A 60 06 01 3A 02"},
    };
    for (const auto& order : orders) {
        SCOPED_TRACE(order.request);
        FakePrinter scripted;
        pauses.Clear();
        const bool printOrder = Hex(order.request)[8] == 0x50;
        if (printOrder) {
            scripted.QueueReply({0x00, 0x50}, 0x60, 0x10);
        }
        order.call(device);
        EXPECT_EQ(scripted.RawWrites(), std::vector<std::vector<uint8_t>>{Hex(order.request)});
        EXPECT_EQ(scripted.Opens(), 1);
        EXPECT_EQ(scripted.Closes(), 1);
        // Print orders drain their acknowledgement and settle 5 s; device orders read nothing.
        EXPECT_EQ(scripted.PendingBytes(), 0u);
        EXPECT_EQ(scripted.RawReads(), printOrder ? 1 : 0);
        EXPECT_EQ(pauses.Pauses(), printOrder ? std::vector<uint32_t>{5000} : std::vector<uint32_t>{});
    }
    EXPECT_EQ(NoOpSynchronizer::Taken(), 7);
    EXPECT_EQ(NoOpSynchronizer::Held(), 0);
    EXPECT_TRUE(log.Contains(L"PrinterDevice::CutLabel()"));
    EXPECT_TRUE(log.Contains(L"PrinterDevice::DeviceControlCommand()"));
}

TEST_F(ControlCommandTest, ThePauseHoldsTheLockAndTheChannel) {
    int heldDuringPause = -1, openDuringPause = -1;
    pauses.OnPause([&](uint32_t) {
        heldDuringPause = NoOpSynchronizer::Held();
        openDuringPause = printer.Opens() - printer.Closes();
    });
    printer.QueueReply({}, 0x60, 0x10); // an acknowledgement of length 7: no payload to wait for
    device.CutLabel();
    EXPECT_EQ(heldDuringPause, 1);
    EXPECT_EQ(openDuringPause, 1);
    ExpectReleased();

    // The acknowledgement is not examined, only drained, also when it comes in pieces.
    printer.QueueRawRead({0x00, 0x00, 0x00});
    printer.QueueRawRead({0x00, 0x0B, 0x61, 0x11, 0xFF});
    printer.QueueRawRead({0xFF, 0xFF, 0xFF});
    printer.QueueBytes(Frame({0x01, 0x80})); // the next message stays for its reader
    device.FeedForward();
    EXPECT_EQ(printer.PendingBytes(), Frame({0x01, 0x80}).size());
}

TEST_F(ControlCommandTest, FailuresReleaseEverythingAndSkipThePause) {
    EXPECT_THROW(device.ClearError(), UsbPrintDeviceReadException); // no acknowledgement
    ExpectReleased();
    printer.QueueBytes(Hex("C3 00 00 00 03 60 10 01 02")); // announces more than ever comes
    EXPECT_THROW(device.ResumePrinting(), UsbPrintDeviceReadException);
    ExpectReleased();
    printer.TruncateNextWrite(11);
    ExpectThrow<QRVException>([&] { device.CutLabel(); },
                              L"could not write 12 bytes; only 11 bytes were written",
                              L"PrinterDevice::WriteData()");
    ExpectReleased();
    printer.FailOpen();
    EXPECT_THROW(device.Reboot(), UsbPrintDeviceConnectionException);
    EXPECT_EQ(NoOpSynchronizer::Held(), 0);
    EXPECT_TRUE(pauses.Pauses().empty());
}
