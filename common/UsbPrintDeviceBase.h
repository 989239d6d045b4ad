#pragma once

#include "common/IUsbPrintDevice.h"
#include "common/NotCopyable.h"

#include <string>

namespace vela::common {

// The vector-level half of the channel: 512-byte padding on writes, 1024-byte raw reads and the
// receive buffer that hands them out in pieces. Subclasses provide the raw transfers.
class UsbPrintDeviceBase : public IUsbPrintDevice, private NotCopyable {
public:
    static constexpr uint32_t kPacketSize = 512;
    static constexpr uint32_t kRawReadSize = 1024;

    explicit UsbPrintDeviceBase(std::wstring devicePath) : m_devicePath(std::move(devicePath)) {}

    uint32_t Write(const std::vector<uint8_t>& data) override;
    std::vector<uint8_t> Read(uint32_t maxCount) override;

    std::wstring GetDevicePath() const { return m_devicePath; }

private:
    std::wstring m_devicePath;
    std::vector<uint8_t> m_receiveBuffer;
};

} // namespace vela::common
