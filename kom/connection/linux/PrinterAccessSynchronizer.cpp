#include "kom/connection/PrinterAccessSynchronizer.h"

#include "common/Log.h"
#include "common/LogAndThrow.h"
#include "common/StringConverter.h"
#include "common/SystemError.h"
#include "kom/QRVException.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <mutex>
#include <new>
#include <pthread.h>
#include <sstream>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace vela::kom {

using vela::common::LastSystemError;
using vela::common::Log;
using vela::common::LogAndThrow;
using vela::common::StringConverter;
using vela::common::UniqueHandle;
using vela::common::Win32Error;

namespace {

const wchar_t* const kSource = L"PrinterAccessSynchronizer()";
// A failed system call names the call, as the lines of the destructor do.
const wchar_t* const kOpenSource = L"PrinterAccessSynchronizer(): open()";
const wchar_t* const kFlockSource = L"PrinterAccessSynchronizer(): flock()";
constexpr std::chrono::milliseconds kPollInterval(2);

bool IsUsableFolder(const char* path) {
    return path != nullptr && path[0] == '/' && ::access(path, W_OK | X_OK) == 0;
}

// /run/lock is the machine-wide place every account can write to, so every process that can
// see it shares the lock. A system without it (a container, a hardened host) falls back to the
// user's runtime folder and then to the temporary folder; processes that land in different
// folders do not exclude each other, which is the best such a system allows.
std::string LockFolder() {
    // Asked once per process while the answer is yes: it is the usual answer, and a machine
    // does not take /run/lock away from a running program.
    static std::atomic<bool> s_runLock{false};
    if (s_runLock.load(std::memory_order_relaxed) || IsUsableFolder("/run/lock")) {
        s_runLock.store(true, std::memory_order_relaxed);
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

// Lock files that this process opened and does not use just now, by path. A transaction takes
// two locks, each with its waiting room: opening four files (path walks, new open files) costs
// more than all their flock() calls, so a released file waits here for the next transaction.
// Each holder and waiter still has an open file of its own (flock() belongs to the open file),
// so two objects of one process exclude each other as two processes do. A file whose path was
// removed meanwhile is closed instead of taken. A child process closes the files it inherited:
// they are its parent's open files, and a lock taken on one would be the parent's lock too.
class IdleLockFiles {
public:
    // Never destroyed: a lock released during the program's exit still finds it.
    static IdleLockFiles& Instance() {
        alignas(IdleLockFiles) static unsigned char storage[sizeof(IdleLockFiles)];
        static IdleLockFiles* const instance = [] {
            IdleLockFiles* files = new (storage) IdleLockFiles;
            ::pthread_atfork([] { Instance().m_mutex.lock(); }, [] { Instance().m_mutex.unlock(); },
                             [] {
                                 IdleLockFiles& files = Instance();
                                 files.m_mutex.unlock();
                                 files.CloseAll();
                             });
            return files;
        }();
        return *instance;
    }

    // An idle file of `path` whose path still leads to it; an invalid handle when there is none.
    UniqueHandle Take(const std::string& path) {
        for (;;) {
            UniqueHandle file;
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                for (auto it = m_files.rbegin(); it != m_files.rend(); ++it) {
                    if (it->first == path) {
                        file = std::move(it->second);
                        m_files.erase(std::next(it).base());
                        break;
                    }
                }
            }
            if (!file.IsValid()) {
                return file;
            }
            struct stat info {};
            if (::fstat(file.Get(), &info) == 0 && info.st_nlink > 0) {
                return file;
            }
        }
    }

    // Keeps an unlocked file for the next transaction; the oldest goes when there are too many.
    void Give(const std::string& path, UniqueHandle file) {
        std::lock_guard<std::mutex> lock(m_mutex);
        size_t samePath = 0;
        for (const auto& entry : m_files) {
            samePath += entry.first == path ? 1 : 0;
        }
        if (samePath >= kPerPath) {
            return; // closes it
        }
        if (m_files.size() >= kTotal) {
            m_files.erase(m_files.begin());
        }
        m_files.emplace_back(path, std::move(file));
    }

    void CloseAll() {
        std::vector<std::pair<std::string, UniqueHandle>> files;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            files.swap(m_files);
        }
    }

private:
    // Two objects of one process rarely wait for one printer at once; a program rarely uses
    // many printers.
    static constexpr size_t kPerPath = 2;
    static constexpr size_t kTotal = 16;

    std::mutex m_mutex;
    std::vector<std::pair<std::string, UniqueHandle>> m_files;
};

// An idle lock file of `path`, else one opened now.
UniqueHandle TakeLockFile(const std::string& path) {
    UniqueHandle file = IdleLockFiles::Instance().Take(path);
    if (!file.IsValid()) {
        file.Reset(OpenLockFile(path));
        if (!file.IsValid()) {
            LogAndThrow(Win32Error(LastSystemError(), kOpenSource));
        }
    }
    return file;
}

// Unlocks `file` and keeps it for a later transaction; a file that will not unlock is closed.
void ReleaseLockFile(const std::string& path, UniqueHandle file) {
    if (::flock(file.Get(), LOCK_UN) == 0) {
        IdleLockFiles::Instance().Give(path, std::move(file));
    }
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
            LogAndThrow(Win32Error(LastSystemError(), kFlockSource));
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

using Clock = std::chrono::steady_clock;

// The identity of the device a channel path leads to, as a file-name part: "c<major>-<minor>" for
// a character device (usblp, a pseudo-terminal), "f<device>-<inode>" for anything else. Symbolic
// links are followed, so every path of one device gives the same text. Empty when the path
// cannot be read (the channel's own open reports that).
std::string DeviceIdentity(const std::wstring& devicePath) {
    struct stat info {};
    if (devicePath.empty() || ::stat(StringConverter::ToUtf8(devicePath).c_str(), &info) != 0) {
        return std::string();
    }
    char text[64];
    if (S_ISCHR(info.st_mode)) {
        std::snprintf(text, sizeof text, "c%u-%u", major(info.st_rdev), minor(info.st_rdev));
    } else {
        std::snprintf(text, sizeof text, "f%llu-%llu", static_cast<unsigned long long>(info.st_dev),
                      static_cast<unsigned long long>(info.st_ino));
    }
    return text;
}

// The process that holds an exclusive flock() on the open file `fd` refers to, from /proc/locks
// ("1: FLOCK  ADVISORY  WRITE 4711 00:1a:12345 0 EOF"; waiters' lines carry "->"); 0 when none
// is listed.
uint32_t LockHolder(int fd) {
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        return 0;
    }
    char file[64];
    std::snprintf(file, sizeof file, "%02x:%02x:%llu", major(info.st_dev), minor(info.st_dev),
                  static_cast<unsigned long long>(info.st_ino));
    std::ifstream locks("/proc/locks");
    std::string line;
    while (std::getline(locks, line)) {
        std::istringstream fields(line);
        std::string number, kind, mode, access, pid, where;
        fields >> number >> kind;
        if (kind == "->") {
            continue;
        }
        fields >> mode >> access >> pid >> where;
        if (kind == "FLOCK" && access == "WRITE" && where == file) {
            return static_cast<uint32_t>(std::strtoul(pid.c_str(), nullptr, 10));
        }
    }
    return 0;
}

std::wstring ProgramName(uint32_t pid) {
    std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(comm, name);
    return StringConverter::FromUtf8(name);
}

// One wait for a printer: its deadline, and whether its notice has been given.
struct Wait {
    std::wstring lockName;
    Clock::time_point start = Clock::now();
    Clock::time_point deadline = start + std::chrono::milliseconds(PrinterAccessSynchronizer::kWaitMs);
    bool noticed = false;
};

} // namespace

