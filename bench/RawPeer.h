#pragma once

#include "sim/Md5.h"
#include "sim/ServerChannel.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vela::bench {

// The far end of the raw baselines: a channel of the same kind the simulator serves (a
// pseudo-terminal on Linux) with a thread that does the printer's own work on the bytes and
// nothing of the protocol, so that a baseline costs what the channel and that work cost and
// the ratio against the simulator isolates the host library.
//
// The printer's own work is what the simulator does with a file's bytes: on the way in it
// keeps them in memory and hashes them with the same MD5 as they arrive; on the way out it
// copies the stored bytes into the reply before sending it. A peer that only drained the bytes
// would leave the simulator's share of the two processors to the library's side of the ratio.
//
// Commands from the host, 9 bytes each: one letter and a 64-bit length (least significant first).
//   'P' n : receive n bytes into memory, hashing them as they arrive, then answer one byte 0x06
//           once the digest is final (the host knows all arrived and was checked).
//   'G' n : copy the first n bytes of Source() into a reply buffer and send it (the host reads
//           them).
class RawPeer {
public:
    static constexpr size_t kCommandSize = 9;
    static std::vector<uint8_t> Command(char letter, uint64_t length);

    RawPeer();
    ~RawPeer();
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;

    std::wstring ClientPath() const { return m_channel->ClientPath(); }
    // What 'G' sends; set it before the host asks.
    void SetSource(std::vector<uint8_t> bytes);
    std::vector<uint8_t> TakeSource();
    // The bytes and digest of the last 'P' (for a check that the work was really done); the
    // stored bytes are released after this call.
    std::vector<uint8_t> TakeStored();
    vela::sim::Md5::Digest LastDigest();

private:
    void Serve();
    bool ReadExactly(uint8_t* buffer, size_t count);
    bool Receive(uint64_t length, std::vector<uint8_t>& buffer);
    void Send(uint64_t length);

    std::unique_ptr<vela::sim::ServerChannel> m_channel;
    std::mutex m_mutex; // guards what the host's thread hands over or takes: source, store, digest
    std::vector<uint8_t> m_source;
    std::vector<uint8_t> m_stored;
    vela::sim::Md5::Digest m_digest{};
    std::atomic<bool> m_stopping{false};
    std::thread m_thread;
};

} // namespace vela::bench
