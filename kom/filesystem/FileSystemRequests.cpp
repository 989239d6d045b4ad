#include "kom/filesystem/FileSystemRequests.h"

#include "common/ByteOrder.h"
#include "kom/filesystem/PathField.h"

namespace vela::kom::FileSystemRequests {

namespace {

constexpr uint8_t kStart = 0xC3;
constexpr uint8_t kGroup = 0x60;
constexpr uint8_t kUnitFileSystem = 0x04;

// Header with the length left open, then 0x01 and the command.
std::vector<uint8_t> Begin(uint8_t command, size_t capacity) {
    std::vector<uint8_t> message;
    message.reserve(capacity);
    message.insert(message.end(), {kStart, 0, 0, 0, 0, kGroup, kUnitFileSystem, 0x01, command});
    return message;
}

std::vector<uint8_t> Finish(std::vector<uint8_t> message) {
    vela::common::WriteBigEndian32(message.data() + 1, static_cast<uint32_t>(message.size()));
    return message;
}

} // namespace

std::vector<uint8_t> PathRequest(uint8_t command, const std::string& utf8Path) {
    std::vector<uint8_t> message = Begin(command, 9 + kPathFieldSize);
    AppendPathField(message, utf8Path);
    return Finish(std::move(message));
}

std::vector<uint8_t> RenameRequest(const std::string& utf8OldPath, const std::string& utf8NewPath) {
    std::vector<uint8_t> message = Begin(kRenameFile, 9 + 2 * kPathFieldSize);
    AppendPathField(message, utf8OldPath);
    AppendPathField(message, utf8NewPath);
    return Finish(std::move(message));
}

std::vector<uint8_t> FolderDetailRequest(uint8_t selector) {
    std::vector<uint8_t> message = Begin(kFolderDetail, 10);
    message.push_back(selector);
    return Finish(std::move(message));
}

std::vector<uint8_t> DiskSpaceRequest() {
    return Finish(Begin(kDiskSpace, 9));
}

std::vector<uint8_t> PutRequestHead(const std::string& utf8Path, uint32_t dataLength) {
    std::vector<uint8_t> message = Begin(kPutFile, kPutDataOffset);
    message.push_back(0x01);
    AppendPathField(message, utf8Path);
    vela::common::AppendLittleEndian32(message, dataLength);
    vela::common::WriteBigEndian32(message.data() + 1, static_cast<uint32_t>(kPutOverhead + dataLength));
    return message;
}

} // namespace vela::kom::FileSystemRequests
