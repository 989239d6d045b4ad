#include "kom/filesystem/PathField.h"

#include <algorithm>

namespace vela::kom {

void AppendPathField(std::vector<uint8_t>& out, const std::string& utf8Path) {
    const size_t copied = std::min(utf8Path.size(), kPathFieldSize);
    const size_t start = out.size();
    out.resize(start + kPathFieldSize, 0x00);
    std::copy(utf8Path.begin(), utf8Path.begin() + static_cast<std::ptrdiff_t>(copied), out.begin() + start);
}

} // namespace vela::kom
