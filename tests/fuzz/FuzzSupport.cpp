#include "FuzzSupport.h"

#include "common/Log.h"
#include "common/Pause.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace vela::fuzz {

void Initialize() {
    static const bool done = [] {
        vela::common::Log::SetLevel(-1);
        vela::common::SetPauseHandler([](uint32_t) { return vela::common::WaitResult::timeout; });
        return true;
    }();
    (void)done;
}

ExactBytes::ExactBytes(const uint8_t* data, size_t size)
    : m_bytes(size ? new uint8_t[size] : nullptr), m_size(size) {
    if (size) {
        std::memcpy(m_bytes.get(), data, size);
    }
}

std::vector<uint8_t> ExactBytes::ToVector() const {
    return std::vector<uint8_t>(m_bytes.get(), m_bytes.get() + m_size);
}

ExactBytes PayloadAfterHeader(const uint8_t* data, size_t size) {
    constexpr size_t kSkip = 1 + 7;
    return size > kSkip ? ExactBytes(data + kSkip, size - kSkip) : ExactBytes(nullptr, 0);
}

FuzzDevice& Device() {
    static FuzzDevice device(vela::kom::ConnectedPrinter{0x0922, 0x0025, L"fuzz-channel", L"Fuzz Printer"});
    return device;
}

void Fail(const char* what) {
    std::fprintf(stderr, "fuzz check failed: %s\n", what);
    std::abort();
}

} // namespace vela::fuzz
