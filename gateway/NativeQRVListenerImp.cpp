#include "gateway/NativeQRVListenerImp.h"

#include "common/Exception.h"
#include "common/Log.h"

#include <exception>

namespace vela::kom {

using vela::common::Log;

template <class F> void NativeQRVListenerImp::Forward(const wchar_t* what, F&& call) {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (!m_armed) {
        return;
    }
    std::thread::id previous = m_forwardingThread.exchange(std::this_thread::get_id());
    // The monitor thread ends on any exception; a host subscriber's failure must not stop it.
    try {
        call(m_targets);
    } catch (const std::exception& e) {
        Log::LogWarning(L"NativeQRVListenerImp::%s - a subscriber failed: %s", what, e.what());
    } catch (const vela::common::Exception& e) {
        Log::LogWarning(L"NativeQRVListenerImp::%s - a subscriber failed: %s", what, e.Message());
    } catch (...) {
        Log::LogWarning(L"NativeQRVListenerImp::%s - a subscriber failed", what);
    }
    m_forwardingThread = previous;
}

void NativeQRVListenerImp::OnPrinterStatusChangedEvent(const PrinterStatus& status) {
    Forward(L"OnPrinterStatusChangedEvent()", [&](const Targets& targets) { targets.statusChanged(status); });
}

void NativeQRVListenerImp::OnPrinterInterruptEvent(uint32_t code, uint32_t value) {
    Forward(L"OnPrinterInterruptEvent()", [&](const Targets& targets) { targets.interrupt(code, value); });
}

void NativeQRVListenerImp::Disarm() {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    m_armed = false;
}

} // namespace vela::kom
