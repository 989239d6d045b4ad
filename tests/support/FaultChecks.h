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

// How a run ended: success, one of the library's exceptions, or anything else ("foreign": a fault).
struct Outcome {
    bool succeeded = false;
    bool foreign = false;
    std::string kind;        // ExceptionName() of a library exception
    std::string description; // kind and message, for failure messages
};
Outcome RunCatching(const std::function<void()>& run);

struct ResourceSnapshot {
    size_t descriptors = 0;
    size_t threads = 0;
    static ResourceSnapshot Take();
};

// After an operation, failed or not: the access lock is free and no descriptor was left open.
void ExpectReleased(const SimulatedPrinter& printer, const ResourceSnapshot& baseline);

// The request whose reply carries an operation's data (for a put, its completion poll).
vela::sim::RequestKind DataRequest(PrinterOperations::Kind kind);

// Keeps the log of thousands of deliberate failures out of the output (lines are still formatted).
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
