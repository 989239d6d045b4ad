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

const std::vector<uint8_t> kCassettePresent{0x00, 0x80, 0x00, 0, 0, 0, 0, 0, 0, 0};
const std::vector<uint8_t> kCassetteAbsent{0x00, 0x80, 0x10, 0, 0, 0, 0, 0, 0, 0};

} // namespace

using DeviceInformationTest = ProtocolFixture;

TEST_F(DeviceInformationTest, VersionTextsAreSplitAtTheirZeroBytes) {
    EXPECT_EQ(printer.Opens(), 0); // constructing the device touched no printer
    printer.QueueReply(Payload(0x39, "os\0fw\0app\0all\0five\0ID-\xC3\xA9\0rootfs\0"), 0x60, 0x07);
    const PrinterVersion version = device.GetPrinterVersion();
    EXPECT_EQ(ToHex(printer.AllWritten()), "C3 00 00 00 09 60 07 01 39");
    // All seven in order are checked through the gateway on the simulator; here the widening.
    EXPECT_EQ(version.Text(5), L"ID-\u00E9");
    ExpectReleased();

    // The third text lacks its zero byte: it and everything after it stay empty.
    printer.QueueReply(Payload(0x39, "1.0\0"
                                     "2.0\0"
                                     "3.0-unterminated"));
    const PrinterVersion partial = device.GetPrinterVersion();
    EXPECT_EQ(partial.GetFWVersion(), L"2.0");
    for (size_t i = 2; i < PrinterVersion::kTextCount; ++i) {
        EXPECT_EQ(partial.Text(i), L"") << i;
    }
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

    printer.QueueReply(Payload(0x3A, "", 14));
    ExpectThrow<ReplyException>([&] { device.GetPrinterVersion(); }, L"'Wrong reply'",
                                L"PrinterDevice::GetPrinterVersion()");
    EXPECT_THROW(device.GetCassetteEepromData(), vela::common::UsbPrintDeviceReadException);
    ExpectReleased();
}

TEST_F(DeviceInformationTest, CassetteMemoryAndSku) {
    printer.QueueReply(kCassettePresent, 0x60, 0x10);
    printer.QueueReply(Payload(0x47,
                               "\x5A"
                               "ABC1234",
                               130),
                       0x60, 0x10);
    EXPECT_EQ(device.GetSkuNumber(), L"ABC1234");
    EXPECT_EQ(ToHex(printer.RawWrites()[1]), "C3 00 00 00 09 60 10 01 47");
    EXPECT_EQ(NoOpSynchronizer::Taken(), 2); // two transactions, never nested
    ExpectReleased();

    // The short reply (3 payload bytes) means an empty memory and so an empty SKU.
    printer.QueueReply(kCassettePresent);
    printer.QueueReply(Payload(0x47, "\x01"));
    EXPECT_EQ(device.GetSkuNumber(), L"");

    const size_t writesBefore = printer.RawWrites().size();
    printer.QueueReply(kCassetteAbsent);
    ExpectThrow<NoCassettePresentException>([&] { device.GetSkuNumber(); }, L"'No cassette present'",
                                            L"PrinterDevice::GetSkuNumber()");
    EXPECT_EQ(printer.RawWrites().size(), writesBefore + 1); // the memory was never asked for
    ExpectReleased();
}

// The request is recognised by the simulator in ApplyUpdateSim; here the states the host is told.
TEST_F(DeviceInformationTest, UpdateStatusReport) {
    for (uint8_t state : {0, 1, 2, 3, 4, 5, 0xFF}) {
        printer.QueueReply({0x00, 0x3C, state, 0x11, 0xF2});
        const DeviceManagerStatus status = device.GetUpdateStatusReport();
        EXPECT_EQ(status.status, state <= 1 || state == 4 ? state : 5u) << int(state);
        EXPECT_EQ(status.value1, 0x11u);
        EXPECT_EQ(status.value2, 0xF2u);
    }
}
