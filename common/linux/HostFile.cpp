#include "common/HostFile.h"

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

// A name that no other writer in this or another process picks at the same moment; creation
// with O_EXCL settles the rare collision.
std::string TemporaryName(const std::string& folder) {
    static std::atomic<uint64_t> counter{0};
    uint64_t tick = static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
    char name[64];
    std::snprintf(name, sizeof name, ".qrv-%ld-%llx-%llx.tmp", static_cast<long>(::getpid()),
                  static_cast<unsigned long long>(counter.fetch_add(1)),
                  static_cast<unsigned long long>(tick));
    return (folder == "/" ? folder : folder + "/") + name;
}

} // namespace

HostPath ToHostPath(const std::wstring& path) {
    return StringConverter::ToUtf8(path);
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

// ---- replacing ----------------------------------------------------------------------------

HostFileReplacer::~HostFileReplacer() {
    Discard();
}

void HostFileReplacer::Discard() noexcept {
    m_handle.Reset();
    if (!m_committed && !m_temporary.empty()) {
        (void)::unlink(m_temporary.c_str());
    }
    m_temporary.clear();
}

HostFileError HostFileReplacer::Open(const std::wstring& target) {
    Discard();
    m_committed = false;
    if (HasNul(target)) {
        return Failed(HostFileFailure::other, EINVAL);
    }
    if (target.empty()) {
        return Classify(ENOENT, std::string());
    }
    m_target = ToHostPath(target);

    // Writing into a file through a symbolic link changes the file it points to; renaming over
    // the link would replace the link instead. Work beside the file itself.
    struct stat link {};
    if (::lstat(m_target.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
        if (char* resolved = ::realpath(m_target.c_str(), nullptr)) {
            m_target = resolved;
            std::free(resolved);
        }
    }

    // An existing target must accept writing, exactly as if it were opened and truncated here.
    bool exists = false;
    mode_t mode = 0;
    int probe = OpenRetrying(m_target.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (probe >= 0) {
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
        exists = true;
        mode = info.st_mode & 07777;
    } else if (errno != ENOENT) {
        return Classify(errno, m_target);
    }

    const std::string folder = FolderOf(m_target);
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::string candidate = TemporaryName(folder);
        int fd = OpenRetrying(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOCTTY, 0666);
        if (fd >= 0) {
            m_handle.Reset(fd);
            m_temporary = candidate;
            if (exists) {
                // The replacement keeps the permissions the old file had (best effort).
                (void)::fchmod(fd, mode);
            }
            return {};
        }
        if (errno != EEXIST) {
            return Classify(errno, m_target);
        }
    }
    return Failed(HostFileFailure::other, EEXIST);
}

bool HostFileReplacer::Write(const uint8_t* data, size_t count) {
    size_t total = 0;
    while (total < count) {
        size_t piece = count - total < (size_t(1) << 30) ? count - total : (size_t(1) << 30);
        ssize_t put = ::write(m_handle.Get(), data + total, piece);
        if (put < 0) {
            if (errno == EINTR) {
                continue;
            }
            m_lastError = static_cast<uint32_t>(errno);
            return false;
        }
        if (put == 0) {
            m_lastError = ENOSPC;
            return false;
        }
        total += static_cast<size_t>(put);
    }
    // Start writing these bytes to the disk now, without waiting: the flush at Commit then finds
    // little left to do instead of the whole file. Only advice; where the file system cannot
    // take it, Commit's flush does all the work as before.
    (void)::sync_file_range(m_handle.Get(), static_cast<off64_t>(m_written), static_cast<off64_t>(count),
                            SYNC_FILE_RANGE_WRITE);
    m_written += count;
    return true;
}

bool HostFileReplacer::Commit() {
    if (!m_handle.IsValid()) {
        m_lastError = EBADF;
        return false;
    }
    // A delayed write error (quota, full disk on a network file system) shows up at fsync or
    // close; either one fails the transfer.
    if (::fsync(m_handle.Get()) != 0 || !m_handle.Close()) {
        m_lastError = static_cast<uint32_t>(errno);
        return false;
    }
    if (::rename(m_temporary.c_str(), m_target.c_str()) != 0) {
        m_lastError = static_cast<uint32_t>(errno);
        return false;
    }
    m_committed = true;
    // Make the rename itself durable; the file is complete either way, so a failure is harmless.
    int folder = OpenRetrying(FolderOf(m_target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) {
        (void)::fsync(folder);
        ::close(folder);
    }
    m_temporary.clear();
    return true;
}

} // namespace vela::common
