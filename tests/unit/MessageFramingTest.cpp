#include "kom/protocol/MessageHeader.h"
#include "kom/protocol/ReplyParsers.h"
#include "support/ProtocolFixture.h"

#include <gtest/gtest.h>

using namespace vela::kom;
using namespace vela::test;
using vela::common::InvalidIndexException;
using vela::common::UsbPrintDeviceReadException;
using vela::common::WaitResult;

namespace {

const std::vector<uint8_t> kPoll = Hex("C3 00 00 00 09 60 04 01 80");

std::vector<uint8_t> Header(uint32_t totalLength, uint8_t start = 0xC3) {
    return {start,
            uint8_t(totalLength >> 24),
            uint8_t(totalLength >> 16),
            uint8_t(totalLength >> 8),
            uint8_t(totalLength),
            0x60,
            0x04};
}

} // namespace

TEST(MessageHeaderTest, SerializesSevenBytesWithBigEndianLengthAndLowBytesOfGroupAndUnit) {
    EXPECT_EQ(ToHex(MessageHeader(0x01020304, 0x60, 0x10).Serialize()), "C3 01 02 03 04 60 10");
    EXPECT_EQ(ToHex(MessageHeader(9, 0x1260, 0xFF07).Serialize()), "C3 00 00 00 09 60 07");
    MessageHeader request = MessageHeader::ForRequest(MessageHeader::kUnitDevice, 3);
    EXPECT_EQ(request.TotalLength(), 10u);
    EXPECT_EQ(request.PayloadLength(), 3u);
    std::vector<uint8_t> bytes{0xAA};
    request.AppendTo(bytes);
    EXPECT_EQ(ToHex(bytes), "AA C3 00 00 00 0A 60 06");
}

using FramingTest = ProtocolFixture;

TEST_F(FramingTest, WriteDataSendsTheRequestInOneWriteAndRejectsShortWrites) {
    FakeTransport transport(L"fake-path");
    device.WriteData(transport, kPoll);
    ASSERT_EQ(printer.RawWrites().size(), 1u);
    EXPECT_EQ(printer.RawWrites()[0], kPoll);

    printer.TruncateNextWrite(8);
    ExpectThrow<QRVException>([&] { device.WriteData(transport, kPoll); },
                              L"could not write 9 bytes; only 8 bytes were written",
                              L"PrinterDevice::WriteData()");
    EXPECT_TRUE(log.Contains(L"PrinterDevice::WriteData()"));
}

TEST_F(FramingTest, ReadDataCollectsShortReadsAndReportsProgress) {
    FakeTransport transport(L"fake-path");
    printer.QueueRawRead({1, 2, 3});
    printer.QueueRawRead({});
    printer.QueueRawRead({4, 5});
    printer.QueueRawRead({6, 7, 8, 9});
    std::vector<uint8_t> buffer{0xEE, 0xEE};
    std::vector<std::pair<uint64_t, uint64_t>> calls;
    device.ReadData(transport, buffer, 9,
                    [&](uint64_t held, uint64_t total) { calls.emplace_back(held, total); });
    EXPECT_EQ(ToHex(buffer), "01 02 03 04 05 06 07 08 09");
    EXPECT_EQ(printer.RawReads(), 4);
    const std::vector<std::pair<uint64_t, uint64_t>> expected{{3, 9}, {5, 9}, {9, 9}};
    EXPECT_EQ(calls, expected);

    // A count of 0 still asks the channel once; what arrives stays buffered for the next read.
    printer.QueueBytes({0x42});
    device.ReadData(transport, buffer, 0);
    EXPECT_TRUE(buffer.empty());
    EXPECT_EQ(printer.RawReads(), 5);
    device.ReadData(transport, buffer, 1);
    EXPECT_EQ(ToHex(buffer), "42");
    EXPECT_EQ(printer.RawReads(), 5);
}

TEST_F(FramingTest, ReadDataOfAHugeAnnouncedCountGrowsOnlyWithArrivingBytes) {
    FakeTransport transport(L"fake-path");
    printer.QueueBytes(std::vector<uint8_t>(3000, 0x11));
    std::vector<uint8_t> buffer;
    EXPECT_THROW(device.ReadData(transport, buffer, 0xFFFFFFFCu), UsbPrintDeviceReadException);
    EXPECT_EQ(buffer.size(), 3000u);
    EXPECT_LE(buffer.capacity(), 8192u);
}

