#include "kom/protocol/ReplyParsers.h"
#include "support/ProtocolFixture.h"

#include <gtest/gtest.h>

#include <string>

using namespace vela::kom;
using namespace vela::test;
using vela::common::UsbPrintDeviceReadException;

namespace {

// A string literal with its embedded zero bytes (without the closing one).
template <size_t N> std::string Text(const char (&literal)[N]) {
    return std::string(literal, N - 1);
}

std::vector<uint8_t> Bytes(const std::string& text) {
    return std::vector<uint8_t>(text.begin(), text.end());
}

std::vector<uint8_t> VersionPayload(const std::string& data) {
    std::vector<uint8_t> payload{0x00, 0x39};
    payload.insert(payload.end(), data.begin(), data.end());
    return payload;
}

std::vector<uint8_t> CassetteReply(const std::string& sku) {
    std::vector<uint8_t> payload{0x00, 0x47, 0x5A};
    payload.insert(payload.end(), sku.begin(), sku.end());
    payload.resize(130, 0xEE);
    return payload;
}

const std::vector<uint8_t> kCassettePresent{0x00, 0x80, 0x00, 0, 0, 0, 0, 0, 0, 0};
const std::vector<uint8_t> kCassetteAbsent{0x00, 0x80, 0x10, 0, 0, 0, 0, 0, 0, 0};

} // namespace

using DeviceInformationTest = ProtocolFixture;

TEST_F(DeviceInformationTest, ConstructionTouchesNoPrinter) {
    EXPECT_EQ(printer.Opens(), 0);
    EXPECT_EQ(NoOpSynchronizer::Taken(), 0);
    EXPECT_EQ(device.Printer().printerName, L"Queue");
    EXPECT_EQ(device.GetPrinterType(), L"Not implemented yet!");
    EXPECT_EQ(device.GetPrinterModel(), L"Not implemented yet!");
    EXPECT_EQ(printer.Opens(), 0);
}

TEST_F(DeviceInformationTest, VersionTextsAreSplitAtTheirZeroBytes) {
    printer.QueueReply(VersionPayload(Text("os 1\0fw 2\0app 3\0all 4\0five\0ID-\xC3\xA9\0rootfs 7\0")), 0x60,
                       0x07);
    const PrinterVersion version = device.GetPrinterVersion();
    EXPECT_EQ(ToHex(printer.AllWritten()), "C3 00 00 00 09 60 07 01 39");
    EXPECT_EQ(version.GetOSVersion(), L"os 1");
    EXPECT_EQ(version.GetFWVersion(), L"fw 2");
    EXPECT_EQ(version.GetAppVersion(), L"app 3");
    EXPECT_EQ(version.GetOverallVersion(), L"all 4");
    EXPECT_EQ(version.Text(4), L"five");
    EXPECT_EQ(version.Text(5), L"ID-\u00E9");
    EXPECT_EQ(version.GetRootFSVersion(), L"rootfs 7");
    ExpectReleased();

    // The third text lacks its zero byte: it and everything after it stay empty.
    printer.QueueReply(VersionPayload(Text("1.0\0"
                                           "2.0\0"
                                           "3.0-unterminated")));
    const PrinterVersion partial = device.GetPrinterVersion();
    EXPECT_EQ(partial.GetOSVersion(), L"1.0");
    EXPECT_EQ(partial.GetFWVersion(), L"2.0");
    for (size_t i = 2; i < PrinterVersion::kTextCount; ++i) {
        EXPECT_EQ(partial.Text(i), L"") << i;
    }
}

TEST_F(DeviceInformationTest, VersionReplySizeAndCommandAreChecked) {
    // 13 payload bytes are too few; the payload and one further message are drained.
    printer.QueueReply(VersionPayload(std::string(11, '\0')));
    printer.QueueReply({0x01});
    ExpectThrow<ReplyException>([&] { device.GetPrinterVersion(); }, L"'Wrong reply size'",
                                L"PrinterDevice::GetPrinterVersion()");
    EXPECT_EQ(printer.PendingBytes(), 0u);
    ExpectReleased();

    // 14 are enough.
    printer.QueueReply(VersionPayload(std::string(12, '\0')));
    EXPECT_EQ(device.GetPrinterVersion().GetOSVersion(), L"");

    std::vector<uint8_t> wrongCommand = VersionPayload(std::string(12, '\0'));
    wrongCommand[1] = 0x3A;
    printer.QueueReply(wrongCommand);
    ExpectThrow<ReplyException>([&] { device.GetPrinterVersion(); }, L"'Wrong reply'",
                                L"PrinterDevice::GetPrinterVersion()");
    ExpectReleased();

    // The start byte of the header is not examined by the information queries.
    std::vector<uint8_t> reply = Frame(VersionPayload(Text("a\0") + std::string(12, 'x')));
    reply[0] = 0x00;
    printer.QueueBytes(reply);
    EXPECT_EQ(device.GetPrinterVersion().GetOSVersion(), L"a");
}

