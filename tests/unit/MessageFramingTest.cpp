#include "support/ProtocolFixture.h"

#include <gtest/gtest.h>

using namespace vela::kom;
using namespace vela::test;
using vela::common::UsbPrintDeviceReadException;
using vela::common::WaitResult;

namespace {

std::vector<uint8_t> Header(uint32_t total, uint8_t start = 0xC3) {
    return {start, uint8_t(total >> 24), uint8_t(total >> 16), uint8_t(total >> 8), uint8_t(total), 0x60,
            0x04};
}

std::vector<uint32_t> PollPauses(size_t polls) {
    std::vector<uint32_t> pauses{250};
    pauses.insert(pauses.end(), polls, 500);
    return pauses;
}

} // namespace

class FramingTest : public ProtocolFixture {
protected:
    FakeTransport transport{L"fake-path"};
};

TEST_F(FramingTest, ReadDataCollectsShortReadsAndReportsProgress) {
    for (auto chunk : {Hex("01 02 03"), Hex(""), Hex("04 05"), Hex("06 07 08 09")}) {
        printer.QueueRawRead(chunk);
    }
    std::vector<uint8_t> buffer{0xEE};
    std::vector<std::pair<uint64_t, uint64_t>> calls;
    device.ReadData(transport, buffer, 9,
                    [&](uint64_t held, uint64_t total) { calls.emplace_back(held, total); });
    EXPECT_EQ(ToHex(buffer), "01 02 03 04 05 06 07 08 09");
    EXPECT_EQ(calls, (std::vector<std::pair<uint64_t, uint64_t>>{{3, 9}, {5, 9}, {9, 9}}));

    // A count of 0 still asks the channel once; what arrives stays buffered for the next read.
    printer.QueueBytes({0x42});
    device.ReadData(transport, buffer, 0);
    EXPECT_TRUE(buffer.empty());
    EXPECT_EQ(printer.RawReads(), 5);
}

TEST_F(FramingTest, AHugeAnnouncedCountCostsOnlyTheBytesThatArrive) {
    printer.QueueBytes(std::vector<uint8_t>(3000, 0x11));
    std::vector<uint8_t> buffer;
    EXPECT_THROW(device.ReadData(transport, buffer, 0xFFFFFFFCu), UsbPrintDeviceReadException);
    EXPECT_TRUE(buffer.empty()); // a length no held reply has: its bytes are dropped as they come
    EXPECT_LE(buffer.capacity(), 8192u);
}

// Lengths and start bytes: ReplyHeaderFuzz; 'Header corrupted': ReplyFault.*_corruptHeader.
TEST_F(FramingTest, ReplyHeaders) {
    // One failed header read is retried; a second failure propagates.
    printer.QueueReadFailure();
    printer.QueueBytes(Header(8));
    EXPECT_EQ(device.GetReplyDataLength(transport), 1u);
    printer.QueueReadFailure();
    printer.QueueReadFailure();
    EXPECT_THROW(device.GetReplyDataLength(transport), UsbPrintDeviceReadException);
}

TEST_F(FramingTest, PergeQueueDropsOneMessageOrLogsTheSilence) {
    printer.QueueBytes(Header(10, 0x00)); // the start byte is not examined
    printer.QueueBytes({7, 7, 7});
    printer.QueueBytes(Frame({0x01, 0x80}));
    device.PergeQueue(transport);
    EXPECT_EQ(device.GetReplyDataLength(transport), 2u);

    std::vector<uint8_t> rest;
    device.ReadData(transport, rest, 2);
    EXPECT_NO_THROW(device.PergeQueue(transport));
    EXPECT_TRUE(log.Contains(
        L"PrinterDevice::PergeQueue - caught exception Unable to read data from UsbPrint device, timeout"));
}

TEST_F(FramingTest, CompletionPollTicks) {
    printer.QueueCompletion(2, 9);
    EXPECT_EQ(device.WaitForCompletion(transport), 9); // codes from 8 on are results
    EXPECT_EQ(pauses.Pauses(), PollPauses(0));
    EXPECT_EQ(ToHex(printer.AllWritten()), "C3 00 00 00 09 60 04 01 80");

    // Ten busy answers: 20 ticks exactly, the poll gives up.
    pauses.Clear();
    for (int i = 0; i < 11; ++i) {
        printer.QueueCompletion(1);
    }
    EXPECT_EQ(device.WaitForCompletion(transport), -1);
    EXPECT_EQ(pauses.Pauses(), PollPauses(10));
    EXPECT_EQ(printer.PendingBytes(), 12u); // the eleventh answer was never asked for
    std::vector<uint8_t> rest;
    device.ReadData(transport, rest, 12);

    // Foreign answers cost 3: four reach 12, so the fifth answer still counts ...
    for (int i = 0; i < 4; ++i) {
        printer.QueueReply({0x00, 0x81, 0x02, 0x00, 0x00});
    }
    printer.QueueCompletion(2, 0);
    EXPECT_EQ(device.WaitForCompletion(transport), 0);
    // ... and seven (of either kind) jump to 21: 0, not -1. An eighth poll would find silence.
    for (auto foreign : {Hex("00 81 01 00 00"), Hex("01 80 02")}) {
        for (int i = 0; i < 7; ++i) {
            printer.QueueReply(foreign);
        }
        EXPECT_EQ(device.WaitForCompletion(transport), 0);
    }

    // A wait that ends otherwise than by its time-out stops the poll with 0.
    pauses.Clear();
    pauses.SetResultAt(0, WaitResult::signalled);
    EXPECT_EQ(device.WaitForCompletion(transport), 0);
    for (WaitResult result : {WaitResult::signalled, WaitResult::failed}) {
        printer.QueueCompletion(1);
        pauses.SetResultAt(1, result);
        EXPECT_EQ(device.WaitForCompletion(transport), 0);
    }
    EXPECT_EQ(pauses.Pauses().size(), 5u);

    EXPECT_THROW(device.WaitForCompletion(transport), UsbPrintDeviceReadException);
}

// Codes 1, 2, 3 and 6 come from the simulator in GatewayOnSimulator.PrinterFailuresBecomeHostKinds.
TEST_F(FramingTest, CompletionCodesFourFiveAndSevenAreDeviceExceptions) {
    for (uint8_t code : {4, 5, 7}) {
        printer.QueueCompletion(2, code);
        const std::wstring message = code == 4   ? L"'Wrong checksum'"
                                     : code == 5 ? L"'Illegal file name'"
                                                 : L"'Unknown error'";
        ExpectThrow<DeviceException>([&] { device.WaitForCompletion(transport); }, message,
                                     L"PrinterDevice::WaitForCompletion()");
    }
}