TEST_F(FramingTest, GetReplyDataLengthReturnsThePayloadLengthAndLeavesThePayload) {
    FakeTransport transport(L"fake-path");
    printer.QueueRawRead(Header(12));
    printer.QueueRawRead({1, 2, 3, 4, 5});
    EXPECT_EQ(device.GetReplyDataLength(transport), 5u);
    EXPECT_EQ(printer.PendingBytes(), 5u);
    std::vector<uint8_t> payload;
    device.ReadData(transport, payload, 5);

    // Length 7: no payload; below 7 the subtraction wraps around.
    printer.QueueBytes(Header(7));
    EXPECT_EQ(device.GetReplyDataLength(transport), 0u);
    printer.QueueBytes(Header(3));
    EXPECT_EQ(device.GetReplyDataLength(transport), 0xFFFFFFFCu);
}

TEST_F(FramingTest, GetReplyDataLengthRetriesTheHeaderReadOnce) {
    FakeTransport transport(L"fake-path");
    printer.QueueReadFailure();
    printer.QueueBytes(Header(12));
    EXPECT_EQ(device.GetReplyDataLength(transport), 5u);
    EXPECT_EQ(printer.RawReads(), 2);

    printer.QueueReadFailure();
    printer.QueueReadFailure();
    printer.QueueBytes(Header(12));
    EXPECT_THROW(device.GetReplyDataLength(transport), UsbPrintDeviceReadException);
    EXPECT_EQ(printer.RawReads(), 4);
}

TEST_F(FramingTest, CorruptedHeaderIsRejectedBeforeThePayloadIsRead) {
    FakeTransport transport(L"fake-path");
    printer.QueueRawRead(Header(12, 0xC2));
    printer.QueueRawRead({1, 2, 3, 4, 5});
    ExpectThrow<ReplyException>([&] { device.GetReplyDataLength(transport); }, L"'Header corrupted'",
                                L"PrinterDevice::GetReplyDataLength()");
    EXPECT_EQ(printer.PendingBytes(), 5u);
}

TEST(ReplyHeaderParserTest, TooShortHeadersFailAsIndexOutOfRange) {
    LogCapture log;
    EXPECT_THROW(CheckedReplyPayloadLength(ByteView()), InvalidIndexException);
    const std::vector<uint8_t> truncated{0xC3, 0x00, 0x00};
    EXPECT_THROW(CheckedReplyPayloadLength(truncated), InvalidIndexException);
    const std::vector<uint8_t> wrongStart{0x00};
    EXPECT_THROW(CheckedReplyPayloadLength(wrongStart), ReplyException);
    EXPECT_EQ(AnnouncedPayloadLength(Header(9, 0x00), L"x"), 2u);
}

TEST_F(FramingTest, PergeQueueDropsOneWholeMessageWhateverItsStartByte) {
    FakeTransport transport(L"fake-path");
    printer.QueueBytes(Header(10, 0x00));
    printer.QueueBytes({7, 7, 7});
    printer.QueueBytes(Frame({0x01, 0x80}));
    device.PergeQueue(transport);
    EXPECT_EQ(device.GetReplyDataLength(transport), 2u);
}

TEST_F(FramingTest, PergeQueueOnASilentChannelLogsAndReturns) {
    FakeTransport transport(L"fake-path");
    EXPECT_NO_THROW(device.PergeQueue(transport));
    EXPECT_TRUE(log.Contains(
        L"PrinterDevice::PergeQueue - caught exception Unable to read data from UsbPrint device, timeout"));
}

// ---- completion poll ------------------------------------------------------------------------

using CompletionTest = ProtocolFixture;

TEST_F(CompletionTest, FinishedAtOnceReturnsTheResultAfterTheFirstWait) {
    FakeTransport transport(L"fake-path");
    printer.QueueCompletion(2, 0);
    EXPECT_EQ(device.WaitForCompletion(transport), 0);
    EXPECT_EQ(pauses.Pauses(), std::vector<uint32_t>{250});
    EXPECT_EQ(printer.AllWritten(), kPoll);
    EXPECT_EQ(printer.PendingBytes(), 0u);

    printer.QueueCompletion(2, 9);
    EXPECT_EQ(device.WaitForCompletion(transport), 9);
    printer.QueueCompletion(2, 255);
    EXPECT_EQ(device.WaitForCompletion(transport), 255);
}

