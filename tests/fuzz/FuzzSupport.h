#pragma once

// The scripted printer fed from the fuzzer's input, the real protocol template over it, and checks
// that turn a broken promise of the library into a crash the fuzzer reports.
#include "common/Exception.h"
#include "common/StringConverter.h"
#include "kom/device/PrinterDeviceFileSystem.ipp"
#include "kom/device/PrinterDeviceProtocol.ipp"
#include "support/FakePrinter.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace vela::fuzz {

// Logging off (it would drown the fuzzer's output) and the fixed pauses instant. Idempotent.
void Initialize();

// A heap copy of exactly `size` bytes: a parser that reads one byte past the end of what it was
// given trips AddressSanitizer instead of reading the fuzzer's larger buffer.
class ExactBytes {
public:
    ExactBytes(const uint8_t* data, size_t size);
    const uint8_t* Data() const { return m_bytes.get(); }
    size_t Size() const { return m_size; }
    std::vector<uint8_t> ToVector() const;

private:
    std::unique_ptr<uint8_t[]> m_bytes;
    size_t m_size;
};

using FuzzDevice = vela::kom::PrinterDeviceBase<vela::test::FakeTransport, vela::test::NoOpSynchronizer,
                                                vela::common::StringConverter>;

FuzzDevice& Device();

// Aborts, so that the fuzzer keeps the input.
[[noreturn]] void Fail(const char* what);
inline void Check(bool condition, const char* what) {
    if (!condition) {
        Fail(what);
    }
}

// The first input byte limits each raw read (0: no limit), the rest is what the printer sends
// before it falls silent. Only the library's own exception kinds may leave; afterwards the lock
// is free and every transport closed. Returns true when the operation succeeded.
template <class Operation> bool RunOperation(const uint8_t* data, size_t size, Operation&& operation) {
    vela::test::FakePrinter printer;
    if (size > 1) {
        printer.LimitRawReads(data[0]);
        printer.QueueBytes(std::vector<uint8_t>(data + 1, data + size));
    }
    vela::test::NoOpSynchronizer::Reset();
    bool succeeded = false;
    try {
        operation(Device());
        succeeded = true;
    } catch (const vela::common::Exception&) {
    }
    Check(vela::test::NoOpSynchronizer::Held() == 0, "the access lock is still held after the operation");
    Check(printer.Opens() == printer.Closes(), "a transport was left open");
    return succeeded;
}

template <class Parse> bool RunParser(Parse&& parse) {
    try {
        parse();
        return true;
    } catch (const vela::common::Exception&) {
        return false;
    }
}

// The bytes after the control byte and the 7-byte reply header (empty when the input is shorter).
ExactBytes PayloadAfterHeader(const uint8_t* data, size_t size);

} // namespace vela::fuzz
