#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vela::sim {

// A request that broke the message framing. The printer records each one (tests assert that a
// run produced none: "no interleaved frames") and answers nothing for the broken bytes.
enum class ViolationKind {
    badStartByte,     // bytes that do not begin with 0xC3 where a message must begin (discarded)
    missingPad,       // a message of a non-zero multiple of 512 bytes was not followed by its 0x00
    lengthTooSmall,   // declared total length below the 7-byte header
    lengthTooLarge,   // declared total length beyond what the printer accepts
    truncatedMessage, // fewer bytes than declared arrived and then the host fell silent
    lengthMismatch,   // declared length differs from the size this kind of request has
    unknownRequest,   // group, unit or command byte the printer does not know
    malformedPayload, // payload too short or without its leading 0x01
};

inline const char* ViolationKindName(ViolationKind kind) {
    switch (kind) {
    case ViolationKind::badStartByte:
        return "bad start byte";
    case ViolationKind::missingPad:
        return "missing pad byte";
    case ViolationKind::lengthTooSmall:
        return "length too small";
    case ViolationKind::lengthTooLarge:
        return "length too large";
    case ViolationKind::truncatedMessage:
        return "truncated message";
    case ViolationKind::lengthMismatch:
        return "length mismatch";
    case ViolationKind::unknownRequest:
        return "unknown request";
    case ViolationKind::malformedPayload:
        return "malformed payload";
    }
    return "?";
}

struct FramingViolation {
    ViolationKind kind;
    std::string detail;         // what was wrong, for a test's failure message
    std::vector<uint8_t> bytes; // the first bytes of the offending input (at most 64)
};

} // namespace vela::sim
