#include "common/UsbPrintDevice.h"

#include <algorithm>

namespace vela::common {

uint32_t UsbPrintDevice::WriteBytes(const uint8_t* data, uint32_t length) {
    uint32_t total = 0;
    while (total < length) {
        if (m_writeCallback) {
            m_writeCallback();
        }
        // A short chunk is no error: the next round goes on from where the device stopped.
        total += WriteChunk(data + total, std::min(length - total, kChunkSize));
    }
    return total;
}

} // namespace vela::common
