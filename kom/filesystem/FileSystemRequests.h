#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vela::kom {

// The file-system requests, byte for byte. Every one opens with the seven-byte header (0xC3, the
// total length big-endian, group 0x60, unit 0x04 for the file system) and a 0x01 byte before the
// command. Paths are given as UTF-8; each goes out in a 257-byte path field (PathField.h).
// Pure functions; safe for any input.
namespace FileSystemRequests {

constexpr uint8_t kPutFile = 0x31;
constexpr uint8_t kPrepareGetFile = 0x29;
constexpr uint8_t kGetFile = 0x21;
constexpr uint8_t kDeleteFile = 0x32;
constexpr uint8_t kRenameFile = 0x33;
constexpr uint8_t kPrepareFolderContent = 0x2A;
constexpr uint8_t kFolderContent = 0x22;
constexpr uint8_t kFolderDetail = 0x23;
constexpr uint8_t kDiskSpace = 0x24;
constexpr uint8_t kDiskSpaceReply = 0x28; // the printer answers the disk space query with this

// Offset of the command byte in every request: after the header and the 0x01 byte.
constexpr size_t kCommandOffset = 8;
// Put message layout: header, 0x01, 0x31, 0x01, path field, data length (little-endian), data,
// 16-byte MD5 digest of the data.
constexpr size_t kPutDataLengthOffset = 10 + 257;
constexpr size_t kPutDataOffset = kPutDataLengthOffset + 4;
constexpr size_t kDigestSize = 16;
constexpr size_t kPutOverhead = kPutDataOffset + kDigestSize; // 287: the message of an empty file

// 266 bytes: header, 0x01, command, path field (delete, get, listing).
std::vector<uint8_t> PathRequest(uint8_t command, const std::string& utf8Path);
// 523 bytes: header, 0x01, 0x33, old path field, new path field.
std::vector<uint8_t> RenameRequest(const std::string& utf8OldPath, const std::string& utf8NewPath);
// 10 bytes: header, 0x01, 0x23, selector.
std::vector<uint8_t> FolderDetailRequest(uint8_t selector);
// 9 bytes: header, 0x01, 0x24.
std::vector<uint8_t> DiskSpaceRequest();

// The 271 bytes of a put message in front of the file's bytes, both lengths filled in for
// `dataLength` data bytes (total length kPutOverhead + dataLength). The data and the digest
// follow on the wire.
std::vector<uint8_t> PutRequestHead(const std::string& utf8Path, uint32_t dataLength);

} // namespace FileSystemRequests
} // namespace vela::kom
