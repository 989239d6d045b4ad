#pragma once

#include <cstddef>

namespace vela::test {

// Open descriptors (Linux: /proc/self/fd) or handles (Windows: this process's entries in the
// system's handle list, leaving out those the runtime opens for itself, see
// windows/RuntimeHandles.h) of this process. Not GetProcessHandleCount: wine answers it with 0
// whatever is open, which would make every leak check pass. Throws std::runtime_error when the
// count cannot be had.
size_t OpenHandleCount();

// A baseline for leak checks: the fewest of a few counts 2 ms apart. A count taken while a peer
// in this process (a simulated printer) holds a handle for a moment would make every later count
// look one short.
size_t BaselineHandleCount();

// The count once it is back at `expected`, or what it is after a second of trying: the same
// peer may still hold such a handle when the code under test is done. A real leak never settles.
size_t SettledHandleCount(size_t expected);

} // namespace vela::test
