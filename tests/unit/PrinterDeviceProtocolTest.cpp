#include "support/ProtocolFixture.h"
#include "support/RecordingListener.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <set>
#include <string>

using namespace vela::kom;
using namespace vela::test;
using vela::common::UsbPrintDeviceConnectionException;
using vela::common::UsbPrintDeviceReadException;
using vela::common::WaitResult;

namespace {

const std::vector<uint32_t> kDefaults{3, 4, 3, 3, 8, 8, 4, 8, 4, 8, 4, 2, 0};

// Where each enumeration sits in the block and which values the printer may report for it.
struct FieldLayout {
    size_t byte;
    unsigned shift;
    unsigned width;
    std::set<uint32_t> accepted;
};
const FieldLayout kLayout[] = {
    {0, 0, 2, {0, 1, 2, 3}},    {0, 2, 2, {0, 1, 3}},
    {0, 4, 2, {0, 1, 2, 3}},    {0, 6, 2, {0, 1, 2, 3}},
    {1, 0, 3, {0, 1, 2, 6, 7}}, {1, 3, 3, {0, 1, 2, 3, 6, 7}},
    {1, 6, 2, {0, 1, 3}},       {2, 0, 3, {0, 1, 2, 3, 4, 7}},
    {2, 3, 2, {0, 1, 3}},       {2, 5, 3, {0, 1, 2, 3, 4, 5, 7}},
    {3, 0, 2, {0, 1, 3}},
};

// A payload of `command` followed by `data`, which may hold zero bytes (all but the literal's last).
template <size_t N> std::vector<uint8_t> Payload(uint8_t command, const char (&data)[N], size_t padTo = 0) {
    std::vector<uint8_t> payload{0x00, command};
    payload.insert(payload.end(), data, data + N - 1);
    payload.resize(std::max(payload.size(), padTo), 0xEE);
    return payload;
}

} // namespace

TEST(PrinterStatusDecoding, EachFieldTakesOnlyItsAcceptedValuesFromItsOwnBits) {
    for (size_t f = 0; f < std::size(kLayout); ++f) {
        const FieldLayout& layout = kLayout[f];
        for (uint32_t value = 0; value < (1u << layout.width); ++value) {
            std::vector<uint8_t> block(8, 0);
            block[layout.byte] = static_cast<uint8_t>(value << layout.shift);
            std::vector<uint32_t> expected(PrinterStatus::kFieldCount, 0);
            expected[f] = layout.accepted.count(value) ? value : kDefaults[f];
            EXPECT_EQ(Fields(PrinterStatus(block)), expected) << "field " << f << " value " << value;
        }
    }

    // A set operating bit never stores 1: the field keeps its default 2. Bits 2-6 of b3, b4 and
    // b5 are not decoded.
    EXPECT_EQ(PrinterStatus({0, 0, 0, 0x80, 0, 0, 0, 0}).GetOperatingStatus(), 2u);
    EXPECT_EQ(PrinterStatus({0, 0, 0, 0x7C, 0xFF, 0xFF, 0, 0}), PrinterStatus(std::vector<uint8_t>(8, 0)));
    EXPECT_EQ(PrinterStatus({0, 0, 0, 0, 0, 0, 0x34, 0x12}).Field(12), 0x1234u);
    for (size_t length : {0, 7, 9}) {
        EXPECT_EQ(Fields(PrinterStatus(std::vector<uint8_t>(length, 0))), kDefaults);
    }

    const PrinterStatus built(0, 1, 2, 3, 6, 7, 3, 4, 3, 5, 1, 0, 0xBEEF);
    EXPECT_EQ(built, PrinterStatus({0xE4, 0xFE, 0xBC, 0x01, 0, 0, 0xEF, 0xBE}));
}

using StatusQueryTest = ProtocolFixture;
using DeviceInformationTest = ProtocolFixture;

// The block's request and decoding are met through the gateway on the simulator, the SKU itself
// by qrvctl info (CliTest.StatusAndInfoNameEveryField).
TEST_F(StatusQueryTest, CassettePresenceZeroAndTwoCountAsPresentAndWithoutACassetteNoMemoryIsAskedFor) {
    for (uint8_t presence : {0, 1, 2, 3}) {
        printer.QueueReply({0x00, 0x80, uint8_t(presence << 4), 0, 0, 0, 0, 0, 0, 0});
        EXPECT_EQ(device.IsCassettePresent(), presence == 0 || presence == 2) << int(presence);
    }
    printer.QueueReply({0x00, 0x80, 0x10, 0, 0, 0, 0, 0, 0, 0}); // presence 1: absent
    ExpectThrow<NoCassettePresentException>([&] { device.GetSkuNumber(); }, L"'No cassette present'",
                                            L"PrinterDevice::GetSkuNumber()");
    EXPECT_EQ(printer.RawWrites().size(), 5u); // status queries only
    ExpectReleased();
}

