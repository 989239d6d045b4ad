#pragma once

#include "common/Pause.h"

#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

namespace vela::test {

// Replaces the library's fixed pauses while it lives: each requested pause is recorded and
// returns at once with `result` (normally a time-out, as a real pause ends). Pauses shorter than
// `sleepBelowMs` are slept for real and not recorded (so that transfers meet a real printer with
// their real timing while the long waits are skipped).
class PauseRecorder {
public:
    explicit PauseRecorder(vela::common::WaitResult result = vela::common::WaitResult::timeout,
                           uint32_t sleepBelowMs = 0);
    ~PauseRecorder();
    PauseRecorder(const PauseRecorder&) = delete;
    PauseRecorder& operator=(const PauseRecorder&) = delete;

    std::vector<uint32_t> Pauses() const;
    void Clear();
    // The k-th pause (0-based) from now on returns `result` instead.
    void SetResultAt(size_t index, vela::common::WaitResult result);
    // Called with each requested pause, on the pausing thread, before the pause returns (for
    // example to observe what is held while the library pauses).
    void OnPause(std::function<void(uint32_t milliseconds)> hook);

private:
    mutable std::mutex m_mutex;
    std::vector<uint32_t> m_pauses;
    std::vector<std::pair<size_t, vela::common::WaitResult>> m_overrides;
    vela::common::WaitResult m_result;
    uint32_t m_sleepBelowMs;
    std::function<void(uint32_t)> m_hook;
    vela::common::PauseHandler m_previous;
};

} // namespace vela::test
