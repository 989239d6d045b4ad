#pragma once

#include "kom/connection/INativeQRVListener.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace vela::kom {

// The gateway's native listener: the monitor thread calls it, it forwards into the gateway through
// two callbacks, and the gateway raises the host events. It never lets an exception reach the
// monitor thread (a subscriber's failure is logged as a warning).
//
// It holds no lock while it forwards, so a subscriber may do anything a host thread may, and a
// thread that closes the gateway never waits behind a lock held by a subscriber. The gateway
// registers it in the facade's shared form: a forward that a stop gave up waiting for keeps it
// alive until it returns.
class NativeQRVListenerImp : public INativeQRVListener {
public:
    struct Targets {
        std::function<void(const PrinterStatus& status)> statusChanged;
        std::function<void(uint32_t code, uint32_t value)> interrupt;
    };

    // `armed` is shared with the targets, which stop raising at once when it goes false.
    NativeQRVListenerImp(Targets targets, std::shared_ptr<std::atomic<bool>> armed)
        : m_targets(std::move(targets)), m_armed(std::move(armed)) {}
    NativeQRVListenerImp(const NativeQRVListenerImp&) = delete;
    NativeQRVListenerImp& operator=(const NativeQRVListenerImp&) = delete;

    void OnPrinterStatusChangedEvent(const PrinterStatus& status) override;
    void OnPrinterInterruptEvent(uint32_t code, uint32_t value) override;

    // From now on every call returns at once without forwarding. Does not wait for a forward in
    // progress (the facade's deregistration does that). Never blocks or throws; any thread.
    void Disarm() noexcept { m_armed->store(false); }
    // True while this thread is inside a forward (a subscriber is running on it).
    bool IsForwardingOnThisThread() const;
    // Runs `task` on this thread once the outermost forward in progress on it has returned from
    // the gateway; used when the gateway is destroyed by its own subscriber. Call it only while
    // IsForwardingOnThisThread() is true.
    void AfterForward(std::function<void()> task);

private:
    template <class F> void Forward(const wchar_t* what, F&& call);

    const Targets m_targets;
    const std::shared_ptr<std::atomic<bool>> m_armed;
    mutable std::mutex m_mutex;                // guards the two lists below, never held in a call
    std::vector<std::thread::id> m_forwarding; // one entry per forward in progress
    std::vector<std::pair<std::thread::id, std::function<void()>>> m_afterForward;
};

} // namespace vela::kom
