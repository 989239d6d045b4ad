#pragma once

#include "kom/connection/INativeQRVListener.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

namespace vela::test {

// A status record's fields, for comparisons whose failures print every field.
inline std::vector<uint32_t> Fields(const vela::kom::PrinterStatus& status) {
    std::vector<uint32_t> fields;
    for (size_t i = 0; i < vela::kom::PrinterStatus::kFieldCount; ++i) {
        fields.push_back(status.Field(i));
    }
    return fields;
}

// A status listener that remembers every call.
class RecordingListener : public vela::kom::INativeQRVListener {
public:
    void OnPrinterStatusChangedEvent(const vela::kom::PrinterStatus& status) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_statuses.push_back(status);
        m_changed.notify_all();
    }
    void OnPrinterInterruptEvent(uint32_t code, uint32_t value) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_interrupts.emplace_back(code, value);
        m_changed.notify_all();
    }

    std::vector<vela::kom::PrinterStatus> Statuses() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_statuses;
    }
    std::vector<std::pair<uint32_t, uint32_t>> Interrupts() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_interrupts;
    }
    bool WaitForStatuses(size_t count, uint32_t timeoutMs = 5000) const {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                  [&] { return m_statuses.size() >= count; });
    }

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::vector<vela::kom::PrinterStatus> m_statuses;
    std::vector<std::pair<uint32_t, uint32_t>> m_interrupts;
};

} // namespace vela::test
