#pragma once

#include "kom/discovery/PrintQueueMatcher.h"

#include <string>
#include <vector>

namespace vela::kom {

// The print queues of the local print scheduler (CUPS).
struct PrintSchedulerListing {
    bool reachable = false;         // the scheduler answered
    std::string server;             // whom we asked: a socket path or host[:port]
    std::string problem;            // why not, when it did not answer
    std::vector<PrintQueue> queues; // in the scheduler's order (by name)
};

// Asks the scheduler named by CUPS_SERVER (when set: "/socket/path", "host" or "host:port"),
// otherwise the one the client configuration names (normally the local socket), for its
// printers with a CUPS-Get-Printers request (printer-name, device-uri, printer-type).
// Blocks on: one connection (at most 3 s to connect) and one request (at most 5 s without
// progress). Never throws; a scheduler that is not running or does not answer gives
// reachable = false with the reason. Any thread (the client library keeps its state per thread).
PrintSchedulerListing ListPrintSchedulerQueues();

} // namespace vela::kom
