#include "bench/RawPeer.h"

#include <algorithm>

namespace vela::bench {

namespace {
constexpr int kPollMs = 100;
constexpr size_t kDrainBuffer = size_t{64} << 10;
} // namespace

std::vector<uint8_t> RawPeer::Command(char letter, uint64_t length) {
    std::vector<uint8_t> command(kCommandSize);
    command[0] = static_cast<uint8_t>(letter);
    for (size_t i = 0; i < 8; ++i) {
        command[1 + i] = static_cast<uint8_t>(length >> (8 * i));
    }
    return command;
}

RawPeer::RawPeer() : m_channel(vela::sim::ServerChannel::Create(vela::sim::ServerChannel::Kind::printer)) {
    m_thread = std::thread([this] { Serve(); });
}

RawPeer::~RawPeer() {
    m_stopping = true;
    m_thread.join();
}

bool RawPeer::ReadExactly(uint8_t* buffer, size_t count) {
    size_t held = 0;
    while (held < count) {
        const long n = m_channel->Read(buffer + held, count - held, kPollMs);
        if (n < 0 || m_stopping) {
            return false;
        }
        held += static_cast<size_t>(n);
    }
    return true;
}

void RawPeer::Serve() {
    std::vector<uint8_t> buffer(kDrainBuffer);
    while (!m_stopping) {
        uint8_t command[kCommandSize];
        if (!ReadExactly(command, kCommandSize)) {
            return;
        }
        uint64_t length = 0;
        for (size_t i = 0; i < 8; ++i) {
            length |= uint64_t{command[1 + i]} << (8 * i);
        }
        switch (command[0]) {
        case 'P': {
            uint64_t left = length;
            while (left > 0) {
                const long n =
                    m_channel->Read(buffer.data(), std::min<uint64_t>(left, buffer.size()), kPollMs);
                if (n < 0 || m_stopping) {
                    return;
                }
                left -= static_cast<uint64_t>(n);
            }
            const uint8_t ack = 0x06;
            m_channel->Write(&ack, 1);
            break;
        }
        case 'G':
            m_channel->Write(m_source.data(), std::min<uint64_t>(length, m_source.size()));
            break;
        default:
            return;
        }
    }
}

} // namespace vela::bench
