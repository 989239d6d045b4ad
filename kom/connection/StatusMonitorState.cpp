#include "kom/connection/StatusMonitorState.h"

#include <algorithm>

namespace vela::kom {

std::shared_ptr<StatusMonitorState> StatusMonitorState::Instance() {
    static const std::shared_ptr<StatusMonitorState> instance(new StatusMonitorState());
    return instance;
}

std::vector<INativeQRVListener*> StatusMonitorState::Listeners() const {
    std::lock_guard<std::mutex> lock(m_listenersMutex);
    return m_listeners;
}

size_t StatusMonitorState::ListenerCount() const {
    std::lock_guard<std::mutex> lock(m_listenersMutex);
    return m_listeners.size();
}

bool StatusMonitorState::ContainsListener(INativeQRVListener* listener) const {
    std::lock_guard<std::mutex> lock(m_listenersMutex);
    return std::find(m_listeners.begin(), m_listeners.end(), listener) != m_listeners.end();
}

void StatusMonitorState::AppendListener(INativeQRVListener* listener) {
    std::lock_guard<std::mutex> lock(m_listenersMutex);
    m_listeners.push_back(listener);
}

bool StatusMonitorState::RemoveListener(INativeQRVListener* listener) {
    {
        std::lock_guard<std::mutex> lock(m_listenersMutex);
        auto it = std::find(m_listeners.begin(), m_listeners.end(), listener);
        if (it == m_listeners.end()) {
            return false;
        }
        m_listeners.erase(it);
    }
    return true;
}

void StatusMonitorState::ClearListeners() {
    std::lock_guard<std::mutex> lock(m_listenersMutex);
    m_listeners.clear();
}

void StatusMonitorState::WaitForListenerCalls() {
    std::lock_guard<std::recursive_mutex> wait(m_dispatch);
}

bool StatusMonitorState::ForEachListener(const std::function<void(INativeQRVListener&)>& call) {
    if (ListenerCount() == 0) {
        return false;
    }
    for (size_t i = 0;; ++i) {
        // The dispatch mutex is taken before the entry is read, so a removal either happens
        // before the read (the entry is not seen) or waits for this call to return.
        std::lock_guard<std::recursive_mutex> dispatch(m_dispatch);
        INativeQRVListener* listener = nullptr;
        {
            std::lock_guard<std::mutex> lock(m_listenersMutex);
            if (i >= m_listeners.size()) {
                break;
            }
            listener = m_listeners[i];
        }
        call(*listener);
    }
    return true;
}

} // namespace vela::kom
