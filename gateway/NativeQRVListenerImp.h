#pragma once

#include "kom/connection/INativeQRVListener.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

namespace vela::kom {

// The gateway's native listener: the monitor thread calls it, it forwards into the gateway through
// two callbacks, and the gateway raises the host events. It never lets an exception reach the
// monitor thread (a subscriber's failure is logged as a warning).
//
// Disarm() is how the gateway makes sure that no call reaches it any more before it tears the
// facade down: it waits for a forward that is in progress on another thread, and afterwards
// every call returns at once. Forwards hold the listener's own lock while the gateway raises
// its events (the events' subscriber lists hold none).
class NativeQRVListenerImp : public INativeQRVListener {
public:
    struct Targets {
        std::function<void(const PrinterStatus& status)> statusChanged;
        std::function<void(uint32_t code, uint32_t value)> interrupt;
    };

    explicit NativeQRVListenerImp(Targets targets) : m_targets(std::move(targets)) {}
    NativeQRVListenerImp(const NativeQRVListenerImp&) = delete;
    NativeQRVListenerImp& operator=(const NativeQRVListenerImp&) = delete;

    void OnPrinterStatusChangedEvent(const PrinterStatus& status) override;
    void OnPrinterInterruptEvent(uint32_t code, uint32_t value) override;

    // Blocks until no forward runs on another thread; never throws. Callable from any thread.
    void Disarm();
    // True while this thread is inside a forward (a subscriber is running on it).
    bool IsForwardingOnThisThread() const { return m_forwardingThread.load() == std::this_thread::get_id(); }

private:
    template <class F> void Forward(const wchar_t* what, F&& call);

    std::recursive_mutex m_mutex;
    Targets m_targets;   // guarded by m_mutex
    bool m_armed = true; // guarded by m_mutex; false once disarmed
    std::atomic<std::thread::id> m_forwardingThread{};
};

} // namespace vela::kom
