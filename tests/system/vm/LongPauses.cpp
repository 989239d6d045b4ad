#include "system/vm/LongPauses.h"

#include <chrono>
#include <thread>

namespace vela::test {

LongPauses::LongPauses() {
    m_previous = vela::common::SetPauseHandler([this](uint32_t milliseconds) {
        if (milliseconds >= kThresholdMs) {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_skipped.push_back(milliseconds);
        } else {
            // A real pause ends as a time-out on an event nobody sets; sleeping is the same wait.
            std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
        }
        return vela::common::WaitResult::timeout;
    });
}

LongPauses::~LongPauses() {
    vela::common::SetPauseHandler(m_previous);
}

std::vector<uint32_t> LongPauses::Skipped() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_skipped;
}

} // namespace vela::test
