#pragma once

#include "sim/FramingViolation.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vela::sim {

// Every request the printer understands, by its unit and command bytes.
enum class RequestKind {
    completionPoll,    // unit 0x04, 0x80
    statusQuery,       // unit 0x10, 0x80
    printControl,      // unit 0x10, 0x50 + code
    deviceControl,     // unit 0x06, 0x3A + code
    versionQuery,      // unit 0x07, 0x39
    cassetteMemory,    // unit 0x10, 0x47
    updateStatus,      // unit 0x06, 0x3C
    putFile,           // unit 0x04, 0x31
    getFilePrepare,    // unit 0x04, 0x29
    getFileFetch,      // unit 0x04, 0x21
    deleteFile,        // unit 0x04, 0x32
    renameFile,        // unit 0x04, 0x33
    listFolderPrepare, // unit 0x04, 0x2A
    listFolderFetch,   // unit 0x04, 0x22
    folderDetail,      // unit 0x04, 0x23 + selector
    diskSpace,         // unit 0x04, 0x24
    unknown,
};

const char* RequestKindName(RequestKind kind);

// One complete request, taken apart.
struct Request {
    RequestKind kind = RequestKind::unknown;
    uint8_t unit = 0;
    uint8_t command = 0;
    uint8_t code = 0; // order code (control orders) or folder selector (folder detail)
    std::string path; // first path field, up to its zero byte
    bool pathTerminated = true;
    std::string newPath; // rename: second path field
    bool newPathTerminated = true;
    uint32_t dataLength = 0; // put: the little-endian data length
};

struct DecodedRequest {
    Request request;
    // Set when the frame is not a well-formed request. `request.kind` still names what the
    // unit and command bytes asked for (unknown when they name nothing).
    std::optional<FramingViolation> violation;
};

// Takes one complete message (exactly its declared length, at least the header) apart and checks
// that its length is the one its kind must have.
DecodedRequest DecodeRequest(const std::vector<uint8_t>& frame);

} // namespace vela::sim
