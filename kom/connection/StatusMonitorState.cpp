#include "kom/connection/StatusMonitorState.h"

#include <algorithm>
#include <chrono>

namespace vela::kom {

namespace {

thread_local uint64_t t_run = 0; // the run this thread serves; 0: not a monitor thread

} // namespace

// Marks the calling thread as inside a call to one registration until the call returns (or
// throws), and wakes removals that wait for it.
class StatusMonitorState::CallInProgress {
public:
    CallInProgress(StatusMonitorState& state, std::shared_ptr<Registration> registration)
        : m_state(state), m_registration(std::move(registration)) {}
    ~CallInProgress() {
        {
            std::lock_guard<std::mutex> lock(m_state.m_listenersMutex);
            auto& callers = m_registration->callers;
            callers.erase(std::find(callers.begin(), callers.end(), std::this_thread::get_id()));
        }
        m_state.m_callEnded.notify_all();
    }
    CallInProgress(const CallInProgress&) = delete;
    CallInProgress& operator=(const CallInProgress&) = delete;

private:
    StatusMonitorState& m_state;
    std::shared_ptr<Registration> m_registration; // keeps a shared listener alive for the call
};

std::shared_ptr<StatusMonitorState> StatusMonitorState::Instance() {
    static const std::shared_ptr<StatusMonitorState> instance(new StatusMonitorState());
    return instance;
}

std::vector<INativeQRVListener*> StatusMonitorState::Listeners() const {
    std::lock_guard<std::mutex> lock(m_listenersMutex);
    std::vector<INativeQRVListener*> listeners;
    for (const auto& registration : m_listeners) {
        listeners.push_back(registration->listener.get());
    }
    return listeners;
}

size_t StatusMonitorState::ListenerCount() const {
    std::lock_guard<std::mutex> lock(m_listenersMutex);
    return m_listeners.size();
}

bool StatusMonitorState::ContainsListener(INativeQRVListener* listener) const {
    std::lock_guard<std::mutex> lock(m_listenersMutex);
    return std::any_of(m_listeners.begin(), m_listeners.end(),
                       [listener](const auto& r) { return r->listener.get() == listener; });
}

void StatusMonitorState::AppendListener(std::shared_ptr<INativeQRVListener> listener) {
    auto registration = std::make_shared<Registration>();
    registration->listener = std::move(listener);
    std::lock_guard<std::mutex> lock(m_listenersMutex);
    m_listeners.push_back(std::move(registration));
}

void StatusMonitorState::AppendListener(INativeQRVListener* listener) {
    AppendListener(std::shared_ptr<INativeQRVListener>(listener, [](INativeQRVListener*) {}));
}

std::shared_ptr<StatusMonitorState::Registration>
StatusMonitorState::TakeListener(INativeQRVListener* listener) {
    std::lock_guard<std::mutex> lock(m_listenersMutex);
    auto it = std::find_if(m_listeners.begin(), m_listeners.end(),
                           [listener](const auto& r) { return r->listener.get() == listener; });
    if (it == m_listeners.end()) {
        return nullptr;
    }
    std::shared_ptr<Registration> registration = *it;
    m_listeners.erase(it);
    return registration;
}

bool StatusMonitorState::WaitUntilNotCalled(const std::shared_ptr<Registration>& registration,
                                            uint32_t waitMs) {
    std::unique_lock<std::mutex> lock(m_listenersMutex);
    const auto self = std::this_thread::get_id();
    const bool ended = m_callEnded.wait_for(lock, std::chrono::milliseconds(waitMs), [&] {
        const auto& callers = registration->callers;
        return std::all_of(callers.begin(), callers.end(), [self](auto id) { return id == self; });
    });
    if (!ended) {
        m_abandoned.erase(std::remove_if(m_abandoned.begin(), m_abandoned.end(),
                                         [](const auto& weak) { return weak.expired(); }),
                          m_abandoned.end());
        m_abandoned.push_back(registration);
    }
    return ended;
}

void StatusMonitorState::ClearListeners() {
    std::lock_guard<std::mutex> lock(m_listenersMutex);
    m_listeners.clear();
}

bool StatusMonitorState::IsInAbandonedCall(std::thread::id thread) const {
    std::lock_guard<std::mutex> lock(m_listenersMutex);
    for (const auto& weak : m_abandoned) {
        if (const auto registration = weak.lock()) {
            const auto& callers = registration->callers;
            if (std::find(callers.begin(), callers.end(), thread) != callers.end()) {
                return true;
            }
        }
    }
    return false;
}

bool StatusMonitorState::ForEachListener(const std::function<void(INativeQRVListener&)>& call) {
    if (ListenerCount() == 0) {
        return false;
    }
    for (size_t i = 0;; ++i) {
        std::shared_ptr<Registration> registration;
        {
            // The caller is recorded with the read, so a removal either comes first (the entry is
            // not seen) or finds this call and waits for it.
            std::lock_guard<std::mutex> lock(m_listenersMutex);
            if (!MayCall() || i >= m_listeners.size()) {
                break;
            }
            registration = m_listeners[i];
            registration->callers.push_back(std::this_thread::get_id());
        }
        INativeQRVListener& listener = *registration->listener;
        CallInProgress inCall(*this, std::move(registration));
        call(listener);
    }
    return true;
}

uint64_t StatusMonitorState::BeginRun() {
    std::lock_guard<std::mutex> lock(m_listenersMutex);
    m_currentRun = ++m_lastRun;
    return m_currentRun;
}

void StatusMonitorState::EndRun() {
    std::lock_guard<std::mutex> lock(m_listenersMutex);
    m_currentRun = 0;
}

void StatusMonitorState::EnterRun(uint64_t run) {
    t_run = run;
}

bool StatusMonitorState::MayCall() const {
    return t_run == 0 || t_run == m_currentRun;
}

} // namespace vela::kom
