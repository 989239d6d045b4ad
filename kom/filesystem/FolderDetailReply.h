#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vela::kom {

// Decodes a folder detail reply payload: byte 1 echoes the command 0x23, and from offset 7 on
// comes a zero-terminated UTF-8 folder name, returned without its zero.
// Throws (logged, with `source`) ReplyException "'Wrong reply'" when byte 1 is missing or not
// 0x23, and PathException "'No path name delimiter found'" when no zero byte follows offset 7.
// Safe for any input.
std::string DecodeFolderDetailReply(const std::vector<uint8_t>& payload, const std::wstring& source);

} // namespace vela::kom
