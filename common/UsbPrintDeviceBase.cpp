#include "common/UsbPrintDeviceBase.h"

#include "common/Exception.h"

#include <algorithm>
#include <chrono>

namespace vela::common {

uint32_t UsbPrintDeviceBase::Write(const std::vector<uint8_t>& data) {
    if (data.empty()) {
        return 0;
    }
    const auto length = static_cast<uint32_t>(data.size());
    if ((length & (kPacketSize - 1)) != 0) {
        return WriteBytes(data.data(), length);
    }
    // A transfer that ends exactly on a 512-byte packet boundary would need a zero-length packet
    // to terminate it; one pad byte avoids that. The caller never sees it counted.
    // Only the last chunk is copied to add the pad byte: the head goes out from the caller's
    // buffer in whole 8192-byte chunks, so a large message is never held twice. The chunks on
    // the wire are the same as for one padded buffer.
    constexpr uint32_t kChunk = 8192;
    const uint32_t tailLength = length % kChunk == 0 ? kChunk : length % kChunk;
    const uint32_t headLength = length - tailLength;
    uint32_t written = 0;
    if (headLength > 0) {
        written = WriteBytes(data.data(), headLength);
    }
    std::vector<uint8_t> tail(data.begin() + headLength, data.end());
    tail.push_back(0x00);
    written += WriteBytes(tail.data(), tailLength + 1);
    return written == 0 ? 0 : written - 1;
}

std::vector<uint8_t> UsbPrintDeviceBase::Read(uint32_t maxCount) {
    if (m_receiveBuffer.empty()) {
        std::vector<uint8_t> temp(kRawReadSize, 0);
        uint32_t got = ReadBytes(temp.data(), kRawReadSize);
        temp.resize(std::min<uint32_t>(got, kRawReadSize));
        m_receiveBuffer = std::move(temp);
    }
    if (maxCount >= m_receiveBuffer.size()) {
        std::vector<uint8_t> result;
        result.swap(m_receiveBuffer);
        return result;
    }
    std::vector<uint8_t> result(m_receiveBuffer.begin(), m_receiveBuffer.begin() + maxCount);
    m_receiveBuffer.erase(m_receiveBuffer.begin(), m_receiveBuffer.begin() + maxCount);
    return result;
}

uint64_t UsbPrintDeviceBase::DiscardInput(uint32_t quietMs, uint32_t limitMs) {
    uint64_t dropped = m_receiveBuffer.size();
    m_receiveBuffer.clear();
    return dropped + DrainRawInput(quietMs, limitMs);
}

uint64_t UsbPrintDeviceBase::DrainRawInput(uint32_t, uint32_t limitMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
    std::vector<uint8_t> scrap(kRawReadSize);
    uint64_t dropped = 0;
    try {
        while (std::chrono::steady_clock::now() < deadline) {
            const uint32_t got = ReadBytes(scrap.data(), kRawReadSize);
            if (got == 0) {
                break;
            }
            dropped += got;
        }
    } catch (const Exception&) {
        // The channel has nothing more to say.
    }
    return dropped;
}

} // namespace vela::common
