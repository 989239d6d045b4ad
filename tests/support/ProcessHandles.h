#pragma once

#include <cstddef>

namespace vela::test {

// Open descriptors or handles of this process, less the runtime's own (windows/RuntimeHandles.h).
// Not GetProcessHandleCount: wine answers 0. Throws std::runtime_error when there is no count.
size_t OpenHandleCount();

// The fewest of a few counts 2 ms apart: an in-process simulator may hold a handle for a moment.
size_t BaselineHandleCount();

// The count once back at `expected`, or after a second of trying (a real leak never settles).
size_t SettledHandleCount(size_t expected);

} // namespace vela::test
