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

// Descriptor (handle) and thread counts of the process. The simulator runs in this process and
// may hold a handle for a moment while, or right after, the host ends a transaction (on Windows an
// event for every reply it writes; under wine a wait handle while its service thread connects and
// disconnects pipe instances): the baseline is the fewest of a few counts, and a check counts again
// until it settles (SettledHandleCount).
struct ResourceSnapshot {
    size_t descriptors = 0;
    size_t threads = 0;
    static ResourceSnapshot Take();
};

// After an operation, failed or not: the printer's access lock is free (taken without waiting by
// an independent holder) and the process holds no more descriptors than at `baseline`.
void ExpectReleased(const SimulatedPrinter& printer, const ResourceSnapshot& baseline);

// The request whose reply carries an operation's data (the status, the file, the listing, the
// updater's report; for a put, which has no data reply, its completion poll): where reply and
// silence faults are aimed.
vela::sim::RequestKind DataRequest(PrinterOperations::Kind kind);

// Keeps the library's log out of the test output (thousands of runs fail on purpose) while it
// lives; errors still count as lines, so formatting runs as in production.
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
