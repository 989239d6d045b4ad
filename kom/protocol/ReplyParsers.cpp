#include "kom/protocol/ReplyParsers.h"

#include "common/ByteOrder.h"
#include "common/LogAndThrow.h"
#include "kom/QRVException.h"
#include "kom/protocol/MessageHeader.h"
#include "kom/protocol/RequestCodes.h"

#include <algorithm>

namespace vela::kom {

using vela::common::LogAndThrow;

namespace {

constexpr size_t kLengthOffset = 1;
constexpr size_t kLengthEnd = kLengthOffset + 4;

constexpr uint8_t kQueryReply = RequestCode::kQuery;
constexpr size_t kReplyDataOffset = 2;
constexpr size_t kStatusPayloadSize = 10;
constexpr size_t kStatusBlockSize = 8;
constexpr size_t kMinimumCassetteMemory = 88;
constexpr size_t kSkuOffset = 1;
constexpr size_t kSkuLength = 7;
constexpr size_t kUpdateStatusDataSize = 3;
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

void CheckReplyCommand(ByteView payload, uint8_t command, const wchar_t* origin) {
    if (payload.size() <= 1 || payload.At(1) != command) {
        LogAndThrow(ReplyException(L"'Wrong reply'", origin));
    }
}

std::vector<uint8_t> ParseStatusReply(ByteView payload) {
    if (payload.size() != kStatusPayloadSize) {
        LogAndThrow(ReplyException(L"'Wrong reply size'", kOriginGetStatusInternal));
    }
    CheckReplyCommand(payload, kQueryReply, kOriginGetStatusInternal);
    const ByteView block = payload.From(kReplyDataOffset);
    return std::vector<uint8_t>(block.begin(), block.begin() + kStatusBlockSize);
}

std::array<std::string, PrinterVersion::kTextCount> SplitVersionTexts(ByteView data) {
    std::array<std::string, PrinterVersion::kTextCount> texts;
    const uint8_t* position = data.begin();
    for (std::string& text : texts) {
        const uint8_t* terminator = std::find(position, data.end(), uint8_t{0});
        if (terminator == data.end()) {
            break;
        }
        text.assign(position, terminator);
        position = terminator + 1;
    }
    return texts;
}

std::array<std::string, PrinterVersion::kTextCount> ParseVersionReply(ByteView payload) {
    CheckReplyCommand(payload, RequestCode::kVersion, kOriginGetPrinterVersion);
    return SplitVersionTexts(payload.From(kReplyDataOffset));
}

EepromData ParseCassetteMemoryReply(ByteView payload) {
    CheckReplyCommand(payload, RequestCode::kCassetteMemory, kOriginGetCassetteEepromData);
    EepromData memory = payload.From(kReplyDataOffset).ToVector();
    if (memory.size() < kMinimumCassetteMemory) {
        memory.clear();
    }
    return memory;
}

std::string SkuFromCassetteMemory(const EepromData& memory) {
    const ByteView sku = ByteView(memory).From(kSkuOffset);
    return std::string(sku.begin(), sku.begin() + std::min(sku.size(), kSkuLength));
}

DeviceManagerStatus ParseUpdateStatusReply(ByteView payload) {
    CheckReplyCommand(payload, RequestCode::kUpdateStatus, kOriginGetUpdateStatusReport);
    DeviceManagerStatus status;
    const ByteView data = payload.From(kReplyDataOffset);
    if (data.size() != kUpdateStatusDataSize) {
        return status;
    }
    switch (data.At(0)) {
    case update_idle:
    case update_busy:
    case update_applying:
        status.status = data.At(0);
        break;
    default:
        break;
    }
    status.value1 = data.At(1);
    status.value2 = data.At(2);
    return status;
}

} // namespace vela::kom
