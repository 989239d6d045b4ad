#pragma once

// Shared pieces of the fuzz targets: the scripted printer of the unit tests fed from the fuzzer's
// input, the real protocol template over it, and the checks that turn a broken promise of the
// library into a crash the fuzzer reports.
//
// Every target defines LLVMFuzzerTestOneInput. Built with -fsanitize=fuzzer it is driven by
// libFuzzer; in the ordinary test builds the same file is linked with ReplayMain.cpp, which runs
// it over the committed corpus and regression inputs.
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

using FuzzDevice = vela::kom::PrinterDeviceBase<vela::test::FakeTransport, vela::test::NoOpSynchronizer,
                                                vela::common::StringConverter>;

// A protocol object over the scripted printer.
FuzzDevice& Device();

// Reports a broken promise of the library and aborts, so that the fuzzer keeps the input.
[[noreturn]] void Fail(const char* what);
inline void Check(bool condition, const char* what) {
    if (!condition) {
        Fail(what);
    }
}

// Runs one operation against a scripted printer made from the input: the first byte chooses how
// many bytes each raw read hands out at most (0: as many as asked for), so that short reads and
// message boundaries inside raw reads are explored; the rest is everything the printer sends, in
// order, after which it falls silent. The library may fail only with its own exception kinds
// (anything else escapes and crashes the run); afterwards the lock must be free and every
// transport it opened closed again. Returns true when the operation succeeded.
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
        // A typed failure is the expected answer to a bad reply.
    }
    Check(vela::test::NoOpSynchronizer::Held() == 0, "the access lock is still held after the operation");
    Check(printer.Opens() == printer.Closes(), "a transport was left open");
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

// The bytes that follow the control byte and the 7-byte reply header: what a parser of the reply
// payload is handed by the operation (an empty view when the input is shorter).
ExactBytes PayloadAfterHeader(const uint8_t* data, size_t size);

} // namespace vela::fuzz
