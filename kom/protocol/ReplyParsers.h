#pragma once

#include "kom/protocol/ByteView.h"

#include <cstdint>
#include <string>

namespace vela::kom {

// Pure functions that turn bytes received from a printer into values. They touch no channel and
// hold no state, accept any input (they never read past the end of the view) and report bad
// input with the library's own exception kinds through LogAndThrow. Callable from any thread.

// Origins of the failures these parsers raise.
inline constexpr const wchar_t* kOriginGetReplyDataLength = L"PrinterDevice::GetReplyDataLength()";
inline constexpr const wchar_t* kOriginWaitForCompletion = L"PrinterDevice::WaitForCompletion()";

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

} // namespace vela::kom
