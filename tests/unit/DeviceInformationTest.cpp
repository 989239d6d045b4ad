#include "support/ProtocolFixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

using namespace vela::kom;
using namespace vela::test;

namespace {

// A payload of `command` followed by `data`, which may hold zero bytes (all but the literal's last).
template <size_t N> std::vector<uint8_t> Payload(uint8_t command, const char (&data)[N], size_t padTo = 0) {
    std::vector<uint8_t> payload{0x00, command};
    payload.insert(payload.end(), data, data + N - 1);
    payload.resize(std::max(payload.size(), padTo), 0xEE);
    return payload;
}

const std::vector<uint8_t> kCassetteAbsent{0x00, 0x80, 0x10, 0, 0, 0, 0, 0, 0, 0};

} // namespace

using DeviceInformationTest = ProtocolFixture;

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
    printer.QueueReply(kCassetteAbsent);
    ExpectThrow<NoCassettePresentException>([&] { device.GetSkuNumber(); }, L"'No cassette present'",
                                            L"PrinterDevice::GetSkuNumber()");
    EXPECT_EQ(printer.RawWrites().size(), 1u);
    ExpectReleased();
}
