#pragma once

#include "kom/protocol/ByteView.h"
#include "kom/protocol/PrinterVersion.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace vela::kom {

// Pure functions that turn bytes received from a printer into values. They touch no channel and
// hold no state, accept any input (they never read past the end of the view) and report bad
// input with the library's own exception kinds through LogAndThrow. Callable from any thread.

// Origins of the failures these parsers raise.
inline constexpr const wchar_t* kOriginGetReplyDataLength = L"PrinterDevice::GetReplyDataLength()";
inline constexpr const wchar_t* kOriginWaitForCompletion = L"PrinterDevice::WaitForCompletion()";
inline constexpr const wchar_t* kOriginGetStatusInternal = L"PrinterDevice::GetStatusInternal()";
inline constexpr const wchar_t* kOriginGetPrinterVersion = L"PrinterDevice::GetPrinterVersion()";
inline constexpr const wchar_t* kOriginGetCassetteEepromData = L"PrinterDevice::GetCassetteEepromData()";
inline constexpr const wchar_t* kOriginGetUpdateStatusReport = L"PrinterDevice::GetUpdateStatusReport()";

// The payload length announced by a reply header (total length minus 7; a total below 7 wraps
// around to a very large value, which the channel's time-out ends later).
// Throws InvalidIndexException when the header is empty, ReplyException "'Header corrupted'"
// when its first byte is not 0xC3, InvalidIndexException when it is too short to hold a length.
uint32_t CheckedReplyPayloadLength(ByteView header);

// The same length without looking at the start byte, for readers that drain or skip a message.
// Throws InvalidIndexException (with `origin`) when the header is too short to hold a length.
uint32_t AnnouncedPayloadLength(ByteView header, const wchar_t* origin);

// One answer to the completion poll: payload byte 1 is 0x80 for a poll answer, byte 2 the
// progress (2 = finished), byte 4 the result code of the finished operation.
struct CompletionReply {
    enum class State { finished, busy, unexpected };
    State state = State::unexpected;
    uint8_t result = 0; // meaningful when finished
};
CompletionReply ParseCompletionReply(ByteView payload);

// Maps the result code of a finished operation: 1 to 7 throw their kinds (origin
// "PrinterDevice::WaitForCompletion()"), anything else is returned (0 is success).
int32_t CompletionResult(uint8_t code);

// ---- payload size rules (checked on the announced length, before the payload is read) --------
inline bool IsStatusReplySize(uint32_t payloadLength) {
    return payloadLength == 10;
}
inline bool IsVersionReplySize(uint32_t payloadLength) {
    return payloadLength >= 14;
}
inline bool IsCassetteMemoryReplySize(uint32_t payloadLength) {
    return payloadLength == 130 || payloadLength == 3;
}
inline bool IsUpdateStatusReplySize(uint32_t payloadLength) {
    return payloadLength == 5;
}

// Throws ReplyException "'Wrong reply'" (with `origin`) when the payload is too short to carry
// the command byte or byte 1 is not `command`.
void CheckReplyCommand(ByteView payload, uint8_t command, const wchar_t* origin);

// The 8-byte status block of a status reply payload (0x80 in byte 1, the block in bytes 2 to 9).
// Throws ReplyException "'Wrong reply size'" unless the payload is 10 bytes, "'Wrong reply'"
// when byte 1 is not 0x80.
std::vector<uint8_t> ParseStatusReply(ByteView payload);

// The seven zero-terminated 8-bit texts of the version reply data, in field order. Splitting
// stops at the first text without its zero byte: that text and all later ones stay empty.
std::array<std::string, PrinterVersion::kTextCount> SplitVersionTexts(ByteView data);
// A version reply payload: checks the command byte (0x39), then splits the data from byte 2.
std::array<std::string, PrinterVersion::kTextCount> ParseVersionReply(ByteView payload);

// A cassette memory reply payload: checks the command byte (0x47) and copies the data from
// byte 2. Fewer than 88 data bytes (the short 3-byte reply carries one) give an empty result.
EepromData ParseCassetteMemoryReply(ByteView payload);
// The SKU of a cassette: the 7 bytes at indexes 1 to 7 of its memory (as many as there are);
// empty for an empty memory.
std::string SkuFromCassetteMemory(const EepromData& memory);

// An update status reply payload: checks the command byte (0x3C). Exactly 3 data bytes give
// the state (0, 1 and 4 are taken, anything else leaves 5) and the two values; other data
// leave the initial {5, 0, 0}.
DeviceManagerStatus ParseUpdateStatusReply(ByteView payload);

} // namespace vela::kom
