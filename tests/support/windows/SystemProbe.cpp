#include "support/SystemProbe.h"

#include "kom/connection/PrinterAccessSynchronizer.h"

#include <windows.h>

#include <tlhelp32.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

namespace vela::test {

uint32_t CurrentProcessId() {
    return ::GetCurrentProcessId();
}

size_t ThreadCount() {
    HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (snapshot == INVALID_HANDLE_VALUE) {
        throw std::runtime_error("CreateToolhelp32Snapshot failed: error " +
                                 std::to_string(::GetLastError()));
    }
    const DWORD self = ::GetCurrentProcessId();
    size_t count = 0;
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = ::Thread32First(snapshot, &entry); more; more = ::Thread32Next(snapshot, &entry)) {
        count += entry.th32OwnerProcessID == self ? 1 : 0;
    }
    ::CloseHandle(snapshot);
    return count;
}

bool IsAccessLockHeld(const std::wstring& printerName) {
    // The lock is a named auto-reset event, signalled while free; unlike a mutex it belongs to no
    // thread, so a holder in this process shows too. A free lock is given back at once.
    const std::wstring name = vela::kom::PrinterAccessSynchronizer::LockName(printerName);
    HANDLE event = ::OpenEventW(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, name.c_str());
    if (event == nullptr) {
        return false; // the event goes with its last handle: nobody holds the lock or waits for it
    }
    const bool free = ::WaitForSingleObject(event, 0) == WAIT_OBJECT_0;
    if (free) {
        ::SetEvent(event);
    }
    ::CloseHandle(event);
    return !free;
}

} // namespace vela::test
