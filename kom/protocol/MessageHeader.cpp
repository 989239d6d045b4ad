#include "kom/protocol/MessageHeader.h"

#include "common/ByteOrder.h"

namespace vela::kom {

std::vector<uint8_t> MessageHeader::Serialize() const {
    std::vector<uint8_t> bytes;
    bytes.reserve(kSize);
    AppendTo(bytes);
    return bytes;
}

void MessageHeader::AppendTo(std::vector<uint8_t>& out) const {
    out.push_back(m_start);
    vela::common::AppendBigEndian32(out, m_totalLength);
    out.push_back(static_cast<uint8_t>(m_group & 0xFF));
    out.push_back(static_cast<uint8_t>(m_unit & 0xFF));
}

} // namespace vela::kom
