// The receive buffer of the printer channel over the scripted printer's raw layer (padding and
// chunking of writes are checked byte for byte by the put in FileTransferTest).
#include "support/FakePrinter.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

using vela::test::FakePrinter;
using vela::test::FakeTransport;
using vela::test::TestBytes;

TEST(UsbPrintDeviceBaseRead, HandsOutOneRawReadInPiecesAndReadsAgainOnlyWhenItIsUsedUp) {
    FakePrinter printer;
    FakeTransport device(L"fake");
    const auto first = TestBytes(25, 10), second = TestBytes(4, 90);
    printer.QueueRawRead(first);
    printer.QueueRawRead(second);
    EXPECT_EQ(device.Read(10), std::vector<uint8_t>(first.begin(), first.begin() + 10));
    EXPECT_EQ(device.Read(10), std::vector<uint8_t>(first.begin() + 10, first.begin() + 20));
    EXPECT_EQ(device.Read(10), std::vector<uint8_t>(first.begin() + 20, first.end()));
    EXPECT_EQ(printer.RawReads(), 1) << "buffered bytes must not trigger another raw read";
    EXPECT_EQ(device.Read(10), second);

    // A raw read takes at most 1024 bytes; a count of 0 still reads once and keeps everything.
    const auto plenty = TestBytes(2000, 5);
    printer.QueueBytes(plenty);
    EXPECT_TRUE(device.Read(0).empty());
    EXPECT_TRUE(device.Read(0).empty());
    EXPECT_EQ(printer.RawReads(), 3);
    EXPECT_EQ(device.Read(5000), std::vector<uint8_t>(plenty.begin(), plenty.begin() + 1024));
    EXPECT_EQ(printer.RawReads(), 3);
    EXPECT_EQ(device.Read(5000).size(), 976u);

    // Nothing delivered, or a failed read, leaves the buffer empty.
    printer.QueueRawRead({});
    EXPECT_TRUE(device.Read(100).empty());
    printer.QueueReadFailure();
    EXPECT_THROW(device.Read(100), vela::common::UsbPrintDeviceReadException);
    printer.QueueRawRead({1, 2, 3});
    EXPECT_EQ(device.Read(100), (std::vector<uint8_t>{1, 2, 3}));
}
