#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace vela::common {

// The byte channel to one printer's USB printer-class interface. Knows nothing of the protocol.
// One object is used by one thread at a time (the access lock serialises transactions).
class IUsbPrintDevice {
public:
    using WriteCallback = std::function<void()>;

    // Writes a whole message (a length that is a non-zero multiple of 512 gets one 0x00 pad byte
    // that is not counted). Blocks up to 3000 ms per 8192-byte chunk.
    // Throws UsbPrintDeviceWriteException on failure or time-out.
    virtual uint32_t Write(const std::vector<uint8_t>& data) = 0;
    // Returns up to maxCount bytes (possibly fewer, possibly none); makes at most one raw read of
    // at most 1024 bytes, and none while earlier bytes are still buffered. Blocks up to 3000 ms.
    // Throws UsbPrintDeviceReadException on failure or time-out.
    virtual std::vector<uint8_t> Read(uint32_t maxCount) = 0;
    // Raw transfers: WriteBytes chunks by 8192 bytes and calls the write callback before each
    // chunk; ReadBytes reads once into the whole capacity.
    virtual uint32_t WriteBytes(const uint8_t* data, uint32_t length) = 0;
    virtual uint32_t ReadBytes(uint8_t* buffer, uint32_t capacity) = 0;
    virtual void SetWriteCallback(WriteCallback callback) = 0;
    virtual void ClearWriteCallback() = 0;
    // Reads and drops what the printer still sends, buffered bytes first, until nothing has
    // arrived for quietMs or limitMs have passed in all; returns how many bytes were dropped.
    // Clears the channel of a reply that nobody will read. Never throws: a failing channel ends
    // it, and the next transfer reports the failure.
    virtual uint64_t DiscardInput(uint32_t quietMs, uint32_t limitMs) = 0;
    virtual ~IUsbPrintDevice() = default;
};

} // namespace vela::common
