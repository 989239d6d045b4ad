#pragma once

#include "common/NativeHandle.h"
#include "common/NotCopyable.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace vela::common {

// Host-side file access for the printer file transfer: reading a file that goes to the printer,
// and writing a file that comes from it so that the target is either complete or untouched.
// Failures are returned, not thrown: the protocol layer turns them into its own exception kinds.
// Blocks on disk I/O. Not thread-safe; one object serves one file on one thread.

// Why a host file could not be opened, in the classes the protocol reports. Windows gives these
// as system errors 2, 3 and 5; on Linux a missing file is told from a missing folder by whether
// the folder exists, and permission errors (and a folder where a file is expected, which Windows
// refuses as access denied) are "access denied".
enum class HostFileFailure { none, fileNotFound, pathNotFound, accessDenied, other };

struct HostFileError {
    HostFileFailure failure = HostFileFailure::none;
    uint32_t systemError = 0; // GetLastError() / errno of the failed call
    explicit operator bool() const { return failure != HostFileFailure::none; }
};

// A path in the form the system calls take: UTF-16 on Windows, UTF-8 bytes on Linux.
#ifdef _WIN32
using HostPath = std::wstring;
#else
using HostPath = std::string;
#endif
HostPath ToHostPath(const std::wstring& path);
std::wstring FromHostPath(const HostPath& path);

// Sequential reading of an existing host file.
class HostFileReader : NotCopyable {
public:
    HostFileReader() = default;

    HostFileError Open(const std::wstring& path);
    // The file's size in bytes; false (LastError() set) when the system cannot tell it.
    bool Size(uint64_t& size);
    // Reads up to `count` bytes, repeating short reads; fewer come back only at the end of the
    // file or after a failure (then LastError() is non-zero).
    size_t Read(uint8_t* buffer, size_t count);
    uint32_t LastError() const { return m_lastError; }

private:
    UniqueHandle m_handle;
    uint32_t m_lastError = 0;
};

// Replaces a host file as a whole: the bytes go to a temporary file in the target's folder, and
// Commit() flushes it to the disk and renames it over the target. Until then the target keeps its
// old contents (or stays absent); a writer destroyed without a successful Commit() removes its
// temporary file, so a failed transfer leaves nothing behind.
class HostFileReplacer : NotCopyable {
public:
    HostFileReplacer() = default;
    ~HostFileReplacer();

    // Checks that the target could be opened for writing (an existing target that refuses writing
    // fails here, as it would when opened directly) and creates the temporary file.
    HostFileError Open(const std::wstring& target);
    // False on a write failure (disk full, I/O error): LastError() tells the cause.
    bool Write(const uint8_t* data, size_t count);
    // Flushes, closes and renames the temporary file over the target. False on failure
    // (LastError() set); the temporary file is then removed by the destructor.
    bool Commit();
    // Commit(), running `meanwhile` on the calling thread while another thread flushes the file:
    // a flush mostly waits for the disk, so work that only reads the written bytes (a get's
    // digest) then costs no time of its own. `meanwhile` gets the temporary file's path, which
    // stays in place until it returns. When it throws, the flush is waited for, nothing is
    // renamed and the exception goes on. Without a thread to flush on, it runs before the flush;
    // where the file cannot be read while it is open for writing (Windows), after it.
    bool Commit(const std::function<void(const std::wstring& temporary)>& meanwhile);
    uint32_t LastError() const { return m_lastError; }
    const HostPath& TemporaryPath() const { return m_temporary; }

private:
    void Discard() noexcept;
    bool RenameIntoPlace();

    UniqueHandle m_handle;
    HostPath m_target;
    HostPath m_temporary;
    bool m_committed = false;
    uint64_t m_written = 0; // bytes written so far (Linux: where the next write-back starts)
    uint32_t m_lastError = 0;
};

} // namespace vela::common
