#pragma once

#include "common/IUsbPrintDevice.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vela::kom {

// Sends one message of a known length while it is still being made, in slices, so that a large
// message is never held whole. On the wire it is exactly one Write of the whole message: the
// same 8192-byte chunks counted from the message's first byte, the same 0x00 pad byte after a
// length that is a non-zero multiple of 512, so the transport's write callback runs as often.
//
// Fill it with Append, or write straight into Space() and Commit; Finish sends the rest. A short
// write throws QRVException "could not write <length> bytes; only <n> bytes were written"
// (origin "PrinterDevice::WriteData()"), as WriteData does; transport failures pass through.
// One thread; the caller holds the lock and the channel.
class MessageStream {
public:
    // Bytes staged before they go out; a multiple of the transport's 8192-byte chunk.
    static constexpr size_t kSliceSize = size_t{256} << 10;

    // Logs "PrinterDevice::WriteData()" once, as one WriteData would.
    MessageStream(vela::common::IUsbPrintDevice& transport, uint64_t length);
    MessageStream(const MessageStream&) = delete;
    MessageStream& operator=(const MessageStream&) = delete;

    void Append(const uint8_t* data, size_t size);
    // Room at the end of the slice being staged: fill up to SpaceSize() bytes, then Commit them.
    uint8_t* Space() { return m_slice.data() + m_staged; }
    size_t SpaceSize() const { return m_sliceSize - m_staged; }
    void Commit(size_t count);
    // Sends what is staged (and the pad byte). Throws QRVException when fewer bytes than the
    // announced length were given or written.
    void Finish();

private:
    void Flush(bool last);
    [[noreturn]] void ThrowShort(uint64_t written) const;

    vela::common::IUsbPrintDevice& m_transport;
    const uint64_t m_length;
    const size_t m_sliceSize;
    std::vector<uint8_t> m_slice; // m_sliceSize bytes and one for the pad byte
    size_t m_staged = 0;
    uint64_t m_given = 0;   // message bytes handed in
    uint64_t m_written = 0; // message bytes the transport took
};

} // namespace vela::kom
