// The vector-level half of the printer channel (padding, receive buffer) over the scripted
// printer's raw layer, which chunks and calls the write hook the way the real transport does.
#include "support/FakePrinter.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

using vela::test::FakePrinter;
using vela::test::FakeTransport;
using vela::test::TestBytes;

TEST(UsbPrintDeviceBaseWrite, MultiplesOf512GetOneUncountedPadByteAndEverythingGoesOutIn8192Chunks) {
    struct Case {
        size_t size;
        std::vector<size_t> chunks;
    };
    for (const Case& c :
         {Case{0, {}}, Case{1, {1}}, Case{511, {511}}, Case{512, {513}}, Case{513, {513}}, Case{1024, {1025}},
          Case{8191, {8191}}, Case{8192, {8192, 1}}, Case{8193, {8192, 1}}, Case{16384, {8192, 8192, 1}},
          Case{20000, {8192, 8192, 3616}}}) {
        SCOPED_TRACE(c.size);
        FakePrinter printer;
        FakeTransport device(L"fake");
        int hooks = 0;
        device.SetWriteCallback([&] { ++hooks; });
        auto data = TestBytes(c.size, static_cast<uint32_t>(c.size));
        EXPECT_EQ(device.Write(data), c.size);
        std::vector<size_t> chunks;
        for (const auto& w : printer.RawWrites()) {
            chunks.push_back(w.size());
        }
        EXPECT_EQ(chunks, c.chunks);
        EXPECT_EQ(hooks, static_cast<int>(c.chunks.size())) << "one hook call per chunk";
        if (c.size > 0 && c.size % 512 == 0) {
            data.push_back(0x00);
        }
        EXPECT_EQ(printer.AllWritten(), data);

        device.ClearWriteCallback();
        device.Write(TestBytes(20000));
        EXPECT_EQ(hooks, static_cast<int>(c.chunks.size())) << "a cleared hook is no longer called";
    }
}

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
