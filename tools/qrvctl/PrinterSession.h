#pragma once

#include "GlobalOptions.h"
#include "kom/discovery/DiscoveredPrinter.h"
#include "qrv/ManagedQRVDeviceGateway.h"
#include "sim/Simulator.h"

#include <memory>
#include <string>
#include <vector>

namespace vela::qrvctl {

// The printer one command works with, opened through the public gateway as a host application
// would. With --simulate it first starts a simulated printer in this process and registers it
// through QRV_VIRTUAL_PRINTERS (replacing the variable's value for this process), so that
// discovery, the channel, the lock and the monitor all run exactly as for an attached printer.
//
// Not thread-safe: the command's thread uses it. The simulator outlives the gateway.
class PrinterSession {
public:
    // Throws CommandError when the simulator cannot start.
    explicit PrinterSession(const GlobalOptions& options);
    ~PrinterSession();
    PrinterSession(const PrinterSession&) = delete;
    PrinterSession& operator=(const PrinterSession&) = delete;

    // What discovery lists now (the simulator included). Throws the native kinds of discovery.
    std::vector<vela::kom::DiscoveredPrinter> Printers() const;

    // Chooses the printer (--printer, the simulator, or the only one), checks that this user may
    // open its channel, and opens the gateway on it. Repeat calls return the open gateway.
    // Throws CommandError (printerNotFound, usage, accessDenied) and the gateway's host kinds.
    // Blocks on discovery and the gateway's Open (a first folder query; up to about 4 s when the
    // printer's channel fails).
    vela::kom::ManagedQRVDeviceGateway& Open();

    // The chosen printer (valid after Open).
    const vela::kom::DiscoveredPrinter& Printer() const { return m_printer; }
    std::string PrinterName() const;
    // Why status reports cannot be read, if they cannot (no HID node, no permission); empty
    // otherwise. Valid after Open.
    std::string StatusReportProblem() const;
    // The simulated printer of --simulate; null without it.
    vela::sim::Simulator* Simulator() { return m_simulator.get(); }

private:
    GlobalOptions m_options;
    std::unique_ptr<vela::sim::Simulator> m_simulator;
    vela::kom::DiscoveredPrinter m_printer;
    vela::kom::ManagedQRVDeviceGateway m_gateway;
};

} // namespace vela::qrvctl
