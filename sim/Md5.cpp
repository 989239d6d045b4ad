#include "sim/Md5.h"

#include <algorithm>
#include <cstring>

namespace vela::sim {

namespace {

inline uint32_t RotateLeft(uint32_t x, uint32_t n) {
    return (x << n) | (x >> (32 - n));
}

// The four round functions.
inline uint32_t F(uint32_t b, uint32_t c, uint32_t d) {
    return d ^ (b & (c ^ d));
}
inline uint32_t G(uint32_t b, uint32_t c, uint32_t d) {
    return c ^ (d & (b ^ c));
}
inline uint32_t H(uint32_t b, uint32_t c, uint32_t d) {
    return b ^ c ^ d;
}
inline uint32_t I(uint32_t b, uint32_t c, uint32_t d) {
    return c ^ (b | ~d);
}

// One step: a = b + ((a + f(b, c, d) + word + constant) <<< shift).
template <uint32_t (*Round)(uint32_t, uint32_t, uint32_t)>
inline void Step(uint32_t& a, uint32_t b, uint32_t c, uint32_t d, uint32_t word, uint32_t shift,
                 uint32_t constant) {
    a = b + RotateLeft(a + Round(b, c, d) + word + constant, shift);
}

} // namespace

Md5::Md5() : m_state{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476} {}

// Written out step by step: the printer verifies every file it receives, and the loop form with
// its per-step branches and table look-ups ran at two thirds of this speed.
void Md5::Transform(const uint8_t* block) {
    uint32_t m[16];
    for (int i = 0; i < 16; ++i) {
        // The words of a block are little-endian, whatever the machine's order.
        m[i] = uint32_t(block[i * 4]) | (uint32_t(block[i * 4 + 1]) << 8) |
               (uint32_t(block[i * 4 + 2]) << 16) | (uint32_t(block[i * 4 + 3]) << 24);
    }
    uint32_t a = m_state[0], b = m_state[1], c = m_state[2], d = m_state[3];

    Step<F>(a, b, c, d, m[0], 7, 0xd76aa478);
    Step<F>(d, a, b, c, m[1], 12, 0xe8c7b756);
    Step<F>(c, d, a, b, m[2], 17, 0x242070db);
    Step<F>(b, c, d, a, m[3], 22, 0xc1bdceee);
    Step<F>(a, b, c, d, m[4], 7, 0xf57c0faf);
    Step<F>(d, a, b, c, m[5], 12, 0x4787c62a);
    Step<F>(c, d, a, b, m[6], 17, 0xa8304613);
    Step<F>(b, c, d, a, m[7], 22, 0xfd469501);
    Step<F>(a, b, c, d, m[8], 7, 0x698098d8);
    Step<F>(d, a, b, c, m[9], 12, 0x8b44f7af);
    Step<F>(c, d, a, b, m[10], 17, 0xffff5bb1);
    Step<F>(b, c, d, a, m[11], 22, 0x895cd7be);
    Step<F>(a, b, c, d, m[12], 7, 0x6b901122);
    Step<F>(d, a, b, c, m[13], 12, 0xfd987193);
    Step<F>(c, d, a, b, m[14], 17, 0xa679438e);
    Step<F>(b, c, d, a, m[15], 22, 0x49b40821);

    Step<G>(a, b, c, d, m[1], 5, 0xf61e2562);
    Step<G>(d, a, b, c, m[6], 9, 0xc040b340);
    Step<G>(c, d, a, b, m[11], 14, 0x265e5a51);
    Step<G>(b, c, d, a, m[0], 20, 0xe9b6c7aa);
    Step<G>(a, b, c, d, m[5], 5, 0xd62f105d);
    Step<G>(d, a, b, c, m[10], 9, 0x02441453);
    Step<G>(c, d, a, b, m[15], 14, 0xd8a1e681);
    Step<G>(b, c, d, a, m[4], 20, 0xe7d3fbc8);
    Step<G>(a, b, c, d, m[9], 5, 0x21e1cde6);
    Step<G>(d, a, b, c, m[14], 9, 0xc33707d6);
    Step<G>(c, d, a, b, m[3], 14, 0xf4d50d87);
    Step<G>(b, c, d, a, m[8], 20, 0x455a14ed);
    Step<G>(a, b, c, d, m[13], 5, 0xa9e3e905);
    Step<G>(d, a, b, c, m[2], 9, 0xfcefa3f8);
    Step<G>(c, d, a, b, m[7], 14, 0x676f02d9);
    Step<G>(b, c, d, a, m[12], 20, 0x8d2a4c8a);

    Step<H>(a, b, c, d, m[5], 4, 0xfffa3942);
    Step<H>(d, a, b, c, m[8], 11, 0x8771f681);
    Step<H>(c, d, a, b, m[11], 16, 0x6d9d6122);
    Step<H>(b, c, d, a, m[14], 23, 0xfde5380c);
    Step<H>(a, b, c, d, m[1], 4, 0xa4beea44);
    Step<H>(d, a, b, c, m[4], 11, 0x4bdecfa9);
    Step<H>(c, d, a, b, m[7], 16, 0xf6bb4b60);
    Step<H>(b, c, d, a, m[10], 23, 0xbebfbc70);
    Step<H>(a, b, c, d, m[13], 4, 0x289b7ec6);
    Step<H>(d, a, b, c, m[0], 11, 0xeaa127fa);
    Step<H>(c, d, a, b, m[3], 16, 0xd4ef3085);
    Step<H>(b, c, d, a, m[6], 23, 0x04881d05);
    Step<H>(a, b, c, d, m[9], 4, 0xd9d4d039);
    Step<H>(d, a, b, c, m[12], 11, 0xe6db99e5);
    Step<H>(c, d, a, b, m[15], 16, 0x1fa27cf8);
    Step<H>(b, c, d, a, m[2], 23, 0xc4ac5665);

    Step<I>(a, b, c, d, m[0], 6, 0xf4292244);
    Step<I>(d, a, b, c, m[7], 10, 0x432aff97);
    Step<I>(c, d, a, b, m[14], 15, 0xab9423a7);
    Step<I>(b, c, d, a, m[5], 21, 0xfc93a039);
    Step<I>(a, b, c, d, m[12], 6, 0x655b59c3);
    Step<I>(d, a, b, c, m[3], 10, 0x8f0ccc92);
    Step<I>(c, d, a, b, m[10], 15, 0xffeff47d);
    Step<I>(b, c, d, a, m[1], 21, 0x85845dd1);
    Step<I>(a, b, c, d, m[8], 6, 0x6fa87e4f);
    Step<I>(d, a, b, c, m[15], 10, 0xfe2ce6e0);
    Step<I>(c, d, a, b, m[6], 15, 0xa3014314);
    Step<I>(b, c, d, a, m[13], 21, 0x4e0811a1);
    Step<I>(a, b, c, d, m[4], 6, 0xf7537e82);
    Step<I>(d, a, b, c, m[11], 10, 0xbd3af235);
    Step<I>(c, d, a, b, m[2], 15, 0x2ad7d2bb);
    Step<I>(b, c, d, a, m[9], 21, 0xeb86d391);

    m_state[0] += a;
    m_state[1] += b;
    m_state[2] += c;
    m_state[3] += d;
}

void Md5::Update(const uint8_t* data, size_t size) {
    if (size == 0) {
        return;
    }
    m_length += size;
    if (m_buffered != 0) {
        size_t take = std::min(size, sizeof m_buffer - m_buffered);
        std::memcpy(m_buffer + m_buffered, data, take);
        m_buffered += take;
        data += take;
        size -= take;
        if (m_buffered < sizeof m_buffer) {
            return;
        }
        Transform(m_buffer);
        m_buffered = 0;
    }
    for (; size >= 64; data += 64, size -= 64) {
        Transform(data);
    }
    if (size != 0) {
        std::memcpy(m_buffer, data, size);
        m_buffered = size;
    }
}

Md5::Digest Md5::Finish() {
    uint64_t bits = m_length * 8;
    uint8_t padding[72] = {0x80};
    size_t padLength = (m_buffered < 56 ? 56 : 120) - m_buffered;
    Update(padding, padLength);
    uint8_t lengthBytes[8];
    for (int i = 0; i < 8; ++i) {
        lengthBytes[i] = uint8_t(bits >> (8 * i));
    }
    Update(lengthBytes, 8);
    Digest digest;
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 4; ++j) {
            digest[size_t(i * 4 + j)] = uint8_t(m_state[i] >> (8 * j));
        }
    }
    return digest;
}

Md5::Digest Md5::Of(const uint8_t* data, size_t size) {
    Md5 md5;
    md5.Update(data, size);
    return md5.Finish();
}

} // namespace vela::sim
