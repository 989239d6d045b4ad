#include "FuzzSupport.h"

#include "common/Log.h"
#include "common/Pause.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace vela::fuzz {

ScriptedChannel& ScriptedChannel::Instance() {
    static ScriptedChannel channel;
    return channel;
}

int& CountingLock::Held() {
    static int held = 0;
    return held;
}

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

void ScriptedChannel::Load(const uint8_t* data, size_t size) {
    m_stream.assign(data + std::min<size_t>(size, 1), data + size);
    m_stream.shrink_to_fit();
    m_position = 0;
    m_chunk = size ? data[0] : 0;
    m_opens = 0;
    m_closes = 0;
}

uint32_t ScriptedChannel::Read(uint8_t* buffer, uint32_t capacity) {
    if (m_position >= m_stream.size()) {
        throw vela::common::UsbPrintDeviceReadException(L"Unable to read data from UsbPrint device, timeout",
                                                        L"UsbPrintDevice::ReadBytes()");
    }
    uint32_t n = static_cast<uint32_t>(std::min<size_t>(capacity, m_stream.size() - m_position));
    if (m_chunk != 0) {
        n = std::min(n, m_chunk);
    }
    std::memcpy(buffer, m_stream.data() + m_position, n);
    m_position += n;
    return n;
}

FuzzTransport::FuzzTransport(const std::wstring& path) : UsbPrintDeviceBase(path) {
    ScriptedChannel::Instance().Opened();
}
FuzzTransport::~FuzzTransport() {
    ScriptedChannel::Instance().Closed();
}

uint32_t FuzzTransport::WriteBytes(const uint8_t* data, uint32_t length) {
    (void)data; // the scripted printer answers from the input, whatever was asked
    if (m_callback) {
        m_callback();
    }
    return length;
}

uint32_t FuzzTransport::ReadBytes(uint8_t* buffer, uint32_t capacity) {
    return ScriptedChannel::Instance().Read(buffer, capacity);
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
