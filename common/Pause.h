#pragma once

#include "common/Event.h"

#include <cstdint>
#include <functional>

namespace vela::common {

// The library's fixed pauses (250/500 ms in completion polls, 1 s before listings, 5 s after
// print orders, 4 s and 20 s in the update, 500 ms between retries) all go through this one
// function: it waits on a fresh unnamed event that nobody sets and reports how the wait ended
// (normally `timeout`). Blocks the calling thread for `milliseconds`; callable from any thread.
WaitResult Pause(uint32_t milliseconds);

// The seam for tests and benchmarks: a handler replaces the real wait (for example to record the
// requested pauses and return `timeout` at once). An empty handler restores the real wait.
// Returns the previous handler. Thread-safe.
using PauseHandler = std::function<WaitResult(uint32_t milliseconds)>;
PauseHandler SetPauseHandler(PauseHandler handler);

} // namespace vela::common
