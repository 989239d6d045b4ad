#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vela::kom {

// The two counts of the printer's disk space reply, in reply order (the host calls them free
// and used space).
struct DiskSpace {
    uint64_t first = 0;
    uint64_t second = 0;
};

constexpr size_t kDiskSpaceReplySize = 18;

// Decodes a disk space reply payload: exactly 18 bytes, byte 1 is 0x28 (not the query's 0x24),
// then two unsigned 64-bit counts, least significant byte first.
// Throws (logged, with `source`) ReplyException "'Wrong reply size'" for any other size and
// "'Wrong reply'" for another byte 1. Safe for any input.
DiskSpace DecodeDiskSpaceReply(const uint8_t* payload, size_t size, const std::wstring& source);

} // namespace vela::kom
