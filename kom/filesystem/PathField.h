#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vela::kom {

// Width of the printer path field that every file-system request carries.
constexpr size_t kPathFieldSize = 257;

// Appends the printer path field: the UTF-8 path, one zero byte, then zero padding, the whole cut
// or padded to exactly kPathFieldSize bytes. A path of 257 UTF-8 bytes or more therefore goes out
// without its terminating zero, and the cut may fall inside a multi-byte character: the printer
// reads the field byte by byte and expects exactly this. Safe for any input; never throws beyond
// allocation failure.
void AppendPathField(std::vector<uint8_t>& out, const std::string& utf8Path);

} // namespace vela::kom