TEST_F(DeviceInformationTest, CassetteMemoryAndSku) {
    printer.QueueReply(kCassettePresent, 0x60, 0x10);
    printer.QueueReply(CassetteReply("ABC1234"), 0x60, 0x10);
    EXPECT_EQ(device.GetSkuNumber(), L"ABC1234");
    ASSERT_EQ(printer.RawWrites().size(), 2u);
    EXPECT_EQ(ToHex(printer.RawWrites()[1]), "C3 00 00 00 09 60 10 01 47");
    EXPECT_EQ(NoOpSynchronizer::Taken(), 2); // two transactions, never nested
    ExpectReleased();

    printer.QueueReply(CassetteReply("X"));
    const EepromData memory = device.GetCassetteEepromData();
    ASSERT_EQ(memory.size(), 128u);
    EXPECT_EQ(memory[0], 0x5A);
    EXPECT_EQ(memory[1], 'X');

    // The short reply (3 payload bytes) means an empty memory and thus an empty SKU.
    printer.QueueReply(kCassettePresent);
    printer.QueueReply({0x00, 0x47, 0x01});
    EXPECT_EQ(device.GetSkuNumber(), L"");

    for (size_t wrongSize : {4u, 129u, 131u}) {
        std::vector<uint8_t> payload(wrongSize, 0);
        payload[1] = 0x47;
        printer.QueueReply(payload);
        printer.QueueReply({0x01});
        ExpectThrow<ReplyException>([&] { device.GetCassetteEepromData(); }, L"'Wrong reply size'",
                                    L"PrinterDevice::GetCassetteEepromData()");
        EXPECT_EQ(printer.PendingBytes(), 0u);
    }
    ExpectReleased();
}

TEST_F(DeviceInformationTest, NoSkuWithoutACassette) {
    printer.QueueReply(kCassetteAbsent);
    ExpectThrow<NoCassettePresentException>([&] { device.GetSkuNumber(); }, L"'No cassette present'",
                                            L"PrinterDevice::GetSkuNumber()");
    EXPECT_EQ(printer.RawWrites().size(), 1u); // the memory was never asked for
    ExpectReleased();
}

TEST_F(DeviceInformationTest, UpdateStatusReport) {
    printer.QueueReply({0x00, 0x3C, 0x04, 0x11, 0xF2}, 0x60, 0x06);
    DeviceManagerStatus status = device.GetUpdateStatusReport();
    EXPECT_EQ(ToHex(printer.AllWritten()), "C3 00 00 00 09 60 06 01 3C");
    EXPECT_EQ(status.status, 4u);
    EXPECT_EQ(status.value1, 0x11u);
    EXPECT_EQ(status.value2, 0xF2u);

    for (uint8_t state : {0, 1, 2, 3, 5, 0xFF}) {
        printer.QueueReply({0x00, 0x3C, state, 0x01, 0x02});
        status = device.GetUpdateStatusReport();
        EXPECT_EQ(status.status, state == 0 || state == 1 ? state : 5u) << int(state);
        EXPECT_EQ(status.value1, 1u);
        EXPECT_EQ(status.value2, 2u);
    }

    printer.QueueReply({0x00, 0x3C, 0x00, 0x00});
    printer.QueueReply({0x01});
    ExpectThrow<ReplyException>([&] { device.GetUpdateStatusReport(); }, L"'Wrong reply size'",
                                L"PrinterDevice::GetUpdateStatusReport()");
    printer.QueueReply({0x00, 0x80, 0x00, 0x00, 0x00});
    ExpectThrow<ReplyException>([&] { device.GetUpdateStatusReport(); }, L"'Wrong reply'",
                                L"PrinterDevice::GetUpdateStatusReport()");
    EXPECT_THROW(device.GetUpdateStatusReport(), UsbPrintDeviceReadException);
    ExpectReleased();
}

// The parsers take whatever a printer sends; none of them may read outside it or fail with
// anything but the library's own kinds.
TEST(ReplyParserRobustness, AnyInputGivesAValueOrATypedError) {
    LogCapture quiet;
    std::vector<uint8_t> bytes;
    for (size_t length = 0; length <= 140; ++length) {
        for (uint8_t fill : {0x00, 0x80, 0xFF}) {
            bytes.assign(length, fill);
            for (size_t i = 0; i < length; i += 3) {
                bytes[i] = static_cast<uint8_t>(i * 37);
            }
            if (length > 1 && fill == 0x80) {
                bytes[1] = static_cast<uint8_t>(length % 2 ? 0x39 : 0x47);
            }
            const ByteView view(bytes);
            auto attempt = [&](auto parse) {
                try {
                    parse();
                } catch (const vela::common::Exception&) {
                }
            };
            attempt([&] { CheckedReplyPayloadLength(view); });
            attempt([&] { ParseCompletionReply(view); });
            attempt([&] { ParseStatusReply(view); });
            attempt([&] { SplitVersionTexts(view); });
            attempt([&] { ParseVersionReply(view); });
            attempt([&] { SkuFromCassetteMemory(ParseCassetteMemoryReply(view)); });
            attempt([&] { SkuFromCassetteMemory(bytes); });
            attempt([&] { ParseUpdateStatusReply(view); });
        }
    }
    EXPECT_EQ(SkuFromCassetteMemory({0x01, 'A', 'B'}), "AB");
    EXPECT_EQ(SplitVersionTexts(Bytes(Text("a\0b\0c\0d\0e\0f\0g\0h\0")))[6], "g");
}
