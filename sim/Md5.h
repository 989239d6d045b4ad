#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace vela::sim {

// MD5 message digest (RFC 1321), portable and self-contained: the printer checks the digest of
// every file it receives with its own code, without any operating-system crypto service.
// Feed the data with Update (any number of calls), then call Finish once.
class Md5 {
public:
    using Digest = std::array<uint8_t, 16>;

    Md5();
    void Update(const uint8_t* data, size_t size);
    Digest Finish();

    static Digest Of(const uint8_t* data, size_t size);

private:
    void Transform(const uint8_t* block);

    uint32_t m_state[4];
    uint64_t m_length = 0; // bytes so far
    uint8_t m_buffer[64];
    size_t m_buffered = 0;
};

} // namespace vela::sim
