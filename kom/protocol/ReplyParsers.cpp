#include "kom/protocol/ReplyParsers.h"

#include "common/ByteOrder.h"
#include "common/LogAndThrow.h"
#include "kom/QRVException.h"
#include "kom/protocol/MessageHeader.h"

namespace vela::kom {

using vela::common::LogAndThrow;

namespace {

constexpr size_t kLengthOffset = 1;
constexpr size_t kLengthEnd = kLengthOffset + 4;

constexpr uint8_t kQueryReply = 0x80;
constexpr uint8_t kProgressFinished = 2;
constexpr size_t kCompletionPayloadSize = 5;

[[noreturn]] void ThrowIndexOutOfRange(const wchar_t* origin) {
    LogAndThrow(vela::common::InvalidIndexException(L"index out of range", origin));
}

} // namespace

uint32_t CheckedReplyPayloadLength(ByteView header) {
    if (header.empty()) {
        ThrowIndexOutOfRange(kOriginGetReplyDataLength);
    }
    if (header.At(0) != MessageHeader::kStartByte) {
        LogAndThrow(ReplyException(L"'Header corrupted'", kOriginGetReplyDataLength));
    }
    return AnnouncedPayloadLength(header, kOriginGetReplyDataLength);
}

uint32_t AnnouncedPayloadLength(ByteView header, const wchar_t* origin) {
    if (header.size() < kLengthEnd) {
        ThrowIndexOutOfRange(origin);
    }
    return vela::common::ReadBigEndian32(header.data() + kLengthOffset) - MessageHeader::kSize;
}

CompletionReply ParseCompletionReply(ByteView payload) {
    if (payload.size() < kCompletionPayloadSize || payload.At(1) != kQueryReply) {
        return {CompletionReply::State::unexpected, 0};
    }
    if (payload.At(2) != kProgressFinished) {
        return {CompletionReply::State::busy, 0};
    }
    return {CompletionReply::State::finished, payload.At(4)};
}

int32_t CompletionResult(uint8_t code) {
    switch (code) {
    case 1:
        LogAndThrow(FileAlreadyExistsException(L"'Duplicate file'", kOriginWaitForCompletion));
    case 2:
        LogAndThrow(FileNotFoundException(L"'Wrong file name'", kOriginWaitForCompletion));
    case 3:
        LogAndThrow(NoFreeDiskSpaceException(L"'Out of disk space'", kOriginWaitForCompletion));
    case 4:
        LogAndThrow(DeviceException(L"'Wrong checksum'", kOriginWaitForCompletion));
    case 5:
        LogAndThrow(DeviceException(L"'Illegal file name'", kOriginWaitForCompletion));
    case 6:
        LogAndThrow(NoPermissionException(L"'Access denied'", kOriginWaitForCompletion));
    case 7:
        LogAndThrow(DeviceException(L"'Unknown error'", kOriginWaitForCompletion));
    default:
        return code;
    }
}

} // namespace vela::kom