// Wrong sizes and commands are met over the channel (ReplyFault.status_*).
TEST_F(StatusQueryTest, ACorruptHeaderIsRetriedOnceAndASilentOneTwice) {
    // A corrupt header is drained (up to the silence) and the query repeated once; corrupt again, it fails.
    printer.QueueBytes(Hex("3C 00 00 00 11 60 10 00 80 00 00 00 00 00 00 00 00"));
    printer.QueueReadFailure();
    printer.QueueBytes(Hex("3C 00 00 00 11 60 10 00 80 00 00 00 00 00 00 00 00"));
    EXPECT_THROW(device.GetStatus(), ReplyException);
    ExpectReleased();

    const int readsBefore = printer.RawReads();
    EXPECT_THROW(device.GetStatus(), UsbPrintDeviceReadException);
    EXPECT_EQ(printer.RawReads() - readsBefore, 2); // the silent header read was tried twice
    ExpectReleased();
}

// The seven texts in order (and the request) are checked through the gateway on the simulator.
TEST_F(DeviceInformationTest, AnUnterminatedVersionTextEndsTheTexts) {
    printer.QueueReply(Payload(0x39, "1.0\0"
                                     "2.\xC3\xA9\0" // widened from UTF-8
                                     "3.0-unterminated"));
    const PrinterVersion partial = device.GetPrinterVersion();
    EXPECT_EQ(partial.GetFWVersion(), L"2.\u00e9");
    for (size_t i = 2; i < PrinterVersion::kTextCount; ++i) {
        EXPECT_EQ(partial.Text(i), L"") << i;
    }
    ExpectReleased();
}

TEST_F(DeviceInformationTest, ReplySizeAndCommandAreChecked) {
    // 13 payload bytes are too few for the versions: payload and one further message drained.
    printer.QueueReply(Payload(0x39, "", 13));
    printer.QueueReply({0x01});
    ExpectThrow<ReplyException>([&] { device.GetPrinterVersion(); }, L"'Wrong reply size'",
                                L"PrinterDevice::GetPrinterVersion()");
    EXPECT_EQ(printer.PendingBytes(), 0u);
    printer.QueueReply(Payload(0x39, "", 14));
    EXPECT_EQ(device.GetPrinterVersion().GetOSVersion(), L"");

    for (size_t wrongSize : {4, 129, 131}) {
        printer.QueueReply(Payload(0x47, "", wrongSize));
        printer.QueueReply({0x01});
        ExpectThrow<ReplyException>([&] { device.GetCassetteEepromData(); }, L"'Wrong reply size'",
                                    L"PrinterDevice::GetCassetteEepromData()");
        EXPECT_EQ(printer.PendingBytes(), 0u);
    }
    ExpectReleased();
}

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

// Lengths and start bytes: ReplyHeaderFuzz; 'Header corrupted': ReplyFault.*_corruptHeader; a header
// read that fails twice: StatusQueryTest.ACorruptHeaderIsRetriedOnceAndASilentOneTwice.
TEST_F(FramingTest, ALateHeaderIsReadAgainAndPergeQueueDropsOneMessageOrLogsTheSilence) {
    printer.QueueBytes(Hex("00 00 00 00 0A 60 04")); // the start byte is not examined
    printer.QueueBytes({7, 7, 7});
    printer.QueueReadFailure(); // the next header is late once
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
    EXPECT_EQ(pauses.Pauses(), std::vector<uint32_t>{250});
    EXPECT_EQ(ToHex(printer.AllWritten()), "C3 00 00 00 09 60 04 01 80");

    // Ten busy answers: 20 ticks exactly, the poll gives up.
    pauses.Clear();
    for (int i = 0; i < 11; ++i) {
        printer.QueueCompletion(1);
    }
    EXPECT_EQ(device.WaitForCompletion(transport), -1);
    std::vector<uint32_t> ticks(11, 500); // 250 ms first, then 500 ms per poll
    ticks[0] = 250;
    EXPECT_EQ(pauses.Pauses(), ticks);
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