TEST_F(CompletionTest, TenBusyAnswersGiveUpWithMinusOne) {
    FakeTransport transport(L"fake-path");
    for (int i = 0; i < 11; ++i) {
        printer.QueueCompletion(1);
    }
    EXPECT_EQ(device.WaitForCompletion(transport), -1);
    std::vector<uint32_t> expected{250};
    expected.insert(expected.end(), 10, 500);
    EXPECT_EQ(pauses.Pauses(), expected);
    EXPECT_EQ(printer.RawWrites().size(), 10u);
    EXPECT_EQ(printer.PendingBytes(), 12u); // the eleventh answer was never asked for
}

TEST_F(CompletionTest, ForeignAnswersCostAnExtraTickAndEndWithZero) {
    FakeTransport transport(L"fake-path");
    // Four foreign answers reach 12 ticks only: the fifth answer's result still counts.
    for (int i = 0; i < 4; ++i) {
        printer.QueueReply({0x00, 0x81, 0x02, 0x00, 0x00});
    }
    printer.QueueCompletion(2, 9);
    EXPECT_EQ(device.WaitForCompletion(transport), 9);
    EXPECT_EQ(printer.RawWrites().size(), 5u);

    // Seven foreign answers, or seven answers of the wrong size, reach 21: the poll ends with 0
    // (an eighth poll would find the channel silent and throw).
    for (auto payload :
         {std::vector<uint8_t>{0x00, 0x81, 0x01, 0x00, 0x00}, std::vector<uint8_t>{0x01, 0x80, 0x02}}) {
        pauses.Clear();
        for (int i = 0; i < 7; ++i) {
            printer.QueueReply(payload);
        }
        EXPECT_EQ(device.WaitForCompletion(transport), 0);
        EXPECT_EQ(pauses.Pauses().size(), 8u);
    }
}

TEST_F(CompletionTest, AnEndedWaitStopsThePoll) {
    FakeTransport transport(L"fake-path");
    pauses.SetResultAt(0, WaitResult::signalled);
    EXPECT_EQ(device.WaitForCompletion(transport), 0);
    EXPECT_TRUE(printer.RawWrites().empty());

    for (WaitResult result : {WaitResult::signalled, WaitResult::failed}) {
        pauses.Clear();
        printer.QueueCompletion(1);
        pauses.SetResultAt(1, result);
        EXPECT_EQ(device.WaitForCompletion(transport), 0);
        EXPECT_EQ(pauses.Pauses().size(), 2u);
    }
}

TEST_F(CompletionTest, ResultCodesOneToSevenThrowTheirKinds) {
    FakeTransport transport(L"fake-path");
    auto expectCode = [&](uint8_t code, auto kind, const std::wstring& message) {
        using Kind = decltype(kind);
        printer.QueueCompletion(2, code);
        ExpectThrow<Kind>([&] { device.WaitForCompletion(transport); }, message,
                          L"PrinterDevice::WaitForCompletion()");
    };
    expectCode(1, FileAlreadyExistsException(L"", L""), L"'Duplicate file'");
    expectCode(2, FileNotFoundException(L"", L""), L"'Wrong file name'");
    expectCode(3, NoFreeDiskSpaceException(L"", L""), L"'Out of disk space'");
    expectCode(4, DeviceException(L"", L""), L"'Wrong checksum'");
    expectCode(5, DeviceException(L"", L""), L"'Illegal file name'");
    expectCode(6, NoPermissionException(L"", L""), L"'Access denied'");
    expectCode(7, DeviceException(L"", L""), L"'Unknown error'");
    // Exact kinds, not only their bases.
    printer.QueueCompletion(2, 3);
    try {
        device.WaitForCompletion(transport);
    } catch (const QRVException& e) {
        EXPECT_EQ(e.ExceptionName(), L"NoFreeDiskSpaceException");
    }
}

TEST_F(CompletionTest, ASilentPrinterEndsThePollWithTheTransportFailure) {
    FakeTransport transport(L"fake-path");
    EXPECT_THROW(device.WaitForCompletion(transport), UsbPrintDeviceReadException);
    EXPECT_EQ(printer.RawReads(), 2); // the header read was retried once
}
