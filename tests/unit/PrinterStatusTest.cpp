#include "support/ProtocolFixture.h"
#include "support/RecordingListener.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <string>

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
}

TEST(PrinterStatusDecoding, OperatingStatusValueAndBlockLength) {
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

// The block's request and decoding are met through the gateway on the simulator.
TEST_F(StatusQueryTest, CassettePresenceZeroAndTwoCountAsPresent) {
    for (uint8_t presence : {0, 1, 2, 3}) {
        printer.QueueReply({0x00, 0x80, uint8_t(presence << 4), 0, 0, 0, 0, 0, 0, 0});
        EXPECT_EQ(device.IsCassettePresent(), presence == 0 || presence == 2) << int(presence);
    }
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

// The SKU itself is read from the simulator by qrvctl info (CliTest.StatusAndInfoNameEveryField).
TEST_F(DeviceInformationTest, WithoutACassetteTheMemoryIsNeverAskedFor) {
    printer.QueueReply({0x00, 0x80, 0x10, 0, 0, 0, 0, 0, 0, 0}); // presence 1: absent
    ExpectThrow<NoCassettePresentException>([&] { device.GetSkuNumber(); }, L"'No cassette present'",
                                            L"PrinterDevice::GetSkuNumber()");
    EXPECT_EQ(printer.RawWrites().size(), 1u);
    ExpectReleased();
}
