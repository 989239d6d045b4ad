#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vela::common {

// Plain integer <-> byte helpers. The wire mixes both orders on purpose (big-endian message
// lengths, little-endian data lengths and disk counts). The simulator shares only these.
inline uint32_t ReadBigEndian32(const uint8_t* p) {
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | uint32_t(p[3]);
}
inline void WriteBigEndian32(uint8_t* p, uint32_t v) {
    p[0] = uint8_t(v >> 24), p[1] = uint8_t(v >> 16), p[2] = uint8_t(v >> 8), p[3] = uint8_t(v);
}
inline uint32_t ReadLittleEndian32(const uint8_t* p) {
    return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}
inline void WriteLittleEndian32(uint8_t* p, uint32_t v) {
    p[0] = uint8_t(v), p[1] = uint8_t(v >> 8), p[2] = uint8_t(v >> 16), p[3] = uint8_t(v >> 24);
}
inline uint64_t ReadLittleEndian64(const uint8_t* p) {
    return uint64_t(ReadLittleEndian32(p)) | (uint64_t(ReadLittleEndian32(p + 4)) << 32);
}
inline void WriteLittleEndian64(uint8_t* p, uint64_t v) {
    WriteLittleEndian32(p, uint32_t(v));
    WriteLittleEndian32(p + 4, uint32_t(v >> 32));
}
inline void AppendBigEndian32(std::vector<uint8_t>& out, uint32_t v) {
    size_t at = out.size();
    out.resize(at + 4);
    WriteBigEndian32(out.data() + at, v);
}
inline void AppendLittleEndian32(std::vector<uint8_t>& out, uint32_t v) {
    size_t at = out.size();
    out.resize(at + 4);
    WriteLittleEndian32(out.data() + at, v);
}
inline void AppendLittleEndian64(std::vector<uint8_t>& out, uint64_t v) {
    size_t at = out.size();
    out.resize(at + 8);
    WriteLittleEndian64(out.data() + at, v);
}

} // namespace vela::common
