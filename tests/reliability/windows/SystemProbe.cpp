#include "reliability/SystemProbe.h"

#include "kom/connection/PrinterAccessSynchronizer.h"
#include "reliability/windows/RuntimeHandles.h"

#include <windows.h>

#include <tlhelp32.h>
#include <winternl.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

namespace vela::test {

namespace {

// The system's handle list (SystemExtendedHandleInformation): one entry per open handle of every
// process, with the owner's full process id.
constexpr ULONG kExtendedHandleInformation = 64;
constexpr NTSTATUS kLengthMismatch = static_cast<NTSTATUS>(0xC0000004L);

struct HandleEntry {
    PVOID object;
    ULONG_PTR processId;
    ULONG_PTR handle;
    ULONG grantedAccess;
    USHORT creatorBackTraceIndex;
    USHORT objectTypeIndex;
    ULONG attributes;
    ULONG reserved;
};

struct HandleList {
    ULONG_PTR count;
    ULONG_PTR reserved;
    HandleEntry entries[1];
};

} // namespace

uint32_t CurrentProcessId() {
    return ::GetCurrentProcessId();
}

size_t OpenDescriptorCount() {
    // Not GetProcessHandleCount: wine answers it with 0 whatever is open, which would make every
    // leak check pass. The system's handle list is right under wine and on Windows alike; the
    // runtime's own handles are left out (see RuntimeHandles.h).
    std::vector<unsigned char> buffer(256 * 1024);
    for (;;) {
        ULONG needed = 0;
        const NTSTATUS status =
            ::NtQuerySystemInformation(static_cast<SYSTEM_INFORMATION_CLASS>(kExtendedHandleInformation),
                                       buffer.data(), static_cast<ULONG>(buffer.size()), &needed);
        if (status == kLengthMismatch) {
            // Handles come and go between the calls: a margin on top of what was asked for.
            buffer.resize(std::max<size_t>(buffer.size() * 2, needed + 64 * 1024));
            continue;
        }
        if (status < 0) {
            // A count of 0 would pass every leak check: better no test than a blind one.
            throw std::runtime_error("NtQuerySystemInformation failed: status " + std::to_string(status));
        }
        break;
    }
    const auto* list = reinterpret_cast<const HandleList*>(buffer.data());
    const ULONG_PTR self = ::GetCurrentProcessId();
    size_t count = 0;
    for (ULONG_PTR i = 0; i < list->count; ++i) {
        if (list->entries[i].processId == self &&
            !IsRuntimeHandle(reinterpret_cast<HANDLE>(list->entries[i].handle))) {
            ++count;
        }
    }
    return count;
}

size_t ThreadCount() {
    // The snapshot lists the threads of every process; its handle is closed before the count is
    // returned, so it never shows in OpenDescriptorCount.
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
    // The lock is a named auto-reset event, signalled while free. An event belongs to no thread
    // (unlike a mutex, which its owner may take again), so a holder in this very process shows
    // like any other: a wait that does not wait succeeds only on a free lock, and the lock is
    // given back at once.
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
