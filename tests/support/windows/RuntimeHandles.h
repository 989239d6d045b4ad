#pragma once

#include <windows.h>

namespace vela::test {

// Handles the mingw threads library and the test framework open on first use and keep (they show
// up between two counts without a leak). Only they call CreateEventA, CreateSemaphoreA and
// OpenThread here, so wrappers of these calls remember the handles until CloseHandle.
bool IsRuntimeHandle(HANDLE handle);

} // namespace vela::test
