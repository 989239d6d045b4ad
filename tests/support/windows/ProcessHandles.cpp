#include "support/ProcessHandles.h"

#include "support/windows/RuntimeHandles.h"

#include <windows.h>

#include <winternl.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

namespace vela::test {

namespace {

// SystemExtendedHandleInformation: every open handle of every process, with its owner's id.
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

size_t OpenHandleCount() {
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

} // namespace vela::test
