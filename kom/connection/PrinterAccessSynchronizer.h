#pragma once

#include "common/NativeHandle.h"
#include "common/NotCopyable.h"
#include "kom/device/ConnectedPrinter.h"

#include <string>

namespace vela::kom {

// The machine-wide lock that keeps two programs (or two objects of one program) from talking
// to the same printer at once. Held from construction to destruction: one protocol transaction.
// Windows: the named event "Global\VELA.DeviceSync.<queue name>" (auto-reset, null DACL).
// Linux: an exclusive flock() on /run/lock/VELA.DeviceSync.<escaped queue name>; unlike the
// named event, a holder that dies releases it. Waiters also hold a shared flock() on
// VELA.DeviceWait.<escaped queue name>, so a holder that re-takes at once cannot starve them.
// The constructor blocks up to 10000 ms and throws PrinterBuzyException
// "Unable to acquire '<full name>' event" when the lock stays taken, Win32Error when the system
// refuses. Not re-entrant. The destructor never throws.
class PrinterAccessSynchronizer : vela::common::NotCopyable {
public:
    static constexpr uint32_t kWaitMs = 10000;

    explicit PrinterAccessSynchronizer(const ConnectedPrinter& printer);
    ~PrinterAccessSynchronizer();

    // The full name of the lock: the event name on Windows, the lock file's path on Linux.
    static std::wstring LockName(const std::wstring& printerName);

private:
    vela::common::NativeHandle m_handle = vela::common::InvalidNativeHandle();
};

} // namespace vela::kom
