#include "sim/RequestDecoder.h"

#include "common/ByteOrder.h"
#include "sim/WireFormat.h"

#include <algorithm>
#include <cstdio>

namespace vela::sim {

const char* RequestKindName(RequestKind kind) {
    switch (kind) {
    case RequestKind::completionPoll:
        return "completion poll";
    case RequestKind::statusQuery:
        return "status query";
    case RequestKind::printControl:
        return "print control";
    case RequestKind::deviceControl:
        return "device control";
    case RequestKind::versionQuery:
        return "version query";
    case RequestKind::cassetteMemory:
        return "cassette memory query";
    case RequestKind::updateStatus:
        return "update status query";
    case RequestKind::putFile:
        return "put file";
    case RequestKind::getFilePrepare:
        return "get file (prepare)";
    case RequestKind::getFileFetch:
        return "get file (fetch)";
    case RequestKind::deleteFile:
        return "delete file";
    case RequestKind::renameFile:
        return "rename file";
    case RequestKind::listFolderPrepare:
        return "list folder (prepare)";
    case RequestKind::listFolderFetch:
        return "list folder (fetch)";
    case RequestKind::folderDetail:
        return "folder detail";
    case RequestKind::diskSpace:
        return "disk space";
    case RequestKind::unknown:
        return "unknown";
    }
    return "?";
}

namespace {

struct KnownRequest {
    uint8_t unit;
    uint8_t command;
    RequestKind kind;
    size_t size; // total message size; 0 for the put, whose size follows its data length
};

constexpr KnownRequest kKnown[] = {
    {wire::unit::fileSystem, wire::command::query, RequestKind::completionPoll, 9},
    {wire::unit::printer, wire::command::query, RequestKind::statusQuery, 9},
    {wire::unit::printer, wire::command::printControl, RequestKind::printControl, 12},
    {wire::unit::device, wire::command::deviceControl, RequestKind::deviceControl, 10},
    {wire::unit::version, wire::command::version, RequestKind::versionQuery, 9},
    {wire::unit::printer, wire::command::cassetteMemory, RequestKind::cassetteMemory, 9},
    {wire::unit::device, wire::command::updateStatus, RequestKind::updateStatus, 9},
    {wire::unit::fileSystem, wire::command::putFile, RequestKind::putFile, 0},
    {wire::unit::fileSystem, wire::command::getPrepare, RequestKind::getFilePrepare, wire::kPathRequestSize},
    {wire::unit::fileSystem, wire::command::getFetch, RequestKind::getFileFetch, wire::kPathRequestSize},
    {wire::unit::fileSystem, wire::command::deleteFile, RequestKind::deleteFile, wire::kPathRequestSize},
    {wire::unit::fileSystem, wire::command::renameFile, RequestKind::renameFile, wire::kRenameRequestSize},
    {wire::unit::fileSystem, wire::command::listPrepare, RequestKind::listFolderPrepare,
     wire::kPathRequestSize},
    {wire::unit::fileSystem, wire::command::listFetch, RequestKind::listFolderFetch, wire::kPathRequestSize},
    {wire::unit::fileSystem, wire::command::folderDetail, RequestKind::folderDetail, 10},
    {wire::unit::fileSystem, wire::command::diskSpace, RequestKind::diskSpace, 9},
};

std::string Hex2(uint8_t value) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%02X", value);
    return text;
}

FramingViolation Violation(ViolationKind kind, std::string detail, const std::vector<uint8_t>& frame) {
    size_t shown = std::min<size_t>(frame.size(), 64);
    return {kind, std::move(detail),
            std::vector<uint8_t>(frame.begin(), frame.begin() + static_cast<ptrdiff_t>(shown))};
}

} // namespace

DecodedRequest DecodeRequest(const std::vector<uint8_t>& frame) {
    DecodedRequest out;
    Request& request = out.request;
    if (frame.size() < wire::kHeaderSize + 2) {
        out.violation = Violation(
            ViolationKind::malformedPayload,
            "payload of " + std::to_string(frame.size() - std::min(frame.size(), wire::kHeaderSize)) +
                " bytes is too short for a request",
            frame);
        return out;
    }
    request.unit = frame[6];
    request.command = frame[8];
    if (frame[5] != wire::kGroup) {
        out.violation =
            Violation(ViolationKind::unknownRequest, "unknown group byte " + Hex2(frame[5]), frame);
        return out;
    }
    const KnownRequest* known = nullptr;
    for (const KnownRequest& candidate : kKnown) {
        if (candidate.unit == request.unit && candidate.command == request.command) {
            known = &candidate;
            break;
        }
    }
    if (known == nullptr) {
        out.violation =
            Violation(ViolationKind::unknownRequest,
                      "unknown unit/command " + Hex2(request.unit) + "/" + Hex2(request.command), frame);
        return out;
    }
    request.kind = known->kind;
    if (frame[7] != wire::command::leadByte) {
        out.violation = Violation(ViolationKind::malformedPayload,
                                  std::string(RequestKindName(request.kind)) + " starts its payload with " +
                                      Hex2(frame[7]) + " instead of 0x01",
                                  frame);
        return out;
    }

    size_t expected = known->size;
    if (request.kind == RequestKind::putFile) {
        if (frame.size() < wire::kPutDataOffset) {
            out.violation = Violation(ViolationKind::lengthMismatch,
                                      "put file of " + std::to_string(frame.size()) +
                                          " bytes ends before its data length field",
                                      frame);
            return out;
        }
        request.dataLength = common::ReadLittleEndian32(frame.data() + wire::kPutLengthOffset);
        expected = wire::kPutOverhead + size_t{request.dataLength};
    }
    if (frame.size() != expected) {
        out.violation = Violation(ViolationKind::lengthMismatch,
                                  std::string(RequestKindName(request.kind)) + " declares " +
                                      std::to_string(frame.size()) + " bytes but is " +
                                      std::to_string(expected) + " bytes long",
                                  frame);
        return out;
    }

    switch (request.kind) {
    case RequestKind::printControl:
    case RequestKind::deviceControl:
    case RequestKind::folderDetail:
        request.code = frame[9];
        break;
    case RequestKind::putFile:
        request.path = wire::ReadPathField(frame.data() + wire::kPutPathOffset, request.pathTerminated);
        break;
    case RequestKind::renameFile:
        request.newPath = wire::ReadPathField(frame.data() + wire::kHeaderSize + 2 + wire::kPathFieldSize,
                                              request.newPathTerminated);
        request.path = wire::ReadPathField(frame.data() + wire::kHeaderSize + 2, request.pathTerminated);
        break;
    case RequestKind::getFilePrepare:
    case RequestKind::getFileFetch:
    case RequestKind::deleteFile:
    case RequestKind::listFolderPrepare:
    case RequestKind::listFolderFetch:
        request.path = wire::ReadPathField(frame.data() + wire::kHeaderSize + 2, request.pathTerminated);
        break;
    default:
        break;
    }
    return out;
}

} // namespace vela::sim
