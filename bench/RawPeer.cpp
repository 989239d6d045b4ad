#include "bench/RawPeer.h"

#include <algorithm>

namespace vela::bench {

namespace {
constexpr int kPollMs = 100;
// The simulator's read size and its rule for reserving a message's room up front: the whole
// message up to 64 MiB, growth as the bytes arrive beyond.
constexpr size_t kReadBuffer = size_t{64} << 10;
constexpr size_t kMaxReserve = size_t{64} << 20;
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

void RawPeer::SetSource(std::vector<uint8_t> bytes) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_source = std::move(bytes);
}

std::vector<uint8_t> RawPeer::TakeSource() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return std::move(m_source);
}

std::vector<uint8_t> RawPeer::TakeStored() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return std::move(m_stored);
}

vela::sim::Md5::Digest RawPeer::LastDigest() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_digest;
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

bool RawPeer::Receive(uint64_t length, std::vector<uint8_t>& buffer) {
    // The previous file is dropped before the next arrives, as a printer replacing it would.
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<uint8_t>().swap(m_stored);
    }
    std::vector<uint8_t> stored;
    stored.reserve(static_cast<size_t>(std::min<uint64_t>(length, kMaxReserve)));
    vela::sim::Md5 md5;
    uint64_t left = length;
    while (left > 0) {
        const long n = m_channel->Read(buffer.data(), std::min<uint64_t>(left, buffer.size()), kPollMs);
        if (n < 0 || m_stopping) {
            return false;
        }
        stored.insert(stored.end(), buffer.data(), buffer.data() + n);
        md5.Update(buffer.data(), static_cast<size_t>(n));
        left -= static_cast<uint64_t>(n);
    }
    const vela::sim::Md5::Digest digest = md5.Finish();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stored = std::move(stored);
        m_digest = digest;
    }
    const uint8_t ack = 0x06;
    m_channel->Write(&ack, 1);
    return true;
}

void RawPeer::Send(uint64_t length) {
    std::vector<uint8_t> reply;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const size_t size = static_cast<size_t>(std::min<uint64_t>(length, m_source.size()));
        reply.reserve(size);
        reply.insert(reply.end(), m_source.begin(), m_source.begin() + static_cast<ptrdiff_t>(size));
    }
    m_channel->Write(reply.data(), reply.size());
}

void RawPeer::Serve() {
    std::vector<uint8_t> buffer(kReadBuffer);
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
        case 'P':
            if (!Receive(length, buffer)) {
                return;
            }
            break;
        case 'G':
            Send(length);
            break;
        default:
            return;
        }
    }
}

} // namespace vela::bench
