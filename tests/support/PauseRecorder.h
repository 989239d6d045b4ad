#pragma once

#include "common/Pause.h"

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <vector>

namespace vela::test {

// Replaces the fixed pauses while it lives: each is recorded and returns at once as a time-out.
class PauseRecorder {
public:
    PauseRecorder();
    ~PauseRecorder();
    PauseRecorder(const PauseRecorder&) = delete;
    PauseRecorder& operator=(const PauseRecorder&) = delete;

    std::vector<uint32_t> Pauses() const;
    void Clear();
    // The k-th pause (0-based) from now on returns `result` instead.
    void SetResultAt(size_t index, vela::common::WaitResult result);
    // Called on the pausing thread with each pause, before it returns.
    void OnPause(std::function<void(uint32_t milliseconds)> hook);

private:
    mutable std::mutex m_mutex;
    std::vector<uint32_t> m_pauses;
    std::map<size_t, vela::common::WaitResult> m_overrides;
    std::function<void(uint32_t)> m_hook;
    vela::common::PauseHandler m_previous;
};

} // namespace vela::test
