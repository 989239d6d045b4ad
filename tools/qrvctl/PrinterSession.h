#pragma once

#include "Console.h"
#include "GlobalOptions.h"
#include "qrv/ManagedQRVDeviceGateway.h"
#include "qrv/PrinterListing.h"
#include "sim/Simulator.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vela::qrvctl {

// The printer one command works with, opened through the public gateway as a host application
// would. With --simulate it first starts a simulated printer in this process and registers it
// through QRV_VIRTUAL_PRINTERS (replacing the variable's value for this process), so that
// discovery, the channel, the lock and the monitor all run exactly as for an attached printer.
// Discovery runs once per command: the listing is kept for the command's life.
//
// Not thread-safe: the command's thread uses it. The simulator outlives the gateway.
class PrinterSession {
public:
    // Throws CommandError when the simulator cannot start.
    PrinterSession(const GlobalOptions& options, Console& console);
    ~PrinterSession();
    PrinterSession(const PrinterSession&) = delete;
    PrinterSession& operator=(const PrinterSession&) = delete;

    // What discovery lists (the simulator included), asked once. Throws PrinterException.
    const std::vector<vela::printer::communication::PrinterInfo>& Printers();
    // Lists again (`status --watch` looks for a printer that has come back).
    const std::vector<vela::printer::communication::PrinterInfo>& Rediscover();

    // What a command needs of the printer's status reports: a command that shows no status
    // event opens without them, so that no monitor thread is started and no HID node opened.
    enum class StatusEvents { none, shown };

    // Chooses the printer (--printer, the simulator, or the only one), checks that this user may
    // open its channel, and opens the gateway on it. Repeat calls with the same `events` return
    // the open gateway.
    // A wait of more than about 1 s for the printer's access lock is told on the error stream.
    // Throws CommandError (printerNotFound, usage, accessDenied) and the gateway's host kinds.
    // Blocks on discovery and the gateway's Open (a first folder query; up to about 4 s when the
    // printer's channel fails).
    vela::kom::ManagedQRVDeviceGateway& Open(StatusEvents events = StatusEvents::none);
    // Closes the gateway (the next Open opens it again).
    void Close();

    // The chosen printer (valid after Open).
    const vela::printer::communication::PrinterInfo& Printer() const { return m_printer; }
    std::string PrinterName() const;
    // Why status reports cannot be read, if they cannot (no HID node, no permission); empty
    // otherwise. Valid after Open.
    std::string StatusReportProblem() const;
    // The simulated printer of --simulate; null without it.
    vela::sim::Simulator* Simulator() { return m_simulator.get(); }

private:
    // The name the gateway opens: the printer's own, or, when another listed printer shares it,
    // an alias registered for this process that leads to the chosen printer's paths only.
    std::wstring NameToOpen();

    GlobalOptions m_options;
    Console& m_console;
    std::unique_ptr<vela::sim::Simulator> m_simulator;
    // One discovery per command, for this tool and for the gateway's own look-ups.
    std::optional<vela::printer::communication::DiscoverySnapshot> m_discovery;
    std::optional<std::vector<vela::printer::communication::PrinterInfo>> m_printers;
    vela::printer::communication::PrinterInfo m_printer;
    vela::kom::ManagedQRVDeviceGateway m_gateway;
    StatusEvents m_events = StatusEvents::none; // of the open gateway
};

} // namespace vela::qrvctl
