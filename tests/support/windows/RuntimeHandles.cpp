#include "support/windows/RuntimeHandles.h"

#include <set>
#include <stdexcept>

// The executable's import slots, which every call from this program goes through.
extern "C" {
extern decltype(&::CreateEventA) __imp_CreateEventA;
extern decltype(&::CreateSemaphoreA) __imp_CreateSemaphoreA;
extern decltype(&::OpenThread) __imp_OpenThread;
extern decltype(&::CloseHandle) __imp_CloseHandle;
}

namespace vela::test {

namespace {

decltype(&::CreateEventA) g_createEventA = nullptr;
decltype(&::CreateSemaphoreA) g_createSemaphoreA = nullptr;
decltype(&::OpenThread) g_openThread = nullptr;
decltype(&::CloseHandle) g_closeHandle = nullptr;
// Not a std::mutex: the wrapper runs inside the threads library's own mutex code.
SRWLOCK g_lock = SRWLOCK_INIT;
// Never freed: threads may still close handles while the process exits.
std::set<HANDLE>* const g_runtimeHandles = new std::set<HANDLE>();

HANDLE Remember(HANDLE handle) {
    if (handle != nullptr) {
        ::AcquireSRWLockExclusive(&g_lock);
        g_runtimeHandles->insert(handle);
        ::ReleaseSRWLockExclusive(&g_lock);
    }
    return handle;
}

HANDLE WINAPI RecordingCreateEventA(LPSECURITY_ATTRIBUTES attributes, BOOL manualReset, BOOL initialState,
                                    LPCSTR name) {
    return Remember(g_createEventA(attributes, manualReset, initialState, name));
}

HANDLE WINAPI RecordingCreateSemaphoreA(LPSECURITY_ATTRIBUTES attributes, LONG initialCount,
                                        LONG maximumCount, LPCSTR name) {
    return Remember(g_createSemaphoreA(attributes, initialCount, maximumCount, name));
}

HANDLE WINAPI RecordingOpenThread(DWORD access, BOOL inherit, DWORD threadId) {
    return Remember(g_openThread(access, inherit, threadId));
}

BOOL WINAPI ForgettingCloseHandle(HANDLE handle) {
    // Forgotten before it is closed: once closed, the value may come back for another object.
    ::AcquireSRWLockExclusive(&g_lock);
    g_runtimeHandles->erase(handle);
    ::ReleaseSRWLockExclusive(&g_lock);
    return g_closeHandle(handle);
}

template <class F> void Reroute(F& slot, F replacement, F& original) {
    DWORD protection = 0;
    if (::VirtualProtect(&slot, sizeof slot, PAGE_READWRITE, &protection)) {
        original = slot;
        slot = replacement;
        ::VirtualProtect(&slot, sizeof slot, protection, &protection);
    }
}

// Before main, while the program has a single thread.
const bool g_installed = [] {
    Reroute(__imp_CloseHandle, &ForgettingCloseHandle, g_closeHandle);
    Reroute(__imp_CreateEventA, &RecordingCreateEventA, g_createEventA);
    Reroute(__imp_CreateSemaphoreA, &RecordingCreateSemaphoreA, g_createSemaphoreA);
    Reroute(__imp_OpenThread, &RecordingOpenThread, g_openThread);
    return true;
}();

} // namespace

bool IsRuntimeHandle(HANDLE handle) {
    if (!g_installed || g_createEventA == nullptr || g_createSemaphoreA == nullptr ||
        g_openThread == nullptr) {
        throw std::runtime_error("the runtime's handles cannot be told apart: the calls were not rerouted");
    }
    ::AcquireSRWLockShared(&g_lock);
    const bool found = g_runtimeHandles->count(handle) != 0;
    ::ReleaseSRWLockShared(&g_lock);
    return found;
}

} // namespace vela::test
