#include "kom/filesystem/HostFileTransfer.h"

#include "common/Log.h"
#include "common/LogAndThrow.h"
#include "common/SystemError.h"
#include "kom/QRVException.h"

#include <algorithm>

namespace vela::kom {

using vela::common::HostFileFailure;
using vela::common::LogAndThrow;

namespace {
constexpr const wchar_t* kLoadSource = L"PrinterDevice::LoadFile()";

// The system's words for a write failure ("No space left on device"), or its number.
std::wstring Cause(uint32_t code) {
    std::wstring text = vela::common::SystemErrorText(code);
    return text.empty() ? L"system error " + std::to_wstring(code) : text;
}
} // namespace

void ThrowHostOpenFailure(const vela::common::HostFileError& error, const std::wstring& source) {
    switch (error.failure) {
    case HostFileFailure::fileNotFound:
        LogAndThrow(FileNotFoundException(L"'Couldn't open file'", source));
    case HostFileFailure::pathNotFound:
        LogAndThrow(PathNotFoundException(L"'Couldn't open path'", source));
    case HostFileFailure::accessDenied:
        LogAndThrow(NoPermissionException(L"'Access denied'", source));
    default:
        LogAndThrow(QRVException(L"'Unknown error loading the file'", source));
    }
}

uint64_t OpenHostFile(const std::wstring& hostFileName, vela::common::HostFileReader& file,
                      uint64_t maxSize) {
    const std::wstring source = kLoadSource;
    vela::common::Log::LogInfo(source);
    if (auto error = file.Open(hostFileName)) {
        ThrowHostOpenFailure(error, source);
    }
    uint64_t size = 0;
    if (!file.Size(size)) {
        vela::common::HostFileError error;
        error.failure = HostFileFailure::other;
        error.systemError = file.LastError();
        ThrowHostOpenFailure(error, source);
    }
    if (size > maxSize) {
        LogAndThrow(QRVException(L"'File too large'", source));
    }
    return size;
}

PathException IncompleteHostRead() {
    // A path kind for a read failure: callers catch it as such.
    return PathException(L"'Couldn't read entire file'", kLoadSource);
}

uint64_t LoadHostFile(const std::wstring& hostFileName, std::vector<uint8_t>& out, uint64_t maxSize) {
    vela::common::HostFileReader file;
    const uint64_t size =
        OpenHostFile(hostFileName, file, std::min<uint64_t>(maxSize, out.max_size() - out.size()));
    if (size == 0) {
        return 0;
    }
    const size_t start = out.size();
    out.resize(start + static_cast<size_t>(size));
    if (file.Read(out.data() + start, static_cast<size_t>(size)) != size) {
        out.resize(start);
        LogAndThrow(IncompleteHostRead());
    }
    return size;
}

void HostFileSaver::Write(const uint8_t* data, size_t count) {
    if (!m_file.Write(data, count)) {
        LogAndThrow(QRVException(L"'Couldn't write the file: " + Cause(m_file.LastError()) + L"'", m_source));
    }
}

void HostFileSaver::Commit() {
    if (!m_file.Commit()) {
        LogAndThrow(QRVException(L"'Couldn't save the file: " + Cause(m_file.LastError()) + L"'", m_source));
    }
}

void HostFileSaver::Commit(const std::function<void(const std::wstring& temporary)>& meanwhile) {
    if (!m_file.Commit(meanwhile)) {
        LogAndThrow(QRVException(L"'Couldn't save the file: " + Cause(m_file.LastError()) + L"'", m_source));
    }
}

} // namespace vela::kom
