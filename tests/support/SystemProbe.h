#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vela::test {

// What the fault tests look up in the operating system, one body per system (linux/, windows/).

uint32_t CurrentProcessId();

// Threads of this process.
size_t ThreadCount();

// Whether anybody, this process included, holds the access lock of the printer with this queue
// name right now. Never waits; may take the free lock for a moment and give it back.
bool IsAccessLockHeld(const std::wstring& printerName);

} // namespace vela::test
