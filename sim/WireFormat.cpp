#include "sim/WireFormat.h"

#include "common/ByteOrder.h"

#include <algorithm>
#include <cstdio>

namespace vela::sim::wire {

std::vector<uint8_t> ReplyHeader(uint8_t unitByte, size_t payloadSize) {
    std::vector<uint8_t> out;
    out.reserve(kHeaderSize + payloadSize);
    out.push_back(kStartByte);
    common::AppendBigEndian32(out, static_cast<uint32_t>(kHeaderSize + payloadSize));
    out.push_back(kGroup);
    out.push_back(unitByte);
    return out;
}

std::vector<uint8_t> Reply(uint8_t unitByte, const std::vector<uint8_t>& payload) {
    std::vector<uint8_t> out = ReplyHeader(unitByte, payload.size());
    out.insert(out.end(), payload.begin(), payload.end());
    return out;
}

void AppendPathField(std::vector<uint8_t>& out, const std::string& path) {
    size_t at = out.size();
    out.resize(at + kPathFieldSize, 0);
    std::copy_n(path.begin(), std::min(path.size(), kPathFieldSize),
                out.begin() + static_cast<ptrdiff_t>(at));
}

std::string ReadPathField(const uint8_t* field, bool& terminated) {
    const uint8_t* end = std::find(field, field + kPathFieldSize, uint8_t{0});
    terminated = end != field + kPathFieldSize;
    return std::string(reinterpret_cast<const char*>(field), static_cast<size_t>(end - field));
}

std::string HexDump(const uint8_t* data, size_t size, size_t limit) {
    std::string text;
    size_t shown = std::min(size, limit);
    text.reserve(shown * 3 + 24);
    char cell[4];
    for (size_t i = 0; i < shown; ++i) {
        std::snprintf(cell, sizeof cell, "%02X", data[i]);
        if (i != 0) {
            text += ' ';
        }
        text += cell;
    }
    if (shown < size) {
        text += " ... (" + std::to_string(size) + " bytes)";
    }
    return text;
}

} // namespace vela::sim::wire
