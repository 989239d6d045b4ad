#include "kom/filesystem/FileDataReply.h"

#include "common/ByteOrder.h"

namespace vela::kom {

std::optional<uint32_t> FileDataLength(const uint8_t* head, size_t headSize, uint64_t replySize) {
    if (head == nullptr || headSize < kFileReplyDataOffset || replySize < kFileReplyDataOffset) {
        return std::nullopt;
    }
    const uint32_t length = vela::common::ReadLittleEndian32(head + kFileReplyLengthOffset);
    // The printer's own rule: the length is smaller than the reply that carries it.
    if (!(length < replySize)) {
        return std::nullopt;
    }
    // That rule alone would let a length through that runs past the reply's end; such a reply is
    // just as corrupt.
    if (length > replySize - kFileReplyDataOffset) {
        return std::nullopt;
    }
    return length;
}

} // namespace vela::kom
