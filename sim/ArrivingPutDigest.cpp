#include "sim/ArrivingPutDigest.h"

#include "common/ByteOrder.h"
#include "sim/WireFormat.h"

#include <algorithm>

namespace vela::sim {

void ArrivingPutDigest::Advance(const uint8_t* message, size_t received) {
    if (received < m_received) {
        // Shorter than last time: this is another message; the caller missed a Reset.
        Reset();
    }
    m_received = received;
    if (m_state == State::undecided) {
        if (received < wire::kPutDataOffset) {
            return;
        }
        // Only a head whose declared length agrees with its data length is hashed on arrival;
        // whatever else the decoder has to say about the message, it says on the whole frame.
        const bool put = message[6] == wire::unit::fileSystem && message[7] == wire::command::leadByte &&
                         message[8] == wire::command::putFile;
        const size_t declared = common::ReadBigEndian32(message + 1);
        const size_t dataLength = common::ReadLittleEndian32(message + wire::kPutLengthOffset);
        if (!put || declared != wire::kPutOverhead + dataLength) {
            m_state = State::other;
            return;
        }
        m_state = State::put;
        m_dataLength = dataLength;
    }
    if (m_state != State::put) {
        return;
    }
    const size_t available = std::min(received - wire::kPutDataOffset, m_dataLength);
    if (available > m_hashed) {
        m_md5.Update(message + wire::kPutDataOffset + m_hashed, available - m_hashed);
        m_hashed = available;
    }
}

Md5::Digest ArrivingPutDigest::DigestOf(const std::vector<uint8_t>& frame, size_t dataLength) {
    Advance(frame.data(), frame.size());
    const bool covered = m_state == State::put && m_dataLength == dataLength && m_hashed == dataLength;
    Md5::Digest digest = covered ? m_md5.Finish() : Md5::Of(frame.data() + wire::kPutDataOffset, dataLength);
    Reset();
    return digest;
}

void ArrivingPutDigest::Reset() {
    m_state = State::undecided;
    m_received = 0;
    m_dataLength = 0;
    m_hashed = 0;
    m_md5 = Md5();
}

} // namespace vela::sim
