#pragma once

#include <windows.h>

namespace vela::test {

// Handles that the mingw threads library (a mutex's event, a condition variable's semaphores) and
// the test framework (a thread's per-thread state) open on first use and keep as long as their
// object lives: they appear between two counts at random moments without anything having leaked.
// Only those two call CreateEventA, CreateSemaphoreA and OpenThread here, so wrappers of these
// calls remember the handles until CloseHandle closes them.
bool IsRuntimeHandle(HANDLE handle);

} // namespace vela::test
