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
    uint64_t DiscardInput(uint32_t quietMs, uint32_t limitMs) override;

    std::wstring GetDevicePath() const { return m_devicePath; }

protected:
    // Drops what the raw channel delivers until it has been quiet for quietMs (0: only what is
    // waiting already), within limitMs in all. This default reads with ReadBytes until a read
    // brings nothing or fails, for channels that have no clock of their own (scripted ones);
    // real channels override it with a timed wait.
    virtual uint64_t DrainRawInput(uint32_t quietMs, uint32_t limitMs);

private:
    std::wstring m_devicePath;
    std::vector<uint8_t> m_receiveBuffer;
};

} // namespace vela::common
