#pragma once

// Shared pieces of the fuzz targets: a scripted printer channel fed from the fuzzer's input, the
// transport and lock policies that run the real protocol template over it, and the checks that
// turn a broken promise of the library into a crash the fuzzer reports.
//
// Every target defines LLVMFuzzerTestOneInput. Built with -fsanitize=fuzzer it is driven by
// libFuzzer; in the ordinary test builds the same file is linked with ReplayMain.cpp, which runs
// it over the committed corpus and regression inputs.

#include "common/Exception.h"
#include "common/StringConverter.h"
#include "common/UsbPrintDeviceBase.h"
#include "kom/device/ConnectedPrinter.h"
#include "kom/device/PrinterDeviceFileSystem.ipp"
#include "kom/device/PrinterDeviceProtocol.ipp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vela::fuzz {

// One-time set-up for every target: logging off (the library logs every failure, which would
// drown the fuzzer's output and slow it down) and the fixed pauses made instant through the pause
// seam. Idempotent.
void Initialize();

// A heap copy of exactly `size` bytes: a parser that reads one byte past the end of what it was
// given trips AddressSanitizer instead of reading the fuzzer's larger buffer.
class ExactBytes {
public:
    ExactBytes(const uint8_t* data, size_t size);
    const uint8_t* Data() const { return m_bytes.get(); }
    size_t Size() const { return m_size; }
    // A vector of exactly this size (its capacity is its size, so overreads are caught too).
    std::vector<uint8_t> ToVector() const;

private:
    std::unique_ptr<uint8_t[]> m_bytes;
    size_t m_size;
};

// Where the scripted printer's replies come from. The first input byte chooses how the channel
// hands bytes out (so that short reads and message boundaries inside raw reads are explored);
// the rest is everything the printer sends, in order. When it runs out, every further read fails
// like a printer that fell silent (the transport's time-out).
//
//   control byte 0      : each raw read returns as much as it is asked for (up to 1024 bytes)
//   control byte n > 0  : each raw read returns at most n bytes
class ScriptedChannel {
public:
    static ScriptedChannel& Instance();

    void Load(const uint8_t* data, size_t size);
    uint32_t Read(uint8_t* buffer, uint32_t capacity);
    void Opened() { ++m_opens; }
    void Closed() { ++m_closes; }
    int Opens() const { return m_opens; }
    int Closes() const { return m_closes; }

private:
    std::vector<uint8_t> m_stream;
    size_t m_position = 0;
    uint32_t m_chunk = 0;
    int m_opens = 0;
    int m_closes = 0;
};

// The transport policy: the production vector-level layer (padding, receive buffer) over the
// scripted channel.
class FuzzTransport : public vela::common::UsbPrintDeviceBase {
public:
    explicit FuzzTransport(const std::wstring& path);
    ~FuzzTransport() override;
    uint32_t WriteBytes(const uint8_t* data, uint32_t length) override;
    uint32_t ReadBytes(uint8_t* buffer, uint32_t capacity) override;
    void SetWriteCallback(WriteCallback callback) override { m_callback = std::move(callback); }
    void ClearWriteCallback() override { m_callback = nullptr; }

private:
    WriteCallback m_callback;
};

// The lock policy: counts holders, so that a target can check the lock was released.
class CountingLock {
public:
    explicit CountingLock(const vela::kom::ConnectedPrinter&) { ++Held(); }
    ~CountingLock() { --Held(); }
    CountingLock(const CountingLock&) = delete;
    CountingLock& operator=(const CountingLock&) = delete;
    static int& Held(); // holders now
};

using FuzzDevice = vela::kom::PrinterDeviceBase<FuzzTransport, CountingLock, vela::common::StringConverter>;

// A protocol object over the scripted channel.
FuzzDevice& Device();

// Reports a broken promise of the library and aborts, so that the fuzzer keeps the input.
[[noreturn]] void Fail(const char* what);
inline void Check(bool condition, const char* what) {
    if (!condition) {
        Fail(what);
    }
}

// Runs one operation over the scripted channel made from `data`. The library may fail only with
// its own exception kinds (anything else escapes and crashes the run); afterwards the lock must be
// free and every transport it opened closed again. Returns true when the operation succeeded.
template <class Operation> bool RunOperation(const uint8_t* data, size_t size, Operation&& operation) {
    ScriptedChannel::Instance().Load(data, size);
    bool succeeded = false;
    try {
        operation(Device());
        succeeded = true;
    } catch (const vela::common::Exception&) {
        // A typed failure is the expected answer to a bad reply.
    }
    Check(CountingLock::Held() == 0, "the access lock is still held after the operation");
    Check(ScriptedChannel::Instance().Opens() == ScriptedChannel::Instance().Closes(),
          "a transport was left open");
    return succeeded;
}

// Runs a pure parser: it may only throw the library's own kinds.
template <class Parse> bool RunParser(Parse&& parse) {
    try {
        parse();
        return true;
    } catch (const vela::common::Exception&) {
        return false;
    }
}

// The bytes that follow the channel control byte and the 7-byte reply header: what a parser of
// the reply payload is handed by the operation (an empty view when the input is shorter).
ExactBytes PayloadAfterHeader(const uint8_t* data, size_t size);

} // namespace vela::fuzz
