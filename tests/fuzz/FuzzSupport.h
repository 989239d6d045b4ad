#pragma once

// The real protocol template over a printer scripted by the input; a broken promise crashes.
#include "common/Exception.h"
#include "common/StringConverter.h"
#include "kom/device/PrinterDeviceFileSystem.ipp"
#include "kom/device/PrinterDeviceProtocol.ipp"
#include "support/FakePrinter.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace vela::fuzz {

// Logging off and the fixed pauses instant; libFuzzer (and the replay program) call it once.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

// An exactly sized heap copy, so that a read past the end trips AddressSanitizer.
using ExactBytes = std::vector<uint8_t>;

using FuzzDevice = vela::kom::PrinterDeviceBase<vela::test::FakeTransport, vela::test::NoOpSynchronizer,
                                                vela::common::StringConverter>;

inline FuzzDevice& Device() {
    static FuzzDevice device(vela::kom::ConnectedPrinter{0x0922, 0x0025, L"fuzz-channel", L"Fuzz Printer"});
    return device;
}

[[noreturn]] inline void Fail(const char* what) {
    std::fprintf(stderr, "fuzz check failed: %s\n", what);
    std::abort();
}
inline void Check(bool condition, const char* what) {
    if (!condition) {
        Fail(what);
    }
}

// Byte 0 limits each raw read, the rest is sent; only library errors leave, nothing stays held.
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

// The bytes after the control byte, and after the 7-byte reply header too (empty when shorter).
inline ExactBytes AfterControlByte(const uint8_t* data, size_t size) {
    return size > 1 ? ExactBytes(data + 1, data + size) : ExactBytes();
}
inline ExactBytes PayloadAfterHeader(const uint8_t* data, size_t size) {
    return size > 8 ? ExactBytes(data + 8, data + size) : ExactBytes();
}

} // namespace vela::fuzz
