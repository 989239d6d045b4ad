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
using vela::common::SystemErrorText;
using vela::common::Win32Error;

namespace {

const wchar_t* const kSource = L"PrinterAccessSynchronizer()";

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

} // namespace

std::wstring PrinterAccessSynchronizer::LockName(const std::wstring& printerName) {
    return StringConverter::FromUtf8(LockFolder() + "/VELA.DeviceSync." + EscapeName(printerName));
}

PrinterAccessSynchronizer::PrinterAccessSynchronizer(const ConnectedPrinter& printer) {
    const std::wstring lockName = LockName(printer.printerName);
    vela::common::UniqueHandle file(OpenLockFile(StringConverter::ToUtf8(lockName)));
    if (!file.IsValid()) {
        LogAndThrow(Win32Error(LastSystemError(), kSource));
    }

    // flock() belongs to the open file description: two objects of one process exclude each
    // other like two processes do, and the kernel drops the lock when its holder dies. A blocking
    // flock() has no time limit, so poll with LOCK_NB and a short, growing back-off.
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(kWaitMs);
    auto backOff = std::chrono::milliseconds(1);
    for (;;) {
        if (::flock(file.Get(), LOCK_EX | LOCK_NB) == 0) {
            m_handle = file.Release();
            return;
        }
        if (errno == EINTR) {
            continue;
        }
        if (errno != EWOULDBLOCK) {
            LogAndThrow(Win32Error(LastSystemError(), kSource));
        }
        const auto now = Clock::now();
        if (now >= deadline) {
            break;
        }
        std::this_thread::sleep_for(std::min<Clock::duration>(backOff, deadline - now));
        backOff = std::min(backOff * 2, std::chrono::milliseconds(20));
    }
    file.Close();
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
                        SystemErrorText(LastSystemError()));
    }
    if (!vela::common::CloseNativeHandle(m_handle)) {
        Log::LogWarning(L"~PrinterAccessSynchronizer(): CloseHandle() failed: %s",
                        SystemErrorText(LastSystemError()));
    }
    m_handle = vela::common::InvalidNativeHandle();
}

} // namespace vela::kom
