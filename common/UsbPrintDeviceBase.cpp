#include "common/UsbPrintDeviceBase.h"

#include <algorithm>

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
    std::vector<uint8_t> padded;
    padded.reserve(data.size() + 1);
    padded.assign(data.begin(), data.end());
    padded.push_back(0x00);
    uint32_t written = WriteBytes(padded.data(), length + 1);
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

} // namespace vela::common
