#pragma once

#include "common/Event.h"
#include "common/NotCopyable.h"
#include "kom/connection/INativeQRVListener.h"
#include "kom/connection/MonitorThread.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace vela::kom {

// The process-wide state that all facades share with the status monitor thread: the number of
// live facades, the monitor thread, its stop event, the listener list and the last interrupt
// code. One instance per process.
//
// Locking:
//   - Lifecycle() guards the instance count, the thread and the stop event, and makes the
//     facade's check-then-act rules (register, deregister, construct, destroy) atomic. It is
//     held only for those short steps, never while waiting for the thread or for a listener:
//     a listener may register, deregister or close a gateway on the monitor thread at any time.
//     It is recursive so that PrinterStatusThread::Start may be called with or without it.
//   - The listener list has its own mutex, also held only briefly. Every registration records
//     which threads are inside a call to it, so that a removal waits for calls to the listener
//     it removes and for nothing else.
//   - Each monitor run has a number. A stop ends the current run: a thread that a stop gave up
//     on (it was stuck in a call) calls no further listener once its call returns.
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
    // The shared form keeps the listener alive while a call to it runs; a raw pointer is not owned.
    void AppendListener(std::shared_ptr<INativeQRVListener> listener);
    void AppendListener(INativeQRVListener* listener);

    // One entry of the list: the listener (owned in the shared form) and the threads inside a
    // call to it right now (under the list mutex).
    struct Registration {
        std::shared_ptr<INativeQRVListener> listener;
        std::vector<std::thread::id> callers;
    };
    // Removes the first entry equal to `listener`, keeping the order of the rest; null when it
    // was not in the list. No call to it starts after this.
    std::shared_ptr<Registration> TakeListener(INativeQRVListener* listener);
    // Waits up to `waitMs` until no other thread is inside a call to the taken entry (a call on
    // the calling thread is its own business: it ends when the caller returns). False when the
    // wait ran out: the call goes on, holding its own reference to a shared listener.
    bool WaitUntilNotCalled(const std::shared_ptr<Registration>& registration, uint32_t waitMs);
    void ClearListeners();
    // True while `thread` is inside a listener call that a removal gave up waiting for.
    bool IsInAbandonedCall(std::thread::id thread) const;

    // Calls `call` for every listener in list order, re-reading the list's length after each
    // call (a listener may register or deregister others meanwhile). Returns false, without a
    // call, when the list is empty. A thread whose run was ended makes no further call.
    bool ForEachListener(const std::function<void(INativeQRVListener&)>& call);

    // ---- monitor runs ---------------------------------------------------------------------
    // A new run number, the current one from now on (under Lifecycle()).
    uint64_t BeginRun();
    // No run is current any more (under Lifecycle(), when the thread is stopped).
    void EndRun();
    // Called first on a monitor thread: the run it serves. Threads that never call it (a test
    // driving ForEachListener itself) may always call listeners.
    static void EnterRun(uint64_t run);

    // The last interrupt code computed from a report (14: no interruption).
    std::atomic<uint32_t> lastInterruptCode{14};

private:
    class CallInProgress;

    StatusMonitorState() = default;
    bool MayCall() const; // under the list mutex

    std::recursive_mutex m_lifecycle;
    mutable std::mutex m_listenersMutex;
    std::condition_variable m_callEnded;
    std::vector<std::shared_ptr<Registration>> m_listeners;
    std::vector<std::weak_ptr<Registration>> m_abandoned; // removals that gave up on a call
    uint64_t m_lastRun = 0;
    uint64_t m_currentRun = 0;
};

} // namespace vela::kom
