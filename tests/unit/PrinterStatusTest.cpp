#include "support/ProtocolFixture.h"

#include <gtest/gtest.h>

#include <iterator>
#include <set>

using namespace vela::kom;
using namespace vela::test;
using vela::common::UsbPrintDeviceReadException;

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

std::vector<uint32_t> Fields(const PrinterStatus& status) {
    std::vector<uint32_t> fields;
    for (size_t i = 0; i < PrinterStatus::kFieldCount; ++i) {
        fields.push_back(status.Field(i));
    }
    return fields;
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
}

TEST(PrinterStatusDecoding, OperatingStatusValueAndBlockLength) {
    // A set operating bit never stores 1: the field keeps its default 2. Bits 2-6 of b3, b4 and
    // b5 are not decoded.
    EXPECT_EQ(PrinterStatus({0, 0, 0, 0x80, 0, 0, 0, 0}).GetOperatingStatus(), 2u);
    EXPECT_EQ(PrinterStatus({0, 0, 0, 0x7C, 0xFF, 0xFF, 0, 0}), PrinterStatus({0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(PrinterStatus({0, 0, 0, 0, 0, 0, 0x34, 0x12}).Field(12), 0x1234u);

    EXPECT_EQ(Fields(PrinterStatus()), kDefaults);
    EXPECT_EQ(Fields(PrinterStatus(std::vector<uint8_t>(7, 0))), kDefaults);
    EXPECT_EQ(Fields(PrinterStatus(std::vector<uint8_t>(9, 0))), kDefaults);
    EXPECT_EQ(Fields(PrinterStatus(std::vector<uint8_t>{})), kDefaults);

    const PrinterStatus built(0, 1, 2, 3, 6, 7, 3, 4, 3, 5, 1, 0, 0xBEEF);
    EXPECT_EQ(built, PrinterStatus({0xE4, 0xFE, 0xBC, 0x01, 0, 0, 0xEF, 0xBE}));
    EXPECT_NE(built, PrinterStatus(0, 1, 2, 3, 6, 7, 3, 4, 3, 5, 1, 0, 0xBEEE));
    EXPECT_EQ(built.GetCutterStatus(), cutter_blade_error);
    EXPECT_EQ(built.GetLabelStatus(), label_error);
}

using StatusQueryTest = ProtocolFixture;

TEST_F(StatusQueryTest, GetStatusAsksForTheBlockAndDecodesIt) {
    printer.QueueReply({0x00, 0x80, 0x11, 0x07, 0x00, 0x00, 0x00, 0x00, 0x34, 0x12}, 0x60, 0x10);
    const PrinterStatus status = device.GetStatus();
    EXPECT_EQ(ToHex(printer.AllWritten()), "C3 00 00 00 09 60 10 01 80");
    EXPECT_EQ(status.GetPowerStatus(), 1u);
    EXPECT_EQ(status.GetCassettePresence(), 1u);
    EXPECT_EQ(status.GetCutterStatus(), 7u);
    EXPECT_EQ(status.Field(12), 0x1234u);
    EXPECT_TRUE(log.Contains(L"PrinterDevice::GetStatus()"));
    EXPECT_TRUE(log.Contains(L"PrinterDevice::GetStatusInternal()"));
    EXPECT_EQ(NoOpSynchronizer::Taken(), 1);
    ExpectReleased();

    printer.QueueReply({0x00, 0x80, 1, 2, 3, 4, 5, 6, 7, 8});
    EXPECT_EQ(ToHex(device.GetStatusInternal()), "01 02 03 04 05 06 07 08");
}

TEST_F(StatusQueryTest, WrongRepliesAreRejectedAndTheChannelDrained) {
    // Nine payload bytes: the payload and one further message are read before the error.
    printer.QueueReply({0x00, 0x80, 0, 0, 0, 0, 0, 0, 0});
    printer.QueueReply({0xAA, 0xBB});
    printer.QueueReply({0x00, 0x80, 0, 0, 0, 0, 0, 0, 0, 0});
    ExpectThrow<ReplyException>([&] { device.GetStatus(); }, L"'Wrong reply size'",
                                L"PrinterDevice::GetStatusInternal()");
    EXPECT_EQ(printer.PendingBytes(), 17u);
    ExpectReleased();
    {
        std::vector<uint8_t> rest;
        FakeTransport drain(L"fake-path");
        device.ReadData(drain, rest, 17);
    }

    printer.QueueReply({0x00, 0x81, 0, 0, 0, 0, 0, 0, 0, 0});
    ExpectThrow<ReplyException>([&] { device.GetStatus(); }, L"'Wrong reply'",
                                L"PrinterDevice::GetStatusInternal()");
    ExpectReleased();

    printer.QueueBytes({0x3C, 0, 0, 0, 17, 0x60, 0x10, 0x00, 0x80, 0, 0, 0, 0, 0, 0, 0, 0});
    ExpectThrow<ReplyException>([&] { device.GetStatus(); }, L"'Header corrupted'",
                                L"PrinterDevice::GetReplyDataLength()");
    ExpectReleased();
}

TEST_F(StatusQueryTest, ASilentPrinterFailsAfterOneHeaderRetry) {
    EXPECT_THROW(device.GetStatus(), UsbPrintDeviceReadException);
    EXPECT_EQ(printer.RawReads(), 2);
    ExpectReleased();
}

TEST_F(StatusQueryTest, CassettePresenceZeroAndTwoCountAsPresent) {
    for (uint8_t presence : {0, 1, 2, 3}) {
        printer.QueueReply({0x00, 0x80, uint8_t(presence << 4), 0, 0, 0, 0, 0, 0, 0});
        EXPECT_EQ(device.IsCassettePresent(), presence == 0 || presence == 2) << int(presence);
    }
    ExpectReleased();
}