// The constructor builds the same path itself.
std::wstring PrinterAccessSynchronizer::LockName(const std::wstring& printerName) {
    return StringConverter::FromUtf8(LockFolder() + "/VELA.DeviceSync." + EscapeName(printerName));
}

namespace {

// Takes the exclusive lock on `lockPath` within the wait's deadline, queueing in `roomPath`;
// returns its descriptor, or an invalid handle when the deadline passed.
//
// The waiting room: everybody who waits for the lock holds a shared lock on a second file.
// Whoever finds it occupied queues up instead of taking the free lock at once, so a program that
// runs transactions back to back (releasing and re-taking within microseconds) cannot starve the
// others; the named event of Windows hands the lock to a waiter the same way.
// flock() belongs to the open file description: two objects of one process exclude each other
// like two processes do, and the kernel drops the locks of a holder or waiter that dies. A
// blocking flock() has no time limit, so waiters poll with LOCK_NB. The interval is fixed (no
// growing back-off), so a waiter of long standing is as quick as a newcomer.
UniqueHandle Acquire(const std::string& lockPath, const std::string& roomPath, Wait& wait,
                     const std::function<void(const LockWaitInfo&)>& notify) {
    UniqueHandle lock = TakeLockFile(lockPath);
    UniqueHandle room = TakeLockFile(roomPath);
    bool queued = false;
    for (;;) {
        if (queued || !IsOccupied(room.Get())) {
            if (TryLock(lock.Get(), LOCK_EX)) {
                if (queued) {
                    // Leaving the room lets the next one in line see that we left the queue.
                    ReleaseLockFile(roomPath, std::move(room));
                } else {
                    IdleLockFiles::Instance().Give(roomPath, std::move(room));
                }
                return lock;
            }
        }
        if (!queued) {
            // Briefly refused while another newcomer looks into the room: try again next round.
            queued = TryLock(room.Get(), LOCK_SH);
        }
        const auto now = Clock::now();
        if (now >= wait.deadline) {
            ReleaseLockFile(roomPath, std::move(room));
            ReleaseLockFile(lockPath, std::move(lock));
            return UniqueHandle();
        }
        if (!wait.noticed &&
            now - wait.start >= std::chrono::milliseconds(PrinterAccessSynchronizer::kNoticeAfterMs)) {
            wait.noticed = true;
            LockWaitInfo info;
            info.lockName = wait.lockName;
            info.holderProcessId = LockHolder(lock.Get());
            info.holderProgram =
                info.holderProcessId != 0 ? ProgramName(info.holderProcessId) : std::wstring();
            info.waitedMs = static_cast<uint32_t>(
                std::chrono::duration_cast<std::chrono::milliseconds>(now - wait.start).count());
            notify(info);
        }
        std::this_thread::sleep_for(std::min<Clock::duration>(kPollInterval, wait.deadline - now));
    }
}

} // namespace

