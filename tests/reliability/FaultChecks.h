#pragma once

#include "reliability/PrinterOperations.h"
#include "reliability/SimulatedPrinter.h"
#include "reliability/SystemProbe.h"
#include "sim/RequestDecoder.h"

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

// Descriptor (handle) and thread counts of the process.
struct ResourceSnapshot {
    size_t descriptors = 0;
    size_t threads = 0;
    static ResourceSnapshot Take();
};

// The descriptor (handle) count once the simulator's threads have closed what they hold only for a
// moment. The simulator runs in this process, and right after the host has ended a transaction it
// may still be busy: on Windows it holds an event for every reply it writes until the write has
// completed, and wine holds a wait handle while the simulator's service thread connects and
// disconnects its pipe instances. Counts again, every 5 ms for up to a second, until the count is
// `expected`; a descriptor that was really left open keeps it off.
size_t SettledDescriptorCount(size_t expected);

// After an operation, failed or not: the printer's access lock is free (taken without waiting by
// an independent holder) and the process holds no more descriptors than at `baseline`.
void ExpectReleased(const SimulatedPrinter& printer, const ResourceSnapshot& baseline);

// The request whose reply carries an operation's data (the status, the file, the listing, the
// updater's report): where reply faults are aimed.
vela::sim::RequestKind DataRequest(PrinterOperations::Kind kind);
// The request whose reply a silence fault swallows (the data reply, or the completion poll of a
// put, which has no data reply).
vela::sim::RequestKind SilencedRequest(PrinterOperations::Kind kind);

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
