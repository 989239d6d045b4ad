#pragma once

#include "sim/RequestDecoder.h"
#include "support/PrinterOperations.h"
#include "support/ProcessHandles.h"
#include "support/SimulatedPrinter.h"
#include "support/SystemProbe.h"

#include <cstddef>
#include <functional>
#include <string>

namespace vela::test {

// How a run ended: success, one of the library's own exceptions (its class name and message), or
// anything else ("foreign": a standard exception or an unknown object - always a fault).
struct Outcome {
    bool succeeded = false;
    bool foreign = false;
    std::string kind;        // ExceptionName() of a library exception
    std::string description; // kind and message, for failure messages
};
Outcome RunCatching(const std::function<void()>& run);

// Descriptor (handle) and thread counts of the process; the baseline and the check allow for the
// in-process simulator holding a handle for a moment (see ProcessHandles.h).
struct ResourceSnapshot {
    size_t descriptors = 0;
    size_t threads = 0;
    static ResourceSnapshot Take();
};

// After an operation, failed or not: the printer's access lock is free (taken without waiting by
// an independent holder) and the process holds no more descriptors than at `baseline`.
void ExpectReleased(const SimulatedPrinter& printer, const ResourceSnapshot& baseline);

// The request whose reply carries an operation's data (for a put, its completion poll).
vela::sim::RequestKind DataRequest(PrinterOperations::Kind kind);

// Keeps the log of thousands of deliberate failures out of the test output; lines are still
// formatted as in production.
class QuietLog {
public:
    QuietLog();
    ~QuietLog();
    QuietLog(const QuietLog&) = delete;
    QuietLog& operator=(const QuietLog&) = delete;

private:
    std::function<void(vela::common::LogLevel, const std::wstring&)> m_previous;
    int m_previousLevel;
};

} // namespace vela::test
