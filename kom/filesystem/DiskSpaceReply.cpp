#include "kom/filesystem/DiskSpaceReply.h"

#include "common/ByteOrder.h"
#include "common/LogAndThrow.h"
#include "kom/QRVException.h"
#include "kom/filesystem/FileSystemRequests.h"

namespace vela::kom {

DiskSpace DecodeDiskSpaceReply(const uint8_t* payload, size_t size, const std::wstring& source) {
    if (payload == nullptr || size != kDiskSpaceReplySize) {
        vela::common::LogAndThrow(ReplyException(L"'Wrong reply size'", source));
    }
    if (payload[1] != FileSystemRequests::kDiskSpaceReply) {
        vela::common::LogAndThrow(ReplyException(L"'Wrong reply'", source));
    }
    DiskSpace space;
    space.first = vela::common::ReadLittleEndian64(payload + 2);
    space.second = vela::common::ReadLittleEndian64(payload + 10);
    return space;
}

} // namespace vela::kom
