#pragma once

#include "common/Event.h"
#include "common/NotCopyable.h"
#include "kom/connection/INativeQRVListener.h"
#include "kom/connection/MonitorThread.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace vela::kom {

// The process-wide state that all facades share with the status monitor thread: the number of
// live facades, the monitor thread, its stop event, the listener list and the last interrupt
// code. One instance per process.
//
// Locking:
//   - Lifecycle() guards the instance count, the thread and the stop event, and makes the
//     facade's check-then-act rules (register, deregister, construct, destroy) atomic. It is
//     recursive so that PrinterStatusThread::Start/Stop may be called with or without it.
//     The monitor thread never takes it, so a stop may wait for the thread while holding it.
//   - The listener list has its own mutex; the monitor thread reads it entry by entry.
//   - Every listener call runs under a dispatch mutex. After removing a listener, and after
//     releasing Lifecycle(), the facade passes through that mutex (WaitForListenerCalls): once a
//     deregistration returned, the listener is not in a call and will not be called again, so its
//     owner may destroy it.
class StatusMonitorState : vela::common::NotCopyable {
public:
    // The thread captures the shared pointer, so the state outlives a thread that was given up on.
    static std::shared_ptr<StatusMonitorState> Instance();

    std::recursive_mutex& Lifecycle() { return m_lifecycle; }

    // ---- under Lifecycle() ---------------------------------------------------------------
    uint32_t instanceCount = 0;
    MonitorThread thread;
    std::shared_ptr<vela::common::Event> stopEvent;

    // ---- listener list (own mutex) ---------------------------------------------------------
    std::vector<INativeQRVListener*> Listeners() const;
    size_t ListenerCount() const;
    bool ContainsListener(INativeQRVListener* listener) const;
    void AppendListener(INativeQRVListener* listener);
    // Removes the first entry equal to `listener`, keeping the order of the rest. False when it
    // was not in the list.
    bool RemoveListener(INativeQRVListener* listener);
    void ClearListeners();
    // Blocks while the monitor thread is inside a listener call (returns at once on that thread).
    // Never call it while holding Lifecycle(): a listener may be waiting for it.
    void WaitForListenerCalls();

    // Calls `call` for every listener in list order, re-reading the list's length after each
    // call (a listener may register or deregister others meanwhile). Returns false, without a
    // call, when the list is empty.
    bool ForEachListener(const std::function<void(INativeQRVListener&)>& call);

    // The last interrupt code computed from a report (14: no interruption).
    std::atomic<uint32_t> lastInterruptCode{14};

private:
    StatusMonitorState() = default;

    std::recursive_mutex m_lifecycle;
    mutable std::mutex m_listenersMutex;
    std::vector<INativeQRVListener*> m_listeners;
    std::recursive_mutex m_dispatch;
};

} // namespace vela::kom
