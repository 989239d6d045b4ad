#pragma once

#include "qrv/ManagedQRVDeviceGateway.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

namespace vela::test {

// What a gateway's events delivered, in order.
class HostEventLog {
public:
    using Items = std::vector<vela::printer::communication::PrinterStatusItem>;
    using Issue = vela::printer::communication::EPrintInterruptIssue;

    explicit HostEventLog(vela::kom::ManagedQRVDeviceGateway& gateway) {
        gateway.OnPrinterStatusChanged().Add(
            [this](const vela::printer::communication::PrinterStatusEventArgs& args) {
                std::lock_guard<std::mutex> lock(m_mutex);
                m_changes.push_back(args.Items());
                m_changed.notify_all();
            });
        gateway.OnPrintInterrupt().Add(
            [this](const vela::printer::communication::PrintInterruptEventArgs& args) {
                std::lock_guard<std::mutex> lock(m_mutex);
                m_interrupts.push_back(args.Issue());
                m_changed.notify_all();
            });
    }

    // The next status change not looked at by an earlier call that satisfies `match`.
    std::optional<Items> WaitFor(const std::function<bool(const Items&)>& match,
                                 std::chrono::milliseconds patience = std::chrono::seconds(5)) {
        std::unique_lock<std::mutex> lock(m_mutex);
        std::optional<Items> found;
        m_changed.wait_for(lock, patience, [&] {
            for (; m_looked < m_changes.size() && !found; ++m_looked) {
                found = match(m_changes[m_looked]) ? std::optional<Items>(m_changes[m_looked]) : std::nullopt;
            }
            return found.has_value();
        });
        return found;
    }
    std::vector<Issue> Interrupts() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_interrupts;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Items> m_changes;
    size_t m_looked = 0;
    std::vector<Issue> m_interrupts;
};

} // namespace vela::test
