#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// The printer's own view of the bytes on the wire. Deliberately written apart from the library's
// protocol code: the simulator must notice a framing mistake in the library, not repeat it.
namespace vela::sim::wire {

constexpr uint8_t kStartByte = 0xC3;
constexpr uint8_t kGroup = 0x60;
constexpr size_t kHeaderSize = 7;
constexpr size_t kPathFieldSize = 257;
// A host message whose length is a non-zero multiple of this is followed by one 0x00 pad byte, so
// that the USB transfer never ends exactly on a packet boundary.
constexpr size_t kPacketSize = 512;

// Header unit byte: the part of the printer a message is addressed to.
namespace unit {
constexpr uint8_t fileSystem = 0x04; // file system and the completion poll
constexpr uint8_t device = 0x06;     // device control orders and the updater's report
constexpr uint8_t version = 0x07;    // version texts
constexpr uint8_t printer = 0x10;    // status, print control, cassette memory
} // namespace unit

// Payload byte 1 of a request (byte 0 is always 0x01).
namespace command {
constexpr uint8_t leadByte = 0x01;
constexpr uint8_t query = 0x80; // completion poll and status query
constexpr uint8_t deviceControl = 0x3A;
constexpr uint8_t printControl = 0x50;
constexpr uint8_t version = 0x39;
constexpr uint8_t cassetteMemory = 0x47;
constexpr uint8_t updateStatus = 0x3C;
constexpr uint8_t putFile = 0x31;
constexpr uint8_t getPrepare = 0x29;
constexpr uint8_t getFetch = 0x21;
constexpr uint8_t deleteFile = 0x32;
constexpr uint8_t renameFile = 0x33;
constexpr uint8_t listPrepare = 0x2A;
constexpr uint8_t listFetch = 0x22;
constexpr uint8_t folderDetail = 0x23;
constexpr uint8_t diskSpace = 0x24;
constexpr uint8_t diskSpaceReply = 0x28; // the disk space answer carries its own command byte
} // namespace command

// Completion poll answer, payload byte 2.
constexpr uint8_t kProgressBusy = 1;
constexpr uint8_t kProgressFinished = 2;

// Put request: offsets from the start of the message.
constexpr size_t kPutPathOffset = 10;
constexpr size_t kPutLengthOffset = kPutPathOffset + kPathFieldSize; // 267
constexpr size_t kPutDataOffset = kPutLengthOffset + 4;              // 271
constexpr size_t kDigestSize = 16;
constexpr size_t kPutOverhead = kPutDataOffset + kDigestSize; // 287 bytes besides the data
// Requests that carry one path field (get, delete, listing): header, 0x01, command, path.
constexpr size_t kPathRequestSize = kHeaderSize + 2 + kPathFieldSize;    // 266
constexpr size_t kRenameRequestSize = kPathRequestSize + kPathFieldSize; // 523
// Replies that echo a path field put their own data from this payload offset on.
constexpr size_t kReplyDataOffset = 2 + kPathFieldSize; // 259

// Starts a reply: header with the final total length for `payloadSize` payload bytes.
std::vector<uint8_t> ReplyHeader(uint8_t unit, size_t payloadSize);
// A complete reply message.
std::vector<uint8_t> Reply(uint8_t unit, const std::vector<uint8_t>& payload);
// Appends a path field: the text, a zero byte, zero padding; cut to exactly 257 bytes.
void AppendPathField(std::vector<uint8_t>& out, const std::string& path);
// Reads a path field: the text up to the first zero byte. `terminated` tells whether there was one.
std::string ReadPathField(const uint8_t* field, bool& terminated);
// "C3 00 00 00 09 ..." of at most `limit` bytes, with the total when it was cut.
std::string HexDump(const uint8_t* data, size_t size, size_t limit = 48);

} // namespace vela::sim::wire
