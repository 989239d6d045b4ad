#include "kom/connection/MonitorThread.h"

#include <chrono>
#include <system_error>

namespace vela::kom {

MonitorThread::MonitorThread(MonitorThread&& other) noexcept
    : m_shared(std::move(other.m_shared)), m_thread(std::move(other.m_thread)), m_id(other.m_id) {
    other.m_id = std::thread::id();
}

MonitorThread& MonitorThread::operator=(MonitorThread&& other) noexcept {
    if (this != &other) {
        Close();
        m_shared = std::move(other.m_shared);
        m_thread = std::move(other.m_thread);
        m_id = other.m_id;
        other.m_id = std::thread::id();
    }
    return *this;
}

MonitorThread::~MonitorThread() {
    Close();
}

uint32_t MonitorThread::Start(std::function<void()> body) {
    Close();
    auto shared = std::make_shared<Shared>();
    try {
        m_thread = std::thread([shared, body = std::move(body)]() {
            body();
            // The very last step: after this the thread touches nothing of its owner.
            std::lock_guard<std::mutex> lock(shared->mutex);
            shared->active = false;
            shared->ended.notify_all();
        });
    } catch (const std::system_error& e) {
        return e.code().value() != 0 ? static_cast<uint32_t>(e.code().value()) : 1u;
    }
    m_id = m_thread.get_id();
    m_shared = std::move(shared);
    return 0;
}

bool MonitorThread::IsStillActive() const {
    if (!m_shared) {
        return false;
    }
    std::lock_guard<std::mutex> lock(m_shared->mutex);
    return m_shared->active;
}

bool MonitorThread::IsCurrentThread() const {
    return m_shared != nullptr && m_id == std::this_thread::get_id();
}

bool MonitorThread::Wait(uint32_t milliseconds) const {
    if (!m_shared) {
        return true;
    }
    std::unique_lock<std::mutex> lock(m_shared->mutex);
    return m_shared->ended.wait_for(lock, std::chrono::milliseconds(milliseconds),
                                    [this] { return !m_shared->active; });
}

void MonitorThread::Close() {
    if (m_thread.joinable()) {
        // A thread never joins itself: a stop made on the monitor thread lets it run out alone.
        if (IsStillActive() || IsCurrentThread()) {
            m_thread.detach();
        } else {
            m_thread.join();
        }
    }
    m_shared.reset();
    m_id = std::thread::id();
}

} // namespace vela::kom
