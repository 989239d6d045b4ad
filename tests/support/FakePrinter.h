#pragma once

#include "common/Exception.h"
#include "common/UsbPrintDeviceBase.h"
#include "kom/device/ConnectedPrinter.h"

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace vela::test {

// A scripted printer for protocol unit tests and fuzz targets: every FakeTransport opened while it
// lives talks to it. Raw reads come from a queue of steps; an empty queue is a silent printer.
class FakePrinter {
public:
    FakePrinter();
    ~FakePrinter();
    FakePrinter(const FakePrinter&) = delete;
    FakePrinter& operator=(const FakePrinter&) = delete;

    static FakePrinter& Current(); // the live one; aborts the test when there is none

    void QueueBytes(const std::vector<uint8_t>& bytes) { m_steps.push_back({Step::Kind::bytes, bytes}); }
    void QueueReply(const std::vector<uint8_t>& payload, uint8_t group = 0x60, uint8_t unit = 0x04);
    // Exactly one raw read returns this chunk (a short read).
    void QueueRawRead(const std::vector<uint8_t>& chunk) { m_steps.push_back({Step::Kind::chunk, chunk}); }
    void QueueReadFailure() { m_steps.push_back({Step::Kind::failure, {}}); }
    void QueueCompletion(uint8_t progress, uint8_t result = 0) {
        QueueReply({0x00, 0x80, progress, 0x00, result});
    }
    // The next WriteBytes call stops after `count` bytes (a channel that gave up part-way).
    void TruncateNextWrite(uint32_t count) { m_truncateWrite = count; }
    // Every raw read hands out at most `maxBytes` of the queued bytes (0: as many as asked for).
    void LimitRawReads(uint32_t maxBytes) { m_rawReadLimit = maxBytes; }
    void FailOpen(bool fail = true) { m_failOpen = fail; }

    const std::vector<std::vector<uint8_t>>& RawWrites() const { return m_rawWrites; }
    void ClearWrites() { m_rawWrites.clear(); }
    std::vector<uint8_t> AllWritten() const;
    size_t PendingBytes() const;
    int Opens() const { return m_opens; }
    int Closes() const { return m_closes; }
    int RawReads() const { return m_rawReads; }

    // Used by FakeTransport.
    uint32_t RawWrite(const uint8_t* data, uint32_t length);
    uint32_t RawRead(uint8_t* buffer, uint32_t capacity);
    void Opened();
    void Closed() { ++m_closes; }
    int64_t TakeWriteTruncation() {
        int64_t n = m_truncateWrite;
        m_truncateWrite = -1;
        return n;
    }

private:
    struct Step {
        enum class Kind { bytes, chunk, failure } kind;
        std::vector<uint8_t> bytes;
    };
    std::deque<Step> m_steps;
    std::vector<std::vector<uint8_t>> m_rawWrites;
    int64_t m_truncateWrite = -1;
    bool m_failOpen = false;
    uint32_t m_rawReadLimit = 0;
    int m_opens = 0, m_closes = 0, m_rawReads = 0;
};

// The real vector-level transport base (padding, buffering) over the scripted printer's raw layer.
class FakeTransport : public vela::common::UsbPrintDeviceBase {
public:
    explicit FakeTransport(const std::wstring& devicePath);
    ~FakeTransport() override;
    uint32_t WriteBytes(const uint8_t* data, uint32_t length) override;
    uint32_t ReadBytes(uint8_t* buffer, uint32_t capacity) override;
    void SetWriteCallback(WriteCallback callback) override { m_callback = std::move(callback); }
    void ClearWriteCallback() override { m_callback = nullptr; }

private:
    WriteCallback m_callback;
};

// Takes no lock, counts how often it was held.
class NoOpSynchronizer {
public:
    explicit NoOpSynchronizer(const vela::kom::ConnectedPrinter&) {
        ++Held();
        ++Taken();
    }
    ~NoOpSynchronizer() { --Held(); }
    NoOpSynchronizer(const NoOpSynchronizer&) = delete;
    NoOpSynchronizer& operator=(const NoOpSynchronizer&) = delete;
    static int& Held() { // currently held (0 after every operation)
        static int held = 0;
        return held;
    }
    static int& Taken() { // times taken since the last Reset
        static int taken = 0;
        return taken;
    }
    static void Reset() { Held() = 0, Taken() = 0; }
};

// A reply message framed by the test's own code (independent of the library's).
std::vector<uint8_t> Frame(const std::vector<uint8_t>& payload, uint8_t group = 0x60, uint8_t unit = 0x04);
// Parses "C3 00 00 00 09 60 04 01 80" into bytes.
std::vector<uint8_t> Hex(const std::string& text);
std::string ToHex(const std::vector<uint8_t>& bytes);

} // namespace vela::test
