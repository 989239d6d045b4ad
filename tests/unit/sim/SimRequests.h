#pragma once

// Hand-built requests and a reply splitter for the simulator's tests. Written apart from both
// the library's protocol code and the simulator's own wire helpers, byte by byte.

#include "sim/Md5.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace simtest {

using Bytes = std::vector<uint8_t>;

inline Bytes Message(uint8_t unit, const Bytes& payload, uint8_t group = 0x60) {
    uint32_t total = static_cast<uint32_t>(7 + payload.size());
    Bytes m;
    m.reserve(total);
    for (uint8_t b : {uint8_t(0xC3), uint8_t(total >> 24), uint8_t(total >> 16), uint8_t(total >> 8),
                      uint8_t(total), group, unit}) {
        m.push_back(b);
    }
    for (uint8_t b : payload) {
        m.push_back(b);
    }
    return m;
}

inline Bytes Poll() {
    return {0xC3, 0x00, 0x00, 0x00, 0x09, 0x60, 0x04, 0x01, 0x80};
}
inline Bytes StatusQuery() {
    return {0xC3, 0x00, 0x00, 0x00, 0x09, 0x60, 0x10, 0x01, 0x80};
}
inline Bytes VersionQuery() {
    return Message(0x07, {0x01, 0x39});
}
inline Bytes CassetteMemoryQuery() {
    return Message(0x10, {0x01, 0x47});
}
inline Bytes UpdateStatusQuery() {
    return Message(0x06, {0x01, 0x3C});
}
inline Bytes PrintControl(uint8_t code) {
    return Message(0x10, {0x01, 0x50, code, 0x00, 0x00});
}
inline Bytes DeviceControl(uint8_t code) {
    return Message(0x06, {0x01, 0x3A, code});
}
inline Bytes FolderDetail(uint8_t selector) {
    return Message(0x04, {0x01, 0x23, selector});
}
inline Bytes DiskSpace() {
    return Message(0x04, {0x01, 0x24});
}

inline void AppendPath(Bytes& out, const std::string& path) {
    Bytes field(257, 0x00);
    for (size_t i = 0; i < path.size() && i < 257; ++i) {
        field[i] = static_cast<uint8_t>(path[i]);
    }
    out.insert(out.end(), field.begin(), field.end());
}

inline Bytes PathRequest(uint8_t command, const std::string& path) {
    Bytes payload{0x01, command};
    AppendPath(payload, path);
    return Message(0x04, payload);
}
inline Bytes GetPrepare(const std::string& path) {
    return PathRequest(0x29, path);
}
inline Bytes GetFetch(const std::string& path) {
    return PathRequest(0x21, path);
}
inline Bytes Delete(const std::string& path) {
    return PathRequest(0x32, path);
}
inline Bytes ListPrepare(const std::string& path) {
    return PathRequest(0x2A, path);
}
inline Bytes ListFetch(const std::string& path) {
    return PathRequest(0x22, path);
}

inline Bytes Rename(const std::string& from, const std::string& to) {
    Bytes payload{0x01, 0x33};
    AppendPath(payload, from);
    AppendPath(payload, to);
    return Message(0x04, payload);
}

inline Bytes Text(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

// A put with the right digest, or with the digest's first byte flipped.
inline Bytes Put(const std::string& path, const Bytes& data, bool spoilDigest = false) {
    Bytes payload{0x01, 0x31, 0x01};
    AppendPath(payload, path);
    uint32_t n = static_cast<uint32_t>(data.size());
    Bytes length{uint8_t(n), uint8_t(n >> 8), uint8_t(n >> 16), uint8_t(n >> 24)};
    payload.insert(payload.end(), length.begin(), length.end());
    payload.insert(payload.end(), data.begin(), data.end());
    auto digest = vela::sim::Md5::Of(data.data(), data.size());
    if (spoilDigest) {
        digest[0] ^= 0xFF;
    }
    payload.insert(payload.end(), digest.begin(), digest.end());
    return Message(0x04, payload);
}

// What the host writes for a message: one 0x00 after a length that is a non-zero multiple of 512.
inline Bytes Padded(Bytes message) {
    if (!message.empty() && message.size() % 512 == 0) {
        message.push_back(0x00);
    }
    return message;
}

struct Reply {
    uint8_t start = 0;
    uint8_t group = 0;
    uint8_t unit = 0;
    Bytes payload;
};

// Splits the printer's output into replies by their headers; fails the test on loose bytes.
inline std::vector<Reply> Replies(const Bytes& out) {
    std::vector<Reply> replies;
    size_t at = 0;
    while (at < out.size()) {
        if (out.size() - at < 7) {
            ADD_FAILURE() << "loose bytes after the last reply: " << out.size() - at;
            break;
        }
        uint32_t total = (uint32_t(out[at + 1]) << 24) | (uint32_t(out[at + 2]) << 16) |
                         (uint32_t(out[at + 3]) << 8) | uint32_t(out[at + 4]);
        if (total < 7 || out.size() - at < total) {
            ADD_FAILURE() << "reply header declares " << total << " bytes, " << out.size() - at << " present";
            break;
        }
        Reply r{out[at], out[at + 5], out[at + 6], Bytes(out.begin() + at + 7, out.begin() + at + total)};
        replies.push_back(std::move(r));
        at += total;
    }
    return replies;
}

// The single reply in `out`.
inline Reply OnlyReply(const Bytes& out) {
    auto replies = Replies(out);
    if (replies.size() != 1) {
        ADD_FAILURE() << "expected one reply, got " << replies.size();
        return {};
    }
    return replies[0];
}

inline uint64_t Le64(const Bytes& b, size_t at) {
    uint64_t v = 0;
    for (int i = 7; i >= 0; --i) {
        v = (v << 8) | b[at + size_t(i)];
    }
    return v;
}

inline uint32_t Le32(const Bytes& b, size_t at) {
    return uint32_t(b[at]) | (uint32_t(b[at + 1]) << 8) | (uint32_t(b[at + 2]) << 16) |
           (uint32_t(b[at + 3]) << 24);
}

} // namespace simtest
