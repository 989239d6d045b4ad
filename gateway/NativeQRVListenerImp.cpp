#include "gateway/NativeQRVListenerImp.h"

#include "common/Exception.h"
#include "common/Log.h"

#include <algorithm>
#include <exception>

namespace vela::kom {

using vela::common::Log;

template <class F> void NativeQRVListenerImp::Forward(const wchar_t* what, F&& call) {
    if (!m_armed->load()) {
        return;
    }
    const auto self = std::this_thread::get_id();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_forwarding.push_back(self);
    }
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
    std::vector<std::function<void()>> tasks;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_forwarding.erase(std::find(m_forwarding.begin(), m_forwarding.end(), self));
        if (std::find(m_forwarding.begin(), m_forwarding.end(), self) == m_forwarding.end()) {
            for (auto it = m_afterForward.begin(); it != m_afterForward.end();) {
                if (it->first == self) {
                    tasks.push_back(std::move(it->second));
                    it = m_afterForward.erase(it);
                } else {
                    ++it;
                }
            }
        }
    }
    for (auto& task : tasks) {
        task(); // the gateway's release, which never throws
    }
}

void NativeQRVListenerImp::OnPrinterStatusChangedEvent(const PrinterStatus& status) {
    Forward(L"OnPrinterStatusChangedEvent()", [&](const Targets& targets) { targets.statusChanged(status); });
}

void NativeQRVListenerImp::OnPrinterInterruptEvent(uint32_t code, uint32_t value) {
    Forward(L"OnPrinterInterruptEvent()", [&](const Targets& targets) { targets.interrupt(code, value); });
}

bool NativeQRVListenerImp::IsForwardingOnThisThread() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return std::find(m_forwarding.begin(), m_forwarding.end(), std::this_thread::get_id()) !=
           m_forwarding.end();
}

void NativeQRVListenerImp::AfterForward(std::function<void()> task) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_afterForward.emplace_back(std::this_thread::get_id(), std::move(task));
}

} // namespace vela::kom
