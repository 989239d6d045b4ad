// The vector-level half of the printer channel (padding, receive buffer) over a recording raw
// layer that chunks and calls the write hook the way the real transport does.

#include "common/UsbPrintDeviceBase.h"
#include "common/Exception.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <deque>

using namespace vela::common;

namespace {

class RecordingDevice : public UsbPrintDeviceBase {
public:
    RecordingDevice() : UsbPrintDeviceBase(L"recording") {}

    uint32_t WriteBytes(const uint8_t* data, uint32_t length) override {
        uint32_t total = 0;
        while (total < length) {
            if (m_callback) {
                m_callback();
            }
            const uint32_t chunk = std::min<uint32_t>(length - total, 8192);
            chunks.emplace_back(data + total, data + total + chunk);
            total += chunk;
        }
        return total;
    }

    uint32_t ReadBytes(uint8_t* buffer, uint32_t capacity) override {
        capacities.push_back(capacity);
        if (deliveries.empty()) {
            return 0;
        }
        std::vector<uint8_t> next = std::move(deliveries.front());
        deliveries.pop_front();
        if (next.size() > capacity) {
            throw UsbPrintDeviceReadException(L"delivery larger than the read", L"RecordingDevice");
        }
        std::memcpy(buffer, next.data(), next.size());
        return static_cast<uint32_t>(next.size());
    }

    void SetWriteCallback(WriteCallback callback) override { m_callback = std::move(callback); }
    void ClearWriteCallback() override { m_callback = nullptr; }

    std::vector<uint8_t> Wire() const {
        std::vector<uint8_t> all;
        for (const auto& c : chunks) {
            all.insert(all.end(), c.begin(), c.end());
        }
        return all;
    }
    std::vector<size_t> ChunkSizes() const {
        std::vector<size_t> sizes;
        for (const auto& c : chunks) {
            sizes.push_back(c.size());
        }
        return sizes;
    }

    std::vector<std::vector<uint8_t>> chunks;
    std::deque<std::vector<uint8_t>> deliveries;
    std::vector<uint32_t> capacities;

private:
    WriteCallback m_callback;
};

std::vector<uint8_t> Pattern(size_t size, uint8_t seed = 1) {
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<uint8_t>(seed + i * 7 + (i >> 8));
    }
    return bytes;
}

} // namespace

TEST(UsbPrintDeviceBaseWrite, EmptyMessageMakesNoTransferAndNoHookCall) {
    RecordingDevice device;
    int hooks = 0;
    device.SetWriteCallback([&] { ++hooks; });
    EXPECT_EQ(device.Write({}), 0u);
    EXPECT_TRUE(device.chunks.empty());
    EXPECT_EQ(hooks, 0);
}

TEST(UsbPrintDeviceBaseWrite, MultipleOf512GetsOneUncountedZeroPadByte) {
    struct Case {
        size_t size;
        std::vector<size_t> chunks;
    };
    for (const Case& c :
         {Case{512, {513}}, Case{1024, {1025}}, Case{8192, {8192, 1}}, Case{16384, {8192, 8192, 1}}}) {
        SCOPED_TRACE(c.size);
        RecordingDevice device;
        int hooks = 0;
        device.SetWriteCallback([&] { ++hooks; });
        const auto data = Pattern(c.size);
        EXPECT_EQ(device.Write(data), c.size);
        EXPECT_EQ(device.ChunkSizes(), c.chunks);
        EXPECT_EQ(hooks, static_cast<int>(c.chunks.size()));
        auto expected = data;
        expected.push_back(0x00);
        EXPECT_EQ(device.Wire(), expected);
    }
}

TEST(UsbPrintDeviceBaseWrite, OtherLengthsGoOutUnchangedInChunksOf8192) {
    struct Case {
        size_t size;
        std::vector<size_t> chunks;
    };
    for (const Case& c : {Case{1, {1}}, Case{511, {511}}, Case{513, {513}}, Case{8191, {8191}},
                          Case{8193, {8192, 1}}, Case{20000, {8192, 8192, 3616}}}) {
        SCOPED_TRACE(c.size);
        RecordingDevice device;
        int hooks = 0;
        device.SetWriteCallback([&] { ++hooks; });
        const auto data = Pattern(c.size, 3);
        EXPECT_EQ(device.Write(data), c.size);
        EXPECT_EQ(device.ChunkSizes(), c.chunks);
        EXPECT_EQ(hooks, static_cast<int>(c.chunks.size()));
        EXPECT_EQ(device.Wire(), data);
    }
}

TEST(UsbPrintDeviceBaseWrite, ClearedHookIsNoLongerCalled) {
    RecordingDevice device;
    int hooks = 0;
    device.SetWriteCallback([&] { ++hooks; });
    device.ClearWriteCallback();
    device.Write(Pattern(20000));
    EXPECT_EQ(hooks, 0);
    EXPECT_EQ(device.chunks.size(), 3u);
}

TEST(UsbPrintDeviceBaseRead, HandsOutOneRawReadInPiecesThenReadsAgain) {
    RecordingDevice device;
    const auto first = Pattern(25, 10);
    const auto second = Pattern(4, 90);
    device.deliveries = {first, second};

    const auto a = device.Read(10);
    const auto b = device.Read(10);
    const auto c = device.Read(10);
    EXPECT_EQ(device.capacities.size(), 1u) << "buffered bytes must not trigger another raw read";
    EXPECT_EQ(a, std::vector<uint8_t>(first.begin(), first.begin() + 10));
    EXPECT_EQ(b, std::vector<uint8_t>(first.begin() + 10, first.begin() + 20));
    EXPECT_EQ(c, std::vector<uint8_t>(first.begin() + 20, first.end()));

    EXPECT_EQ(device.Read(10), second);
    EXPECT_EQ(device.capacities, (std::vector<uint32_t>{1024, 1024}));
}

TEST(UsbPrintDeviceBaseRead, ZeroCountStillReadsOnceAndKeepsEverything) {
    RecordingDevice device;
    const auto delivered = Pattern(1024, 5);
    device.deliveries = {delivered};
    EXPECT_TRUE(device.Read(0).empty());
    EXPECT_EQ(device.capacities.size(), 1u);
    EXPECT_TRUE(device.Read(0).empty());
    EXPECT_EQ(device.capacities.size(), 1u);
    EXPECT_EQ(device.Read(5000), delivered);
    EXPECT_EQ(device.capacities.size(), 1u);
}

TEST(UsbPrintDeviceBaseRead, NothingDeliveredOrAFailedReadLeavesTheBufferEmpty) {
    RecordingDevice device;
    EXPECT_TRUE(device.Read(100).empty());
    device.deliveries = {Pattern(2000)}; // more than one raw read may carry: the layer throws
    EXPECT_THROW(device.Read(100), UsbPrintDeviceReadException);
    device.deliveries = {{1, 2, 3}};
    EXPECT_EQ(device.Read(100), (std::vector<uint8_t>{1, 2, 3}));
    EXPECT_EQ(device.capacities.size(), 3u);
}
