#pragma once

#include "common/StringConverter.h"
#include "support/ProtocolFixture.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace vela::test {

// The 257-byte path field built independently of the library.
inline std::vector<uint8_t> PathField(const std::string& utf8) {
    std::vector<uint8_t> field(utf8.begin(), utf8.end());
    field.resize(257, 0x00);
    return field;
}

inline std::vector<uint8_t> Concat(std::initializer_list<std::vector<uint8_t>> parts) {
    std::vector<uint8_t> all;
    for (const auto& p : parts) {
        all.insert(all.end(), p.begin(), p.end());
    }
    return all;
}

inline std::vector<uint8_t> LittleEndian32(uint32_t v) {
    return {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)};
}

// The completion poll that follows every file-system request.
inline const std::vector<uint8_t> kPoll = Hex("C3 00 00 00 09 60 04 01 80");

inline std::vector<uint8_t> PathRequest(uint8_t command, const std::string& path) {
    return Concat({Hex("C3 00 00 01 0A 60 04 01"), {command}, PathField(path)});
}

// Payload of a get reply: a path field, the data's length, the data and `trailing` extra bytes.
inline std::vector<uint8_t> FileReplyPayload(const std::vector<uint8_t>& data, size_t trailing = 0) {
    return Concat({{0x00, 0x21},
                   PathField("/x"),
                   LittleEndian32(static_cast<uint32_t>(data.size())),
                   data,
                   std::vector<uint8_t>(trailing, 0xEE)});
}

// Payload of a folder content reply around the listing text.
inline std::vector<uint8_t> ListingReplyPayload(const std::string& text) {
    return Concat({{0x00, 0x22}, PathField("/x"), std::vector<uint8_t>(text.begin(), text.end())});
}

class FileSystemTest : public ProtocolFixture {
protected:
    TempDir dir;
};

} // namespace vela::test
