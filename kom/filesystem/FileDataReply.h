#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace vela::kom {

// Layout of the reply that carries a printer file: byte 1 echoes the command 0x21, a 257-byte
// path field follows (not examined), then the data length (little-endian) and the data.
constexpr size_t kFileReplyMinimumSize = 256; // shorter replies are "'Wrong reply size'"
constexpr size_t kFileReplyLengthOffset = 259;
constexpr size_t kFileReplyDataOffset = 263;

// The declared data length of a file reply whose first `headSize` bytes are at `head` and whose
// whole payload is `replySize` bytes, or none when the length is corrupt (the caller reports
// "'Corrupted data length'"). The length must be smaller than the reply, and - so that nothing
// is ever read beyond the reply - fit into the bytes after offset 263; a reply too short to hold
// the length field has no valid length either. Pure; safe for any input.
std::optional<uint32_t> FileDataLength(const uint8_t* head, size_t headSize, uint64_t replySize);

} // namespace vela::kom
