#include "common/HostFile.h"

#include "common/HostFileSystem.h"
#include "common/StringConverter.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vela::common {

namespace {

// The folder part of a path ("." for a bare name, "/" for an entry of the root).
std::string FolderOf(const std::string& path) {
    size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? std::string("/") : path.substr(0, slash);
}

bool IsFolder(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// The classes of the Windows codes 2, 3 and 5, from errno. ENOENT alone does not say whether the
// file or a folder on the way is missing; the folder's existence does.
HostFileError Classify(int code, const std::string& path) {
    HostFileError error;
    error.systemError = static_cast<uint32_t>(code);
    switch (code) {
    case ENOENT:
        // An empty name names no folder at all.
        error.failure = !path.empty() && IsFolder(FolderOf(path)) ? HostFileFailure::fileNotFound
                                                                  : HostFileFailure::pathNotFound;
        break;
    case ENOTDIR:
        error.failure = HostFileFailure::pathNotFound;
        break;
    case EACCES:
    case EPERM:
    case EISDIR: // Windows refuses to open a folder as a file with "access denied"
        error.failure = HostFileFailure::accessDenied;
        break;
    default:
        error.failure = HostFileFailure::other;
        break;
    }
    return error;
}

HostFileError Failed(HostFileFailure failure, int code) {
    HostFileError error;
    error.failure = failure;
    error.systemError = static_cast<uint32_t>(code);
    return error;
}

bool HasNul(const std::wstring& path) {
    return path.find(L'\0') != std::wstring::npos;
}

int OpenRetrying(const char* path, int flags, mode_t mode = 0) {
    int fd;
    do {
        fd = ::open(path, flags, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

} // namespace

HostPath ToHostPath(const std::wstring& path) {
    return StringConverter::ToUtf8(path);
}

std::wstring FromHostPath(const HostPath& path) {
    return StringConverter::FromUtf8(path);
}

// ---- reading ------------------------------------------------------------------------------

HostFileError HostFileReader::Open(const std::wstring& path) {
    m_handle.Reset();
    if (HasNul(path)) {
        return Failed(HostFileFailure::other, EINVAL);
    }
    const std::string native = ToHostPath(path);
    // Non-blocking so that a FIFO without a writer cannot hang the caller; cleared below.
    int fd = OpenRetrying(native.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0) {
        return Classify(errno, native);
    }
    m_handle.Reset(fd);
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        int code = errno;
        m_handle.Reset();
        return Failed(HostFileFailure::other, code);
    }
    if (S_ISDIR(info.st_mode)) {
        m_handle.Reset();
        return Classify(EISDIR, native);
    }
    int flags = ::fcntl(fd, F_GETFL);
    if (flags >= 0) {
        (void)::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
    }
    (void)::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    return {};
}

bool HostFileReader::Size(uint64_t& size) {
    off_t end = ::lseek(m_handle.Get(), 0, SEEK_END);
    if (end < 0 || ::lseek(m_handle.Get(), 0, SEEK_SET) != 0) {
        m_lastError = static_cast<uint32_t>(errno);
        return false;
    }
    size = static_cast<uint64_t>(end);
    return true;
}

size_t HostFileReader::Read(uint8_t* buffer, size_t count) {
    size_t total = 0;
    while (total < count) {
        // One read call moves at most SSIZE_MAX bytes (and Linux caps it lower still).
        size_t piece = count - total < (size_t(1) << 30) ? count - total : (size_t(1) << 30);
        ssize_t got = ::read(m_handle.Get(), buffer + total, piece);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            m_lastError = static_cast<uint32_t>(errno);
            break;
        }
        if (got == 0) {
            break;
        }
        total += static_cast<size_t>(got);
    }
    return total;
}

// ---- the calls behind replacing -------------------------------------------------------------

namespace host_file {

HostFileError InvalidName() {
    return Failed(HostFileFailure::other, EINVAL);
}

HostFileError EmptyName() {
    return Classify(ENOENT, std::string());
}

uint32_t NotOpenError() {
    return EBADF;
}

HostFileError ProbeTarget(HostPath& target, bool& existing, uint32_t& mode) {
    existing = false;
    struct stat link {};
    if (::lstat(target.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
        if (char* resolved = ::realpath(target.c_str(), nullptr)) {
            target = resolved;
            std::free(resolved);
        }
    }
    int probe = OpenRetrying(target.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (probe < 0) {
        return errno == ENOENT ? HostFileError{} : Classify(errno, target);
    }
    struct stat info {};
    int statResult = ::fstat(probe, &info);
    int code = errno;
    ::close(probe);
    if (statResult != 0) {
        return Failed(HostFileFailure::other, code);
    }
    // A device or a pipe cannot be replaced by a regular file without harm; refuse it.
    if (!S_ISREG(info.st_mode)) {
        return Failed(HostFileFailure::other, EINVAL);
    }
    existing = true;
    mode = info.st_mode & 07777;
    return {};
}

HostPath TemporaryName(const HostPath& target) {
    static std::atomic<uint64_t> counter{0};
    const std::string folder = FolderOf(target);
    uint64_t tick = static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
    char name[64];
    std::snprintf(name, sizeof name, ".qrv-%ld-%llx-%llx.tmp", static_cast<long>(::getpid()),
                  static_cast<unsigned long long>(counter.fetch_add(1)),
                  static_cast<unsigned long long>(tick));
    return (folder == "/" ? folder : folder + "/") + name;
}

HostFileError CreateNew(const HostPath& path, bool keepMode, uint32_t mode, UniqueHandle& handle,
                        bool& collided) {
    int fd = OpenRetrying(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOCTTY, 0666);
    if (fd < 0) {
        collided = errno == EEXIST;
        return Classify(errno, path);
    }
    handle.Reset(fd);
    if (keepMode) {
        (void)::fchmod(fd, static_cast<mode_t>(mode)); // best effort
    }
    return {};
}

bool WriteAll(UniqueHandle& handle, const uint8_t* data, size_t count, uint64_t offset, uint32_t& error) {
    size_t total = 0;
    while (total < count) {
        size_t piece = count - total < (size_t(1) << 30) ? count - total : (size_t(1) << 30);
        ssize_t put = ::write(handle.Get(), data + total, piece);
        if (put < 0) {
            if (errno == EINTR) {
                continue;
            }
            error = static_cast<uint32_t>(errno);
            return false;
        }
        if (put == 0) {
            error = ENOSPC;
            return false;
        }
        total += static_cast<size_t>(put);
    }
    // Start writing these bytes to the disk now, without waiting: the flush at the commit then
    // finds little left to do instead of the whole file. Only advice; where the file system
    // cannot take it, the flush does all the work.
    (void)::sync_file_range(handle.Get(), static_cast<off64_t>(offset), static_cast<off64_t>(count),
                            SYNC_FILE_RANGE_WRITE);
    return true;
}

bool ReadableWhileWritten() {
    return true;
}

bool FlushAndClose(UniqueHandle& handle, uint32_t& error) {
    // A delayed write error (quota, full disk on a network file system) shows up at fsync or
    // close; either one fails the transfer.
    if (::fsync(handle.Get()) != 0 || !handle.Close()) {
        error = static_cast<uint32_t>(errno);
        return false;
    }
    return true;
}

bool RenameOver(const HostPath& from, const HostPath& to, uint32_t& error) {
    if (::rename(from.c_str(), to.c_str()) != 0) {
        error = static_cast<uint32_t>(errno);
        return false;
    }
    // Make the rename itself durable; the file is complete either way, so a failure is harmless.
    int folder = OpenRetrying(FolderOf(to).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) {
        (void)::fsync(folder);
        ::close(folder);
    }
    return true;
}

void Remove(const HostPath& path) noexcept {
    (void)::unlink(path.c_str());
}

} // namespace host_file

} // namespace vela::common