PrinterAccessSynchronizer::PrinterAccessSynchronizer(const ConnectedPrinter& printer) {
    // LockName's path, built here once: the name's escaped form also names the waiting room.
    const std::string folder = LockFolder();
    const std::string escaped = EscapeName(printer.printerName);
    const std::string lockPath = folder + "/VELA.DeviceSync." + escaped;
    Wait wait;
    wait.lockName = StringConverter::FromUtf8(lockPath);
    const auto notify = [](const LockWaitInfo& info) { NotifyWait(info); };

    // The device's own lock first, then the named one: every program takes them in this order,
    // so two names of one device queue on the first and never hold one each.
    UniqueHandle device;
    std::string deviceLockFile;
    const std::string identity = DeviceIdentity(printer.devicePath);
    if (!identity.empty()) {
        deviceLockFile = folder + "/VELA.Device." + identity;
        device = Acquire(deviceLockFile, deviceLockFile + ".waiting", wait, notify);
    }
    // Its own prefix keeps the named lock's waiting room apart from every printer's lock file.
    UniqueHandle named;
    if (identity.empty() || device.IsValid()) {
        named = Acquire(lockPath, folder + "/VELA.DeviceWait." + escaped, wait, notify);
    }
    if (!named.IsValid()) {
        if (device.IsValid()) {
            ReleaseLockFile(deviceLockFile, std::move(device));
        }
        LogAndThrow(PrinterBuzyException(vela::common::Format(L"Unable to acquire '%s' event", wait.lockName),
                                         kSource));
    }
    m_deviceHandle = device.Release();
    m_handle = named.Release();
    m_deviceLockFile = std::move(deviceLockFile);
    m_lockFile = lockPath;
}

PrinterAccessSynchronizer::~PrinterAccessSynchronizer() {
    // The named lock goes first, in the reverse order of taking.
    const std::pair<vela::common::NativeHandle*, const std::string*> held[] = {
        {&m_handle, &m_lockFile}, {&m_deviceHandle, &m_deviceLockFile}};
    for (const auto& [handle, path] : held) {
        if (!vela::common::IsValidNativeHandle(*handle)) {
            continue;
        }
        UniqueHandle file(*handle);
        *handle = vela::common::InvalidNativeHandle();
        if (::flock(file.Get(), LOCK_UN) != 0) {
            Log::LogWarning(L"~PrinterAccessSynchronizer(): flock() failed: %s",
                            Win32Error::Format(LastSystemError()));
            if (!file.Close()) {
                Log::LogWarning(L"~PrinterAccessSynchronizer(): close() failed: %s",
                                Win32Error::Format(LastSystemError()));
            }
            continue;
        }
        try {
            IdleLockFiles::Instance().Give(*path, std::move(file));
        } catch (...) {
            // No memory to keep it: it is closed instead, which is all a release needs.
        }
    }
}

void PrinterAccessSynchronizer::CloseIdleFiles() {
    IdleLockFiles::Instance().CloseAll();
}

} // namespace vela::kom
