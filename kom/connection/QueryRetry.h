#pragma once

#include "common/Pause.h"

#include <cstdint>

namespace vela::kom {

// The retry routine of the facade's read-only queries. Runs `query`; when it throws a `Caught`:
//   - on the last attempt (`attempts` 1 or less) `onLastAttempt(e)` decides what leaves (it must
//     throw: usually `throw;`, the caught exception itself);
//   - otherwise pauses kRetryPauseMs through the pause seam; a pause that ended as a time-out
//     (as every real one does) leads to the next attempt, any other end answers `fallback()`.
// Other exceptions pass through. So ten attempts against a printer that keeps failing cost nine
// pauses, about 4.5 s, before the caller sees the exception.
// Blocks the calling thread; reentrant.
constexpr uint32_t kRetryAttempts = 10;
constexpr uint32_t kRetryPauseMs = 500;

template <class Caught, class Query, class Fallback, class OnLastAttempt>
auto RunQueryWithRetry(uint32_t attempts, Query&& query, Fallback&& fallback, OnLastAttempt&& onLastAttempt)
    -> decltype(query()) {
    for (;;) {
        try {
            return query();
        } catch (const Caught& e) {
            if (attempts <= 1) {
                onLastAttempt(e);
                throw; // onLastAttempt did not throw: the caught exception leaves unchanged
            }
            if (vela::common::Pause(kRetryPauseMs) != vela::common::WaitResult::timeout) {
                return fallback();
            }
            --attempts;
        }
    }
}

} // namespace vela::kom
