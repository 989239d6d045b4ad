#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace vela::kom {

// Seven version texts of the printer, in reply order.
class PrinterVersion {
public:
    static constexpr size_t kTextCount = 7;
    PrinterVersion() = default;
    explicit PrinterVersion(std::array<std::wstring, kTextCount> texts) : m_texts(std::move(texts)) {}

    std::wstring GetOSVersion() const { return m_texts[0]; }
    std::wstring GetFWVersion() const { return m_texts[1]; }
    std::wstring GetAppVersion() const { return m_texts[2]; }
    std::wstring GetOverallVersion() const { return m_texts[3]; }
    std::wstring GetRootFSVersion() const { return m_texts[6]; }
    // Text i (0-based); index 5 is the device identifier, index 4 has no named getter.
    std::wstring Text(size_t index) const { return m_texts[index]; }

private:
    std::array<std::wstring, kTextCount> m_texts;
};

// The inserted cassette's memory: empty, or 128 bytes (the SKU at indexes 1 to 7).
using EepromData = std::vector<uint8_t>;

enum update_status_t : uint32_t { update_idle = 0, update_busy = 1, update_applying = 4, update_unknown = 5 };

// The firmware updater's state; status 0 means idle.
struct DeviceManagerStatus {
    uint32_t status = update_unknown;
    uint32_t value1 = 0;
    uint32_t value2 = 0;
};

} // namespace vela::kom
