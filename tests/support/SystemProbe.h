#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vela::test {

uint32_t CurrentProcessId();
size_t ThreadCount(); // of this process

// Whether anybody, this process included, holds the printer's access lock. Never waits.
bool IsAccessLockHeld(const std::wstring& printerName);

} // namespace vela::test
