#include "support/PauseRecorder.h"

namespace vela::test {

PauseRecorder::PauseRecorder() {
    m_previous = vela::common::SetPauseHandler([this](uint32_t ms) {
        std::unique_lock<std::mutex> lock(m_mutex);
        const auto chosen = m_overrides.find(m_pauses.size());
        const vela::common::WaitResult result =
            chosen != m_overrides.end() ? chosen->second : vela::common::WaitResult::timeout;
        m_pauses.push_back(ms);
        const std::function<void(uint32_t)> hook = m_hook;
        lock.unlock();
        if (hook) {
            hook(ms);
        }
        return result;
    });
}

PauseRecorder::~PauseRecorder() {
    vela::common::SetPauseHandler(m_previous);
}

std::vector<uint32_t> PauseRecorder::Pauses() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_pauses;
}

void PauseRecorder::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_pauses.clear();
    m_overrides.clear();
}

void PauseRecorder::OnPause(std::function<void(uint32_t)> hook) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_hook = std::move(hook);
}

void PauseRecorder::SetResultAt(size_t index, vela::common::WaitResult result) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_overrides.emplace(m_pauses.size() + index, result); // an earlier one for the same pause wins
}

} // namespace vela::test
