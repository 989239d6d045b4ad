#include "support/FakePrinter.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace vela::test {

namespace {
FakePrinter* g_current = nullptr;
}

FakePrinter::FakePrinter() {
    g_current = this;
}
FakePrinter::~FakePrinter() {
    g_current = g_current == this ? nullptr : g_current;
}

FakePrinter& FakePrinter::Current() {
    if (g_current == nullptr) {
        std::fprintf(stderr, "FakeTransport used without a FakePrinter\n");
        std::abort();
    }
    return *g_current;
}

void FakePrinter::QueueReply(const std::vector<uint8_t>& payload, uint8_t group, uint8_t unit) {
    QueueBytes(Frame(payload, group, unit));
}

std::vector<uint8_t> FakePrinter::AllWritten() const {
    std::vector<uint8_t> all;
    for (const auto& w : m_rawWrites) {
        all.insert(all.end(), w.begin(), w.end());
    }
    return all;
}

size_t FakePrinter::PendingBytes() const {
    size_t n = 0;
    for (const auto& s : m_steps) {
        n += s.bytes.size();
    }
    return n;
}

void FakePrinter::Opened() {
    if (m_failOpen) {
        throw vela::common::UsbPrintDeviceConnectionException(L"Unable to open UsbPrint device for writing",
                                                              L"UsbPrintDevice()");
    }
    ++m_opens;
}

uint32_t FakePrinter::RawWrite(const uint8_t* data, uint32_t length) {
    m_rawWrites.emplace_back(data, data + length);
    return length;
}

uint32_t FakePrinter::RawRead(uint8_t* buffer, uint32_t capacity) {
    ++m_rawReads;
    if (m_steps.empty() ||
        m_steps.front().kind == Step::Kind::failure) { // a silent printer, or a scripted failure
        if (!m_steps.empty()) {
            m_steps.pop_front();
        }
        throw vela::common::UsbPrintDeviceReadException(L"Unable to read data from UsbPrint device, timeout",
                                                        L"UsbPrintDevice::ReadBytes()");
    }
    Step& step = m_steps.front();
    uint32_t n = static_cast<uint32_t>(std::min<size_t>(capacity, step.bytes.size()));
    if (m_rawReadLimit != 0 && step.kind != Step::Kind::chunk) {
        n = std::min(n, m_rawReadLimit);
    }
    std::copy(step.bytes.begin(), step.bytes.begin() + n, buffer);
    if (step.kind == Step::Kind::chunk || n == step.bytes.size()) {
        m_steps.pop_front();
    } else {
        step.bytes.erase(step.bytes.begin(), step.bytes.begin() + n);
    }
    return n;
}

FakeTransport::FakeTransport(const std::wstring& devicePath) : UsbPrintDeviceBase(devicePath) {
    FakePrinter::Current().Opened();
}
FakeTransport::~FakeTransport() {
    FakePrinter::Current().Closed();
}

uint32_t FakeTransport::WriteBytes(const uint8_t* data, uint32_t length) {
    const int64_t truncation = FakePrinter::Current().TakeWriteTruncation();
    if (truncation >= 0) {
        length = std::min<uint32_t>(length, static_cast<uint32_t>(truncation));
    }
    uint32_t total = 0;
    while (total < length) {
        if (m_callback) {
            m_callback();
        }
        total += FakePrinter::Current().RawWrite(data + total, std::min<uint32_t>(length - total, 8192));
    }
    return total;
}

uint32_t FakeTransport::ReadBytes(uint8_t* buffer, uint32_t capacity) {
    return FakePrinter::Current().RawRead(buffer, capacity);
}

std::vector<uint8_t> Frame(const std::vector<uint8_t>& payload, uint8_t group, uint8_t unit) {
    uint32_t total = static_cast<uint32_t>(payload.size() + 7);
    std::vector<uint8_t> out{
        0xC3, uint8_t(total >> 24), uint8_t(total >> 16), uint8_t(total >> 8), uint8_t(total), group, unit};
    out.insert(out.end(), payload.begin(), payload.end());
    return out;
}

std::vector<uint8_t> Hex(const std::string& text) {
    std::vector<uint8_t> out;
    std::istringstream in(text);
    std::string token;
    while (in >> token) {
        out.push_back(static_cast<uint8_t>(std::stoul(token, nullptr, 16)));
    }
    return out;
}

std::string ToHex(const std::vector<uint8_t>& bytes) {
    std::string out;
    char buf[4];
    for (size_t i = 0; i < bytes.size(); ++i) {
        std::snprintf(buf, sizeof buf, i ? " %02X" : "%02X", bytes[i]);
        out += buf;
    }
    return out;
}

} // namespace vela::test
