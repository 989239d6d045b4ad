#pragma once

#include "common/NativeHandle.h"
#include "common/UsbPrintDeviceBase.h"

namespace vela::common {

// The production channel, opened on a device interface path for the object's whole life.
// Windows: two handles (an unbuffered write handle and a read handle), overlapped transfers.
// Linux: one descriptor (the printer driver allows a single open), poll() for the time limits.
// Every transfer is limited to 3000 ms. Not thread-safe: one transaction uses one object.
class UsbPrintDevice : public UsbPrintDeviceBase {
public:
    static constexpr uint32_t kChunkSize = 8192;
    static constexpr uint32_t kTimeoutMs = 3000;
    // Stale input is drained until the channel has been quiet this long, within the limit.
    static constexpr uint32_t kStaleQuietMs = 100;
    static constexpr uint32_t kStaleLimitMs = 10000;

    // Opens the device; throws UsbPrintDeviceConnectionException when it cannot.
    explicit UsbPrintDevice(const std::wstring& devicePath);
    ~UsbPrintDevice() override;

    uint32_t WriteBytes(const uint8_t* data, uint32_t length) override;
    uint32_t ReadBytes(uint8_t* buffer, uint32_t capacity) override;
    void SetWriteCallback(WriteCallback callback) override { m_writeCallback = std::move(callback); }
    void ClearWriteCallback() override { m_writeCallback = nullptr; }

protected:
    uint64_t DrainRawInput(uint32_t quietMs, uint32_t limitMs) override;

private:
    static constexpr uint32_t kDrainReadSize = 64 * 1024;

    // Called by the constructor once the channel is open (see UsbPrintDevice.cpp).
    void DiscardStaleInput();
    // One transfer of at most kChunkSize bytes; returns what the device took.
    uint32_t WriteChunk(const uint8_t* data, uint32_t length);

    NativeHandle m_writeHandle = InvalidNativeHandle();
    // Linux serves both directions through m_writeHandle and leaves this one invalid.
    NativeHandle m_readHandle = InvalidNativeHandle();
    WriteCallback m_writeCallback;
};

} // namespace vela::common
