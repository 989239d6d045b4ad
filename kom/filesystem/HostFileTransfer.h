#pragma once

#include "common/HostFile.h"
#include "kom/QRVException.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vela::kom {

// The host side of the file transfer with the library's exception kinds. Every failure is logged
// and thrown through LogAndThrow. Blocks on disk I/O; no lock of its own.

// Throws the kind that belongs to a failed host open:
//   file not found -> FileNotFoundException  "'Couldn't open file'"
//   path not found -> PathNotFoundException  "'Couldn't open path'"
//   access denied  -> NoPermissionException  "'Access denied'"
//   anything else  -> QRVException           "'Unknown error loading the file'"
// (the same texts for reading and writing, "loading" included).
[[noreturn]] void ThrowHostOpenFailure(const vela::common::HostFileError& error, const std::wstring& source);

// Opens a host file for reading and returns its size. Source "PrinterDevice::LoadFile()". Throws
// the open failures above, and QRVException "'File too large'" when the file is larger than
// `maxSize`.
uint64_t OpenHostFile(const std::wstring& hostFileName, vela::common::HostFileReader& file, uint64_t maxSize);

// The failure of a host file that yields fewer bytes than its size promised (it shrank, or the
// disk failed): PathException "'Couldn't read entire file'", not yet logged or thrown.
PathException IncompleteHostRead();

// Appends the whole host file to `out` and returns its size. Throws as OpenHostFile, and
// IncompleteHostRead() when fewer bytes arrive than the size promised.
uint64_t LoadHostFile(const std::wstring& hostFileName, std::vector<uint8_t>& out, uint64_t maxSize);

// Writes a host file that is complete or untouched (see HostFileReplacer). Open reports a failure
// without throwing (the caller may have reply bytes to drain first, then calls
// ThrowHostOpenFailure); Write and Commit throw QRVException naming the cause
// ("'Couldn't write the file: <system text>'" while writing, "'Couldn't save the file: <system
// text>'" when flushing, closing or renaming it into place fails).
// Destroyed without a Commit, it leaves the target as it was and no temporary file behind.
class HostFileSaver {
public:
    explicit HostFileSaver(std::wstring source) : m_source(std::move(source)) {}
    vela::common::HostFileError Open(const std::wstring& hostFileName) { return m_file.Open(hostFileName); }
    void Write(const uint8_t* data, size_t count);
    void Commit();
    // Commit(), with `meanwhile` run while the file is flushed (HostFileReplacer::Commit); what
    // `meanwhile` throws goes on unchanged, and the target is then left as it was.
    void Commit(const std::function<void(const std::wstring& temporary)>& meanwhile);

private:
    vela::common::HostFileReplacer m_file;
    std::wstring m_source;
};

} // namespace vela::kom
