#pragma once

#include "sim/ServerChannel.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace vela::bench {

// The far end of the raw baselines: a channel of the same kind the simulator serves (a
// pseudo-terminal on Linux) with a thread that does nothing but move bytes, so that a baseline
// costs what the channel costs and no more.
//
// Commands from the host, 9 bytes each: one letter and a 64-bit length (least significant first).
//   'P' n : read and drop n bytes, then answer one byte 0x06 (the host knows all arrived).
//   'G' n : send the first n bytes of Source() (the host reads them).
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
    void SetSource(std::vector<uint8_t> bytes) { m_source = std::move(bytes); }

private:
    void Serve();
    bool ReadExactly(uint8_t* buffer, size_t count);

    std::unique_ptr<vela::sim::ServerChannel> m_channel;
    std::vector<uint8_t> m_source;
    std::atomic<bool> m_stopping{false};
    std::thread m_thread;
};

} // namespace vela::bench
