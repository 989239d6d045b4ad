#include "kom/protocol/MessageStream.h"

#include "common/Log.h"
#include "common/LogAndThrow.h"
#include "kom/QRVException.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

namespace vela::kom {

namespace {
constexpr uint64_t kPacketSize = 512;
} // namespace

MessageStream::MessageStream(vela::common::IUsbPrintDevice& transport, uint64_t length)
    : m_transport(transport), m_length(length),
      m_sliceSize(static_cast<size_t>(std::min<uint64_t>(length, kSliceSize))), m_slice(m_sliceSize + 1) {
    vela::common::Log::LogInfo(L"PrinterDevice::WriteData()");
}

void MessageStream::Append(const uint8_t* data, size_t size) {
    while (size > 0) {
        const size_t take = std::min(size, SpaceSize());
        if (take == 0) {
            throw std::logic_error("MessageStream: more bytes than the announced length");
        }
        std::memcpy(Space(), data, take);
        Commit(take);
        data += take;
        size -= take;
    }
}

void MessageStream::Commit(size_t count) {
    m_staged += count;
    m_given += count;
    if (m_staged == m_sliceSize && m_given < m_length) {
        Flush(false);
    }
}

void MessageStream::Finish() {
    if (m_given != m_length) {
        ThrowShort(m_written);
    }
    Flush(true);
    if (m_written != m_length) {
        ThrowShort(m_written);
    }
}

void MessageStream::Flush(bool last) {
    size_t count = m_staged;
    // A message that ends exactly on a 512-byte packet boundary would need a zero-length packet
    // to terminate it; one pad byte avoids that, as Write does. It is not counted.
    const bool pad = last && m_length > 0 && m_length % kPacketSize == 0;
    if (pad) {
        m_slice[count++] = 0x00;
    }
    if (count == 0) {
        return;
    }
    uint32_t written = m_transport.WriteBytes(m_slice.data(), static_cast<uint32_t>(count));
    if (pad && written == count) {
        --written;
    }
    m_written += std::min<uint64_t>(written, m_staged);
    if (written < m_staged) {
        ThrowShort(m_written);
    }
    m_staged = 0;
}

void MessageStream::ThrowShort(uint64_t written) const {
    vela::common::LogAndThrow(QRVException(L"could not write " + std::to_wstring(m_length) +
                                               L" bytes; only " + std::to_wstring(written) +
                                               L" bytes were written",
                                           L"PrinterDevice::WriteData()"));
}

} // namespace vela::kom
