#include "PrinterSession.h"

#include "ChannelAccess.h"
#include "CommandError.h"
#include "PrinterChoice.h"
#include "common/StringConverter.h"
#include "kom/discovery/QRVPrinters.h"

#include <exception>

namespace vela::qrvctl {

using vela::common::StringConverter;

PrinterSession::PrinterSession(const GlobalOptions& options) : m_options(options) {
    if (!m_options.simulate) {
        return;
    }
    vela::sim::Simulator::Options simulator;
    simulator.name = m_options.printer.empty() ? kSimulatorName : m_options.printer;
    simulator.model = "410";
    try {
        m_simulator = std::make_unique<vela::sim::Simulator>(simulator);
    } catch (const std::exception& e) {
        throw CommandError(ExitCode::failure,
                           std::string("the simulated printer did not start: ") + e.what());
    }
    m_simulator->ExportToEnvironment();
    m_options.printer = simulator.name;
}

PrinterSession::~PrinterSession() {
    // The gateway stops its monitor before the simulator's channels go away.
    m_gateway.Close();
}

std::vector<vela::kom::DiscoveredPrinter> PrinterSession::Printers() const {
    return vela::kom::QRVPrinters().ListPrinters();
}

vela::kom::ManagedQRVDeviceGateway& PrinterSession::Open() {
    if (m_gateway.IsOpen()) {
        return m_gateway;
    }
    const auto printers = Printers();
    m_printer = ChoosePrinter(printers, m_options.printer);
    const std::string name = PrinterName();
    if (m_printer.printerPath.empty()) {
        throw CommandError(ExitCode::printerNotFound,
                           "'" + name +
                               "' is on USB but has no printer channel (the usblp driver is not bound)",
                           "`qrvctl doctor` says what is missing.");
    }
    if (!m_printer.isVirtual) {
        if (auto problem = CheckChannelAccess(m_printer.printerPath)) {
            throw CommandError(
                ExitCode::accessDenied,
                "cannot open '" + name + "' (" + problem->path + "): " + problem->reason,
                "`qrvctl doctor` prints the udev rule and group that let you use the printer.");
        }
    }
    m_gateway.Open(m_printer.printerName);
    return m_gateway;
}

std::string PrinterSession::PrinterName() const {
    return StringConverter::ToUtf8(m_printer.printerName);
}

std::string PrinterSession::StatusReportProblem() const {
    if (m_printer.hidPath.empty()) {
        return "the printer has no status report (HID) interface";
    }
    if (!m_printer.isVirtual) {
        if (auto problem = CheckChannelAccess(m_printer.hidPath)) {
            return "cannot read status reports from " + problem->path + ": " + problem->reason;
        }
    }
    return std::string();
}

} // namespace vela::qrvctl
