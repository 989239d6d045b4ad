#include "kom/filesystem/FolderDetailReply.h"

#include "common/LogAndThrow.h"
#include "kom/QRVException.h"
#include "kom/filesystem/FileSystemRequests.h"

#include <algorithm>

namespace vela::kom {

std::string DecodeFolderDetailReply(const std::vector<uint8_t>& payload, const std::wstring& source) {
    constexpr size_t kNameOffset = 7;
    if (payload.size() < 2 || payload[1] != FileSystemRequests::kFolderDetail) {
        vela::common::LogAndThrow(ReplyException(L"'Wrong reply'", source));
    }
    const auto from = payload.begin() + static_cast<std::ptrdiff_t>(std::min(kNameOffset, payload.size()));
    const auto zero = std::find(from, payload.end(), uint8_t{0});
    if (zero == payload.end()) {
        vela::common::LogAndThrow(PathException(L"'No path name delimiter found'", source));
    }
    return std::string(from, zero);
}

} // namespace vela::kom
