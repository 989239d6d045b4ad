#pragma once

#include "common/NativeHandle.h"
#include "common/NotCopyable.h"
#include "kom/device/ConnectedPrinter.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace vela::kom {

// What is known about a lock wait that has gone on for a while.
struct LockWaitInfo {
    std::wstring lockName;        // the full name of the printer's lock (LockName)
    uint32_t holderProcessId = 0; // the process that holds it; 0 when it cannot be told
    std::wstring holderProgram;   // that process's program name; empty when it cannot be told
    uint32_t waitedMs = 0;        // how long this wait has lasted so far
};
using LockWaitNotice = std::function<void(const LockWaitInfo&)>;

// The machine-wide lock that keeps two programs (or two objects of one program) from talking
// to the same printer at once. Held from construction to destruction: one protocol transaction.
// Windows: the named event "Global\VELA.DeviceSync.<queue name>" (auto-reset, null DACL).
// Linux: an exclusive flock() on /run/lock/VELA.DeviceSync.<escaped queue name>; unlike the
// named event, a holder that dies releases it. Waiters also hold a shared flock() on
// VELA.DeviceWait.<escaped queue name>, so a holder that re-takes at once cannot starve them.
// Before the named lock, Linux takes a second lock keyed by the identity of the device the
// printer's channel leads to (VELA.Device.<identity>), so that two names of one device (a queue
// and an alias of the same node) exclude each other too. Linux keeps released lock files open
// for the process's next transaction (CloseIdleFiles).
// The constructor blocks up to 10000 ms and throws PrinterBuzyException
// "Unable to acquire '<full name>' event" when the lock stays taken, Win32Error when the system
// refuses. Not re-entrant. The destructor never throws.
class PrinterAccessSynchronizer : vela::common::NotCopyable {
public:
    static constexpr uint32_t kWaitMs = 10000;
    // A wait that lasts this long is told to the calling thread's notice (SetWaitNotice).
    static constexpr uint32_t kNoticeAfterMs = 1000;

    explicit PrinterAccessSynchronizer(const ConnectedPrinter& printer);
    ~PrinterAccessSynchronizer();

    // The full name of the lock: the event name on Windows, the lock file's path on Linux.
    static std::wstring LockName(const std::wstring& printerName);

    // The notice for this thread's later waits: called once per wait, on this thread, when it
    // passes kNoticeAfterMs, with what is known about the holder (Linux: from /proc/locks; never
    // on Windows, whose named events have no owner). The caller keeps the notice alive; an
    // expired one is not called. A notice that throws has its failure logged and ignored.
    static void SetWaitNotice(std::weak_ptr<const LockWaitNotice> notice);

    // Linux: closes the lock files that released locks left open for later transactions (at
    // most a few per printer; each holder still opens a file of its own, so they hold no lock).
    // For programs that count their open descriptors. Any thread. Nothing on Windows.
    static void CloseIdleFiles();

private:
    // Calls this thread's notice, if it has one that is still alive.
    static void NotifyWait(const LockWaitInfo& info);

    vela::common::NativeHandle m_handle = vela::common::InvalidNativeHandle();
    vela::common::NativeHandle m_deviceHandle = vela::common::InvalidNativeHandle();
    // Linux: the paths of the two files, to hand them back to the idle files on release.
    std::string m_lockFile;
    std::string m_deviceLockFile;
};

} // namespace vela::kom
