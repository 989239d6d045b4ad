#include "kom/connection/PrinterAccessSynchronizer.h"

#include "common/Log.h"
#include "common/LogAndThrow.h"
#include "common/StringConverter.h"
#include "common/SystemError.h"
#include "kom/QRVException.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace vela::kom {

using vela::common::LastSystemError;
using vela::common::Log;
using vela::common::LogAndThrow;
using vela::common::StringConverter;
using vela::common::UniqueHandle;
using vela::common::Win32Error;

namespace {

const wchar_t* const kSource = L"PrinterAccessSynchronizer()";
constexpr std::chrono::milliseconds kPollInterval(2);

bool IsUsableFolder(const char* path) {
    return path != nullptr && path[0] == '/' && ::access(path, W_OK | X_OK) == 0;
}

// /run/lock is the machine-wide place every account can write to, so every process that can
// see it shares the lock. A system without it (a container, a hardened host) falls back to the
// user's runtime folder and then to the temporary folder; processes that land in different
// folders do not exclude each other, which is the best such a system allows.
std::string LockFolder() {
    if (IsUsableFolder("/run/lock")) {
        return "/run/lock";
    }
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (IsUsableFolder(runtime)) {
        return runtime;
    }
    const char* temp = std::getenv("TMPDIR");
    if (IsUsableFolder(temp)) {
        return temp;
    }
    return "/tmp";
}

// Queue names are chosen by users and may hold anything. The escaped form is one plain file
// name: '/', '%', control characters and DEL become %XX, so no name can leave the folder and two
// different names never share a file; everything else (spaces, non-ASCII) stays readable.
// A leading dot needs no escape: the name always follows the "VELA.DeviceSync." prefix.
std::string EscapeName(const std::wstring& printerName) {
    static const char kHex[] = "0123456789ABCDEF";
    const std::string utf8 = StringConverter::ToUtf8(printerName);
    std::string escaped;
    escaped.reserve(utf8.size());
    for (unsigned char c : utf8) {
        if (c == '/' || c == '%' || c < 0x20 || c == 0x7F) {
            escaped += '%';
            escaped += kHex[c >> 4];
            escaped += kHex[c & 0x0F];
        } else {
            escaped += static_cast<char>(c);
        }
    }
    return escaped;
}

// Opens the lock file, creating it for everybody when it is missing. O_CREAT is used only
// together with O_EXCL: the kernel refuses a plain O_CREAT open of someone else's file in a
// sticky world-writable folder (fs.protected_regular), which would lock other accounts out.
// O_NOFOLLOW: a symbolic link planted at the path is refused instead of followed.
// O_NONBLOCK: a FIFO planted at the path cannot stall the open.
int OpenLockFile(const std::string& path) {
    const int flags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    for (int attempt = 0; attempt < 100; ++attempt) {
        int fd = ::open(path.c_str(), flags);
        if (fd >= 0 || errno != ENOENT) {
            return fd;
        }
        fd = ::open(path.c_str(), flags | O_CREAT | O_EXCL, 0666);
        if (fd >= 0) {
            // The umask must not narrow it: every account shares this lock (like a null DACL).
            if (::fchmod(fd, 0666) != 0 && errno != EPERM) {
                const int error = errno;
                ::close(fd);
                errno = error;
                return -1;
            }
            return fd;
        }
        if (errno != EEXIST) {
            return -1;
        }
        // Another process created it between our two opens: open theirs.
    }
    errno = EAGAIN;
    return -1;
}

// Takes `operation` (LOCK_EX, LOCK_SH) without waiting; false when somebody else is in the way.
bool TryLock(int fd, int operation) {
    for (;;) {
        if (::flock(fd, operation | LOCK_NB) == 0) {
            return true;
        }
        if (errno == EWOULDBLOCK) {
            return false;
        }
        if (errno != EINTR) {
            LogAndThrow(Win32Error(LastSystemError(), kSource));
        }
    }
}

// Whether somebody holds a lock on the file (the waiting room: whether anybody waits); a
// brief exclusive lock answers it and is dropped at once.
bool IsOccupied(int fd) {
    if (!TryLock(fd, LOCK_EX)) {
        return true;
    }
    ::flock(fd, LOCK_UN);
    return false;
}

} // namespace

std::wstring PrinterAccessSynchronizer::LockName(const std::wstring& printerName) {
    return StringConverter::FromUtf8(LockFolder() + "/VELA.DeviceSync." + EscapeName(printerName));
}

PrinterAccessSynchronizer::PrinterAccessSynchronizer(const ConnectedPrinter& printer) {
    const std::wstring lockName = LockName(printer.printerName);
    const std::string lockPath = StringConverter::ToUtf8(lockName);
    UniqueHandle lock(OpenLockFile(lockPath));
    if (!lock.IsValid()) {
        LogAndThrow(Win32Error(LastSystemError(), kSource));
    }
    // The waiting room: everybody who waits for this printer holds a shared lock on a second
    // file. Whoever finds it occupied queues up instead of taking the free lock at once, so a
    // program that runs transactions back to back (releasing and re-taking within microseconds)
    // cannot starve the others; the named event of Windows hands the lock to a waiter the same
    // way. Its own prefix keeps it apart from every printer's lock file.
    const std::string roomPath =
        lockPath.substr(0, lockPath.rfind('/')) + "/VELA.DeviceWait." + EscapeName(printer.printerName);
    UniqueHandle room(OpenLockFile(roomPath));
    if (!room.IsValid()) {
        LogAndThrow(Win32Error(LastSystemError(), kSource));
    }

    // flock() belongs to the open file description: two objects of one process exclude each
    // other like two processes do, and the kernel drops the locks of a holder or waiter that
    // dies. A blocking flock() has no time limit, so waiters poll with LOCK_NB. The interval is
    // fixed (no growing back-off), so a waiter of long standing is as quick as a newcomer.
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(kWaitMs);
    bool queued = false;
    for (;;) {
        if (queued || !IsOccupied(room.Get())) {
            if (TryLock(lock.Get(), LOCK_EX)) {
                m_handle = lock.Release();
                return; // closing `room` now lets the next one in line see that we left the queue
            }
        }
        if (!queued) {
            // Briefly refused while another newcomer looks into the room: try again next round.
            queued = TryLock(room.Get(), LOCK_SH);
        }
        const auto now = Clock::now();
        if (now >= deadline) {
            break;
        }
        std::this_thread::sleep_for(std::min<Clock::duration>(kPollInterval, deadline - now));
    }
    lock.Close();
    room.Close();
    LogAndThrow(
        PrinterBuzyException(vela::common::Format(L"Unable to acquire '%s' event", lockName), kSource));
}

PrinterAccessSynchronizer::~PrinterAccessSynchronizer() {
    if (!vela::common::IsValidNativeHandle(m_handle)) {
        return;
    }
    // The texts name the Windows calls so that a log reads the same on both systems.
    if (::flock(m_handle, LOCK_UN) != 0) {
        Log::LogWarning(L"~PrinterAccessSynchronizer(): SetEvent() failed: %s",
                        Win32Error::Format(LastSystemError()));
    }
    if (!vela::common::CloseNativeHandle(m_handle)) {
        Log::LogWarning(L"~PrinterAccessSynchronizer(): CloseHandle() failed: %s",
                        Win32Error::Format(LastSystemError()));
    }
    m_handle = vela::common::InvalidNativeHandle();
}

} // namespace vela::kom
